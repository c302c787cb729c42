"""What a model hands to a solver, and what comes back.

Signs. A dual is the change of the objective for a unit of its side, for minimising and maximising
alike: where a row `a x >= 2` has the dual 3, the side 2.01 makes the objective greater by 0.03.

    row or column    the dual is that of the lower side minus that of the upper one, `slc - suc` and
                     `slx - sux`: one of the two is 0. In a minimisation each is at least 0, in a
                     maximisation at most 0. So a lower side of a minimum has a dual >= 0, an upper
                     one <= 0, and an equation one of any sign.
    cone             a slot more by d in the form makes the objective less by dual * d: the side
                     of `form >= 0` is the 0. In a minimisation the duals lie in the dual cone, in
                     a maximisation their negatives do.

                     quadratic       itself: the first at least the norm of the others
                     rotated         itself: twice the product of the first two at least the sum of
                                     squares of the others, these two at least 0
                     semidefinite    itself, in slots: semidefinite as a matrix

    semidefinite     the dual matrix is semidefinite in a minimisation, its negative in a
    variable         maximisation.

For all of them together: the gradient of the objective is the sum over rows, columns, slots and
variables of dual times gradient, and the product of each dual with what it keeps apart (a level and
its side, the slots of a cone, the two matrices) is 0.
"""

from __future__ import annotations

import math
from array import array
from dataclasses import dataclass, fields, replace
from typing import Iterable, List, Optional, Tuple

from ..data.buffers import zeros
from ..data.entries import gathered

QUADRATIC, ROTATED, SEMIDEFINITE = "quadratic", "rotated", "semidefinite"
OFF_DIAGONAL = math.sqrt(2.0)  # a slot off the diagonal is the entry of its matrix times this

OPTIMAL, FEASIBLE, INFEASIBLE, UNBOUNDED = "optimal", "feasible", "infeasible", "unbounded"
INFEASIBLE_OR_UNBOUNDED = "infeasible or unbounded"
INACCURATE, LIMIT = "inaccurate", "limit"


def triangle(dim: int) -> List[Tuple[int, int]]:
    """The places (row, column) of the lower triangle of a matrix, column by column."""
    return [(i, j) for j in range(dim) for i in range(j, dim)]


@dataclass
class Forms:
    """Affine forms of the columns x and the semidefinite variables X. Form i is

        offset[i] + sum of cof[k] * x[subj[k]] over the k with subi[k] = i
                  + sum of <A, X[j]> over the variables j,

    the matrix A of form i and variable j by its lower triangle: for each k with barsubi[k] = i and
    barsubj[k] = j it has matcof[k] at row matsubi[k] and column matsubj[k] <= matsubi[k], and at
    the mirrored place. Places not listed are zero, and what is listed twice adds up.

    offset, cof, matcof: f64; all other lists: i32. Columns count from 1, all else from 0.
    """

    offset: array[float]
    subi: array[int]
    subj: array[int]
    cof: array[float]
    barsubi: array[int]
    barsubj: array[int]
    matsubi: array[int]
    matsubj: array[int]
    matcof: array[float]

    @classmethod
    def zero(cls, count: int) -> Forms:
        """`count` forms without terms."""
        i32, f64 = array("i"), array("d")
        return cls(zeros("f64", count), i32[:], i32[:], f64[:], i32[:], i32[:], i32[:], i32[:],
                   f64[:])

    def __len__(self) -> int:
        return len(self.offset)

    def add(self, forms: Forms, at: array[int]) -> None:
        """Adds form k of `forms` to form at[k]."""
        for k, offset in enumerate(forms.offset):
            self.offset[at[k]] += offset
        self.add_terms(replace(forms, subi=gathered(at, forms.subi),
                               barsubi=gathered(at, forms.barsubi)))

    def add_terms(self, forms: Forms) -> None:
        """Adds all terms of each of the `forms` to the one of its number."""
        for field in fields(self)[1:]:
            getattr(self, field.name).extend(getattr(forms, field.name))

    def copy(self) -> Forms:
        return Forms(*(getattr(self, field.name)[:] for field in fields(self)))


@dataclass
class Cone:
    """A cone over the slots a from `first` up to but not including `first` + `size`.

    "quadratic": a[0] is at least the Euclidean norm of the others.
    "rotated": 2 a[0] a[1] is at least the sum of squares of the others, a[0] and a[1] at least 0.
    "semidefinite": the matrix of dimension `dim` is positive semidefinite of which the slots are
    the lower triangle, column by column, size = dim (dim + 1) / 2; entries off the diagonal are
    times the square root of 2, so that the inner product of two lists of slots is that of the
    matrices.
    """

    kind: str
    first: int
    size: int
    dim: int = 0


@dataclass
class Problem:
    """Minimise, or with `maximize` maximise, form 0 of `rows` so that

        row_lower[i] <= form i of `rows` <= row_upper[i] for i from 1 on,
        column_lower[j] <= x[j] <= column_upper[j] for j from 1 on,
        x[j] is a whole number where integer[j] is 1,
        the forms of `slots` lie in the cones, each slot in one cone,
        the matrix X[j] of dimension dims[j] is positive semidefinite.

    Bounds (f64) may be infinite; entry 0 of `integer` and of each list of bounds is unused.
    `blocks` (i32) tells the order in which the variables were made: -n stands for the next n
    columns, d > 0 for the next matrix, of dimension d. `names`: those of the rows and of the
    columns, entry 0 unused, for files.
    """

    maximize: bool
    column_lower: array[float]
    column_upper: array[float]
    integer: bytearray
    rows: Forms
    row_lower: array[float]
    row_upper: array[float]
    slots: Forms
    cones: List[Cone]
    blocks: array[int]
    names: Optional[Tuple[List[str], List[str]]] = None

    @property
    def dims(self) -> List[int]:
        return [d for d in self.blocks if d > 0]

    @property
    def columns(self) -> int:
        return len(self.column_lower) - 1

    def needs(self) -> List[str]:
        """What a solver must take, of "linear", "integer", "quadratic" and "semidefinite"."""
        return needs(self.integer, (cone.kind for cone in self.cones), bool(self.dims))


def needs(integer: bytearray, cones: Iterable[str], matrices: bool) -> List[str]:
    """What a solver must take of a problem with such columns, kinds of cones, and semidefinite
    variables or none."""
    kinds = {SEMIDEFINITE if kind == SEMIDEFINITE else QUADRATIC for kind in cones}
    if matrices:
        kinds.add(SEMIDEFINITE)
    if any(integer):
        kinds.add("integer")
    return ["linear", *sorted(kinds)]


@dataclass
class Solution:
    """What a solver found.

    `status` is one of
        "optimal"
        "feasible"                  the time limit came before the optimum
        "infeasible", "unbounded", "infeasible or unbounded"
        "inaccurate"                nearly optimal: the solver missed the accuracy that it aims at
        "limit"                     the time limit came before anything was found
    `objective` is the value at the levels, `bound` what no solution can better, NaN where there is
    none; `words` is the solver's own account, in one line, `seconds` the time it took.

    Arrays (f64), or None where there are none. By column (entry 0 unused): levels `xx`, duals
    `slx`, `sux` of the lower and of the upper bound. By row (entry 0 is the objective's): levels
    `xc`, offsets included, and duals `slc`, `suc`. By slot: levels `accx`, duals `accy`. By entry
    of the semidefinite variables, their lower triangles column by column, one variable behind the
    other: levels `barx`, duals `bars`, matrix entries as they are.
    """

    status: str
    words: str = ""
    seconds: float = 0.0
    objective: float = math.nan
    bound: float = math.nan
    xx: Optional[array[float]] = None
    slx: Optional[array[float]] = None
    sux: Optional[array[float]] = None
    xc: Optional[array[float]] = None
    slc: Optional[array[float]] = None
    suc: Optional[array[float]] = None
    accx: Optional[array[float]] = None
    accy: Optional[array[float]] = None
    barx: Optional[array[float]] = None
    bars: Optional[array[float]] = None

    @property
    def has_levels(self) -> bool:
        return self.xx is not None

    @property
    def has_duals(self) -> bool:
        return self.slx is not None


def split_duals(duals: array[float], maximize: bool) -> Tuple[array[float], array[float]]:
    """The duals of the lower and of the upper bounds. At most one of the two is in force, and the
    sign of the combined dual tells which."""
    sign = -1.0 if maximize else 1.0
    return (array("d", [d if sign * d > 0.0 else 0.0 for d in duals]),
            array("d", [-d if sign * d < 0.0 else 0.0 for d in duals]))
