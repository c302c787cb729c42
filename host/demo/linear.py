"""The linear problem of an MPS file, built by closures with parameters, one on its constant side or
one for each nonzero of its matrix, and solved by GLPK alone.

Problems often have several optimal bases. Both roads give the solver the same rows and columns in
the same order and the same steps to take: scaling, an advanced basis, the primal simplex method
without a presolver, and the second time the basis of the first. So levels and duals agree, and not
the objective alone; what is compared is the work of the closures, not of two solvers. The linear
relaxation is solved where columns are integer.
"""

import bisect
import math
import random
from array import array
from dataclasses import dataclass

from .comparison import Outcome, Roads, Tolerances, count
from ..solvers.old_glpk import Problem
from ..data.matrices import DenseMatrix
from ..model.linear import Constraint, Model, Parameter, ParameterArray
from ..evaluator.products import SparseTensor
from ..index_maps.variables import Variable

FACTORS = 0.9, 1.1  # of the nonzeros of a matrix, at least and at most
BLOCKS = 2  # The columns are taken in that many groups, as the variables of a model would be.


@dataclass
class ScaledModel:
    """`lower` <= A x <= `upper` with both sides multiplied by the parameter `scale`: what is
    infinite stays so, and bounds of columns and the objective are not touched. A scale of 1 gives
    the problem as it was read. Integer columns are taken as continuous ones."""

    model: Model
    x: Variable
    rows: Constraint
    scale: Parameter


@dataclass
class MatrixModel:
    """`lower` <= P x <= `upper`, where each nonzero of P is a parameter. With the values of A it is
    the problem as it was read."""

    model: Model
    x: Variable
    rows: Constraint
    matrix: ParameterArray


def build(problem, native):
    """The ScaledModel of a problem (as `glpk` reads it), in the empty problem `native`."""
    model = Model(native)
    e, p = model.evaluator, model.parameter(1.0)
    x = model.variable([problem.columns], *problem.column_bounds())
    with e.w.scratch():
        ranges = cuts(problem.columns)
        blocks = [e.push_variable(x.slice([c], [d])) for c, d in ranges]
        add_objective(problem, model, ranges, blocks)
        rows = add_rows(problem, model, map(e.mul_left, problem.matrices(ranges), blocks),
                        lambda b: e.mul_param_scalar(p.index, b))
    return ScaledModel(model, x, rows, p)


def build_matrix(problem, matrix, native):
    """The MatrixModel of a problem whose matrix is that SparseMatrix."""
    model = Model(native)
    e = model.evaluator
    x = model.variable([problem.columns], *problem.column_bounds())
    p = model.parameter_array([problem.rows, problem.columns], matrix.mval,
                              SparseTensor.of(matrix).msp)
    with e.w.scratch():
        whole = e.push_variable(x)
        add_objective(problem, model, [(0, problem.columns)], [whole])
        rows = add_rows(problem, model, [e.mul_param_left(p, whole)], lambda b: b)
    return MatrixModel(model, x, rows, p)


def add_objective(problem, model, ranges, blocks):
    """Minimizes, or maximizes, what the problem does; its columns come in blocks."""
    e, (constant, *costs) = model.evaluator, problem.objective()
    parts = [e.mul_left(DenseMatrix(1, d - c, costs[c:d]), xk)
             for (c, d), xk in zip(ranges, blocks)]
    parts.append(e.push_expression([1], [constant]))
    optimize = model.maximize if problem.maximize else model.minimize
    optimize(e.weighted_sum(parts, [1.0] * len(parts)))


def add_rows(problem, model, parts, scaled):
    """The rows of the problem, the terms of which are the sum of the `parts`; `scaled` makes of the
    constant side, an expression, what the row has.

    Rows become elements of A x - b, at least or at most 0 or both. A range has two sides: b is the
    upper one, and the other stands in a second expression for the same rows.
    """
    e, (lower, upper) = model.evaluator, problem.row_bounds()

    def side(bounds, others):
        """b: the finite ones of these bounds, and of the others where they are not."""
        b = [b if math.isfinite(b) else other if math.isfinite(other) else 0.0
             for b, other in zip(bounds, others)]
        return scaled(e.push_expression([problem.rows], b))

    # The constants come first, as the model has them: so nothing is left to sort.
    parts = [side(upper, lower), *parts]
    ranged = any(-math.inf < l < u < math.inf for l, u in zip(lower, upper))
    return model.constrain(
        e.weighted_sum(parts, [-1.0] + [1.0] * (len(parts) - 1)),
        [l if l == -math.inf else 0.0 for l in lower],
        [u if u == math.inf else 0.0 for u in upper],
        floor=e.weighted_sum([side(lower, upper)], [-1.0]) if ranged else None,
    )


class LinearRoads(Roads):
    """Both roads for the problem of a file; `maximize` is what MPS files don't tell."""

    solver, kinds, tolerances = "GLPK", ("levels", "duals"), Tolerances(1e-6, 1e-6)

    def __init__(self, path, maximize):
        self._problem = problem = Problem.read(path)
        problem.maximize = maximize
        self.native, self._reference = Problem(), Reference(problem)
        self.heading = [
            "problem   %s (%s)" % (problem.name or "without a name", path),
            "size      " + ", ".join((count(problem.rows, "row"), count(problem.columns, "column"),
                                      count(problem.nonzeros, "nonzero"))),
        ]
        if problem.integers:
            self.heading.append("          %s taken as continuous: this is the linear relaxation"
                                % count(problem.integers, "integer column"))

    def build(self):
        return build(self._problem, self.native)

    def set(self, p):
        self.built.scale.value = p

    def ours(self, p):
        self.set(p)
        built, model = self.built, self.built.model
        outcome = Outcome(model.solve())
        if outcome.status == "optimal":
            outcome.objective = model.objective()
            outcome.levels = model.levels(built.x) + model.row_levels(built.rows)
            outcome.duals = model.duals(built.x) + model.row_duals(built.rows)
        return outcome

    def theirs(self, p):
        outcome = Outcome(self._reference.solve(p))
        if outcome.status == "optimal":
            s = self._reference.problem.solution()
            combined = lambda lower, upper: [l - u for l, u in zip(lower, upper)]
            outcome.objective = s.objective
            outcome.levels = s.xx[1:] + s.xc[1:]
            outcome.duals = combined(s.slx[1:], s.sux[1:]) + combined(s.slc[1:], s.suc[1:])
        return outcome

    def why_unsolved(self, outcome):
        return "the linear problem is %s" % outcome.status


class MatrixRoads(LinearRoads):
    """The same with each nonzero of the matrix as a parameter, for two sets of values, 0 and 1:
    those of the file, and these times random factors, the same ones in each run."""

    def __init__(self, path, maximize):
        super().__init__(path, maximize)
        (self._matrix,) = self._problem.matrices([(0, self._problem.columns)])
        factor = random.Random(2).uniform
        changed = array("d", [value * factor(*FACTORS) for value in self._matrix.mval])
        if not all(map(math.isfinite, changed)):
            raise OverflowError("a coefficient times its factor is not finite")
        self._values = self._matrix.mval, changed
        self._reference = MatrixReference(self._problem, self._matrix, changed)

    def steps(self, parameter):
        return 0, 1

    def label(self, k):
        return ("matrix as read", "matrix changed")[k]

    def build(self):
        return build_matrix(self._problem, self._matrix, self.native)

    def set(self, k):
        self.built.matrix.values = self._values[k]


class Reference:
    """The same problem without this layer: a copy of what was read, changed and solved by GLPK
    alone."""

    def __init__(self, problem):
        self.problem = problem.copy()
        self._row_bounds = problem.row_bounds()
        self.problem.set_column_bounds(range(1, problem.columns + 1), *problem.column_bounds())

    def solve(self, scale):
        """Solves for that scale (see ScaledModel); "optimal", "infeasible" or "unbounded"."""
        lower, upper = ([scaled(b, scale) for b in bounds] for bounds in self._row_bounds)
        self.problem.set_row_bounds(range(1, self.problem.rows + 1), lower, upper)
        return self.problem.solve()


class MatrixReference(Reference):
    """The same, with the matrix as it was read (0) or with these values (1)."""

    def __init__(self, problem, matrix, values):
        super().__init__(problem)
        self._subj, self._values = array("i", [j + 1 for j in matrix.msubj]), values
        self._ends = [bisect.bisect_right(matrix.msubi, i) for i in range(problem.rows)]

    def solve(self, k):
        if k == 1:
            self.problem.set_rows(range(1, self.problem.rows + 1), [0, *self._ends], self._ends,
                                  self._subj, self._values)
        return super().solve(1.0)


def scaled(bound, scale):
    """A bound times the scale; an infinite one stays as it is."""
    if math.isinf(bound):
        return bound
    if math.isinf(bound * scale):
        raise OverflowError("%g times the parameter is not finite" % bound)
    return bound * scale


def cuts(count):
    """Begin and end of each block."""
    edges = [count * k // BLOCKS for k in range(BLOCKS + 1)]
    return list(zip(edges, edges[1:]))
