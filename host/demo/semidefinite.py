"""The semidefinite problem of a file in SDPA's sparse format, as a model with a parameter on its
constant side, and solved by CSDP alone.

Both roads hand the solver the same problem in the same order, so that they take the same steps,
also where several matrices are optimal: if the file lists the entries of a matrix in ascending
order, as files do.
"""

from __future__ import annotations

from array import array
from dataclasses import dataclass, replace
from itertools import chain
from typing import Any, Iterable, Iterator, List, Sequence

from ..data.matrices import SparseMatrix
from ..formats.sdpa import SdpaProblem
from ..formulas.algebra import total
from ..formulas.leaves import Parameter, Variable
from ..formulas.tree import Formula
from ..model.constraints import Constraint
from ..model.model import Model
from ..solvers import Options
from ..solvers.csdp import solve_blocks, solve_file
from ..solvers.pair import FIRST, SECOND
from .comparison import Outcome, Roads, Tolerances, count

WITHOUT = {SECOND: "infeasible", FIRST: "unbounded"}  # the one of a pair without a solution


@dataclass
class BuiltModel:
    """An SdpaProblem with the constants of its constraints multiplied by `parameter`. The matrices
    of `x` are its blocks, a diagonal one a vector of its diagonal."""

    model: Model
    x: List[Variable]
    rows: Constraint
    parameter: Parameter


def build(problem: SdpaProblem) -> BuiltModel:
    """Each constraint is an element of the sum over the blocks of a constant matrix times the
    places of the block."""
    model = Model("demo")
    p = model.parameter("p", 1.0)
    x = [model.variable("X%d" % k, (n, n), semidefinite=True) if n > 0
         else model.variable("X%d" % k, -n, lower=0.0) for k, n in enumerate(problem.blocks, 1)]

    def products(first: int, last: int) -> Formula:
        """The inner products of X and the matrices from F[first] on, up to F[last]."""
        return total(matrix @ xk.ravel()
                     for matrix, xk in zip(block_matrices(problem, first, last), x))

    model.maximize(products(0, 1))
    rows = model.constrain("rows", products(1, len(problem.c) + 1) == p * problem.c)
    return BuiltModel(model, x, rows, p)


def block_matrices(problem: SdpaProblem, first: int, last: int) -> Iterator[SparseMatrix]:
    """For each block the SparseMatrix with a row for each of the matrices from F[first] on, up to
    F[last], and a column for each place of the block, row by row, or of its diagonal."""
    triplets = [(array("i"), array("i"), array("d")) for _ in problem.blocks]
    for k, b, i, j, value in zip(problem.matrix, problem.block, problem.row, problem.column,
                                 problem.value):
        if first <= k < last:
            n, (rows, places, values) = problem.blocks[b], triplets[b]
            for place in (i,) if n < 0 else (n * i + j,) if i == j else (n * i + j, n * j + i):
                rows.append(k - first)
                places.append(place)
                values.append(value)
    for n, lists in zip(problem.blocks, triplets):
        yield SparseMatrix.from_triplets(last - first, n * n if n > 0 else -n, *lists)


class SemidefiniteRoads(Roads):
    """Both roads for the problem of a file. Alone, CSDP gets the file as it is; for another p than
    1 only the constants differ."""

    solver, kinds, tolerances = "CSDP", ("matrices", "duals"), Tolerances(1e-6, 1e-4)

    def __init__(self, path: str) -> None:
        self._path, self._problem, self._words = path, SdpaProblem.read(path), ""
        p = self._problem
        blocks = ", ".join("%d diagonal" % -n if n < 0 else "%d x %d" % (n, n) for n in p.blocks)
        self.heading = [
            "problem   " + path,
            "size      " + ", ".join((count(len(p.c), "constraint"), count(len(p.blocks), "block"),
                                      "%d entries" % len(p.value))),
            "blocks    " + (blocks if len(blocks) < 80 else blocks[:76] + " ..."),
        ]

    def build(self) -> BuiltModel:
        return build(self._problem)

    def ours(self, p: Any) -> Outcome:
        built = self.built
        built.parameter.value = p
        result = built.model.solve(solver="csdp", form="standard")
        self.seconds, self._words = self.seconds + result.seconds, result.words
        outcome = Outcome(result.status)
        if outcome.status == "optimal":
            outcome.objective = result.objective
            outcome.levels = [*flat(xk.level for xk in built.x)]
            outcome.duals = [*built.rows.dual, *flat(xk.dual for xk in built.x)]
        return outcome

    def theirs(self, p: Any) -> Outcome:
        problem = replace(self._problem, c=array("d", (p * value for value in self._problem.c)))
        found = (solve_file(self._path, problem.blocks, Options()) if p == 1.0
                 else solve_blocks(problem, Options()))
        outcome = Outcome(WITHOUT.get(found.status, found.status))
        if outcome.status == "optimal":
            outcome.objective = problem.objective(found.X)
            outcome.levels = list(chain.from_iterable(found.X))
            # In a maximisation the dual matrices have the other sign.
            outcome.duals = [*found.y, *(-z for z in chain.from_iterable(found.Z))]
        return outcome

    def why_unsolved(self, outcome: Outcome) -> str:
        return "the semidefinite problem is %s (%s)" % (outcome.status, self._words)


def flat(blocks: Iterable[Sequence[Any]]) -> Iterator[float]:
    """The numbers of matrices, row by row, and of vectors."""
    for block in blocks:
        for row in block:
            yield from row if isinstance(row, list) else (row,)
