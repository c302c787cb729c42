"""The two forms of a conic problem, one translation for both, and the rule that takes one of them.

Solvers take a pair of problems, one in u and one in z and v (see pair). A model becomes the first
of them in its geometric form: u are its columns and entries of matrices, K has its bounds, rows and
cones. It becomes the second one in its standard form: z and v are the columns, entries, slacks of
rows and slots of cones, and every row is an equation, whose dual is u. A solver works on equations
in z, one for each u, and is fast where these are few.
"""

from __future__ import annotations

import math
from array import array
from dataclasses import replace
from typing import Dict, List, Sequence, Tuple

from .adapter import AUTOMATIC, GEOMETRIC, STANDARD, Options, SolverError
from .elimination import solve_reduced
from .pair import FIRST, SECOND, Found, Pair, Solver
from .problem import (INACCURATE, INFEASIBLE, INFEASIBLE_OR_UNBOUNDED, OPTIMAL, SEMIDEFINITE,
                      UNBOUNDED, Problem, Solution)
from .reduction import Reduced, Terms


def solve(problem: Problem, options: Options, solver: Solver) -> Solution:
    """The solution of the problem by a solver of pairs."""
    reduced = Reduced(problem)
    if reduced.contradiction:
        return Solution(INFEASIBLE, reduced.contradiction)
    form = choose(reduced, options)
    try:
        found = solve_reduced(form.pair, solver)
    except SolverError as error:
        if options.form != AUTOMATIC:
            raise
        other = GEOMETRIC if form.name == STANDARD else STANDARD
        options.tell("%s; the other form may do better" % error)
        return solve(problem, replace(options, form=other), solver)
    if found.status in (OPTIMAL, INACCURATE):
        return Solution(UNBOUNDED, reduced.unbounded) if reduced.unbounded else form.solution(found)
    if found.status == form.infeasible:
        return Solution(INFEASIBLE, found.words)
    # There is a direction without end; whether there is a point to start from is another question.
    if len(reduced.cost) == 0:
        return Solution(INFEASIBLE_OR_UNBOUNDED, found.words)
    status = solve(without_costs(problem), replace(options, form=form.name), solver).status
    statuses = {OPTIMAL: UNBOUNDED, INACCURATE: UNBOUNDED, INFEASIBLE: INFEASIBLE}
    return Solution(statuses.get(status, INFEASIBLE_OR_UNBOUNDED), found.words)


def without_costs(problem: Problem) -> Problem:
    """The same with an objective that is 0."""
    rows = problem.rows.copy()
    rows.offset[0] = 0.0
    rows.cof = array("d", [v if i > 0 else 0.0 for i, v in zip(rows.subi, rows.cof)])
    rows.matcof = array("d", [v if i > 0 else 0.0 for i, v in zip(rows.barsubi, rows.matcof)])
    return replace(problem, rows=rows)


def choose(reduced: Reduced, options: Options) -> Form:
    """The problem in the form that the options name, or in the one that is likely to be solved
    sooner: with m equations over n variables in the primal (p) and in the dual (d) one."""
    if options.form != AUTOMATIC:
        form = (Standard if options.form == STANDARD else Geometric)(reduced)
        options.tell("%s form, as asked for" % form.name)
        return form
    primal, dual = Standard(reduced), Geometric(reduced)
    (mp, np), (md, nd) = primal.pair.size(), dual.pair.size()
    form = dual if (mp > np or mp ** 2 * np > md ** 2 * nd) and md <= nd else primal
    options.tell("%s form: the standard one has %d equations over %d variables, the geometric one "
                 "%d over %d" % (form.name, mp, np, md, nd))
    return form


class Form:
    """A problem as a pair. `infeasible` is the one of the two that is the problem itself."""

    name: str
    infeasible: str

    def __init__(self, reduced: Reduced) -> None:
        self.reduced, self.pair = reduced, Pair()
        self._build()
        self.pair.pad()

    def _build(self) -> None:
        raise NotImplementedError

    def solution(self, found: Found) -> Solution:
        """The solution of the problem from one of the pair."""
        raise NotImplementedError


class Geometric(Form):
    name, infeasible = GEOMETRIC, FIRST

    def _build(self) -> None:
        r, pair = self.reduced, self.pair
        self._place = {atom: k for k, atom in enumerate(r.atoms)}
        pair.c = [r.cost.get(atom, 0.0) for atom in r.atoms]
        self._matrix_rows: List[int] = []
        for dim, atoms in r.variables():
            for atom in atoms:
                if dim > 0:
                    self._matrix_rows.append(pair.member({self._place[atom]: 1.0}, 0.0))
                elif atom not in r.fixed:
                    self._bounds({self._place[atom]: 1.0}, 0.0, r.lower[atom], r.upper[atom])
            if dim > 0:
                pair.blocks.append((SEMIDEFINITE, dim))
        self._slot_rows = [0] * len(r.slots)
        for kind, size, slots in r.cones():
            for k in slots:
                terms, offset = r.slots[k]
                self._slot_rows[k] = pair.member(self._terms(terms), offset)
            pair.blocks.append((kind, size))
        self._rows = [self._row(*row) for row in r.rows]

    def _terms(self, terms: Terms) -> Terms:
        return {self._place[atom]: value for atom, value in terms.items()}

    def _row(self, _: int, terms: Terms, offset: float, lower: float, upper: float
             ) -> Tuple[int, int, int]:
        """Returns the equation, or the rows of the lower and of the upper bound; -1 for none."""
        own = self._terms(terms)
        if lower == upper:
            return self.pair.equation(own, lower - offset), -1, -1
        return (-1, *self._bounds(own, offset, lower, upper))

    def _bounds(self, terms: Terms, offset: float, lower: float, upper: float) -> Tuple[int, int]:
        minus = {k: -value for k, value in terms.items()}
        return (self.pair.linear(terms, offset - lower) if lower > -math.inf else -1,
                self.pair.linear(minus, upper - offset) if upper < math.inf else -1)

    def solution(self, found: Found) -> Solution:
        return self.reduced.solution(
            found.status, found.words,
            dict(zip(self.reduced.atoms, found.u)),
            [at(found.v, equation) + at(found.z, lower) - at(found.z, upper)
             for equation, lower, upper in self._rows],
            [found.z[k] for k in self._slot_rows],
            [found.z[k] for k in self._matrix_rows])


class Standard(Form):
    """Each atom is shift + scale * z[k], or v[k] where the scale is 0."""

    name, infeasible = STANDARD, SECOND

    def _build(self) -> None:
        r, pair = self.reduced, self.pair
        self._parts: Dict[int, Tuple[int, float, float]] = {}
        self._matrix_rows: List[int] = []
        bare = self._bare_slots()
        for dim, atoms in r.variables():
            for atom in atoms:
                if dim > 0:
                    self._matrix_rows.append(self._member(atom))
                elif atom not in r.fixed and atom not in bare:
                    self._column(atom, r.lower[atom], r.upper[atom])
            if dim > 0:
                pair.blocks.append((SEMIDEFINITE, dim))
        members = [0] * len(r.slots)
        for kind, size, slots in r.cones():
            for k in slots:
                members[k] = pair.member({}, 0.0)
            pair.blocks.append((kind, size))
        for atom, k in bare.items():
            terms, offset = r.slots[k]
            self._parts[atom] = members[k], 1.0 / terms[atom], -offset / terms[atom]
        self._costs()
        taken = set(bare.values())
        self._rows = [self._row(*row) for row in r.rows]
        # By slot the equation that it has, or the complement of its row of K.
        self._slots = [~members[k] if k in taken else self._equation(terms, -offset,
                                                                     {members[k]: -1.0})
                       for k, (terms, offset) in enumerate(r.slots)]

    def _bare_slots(self) -> Dict[int, int]:
        """The slots that are nothing but a free column, by column."""
        r, bare = self.reduced, {}  # type: Reduced, Dict[int, int]
        for k, (terms, _) in enumerate(r.slots):
            if len(terms) == 1:
                (atom,) = terms
                if r.is_free(atom):
                    bare.setdefault(atom, k)
        return bare

    def _member(self, atom: int) -> int:
        k = self.pair.member({}, 0.0)
        self._parts[atom] = k, 1.0, 0.0
        return k

    def _column(self, atom: int, lower: float, upper: float) -> None:
        pair = self.pair
        if lower > -math.inf:
            k = pair.linear({}, 0.0)
            self._parts[atom] = k, 1.0, lower
            if upper < math.inf:
                self._equation({}, upper - lower, {k: 1.0, pair.linear({}, 0.0): 1.0})
        elif upper < math.inf:
            self._parts[atom] = pair.linear({}, 0.0), -1.0, upper
        else:
            self._parts[atom] = pair.equation({}, 0.0), 0.0, 0.0

    def _costs(self) -> None:
        for atom, value in self.reduced.cost.items():
            k, scale, _ = self._parts[atom]
            if scale == 0.0:
                self.pair.b[k] = -value
            else:
                self.pair.h[k] = scale * value

    @property
    def constant(self) -> float:
        """What the objective is where z and v are 0."""
        shifts = {atom: shift for atom, (_, _, shift) in self._parts.items()}
        return self.reduced.objective({**self.reduced.fixed, **shifts})

    def _equation(self, terms: Terms, side: float, slacks: Terms) -> int:
        """The terms and, by row of K, the slacks add up to the side."""
        pair, number = self.pair, len(self.pair.c)
        for k, value in slacks.items():
            pair.F[k][number] = value
        for atom, value in terms.items():
            k, scale, shift = self._parts[atom]
            side -= value * shift
            row = pair.A[k] if scale == 0.0 else pair.F[k]
            row[number] = row.get(number, 0.0) + (value if scale == 0.0 else value * scale)
        pair.c.append(side)
        return number

    def _row(self, _: int, terms: Terms, offset: float, lower: float, upper: float) -> int:
        if lower == upper:
            return self._equation(terms, lower - offset, {})
        slack = self.pair.linear({}, 0.0)
        if lower == -math.inf:
            return self._equation(terms, upper - offset, {slack: 1.0})
        number = self._equation(terms, lower - offset, {slack: -1.0})
        if upper < math.inf:
            self._equation({}, upper - lower, {slack: 1.0, self.pair.linear({}, 0.0): 1.0})
        return number

    def solution(self, found: Found) -> Solution:
        return self.reduced.solution(
            found.status, found.words,
            {atom: shift + scale * found.z[k] if scale else found.v[k]
             for atom, (k, scale, shift) in self._parts.items()},
            [-found.u[k] for k in self._rows],
            [-found.u[k] if k >= 0 else found.slacks[~k] for k in self._slots],
            [found.slacks[k] for k in self._matrix_rows])


def at(values: Sequence[float], k: int) -> float:
    """The value at place k, 0 where there is none."""
    return values[k] if k >= 0 else 0.0
