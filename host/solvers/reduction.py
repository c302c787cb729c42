"""A conic problem made ready for the translation into its forms, and the way back to its levels and
duals: columns that need no solver are taken out, rotated cones turned into quadratic ones.

Atoms are what forms are made of: column j is atom j, and behind the columns stand the entries of
the semidefinite variables, lower triangles column by column, off the diagonal times the square root
of 2. So the inner product of two matrices is that of their atoms.
"""

from __future__ import annotations

import math
from array import array
from typing import Dict, Iterator, List, Sequence, Tuple

from ..data.buffers import zeros
from .problem import (OFF_DIAGONAL, QUADRATIC, ROTATED, SEMIDEFINITE, Forms, Problem, Solution,
                      split_duals, triangle)

ALMOST = 1e-8  # by how much a row without terms may fail
HALF = math.sqrt(0.5)

Terms = Dict[int, float]


class Reduced:
    """`cost` (Terms) is to be minimised. `rows` are (number, terms, offset, lower, upper) of those
    that have a bound, `slots` (terms, offset). `atoms` are those that are left, `fixed` the levels
    of the others. `contradiction` and `unbounded` say why there is no solution, or no end."""

    def __init__(self, problem: Problem) -> None:
        self.problem = problem
        self.sign = -1.0 if problem.maximize else 1.0
        self.lower, self.upper = problem.column_lower, problem.column_upper
        self.contradiction = self.unbounded = ""
        self._number_atoms()
        forms, slots = self._terms(problem.rows), self._terms(problem.slots)
        self._forms, self._slot_forms = forms, slots
        self.cost = {atom: self.sign * value for atom, value in forms[0].items() if value != 0.0}
        bounded = [i for i in range(1, len(forms))
                   if problem.row_lower[i] > -math.inf or problem.row_upper[i] < math.inf]
        self.fixed = self._fix([*(forms[i] for i in bounded), *slots])
        self.atoms = [atom for atom in range(1, len(self._weight)) if atom not in self.fixed]
        self.cost = {atom: value for atom, value in self.cost.items() if atom not in self.fixed}
        self.rows = [(i, *self._reduce(forms[i], problem.rows.offset[i]), problem.row_lower[i],
                      problem.row_upper[i]) for i in bounded]
        self.rows = [row for row in self.rows if self._counts(*row)]
        self.slots = self._rotate([self._reduce(terms, offset) for terms, offset
                                   in zip(slots, problem.slots.offset)])

    def _number_atoms(self) -> None:
        p = self.problem
        self._first: List[int] = []  # atom of each semidefinite variable
        self._weight = [1.0] * len(p.column_lower)  # of an atom, by which its entry is multiplied
        self._place: Dict[Tuple[int, int, int], int] = {}
        for n, dim in enumerate(p.dims):
            self._first.append(len(self._weight))
            for i, j in triangle(dim):
                self._place[n, i, j] = len(self._weight)
                self._weight.append(1.0 if i == j else OFF_DIAGONAL)

    def _terms(self, forms: Forms) -> List[Terms]:
        result: List[Terms] = [{} for _ in range(len(forms))]
        for i, j, value in zip(forms.subi, forms.subj, forms.cof):
            result[i][j] = result[i].get(j, 0.0) + value
        for i, n, k, l, value in zip(forms.barsubi, forms.barsubj, forms.matsubi, forms.matsubj,
                                     forms.matcof):
            atom = self._place[n, k, l]
            result[i][atom] = result[i].get(atom, 0.0) + value * self._weight[atom]
        return result

    def _fix(self, forms: List[Terms]) -> Dict[int, float]:
        """The columns that can have but one level, and those in none of the forms: they are best
        at one of their bounds."""
        used = {atom for terms in forms for atom in terms}
        fixed: Dict[int, float] = {}
        for j in range(1, len(self.lower)):
            lower, upper, cost = self.lower[j], self.upper[j], self.cost.get(j, 0.0)
            if lower > upper:
                self.contradiction = "the bounds of column %d leave no room" % j
            elif lower == upper:
                fixed[j] = lower
            elif j not in used:
                best = lower if cost > 0.0 else upper if cost < 0.0 else 0.0
                if math.isinf(best):
                    self.unbounded, best = "column %d has no end" % j, 0.0
                fixed[j] = min(max(best, lower), upper)
        return fixed

    def _reduce(self, terms: Terms, offset: float) -> Tuple[Terms, float]:
        """The form without the fixed atoms."""
        gone = [atom for atom in terms if atom in self.fixed]
        offset += math.fsum(terms[atom] * self.fixed[atom] for atom in gone)
        return {atom: value for atom, value in terms.items()
                if value != 0.0 and atom not in self.fixed}, offset

    def _counts(self, i: int, terms: Terms, offset: float, lower: float, upper: float) -> bool:
        """Whether a row has to be looked at; one without terms holds or doesn't."""
        room = ALMOST * max(1.0, abs(offset))  # fixed columns may have left a rounding error
        if lower > upper:
            self.contradiction = "the bounds of row %d leave no room" % i
        elif not terms and not lower - room <= offset <= upper + room:
            self.contradiction = "row %d has no terms and does not hold" % i
        return len(terms) > 0

    def _rotate(self, slots: List[Tuple[Terms, float]]) -> List[Tuple[Terms, float]]:
        for cone in self.problem.cones:
            if cone.kind == ROTATED:
                (s, a), (t, b) = slots[cone.first : cone.first + 2]
                for k, sign in ((0, 1.0), (1, -1.0)):
                    terms = {atom: HALF * (s.get(atom, 0.0) + sign * t.get(atom, 0.0))
                             for atom in {**s, **t}}
                    slots[cone.first + k] = ({atom: v for atom, v in terms.items() if v != 0.0},
                                             HALF * (a + sign * b))
        return slots

    def is_free(self, atom: int) -> bool:
        """Whether it is a column without bounds, and not taken out."""
        return (atom < len(self.lower) and atom not in self.fixed
                and self.lower[atom] == -math.inf and self.upper[atom] == math.inf)

    def variables(self) -> Iterator[Tuple[int, Sequence[int]]]:
        """In the order in which they were made: the dimension of a matrix, or 0 for columns, and
        the atoms."""
        column, n = 1, 0
        for block in self.problem.blocks:
            if block < 0:
                yield 0, range(column, column - block)
                column -= block
            else:
                first = self._first[n]
                yield block, range(first, first + block * (block + 1) // 2)
                n += 1

    def cones(self) -> Iterator[Tuple[str, int, Sequence[int]]]:
        """The kind, the size or dimension, and the slots of each."""
        for cone in self.problem.cones:
            slots = range(cone.first, cone.first + cone.size)
            if cone.kind == SEMIDEFINITE:
                yield SEMIDEFINITE, cone.dim, slots
            else:
                yield QUADRATIC, cone.size, slots

    # And back.

    def objective(self, levels: Dict[int, float]) -> float:
        """The objective where the atoms have these levels."""
        return self.problem.rows.offset[0] + math.fsum(
            value * levels[atom] for atom, value in self._forms[0].items())

    def solution(self, status: str, words: str, levels: Dict[int, float],
                 row_duals: Sequence[float], slot_duals: Sequence[float],
                 matrix_duals: Sequence[float]) -> Solution:
        """The Solution of the problem: from the levels of the atoms that are left, and the duals,
        as in a minimisation, of the `rows`, of the `slots` and of the entries of matrices."""
        p, count, sign = self.problem, len(self.lower), self.sign
        level = [0.0] * len(self._weight)
        for atom, value in (*self.fixed.items(), *levels.items()):
            level[atom] = value
        y = zeros("f64", len(p.row_lower))
        for (i, *_), dual in zip(self.rows, row_duals):
            y[i] = sign * dual
        accy = array("d", (sign * dual for dual in slot_duals))
        for cone in p.cones:
            if cone.kind == ROTATED:
                a, b = accy[cone.first : cone.first + 2]
                accy[cone.first], accy[cone.first + 1] = HALF * (a + b), HALF * (a - b)
        xc = values(p.rows, self._forms, level)
        self._require_sides(y, p.row_lower, p.row_upper)
        slc, suc = split_duals(y, p.maximize)
        slx, sux = split_duals(self._column_duals(y, accy), p.maximize)
        entries = range(count, len(level))
        return Solution(
            status, words, objective=xc[0], bound=xc[0] if status == "optimal" else math.nan,
            xx=array("d", level[:count]), slx=slx, sux=sux, xc=xc, slc=slc, suc=suc,
            accx=values(p.slots, self._slot_forms, level), accy=accy,
            barx=array("d", (level[k] / self._weight[k] for k in entries)),
            bars=array("d", (sign * dual / self._weight[k]
                             for k, dual in zip(entries, matrix_duals))))

    def _column_duals(self, y: array[float], accy: array[float]) -> array[float]:
        """What the duals of rows and slots leave of a column's coefficient in the objective."""
        count, costs = len(self.lower), self._forms[0]
        duals = array("d", (costs.get(j, 0.0) for j in range(count)))
        for weights, forms in ((y, self._forms), (accy, self._slot_forms)):
            for weight, terms in zip(weights, forms):
                for atom, value in terms.items() if weight != 0.0 else ():
                    if atom < count:
                        duals[atom] -= weight * value
        self._require_sides(duals, self.lower, self.upper)
        return duals

    def _require_sides(self, duals: array[float], lower: array[float], upper: array[float]) -> None:
        """Duals of a side that isn't there are rounding errors: they become 0."""
        for k, dual in enumerate(duals):
            if dual != 0.0 and math.isinf(lower[k] if self.sign * dual > 0.0 else upper[k]):
                duals[k] = 0.0


def values(forms: Forms, terms: List[Terms], level: Sequence[float]) -> array[float]:
    """Those of the forms, which have these terms, where the atoms have these levels."""
    return array("d", (offset + math.fsum(v * level[atom] for atom, v in own.items())
                       for offset, own in zip(forms.offset, terms)))
