"""Conic problems: what a conic model hands to a solver, and what comes back.

A back end is an object with a method `solve(problem)`, which takes a `ConicProblem` and returns a
`ConicSolution`, and an attribute `seconds`, the time it spent solving. It keeps nothing between two
calls: the model hands over all of the problem each time.
"""

import math
from array import array
from dataclasses import dataclass, fields
from typing import List

from ..data.buffers import zeros

QUADRATIC, SEMIDEFINITE = "quadratic", "semidefinite"
OFF_DIAGONAL = math.sqrt(2.0)  # a slot off the diagonal is the entry of its matrix times this


def triangle(dim):
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

    offset: array
    subi: array
    subj: array
    cof: array
    barsubi: array
    barsubj: array
    matsubi: array
    matsubj: array
    matcof: array

    @classmethod
    def zero(cls, count):
        """`count` forms without terms."""
        lists = (array(kind) for kind in "iidiiiid")
        return cls(zeros("f64", count), *lists)

    def __len__(self):
        return len(self.offset)

    def add(self, forms, at):
        """Adds form k of `forms` to form at[k]."""
        for k, offset in enumerate(forms.offset):
            self.offset[at[k]] += offset
        self.subi.extend(map(at.__getitem__, forms.subi))
        self.barsubi.extend(map(at.__getitem__, forms.barsubi))
        for name in ("subj", "cof", "barsubj", "matsubi", "matsubj", "matcof"):
            getattr(self, name).extend(getattr(forms, name))

    def copy(self):
        return Forms(*(getattr(self, field.name)[:] for field in fields(self)))


@dataclass
class Cone:
    """A cone over the slots `first` up to but not including `first` + `size`.

    "quadratic": the first slot is at least the Euclidean norm of the others.
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
class ConicProblem:
    """Minimise, or with `maximize` maximise, form 0 of `rows` so that

        row_lower[i] <= form i of `rows` <= row_upper[i] for i from 1 on,
        column_lower[j] <= x[j] <= column_upper[j] for j from 1 on,
        the forms of `slots` lie in the cones, each slot in one cone,
        the matrix X[j] of dimension dims[j] is positive semidefinite.

    Bounds (f64) may be infinite; entry 0 of each list of bounds is unused. `blocks` (i32) tells the
    order in which the variables were made: -n stands for the next n columns, d > 0 for the next
    matrix, of dimension d.
    """

    maximize: bool
    column_lower: array
    column_upper: array
    rows: Forms
    row_lower: array
    row_upper: array
    slots: Forms
    cones: List[Cone]
    blocks: array

    @property
    def dims(self):
        return [d for d in self.blocks if d > 0]


@dataclass
class ConicSolution:
    """`status` is "optimal", "infeasible" or "unbounded"; all else (f64) is there for "optimal".

    By column (entry 0 unused): levels `xx`, duals `slx`, `sux` of the lower and of the upper bound.
    By row (entry 0 unused): levels `xc`, offsets included, and duals `slc`, `suc`. By slot: levels
    `accx`, duals `accy`. By entry of the semidefinite variables, their lower triangles column by
    column, one variable behind the other: levels `barx`, duals `bars`, matrix entries as they are.

    In a minimisation the duals of bounds are at least 0, and those of cones and of semidefinite
    variables lie in the same cones; in a maximisation all have the other sign. In both, the
    gradient of form 0 is the sum over rows, columns, slots and variables of dual times gradient,
    with `slc` - `suc` for a row and `slx` - `sux` for a column.
    """

    status: str
    objective: float = float("nan")
    xx: array = None
    slx: array = None
    sux: array = None
    xc: array = None
    slc: array = None
    suc: array = None
    accx: array = None
    accy: array = None
    barx: array = None
    bars: array = None
