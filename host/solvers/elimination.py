"""A pair of problems without equations in u, and without a u that the others make superfluous.

Each equation A[r] u = b[r] is solved for one u, which is put into all that is left: Gaussian
elimination, with pivots that are not small in their row and stand in few others. What of it has no
terms left was implied by the others, or contradicts them; that goes for the equations of the second
problem as well, one for each u.
"""

from __future__ import annotations

from dataclasses import replace
from typing import Dict, List, Set, Tuple

from .pair import FIRST, SECOND, Found, Pair, Solver
from .reduction import Terms

ALMOST = 1e-8  # by how much, relative to its side, an equation without terms may fail
NOTHING = 1e-11  # relative to the coefficients that a row had: what is less is a rounding error
MOST = 10 ** 7  # steps to look for equations that others imply
SMALL = 0.1  # relative to the greatest coefficient of a row: what is less is no pivot


def solve_reduced(pair: Pair, solver: Solver) -> Found:
    """The solution of the pair, by a solver that gets it without equations."""
    steps = Elimination(pair.A, pair.b, [*pair.F, dict(enumerate(pair.c))], [*pair.h, 0.0])
    if steps.contradiction:
        return Found(FIRST, "seen before it was solved")
    *F, costs = steps.others
    left = [k for k in range(len(pair.c)) if k not in steps.pivots]
    columns: List[Terms] = [{} for _ in pair.c]
    for row, terms in enumerate(F):
        for k, value in terms.items():
            columns[k][row] = value
    c = [costs.get(k, 0.0) for k in range(len(pair.c))]
    doubtful = core({k: columns[k] for k in left})
    duals = Elimination([columns[k] for k in doubtful], [c[k] for k in doubtful], [], [])
    if duals.contradiction:
        return Found(SECOND, "seen before it was solved")
    gone = {k for i, k in enumerate(doubtful) if i not in duals.kept}
    left = [k for k in left if k not in gone]
    number = {k: i for i, k in enumerate(left)}
    reduced = replace(pair, c=[c[k] for k in left], h=steps.sides[:-1], A=[], b=[], F=[
        {number[k]: value for k, value in terms.items() if k in number} for terms in F],
        blocks=pair.blocks[:])
    rows = len(pair.h)
    reduced.pad()
    found = solver(reduced)
    if not found.u:
        return found
    u = [0.0] * len(pair.c)
    for k, value in zip(left, found.u):
        u[k] = value
    z = list(found.z[:rows])
    steps.solve(u)
    return replace(found, u=u, slacks=found.slacks[:rows], z=z, v=steps.multipliers(z))


def core(equations: Dict[int, Terms]) -> List[int]:
    """The equations that may depend on each other: without those that have a place alone, nor
    those that have one alone when these are gone, and so on. None if to find out would take long.
    """
    users: Dict[int, Set[int]] = {}
    for k, terms in equations.items():
        for place in terms:
            users.setdefault(place, set()).add(k)
    left, alone = dict(equations), [place for place, own in users.items() if len(own) == 1]
    while alone:
        for k in users[alone.pop()].copy():
            for place in left.pop(k):
                users[place].discard(k)
                if len(users[place]) == 1:
                    alone.append(place)
    return list(left) if len(left) * sum(map(len, left.values())) <= MOST else []


class Elimination:
    """Equations `terms` = `sides` solved one by one, each for the place of its pivot, and put into
    the `others`, forms with constants `sides` from then on. `kept` are the equations that count."""

    def __init__(self, equations: List[Terms], sides: List[float], others: List[Terms],
                 constants: List[float]) -> None:
        self.count = len(others)
        self._rows = [dict(terms) for terms in (*others, *equations)]
        self._sides = [*constants, *(-side for side in sides)]
        self._users: Dict[int, Set[int]] = {}
        for row, terms in enumerate(self._rows):
            for k in terms:
                self._users.setdefault(k, set()).add(row)
        self.contradiction = False
        self.kept: Set[int] = set()
        self.pivots: Set[int] = set()
        # By step the row, its pivot, terms and constant, and the coefficients of the pivot in
        # the other rows.
        self._steps: List[Tuple[int, int, Terms, float, Terms]] = []
        for row in sorted(range(self.count, len(self._rows)),
                          key=lambda row: len(self._rows[row])):
            self._eliminate(row, largest(equations[row - self.count]),
                            max(1.0, abs(sides[row - self.count])))

    @property
    def others(self) -> List[Terms]:
        return self._rows[: self.count]

    @property
    def sides(self) -> List[float]:
        return self._sides[: self.count]

    def _eliminate(self, row: int, size: float, side: float) -> None:
        terms, constant = self._rows[row], self._sides[row]
        greatest = largest(terms)
        if greatest <= NOTHING * size:
            self.contradiction |= abs(constant) > ALMOST * side
            for k in terms:
                self._users[k].discard(row)
            terms.clear()
            return
        pivot = min((k for k, value in terms.items() if abs(value) >= SMALL * greatest),
                    key=lambda k: len(self._users[k]))
        for k in terms:
            self._users[k].discard(row)
        column = {}
        for other in self._users.pop(pivot):
            column[other] = self._rows[other].pop(pivot)
            self._subtract(other, terms, constant, column[other] / terms[pivot], pivot)
        self._steps.append((row, pivot, terms, constant, column))
        self.kept.add(row - self.count)
        self.pivots.add(pivot)

    def _subtract(self, other: int, terms: Terms, constant: float, factor: float, pivot: int
                  ) -> None:
        target = self._rows[other]
        for k, value in terms.items():
            if k == pivot:
                continue
            if k not in target:
                self._users[k].add(other)
            target[k] = target.get(k, 0.0) - factor * value
        self._sides[other] -= factor * constant

    def solve(self, u: List[float]) -> None:
        """Sets the pivots of u from the others."""
        for _, pivot, terms, constant, _ in reversed(self._steps):
            rest = sum(value * u[k] for k, value in terms.items() if k != pivot)
            u[pivot] = -(constant + rest) / terms[pivot]

    def multipliers(self, z: List[float]) -> List[float]:
        """By equation, the v with which others' combination by the z, and by -1 for the last one,
        has no pivot in it: the sum over all rows of multiplier times terms is 0 there."""
        weights = [*z, -1.0] + [0.0] * (len(self._rows) - self.count)
        for row, pivot, terms, _, column in reversed(self._steps):
            weights[row] = -sum(value * weights[k] for k, value in column.items()) / terms[pivot]
        return weights[self.count :]


def largest(terms: Terms) -> float:
    """The size of the largest coefficient."""
    return max((abs(value) for value in terms.values()), default=0.0)
