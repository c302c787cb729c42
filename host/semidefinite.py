"""The semidefinite problem of an SDPA file, built by closures with a parameter on its constant
side."""

import math
from array import array
from dataclasses import dataclass, replace
from typing import List

from .conic_model import ConicModel
from .csdp import solve_blocks, solve_file
from .matrices import SparseMatrix
from .model import Constraint, Parameter
from .variables import Variable


@dataclass
class ScaledModel:
    """An SdpaProblem with the constants of its constraints multiplied by the parameter `scale`. The
    matrices of `x` are its blocks, a diagonal one a vector of its diagonal."""

    model: ConicModel
    x: List[Variable]
    rows: Constraint
    scale: Parameter


def build(problem, native):
    """The ScaledModel of an SdpaProblem, for the back end `native`: each constraint is an element of
    the sum over the blocks of a constant matrix times the places of the block, less p c."""
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
    entries = [[] for _ in problem.blocks]
    for k, b, i, j, value in zip(problem.matrix, problem.block, problem.row, problem.column,
                                 problem.value):
        if first <= k < last:
            n = problem.blocks[b]
            for place in {n * i + j, n * j + i} if n > 0 else {i}:
                entries[b].append((k - first, place, value))
    for n, found in zip(problem.blocks, entries):
        found.sort()
        lists = zip(*found) if found else ((), (), ())
        yield SparseMatrix(last - first, n * n if n > 0 else -n, *lists)


class Reference:
    """The same problem without this layer, solved by CSDP alone: for the scale 1 from the file as
    it is."""

    def __init__(self, path, problem):
        self._path, self._problem = path, problem

    def solve(self, scale):
        """The BlockSolution for that scale (see ScaledModel)."""
        if scale == 1.0:
            return solve_file(self._path, self._problem.blocks)
        c = array("d", (scale * v for v in self._problem.c))
        if not all(map(math.isfinite, c)):
            raise OverflowError("a constant times the parameter is not finite")
        return solve_blocks(replace(self._problem, c=c))

    @staticmethod
    def duals(found):
        """As those of a maximisation in a model: the dual matrices have the other sign."""
        return array("d", found.y) + array("d", (-z for block in found.Z for z in block))
