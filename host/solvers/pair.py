"""A pair of conic problems, each the dual of the other, as solvers of cones take it.

    minimise  c'u          so that  h + F u in K,  A u = b               u is free
    maximise  b'v - h'z    so that  F'z + A'v = c,  z in K               v is free

K is a product of linear (nonnegative), quadratic and semidefinite cones, each its own dual. Rows of
a semidefinite cone are the lower triangle of its matrix, column by column, entries off the diagonal
times the square root of 2, so that inner products are those of the matrices.
"""

from __future__ import annotations

from dataclasses import dataclass, field, replace
from typing import Callable, List, Sequence, Tuple

from .reduction import Terms

LINEAR = "linear"
FIRST, SECOND = "first", "second"  # of a pair


@dataclass
class Pair:
    """The two problems. `blocks` are the cones in the order of their rows: the kind, and the number
    of rows or the dimension of the matrix."""

    c: List[float] = field(default_factory=list)
    F: List[Terms] = field(default_factory=list)
    h: List[float] = field(default_factory=list)
    blocks: List[Tuple[str, int]] = field(default_factory=list)
    A: List[Terms] = field(default_factory=list)
    b: List[float] = field(default_factory=list)

    def member(self, terms: Terms, constant: float) -> int:
        """A new row of K."""
        self.F.append(terms)
        self.h.append(constant)
        return len(self.h) - 1

    def linear(self, terms: Terms, constant: float) -> int:
        """A new row in a linear cone."""
        if not self.blocks or self.blocks[-1][0] != LINEAR:
            self.blocks.append((LINEAR, 0))
        self.blocks[-1] = LINEAR, self.blocks[-1][1] + 1
        return self.member(terms, constant)

    def equation(self, terms: Terms, side: float) -> int:
        """A new equation in u."""
        self.A.append(terms)
        self.b.append(side)
        return len(self.b) - 1

    def size(self) -> Tuple[int, int]:
        """The numbers of equations and of variables of the second problem."""
        return len(self.c), len(self.h) + len(self.b)

    def pad(self) -> None:
        """Solvers ask for a u and for a row of K."""
        if not self.c:
            self.c.append(1.0)
            self.linear({0: 1.0}, 0.0)
        if not self.h:
            self.linear({}, 1.0)

    def without_equations(self) -> Pair:
        """The same with two rows of K for each equation: v is the difference of their z."""
        pair = replace(self, F=self.F[:], h=self.h[:], blocks=self.blocks[:], A=[], b=[])
        for terms, side in zip(self.A, self.b):
            pair.linear(terms, -side)
            pair.linear({k: -value for k, value in terms.items()}, side)
        return pair


@dataclass
class Found:
    """A solution of a Pair. `status` is "optimal" or "inaccurate", with u, the slacks h + F u, z
    and v; or FIRST or SECOND, whichever of the two is infeasible."""

    status: str
    words: str = ""
    u: Sequence[float] = ()
    slacks: Sequence[float] = ()
    z: Sequence[float] = ()
    v: Sequence[float] = ()


Solver = Callable[[Pair], Found]
