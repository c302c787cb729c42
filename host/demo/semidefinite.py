"""The semidefinite problem of a file in SDPA's sparse format, built by closures with a parameter on
its constant side, and solved by CSDP alone.

Both roads hand the solver the same problem in the same order, so that they take the same steps,
also where several matrices are optimal: if the file lists the entries of a matrix in ascending
order, as files do.
"""

from array import array
from dataclasses import dataclass, replace
from itertools import chain
from typing import List

from .comparison import Outcome, Roads, Tolerances, count
from ..model.conic import ConicModel
from ..solvers.csdp import Csdp, solve_blocks, solve_file
from ..data.matrices import SparseMatrix
from ..model.linear import Constraint, Parameter
from ..formats.sdpa import SdpaProblem
from ..index_maps.variables import Variable


@dataclass
class ScaledModel:
    """An SdpaProblem with the constants of its constraints multiplied by the parameter `scale`. The
    matrices of `x` are its blocks, a diagonal one a vector of its diagonal."""

    model: ConicModel
    x: List[Variable]
    rows: Constraint
    scale: Parameter


def build(problem, native):
    """The ScaledModel of an SdpaProblem, for the back end `native`: each constraint is an element
    of the sum over the blocks of a constant matrix times the places of the block, less p c."""
    model = ConicModel(native)
    e, p = model.evaluator, model.parameter(1.0)
    x = [model.semidefinite_variable(n) if n > 0 else model.variable([-n], 0.0)
         for n in problem.blocks]
    with e.w.scratch():
        places = [e.push_variable(Variable([len(xk)], xk.nativeidxs)) for xk in x]

        def products(first, last):
            """The inner products of X and the matrices from F[first] on, up to F[last]."""
            parts = [e.mul_left(matrix, xk) for matrix, xk in
                     zip(block_matrices(problem, first, last), places)]
            return e.weighted_sum(parts, [1.0] * len(parts))

        count = len(problem.c)
        model.maximize(products(0, 1))
        pc = e.mul_param_scalar(p.index, e.push_expression([count], problem.c))
        rows = model.constrain(e.weighted_sum([products(1, count + 1), pc], [1.0, -1.0]), 0.0, 0.0)
    return ScaledModel(model, x, rows, p)


def block_matrices(problem, first, last):
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

    def __init__(self, path):
        self._path, self._problem = path, SdpaProblem.read(path)
        self.native = Csdp()
        p = self._problem
        blocks = ", ".join("%d diagonal" % -n if n < 0 else "%d x %d" % (n, n) for n in p.blocks)
        self.heading = [
            "problem   " + path,
            "size      " + ", ".join((count(len(p.c), "constraint"), count(len(p.blocks), "block"),
                                      "%d entries" % len(p.value))),
            "blocks    " + (blocks if len(blocks) < 80 else blocks[:76] + " ..."),
        ]

    def build(self):
        return build(self._problem, self.native)

    def ours(self, p):
        built, model = self.built, self.built.model
        built.scale.value = p
        outcome = Outcome(model.solve())
        if outcome.status == "optimal":
            outcome.objective = model.objective()
            outcome.levels = list(chain.from_iterable(map(model.levels, built.x)))
            outcome.duals = [*model.row_duals(built.rows),
                             *chain.from_iterable(map(model.duals, built.x))]
        return outcome

    def theirs(self, p):
        problem = replace(self._problem, c=array("d", (p * value for value in self._problem.c)))
        found = solve_file(self._path, problem.blocks) if p == 1.0 else solve_blocks(problem)
        outcome = Outcome(found.status)
        if outcome.status == "optimal":
            outcome.objective = problem.objective(found.X)
            outcome.levels = list(chain.from_iterable(found.X))
            # In a maximisation the dual matrices have the other sign.
            outcome.duals = [*found.y, *(-z for z in chain.from_iterable(found.Z))]
        return outcome

    def why_unsolved(self, _):
        return "CSDP says: %s" % self.native.verdict
