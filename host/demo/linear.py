"""The linear problem of an MPS file, as a model with parameters, one on its constant side or one
for each nonzero of its matrix, and solved by GLPK alone.

Problems often have several optimal bases. Both roads give the solver the same rows and columns in
the same order and let it take the same steps: so levels and duals agree, and not the objective
alone; what is compared is the work of the closures, not of two solvers. The linear relaxation is
solved where columns are integer.
"""

from __future__ import annotations

import bisect
import math
import operator
import random
from array import array
from dataclasses import dataclass
from itertools import chain, repeat
from typing import Any, Sequence, Tuple

from ..data.matrices import SparseMatrix
from ..formats.mps import read_mps
from ..formulas.leaves import Parameter, Variable
from ..model.constraints import Constraint
from ..model.model import Model
from ..solvers import Options, Problem
from ..solvers.glpk import Glpk
from .comparison import Outcome, Roads, Tolerances, count

FACTORS = 0.9, 1.1  # of the nonzeros of a matrix, at least and at most


@dataclass
class LinearProblem:
    """What stands in a file: minimise, or with `maximize` maximise, costs x + constant so that the
    rows matrix x lie between their sides and x between its bounds, numbers that may be infinite."""

    maximize: bool
    costs: Any
    constant: float
    matrix: SparseMatrix
    row_lower: Any
    row_upper: Any
    column_lower: Any
    column_upper: Any

    @classmethod
    def of(cls, problem: Problem) -> LinearProblem:
        forms, columns = problem.rows, problem.columns
        costs = array("d", bytes(8 * columns))
        for j, cost in zip(forms.subj[:forms.subi.count(0)], forms.cof):  # these terms come first
            costs[j - 1] = cost
        first, before = forms.subi.count(0), repeat(1)
        subi, subj = (array("i", map(operator.sub, sub[first:], before))
                      for sub in (forms.subi, forms.subj))
        matrix = SparseMatrix.from_triplets(len(forms) - 1, columns, subi, subj, forms.cof[first:])
        sides = (side[1:] for side in (problem.row_lower, problem.row_upper, problem.column_lower,
                                       problem.column_upper))
        return cls(problem.maximize, costs, forms.offset[0], matrix, *sides)


@dataclass
class BuiltModel:
    """`rows` are the rows of the file, `parameter` what changes: a factor of their sides, or their
    matrix."""

    model: Model
    x: Variable
    rows: Constraint
    parameter: Parameter


def build_scaled(problem: LinearProblem) -> BuiltModel:
    """With both sides of each row multiplied by a parameter: what is infinite stays so, and bounds
    of columns and the objective are not touched."""
    model, x = begin(problem)
    p = model.parameter("p", 1.0)
    lower, upper = problem.row_lower, problem.row_upper
    rows = model.constrain("rows", problem.matrix @ x, lower=p * finite(lower),
                           upper=p * finite(upper))
    rows[infinite(lower)].update(lower=-math.inf)
    rows[infinite(upper)].update(upper=math.inf)
    return BuiltModel(model, x, rows, p)


def build_matrix(problem: LinearProblem) -> BuiltModel:
    """With each nonzero of the matrix as a parameter."""
    model, x = begin(problem)
    p = model.parameter("matrix", problem.matrix)
    rows = model.constrain("rows", p @ x, lower=problem.row_lower, upper=problem.row_upper)
    return BuiltModel(model, x, rows, p)


def begin(problem: LinearProblem) -> Tuple[Model, Variable]:
    """A model with the columns and the objective."""
    model = Model("demo")
    x = model.variable("x", len(problem.costs), problem.column_lower, problem.column_upper)
    optimize = model.maximize if problem.maximize else model.minimize
    optimize(problem.costs @ x + problem.constant)
    return model, x


def finite(sides: Sequence[float]) -> array[float]:
    return array("d", [0.0 if math.isinf(side) else side for side in sides])


def infinite(sides: Sequence[float]) -> Any:
    return [k for k, side in enumerate(sides) if math.isinf(side)]


class LinearRoads(Roads):
    """Both roads for the problem of a file; `maximize` is what MPS files don't tell."""

    solver, kinds, tolerances = "GLPK", ("levels", "duals"), Tolerances(1e-6, 1e-6)

    def __init__(self, path: str, maximize: bool) -> None:
        name, problem = read_mps(path)
        integers, problem.integer = sum(problem.integer), bytearray(len(problem.integer))
        problem.maximize = maximize
        self._whole, self._problem = problem, LinearProblem.of(problem)
        matrix = self._problem.matrix
        self._alone = Glpk()
        self.heading = [
            "problem   %s (%s)" % (name or "without a name", path),
            "size      " + ", ".join((count(matrix.rows, "row"), count(matrix.columns, "column"),
                                      count(matrix.mnnz, "nonzero"))),
        ]
        if integers:
            self.heading.append("          %s taken as continuous: this is the linear relaxation"
                                % count(integers, "integer column"))

    def build(self) -> BuiltModel:
        return build_scaled(self._problem)

    def set(self, p: Any) -> None:
        self.built.parameter.value = p

    def ours(self, p: Any) -> Outcome:
        self.set(p)
        result = self.built.model.solve(solver="glpk")
        self.seconds += result.seconds
        outcome = Outcome(result.status)
        if outcome.status == "optimal":
            x, rows = self.built.x, self.built.rows
            outcome.objective = result.objective
            outcome.levels, outcome.duals = x.level + rows.level, x.dual + rows.dual
        return outcome

    def theirs(self, p: Any) -> Outcome:
        if not self._alone.loaded:
            self._alone.load(self._whole)
        self.change(p)
        s = self._alone.solve(Options())
        outcome = Outcome(s.status)
        if outcome.status == "optimal":
            outcome.objective = s.objective
            outcome.levels = [*without_first(s.xx), *without_first(s.xc)]
            outcome.duals = [lower - upper for lower, upper in
                             chain(zip(without_first(s.slx), without_first(s.sux)),
                                   zip(without_first(s.slc), without_first(s.suc)))]
        return outcome

    def change(self, p: Any) -> None:
        """Gives the solver alone the problem for this p."""
        problem = self._problem
        lower, upper = ([scaled(side, p) for side in sides]
                        for sides in (problem.row_lower, problem.row_upper))
        self._alone.set_row_bounds(range(1, problem.matrix.rows + 1), lower, upper)

    def why_unsolved(self, outcome: Outcome) -> str:
        return "the linear problem is %s" % outcome.status


class MatrixRoads(LinearRoads):
    """The same with each nonzero of the matrix as a parameter, for two sets of values, 0 and 1:
    those of the file, and these times random factors, the same ones in each run."""

    def __init__(self, path: str, maximize: bool) -> None:
        super().__init__(path, maximize)
        matrix, factor = self._problem.matrix, random.Random(2).uniform
        changed = array("d", [value * factor(*FACTORS) for value in matrix.mval])
        if not all(map(math.isfinite, changed)):
            raise OverflowError("a coefficient times its factor is not finite")
        self._values = matrix.mval, changed

    def steps(self, parameter: float) -> Sequence[Any]:
        return 0, 1

    def label(self, k: Any) -> str:
        return ("matrix as read", "matrix changed")[k]

    def build(self) -> BuiltModel:
        return build_matrix(self._problem)

    def set(self, k: Any) -> None:
        m = self._problem.matrix
        self.built.parameter.value = SparseMatrix(m.rows, m.columns, m.msubi, m.msubj,
                                                  self._values[k])

    def change(self, k: Any) -> None:
        m = self._problem.matrix
        ends = [bisect.bisect_right(m.msubi, i) for i in range(m.rows)]
        subj = array("i", map(operator.add, m.msubj, repeat(1)))
        self._alone.change_rows(range(1, m.rows + 1), [0, *ends], ends, subj, self._values[k])


def without_first(values: Any) -> Any:
    """What a solver has for the rows or columns, which count from 1."""
    return values[1:]


def scaled(side: float, p: float) -> float:
    """A side times p; an infinite one stays as it is."""
    if math.isinf(side):
        return side
    if math.isinf(side * p):
        raise OverflowError("%g times the parameter is not finite" % side)
    return side * p
