"""A conic model: variables, parameters, an objective, rows between bounds, and cones over
expressions, for a back end that takes a `ConicProblem` (see `conic`).

An element of an expression that is constrained has a row code: at least 0 for a linear row, and the
complement of a number for a conic row. Each element of a cone is an affine row of its own, and a
conic row is a slot of the cones.
"""

import itertools
import math
from array import array

from .affine_rows import AffineRows, ElementTables, split
from ..closures import closure
from .cones import ConeTables, QuadraticLayout, SemidefiniteLayout, numbers
from ..solvers.problem import OFF_DIAGONAL, QUADRATIC, SEMIDEFINITE, Forms, Problem
from ..solvers.adapter import Options
from ..index_maps.domains import bounds, pattern
from ..evaluator.expressions import Evaluator
from .linear import Constraint, Parameter, all_finite, each, stored_rows
from .solutions import Reading
from ..data.buffers import size, zeros
from ..evaluator.sums import require_room
from ..index_maps.variables import Variable

KINDS = {QUADRATIC: QuadraticLayout, SEMIDEFINITE: SemidefiniteLayout}


class ConicModel:
    """A conic problem, which the back end `native` solves for the present parameter values."""

    def __init__(self, native):
        self.native, self.param_value = native, array("d")
        self.evaluator = Evaluator(self.param_value)
        # By column, which count from 1: bounds, and the cone (or -1) and place there.
        self._lower, self._upper = array("d", [-math.inf]), array("d", [math.inf])
        self._cone, self._place = array("i", [-1]), zeros("i32", 1)
        self._blocks = array("i")  # see ConicProblem
        self.tables, self.cones = ElementTables(), ConeTables()
        self._objective, self._maximize = self._zero_row(), False
        self._rows, self._members = self._zero_row(), AffineRows(self.tables)
        self._row_lower, self._row_upper = array("d", [-math.inf]), array("d", [math.inf])
        self._solution = None

    def _zero_row(self):
        rows = AffineRows(self.tables)
        rows.add(1)
        return rows

    # Building.

    def parameter(self, value):
        return Parameter(self, value)

    def variable(self, shape, lower=-math.inf, upper=math.inf, at=None):
        """A variable of that shape; each bound is a number or one for each element. With `at`, a
        list of subscripts, one tuple for each, only these elements are stored, and the bounds are
        theirs; all others are fixed zeros."""
        if at is None:
            require_room(len(self._lower) + size(shape))
            sparsity, (lower, upper) = None, bounds(shape, lower, upper)
        else:
            sparsity, order = pattern(shape, at)
            lower, upper = (array("d", map(side.__getitem__, order))
                            for side in bounds([len(at)], lower, upper))
        first, count, self._solution = len(self._lower), len(lower), None
        self._blocks.extend([-count] if count > 0 else [])
        self._lower.extend(lower)
        self._upper.extend(upper)
        self._cone.extend(itertools.repeat(-1, count))
        self._place.extend(zeros("i32", count))
        return Variable(shape, array("q", range(first, first + count)), sparsity)

    def quadratic_variable(self, shape, dimension):
        """A variable whose elements along that dimension lie in a quadratic cone. Its duals are
        those of the cones."""
        layout, first = QuadraticLayout(shape, dimension), len(self.cones.cones)
        x = self.variable(shape)
        with self.evaluator.w.scratch():
            self.constrain_cone(self.evaluator.push_variable(x), QUADRATIC, dimension)
        columns = zeros("i32", closure(11, 0, x.nativeidxs))
        closure(12, x.nativeidxs, 0, columns)
        closure(9, numbers(first, layout.count), layout.size, len(columns), layout.gather(columns),
                self._cone, self._place)
        return x

    def semidefinite_variable(self, dim, count=None):
        """A positive semidefinite matrix variable of shape (dim, dim), or `count` of them, of shape
        (count, dim, dim)."""
        if dim < 1 or (count or 0) < 0:
            raise ValueError("%s matrices of dimension %s can't be" % (count or 1, dim))
        n = 1 if count is None else count
        require_room(len(self.tables) + n * dim * dim)
        self._solution = None
        self._blocks.extend([dim] * n)
        x = self.tables.add(n, dim)
        return Variable([dim, dim], x.nativeidxs) if count is None else x

    def minimize(self, e):
        """Makes the only element of the expression `e` the objective."""
        self._optimize(e, maximize=False)

    def maximize(self, e):
        self._optimize(e, maximize=True)

    def _optimize(self, e, maximize):
        if size(e.shape) != 1:
            raise ValueError("an objective has one element, not the shape %s" % list(e.shape))
        objective = self._zero_row()
        with self.evaluator.w.scratch():
            self._write(e, objective, array("i", [0]), new=0)
        self._objective, self._maximize = objective, maximize

    def constrain(self, e, lower, upper, at=None):
        """Rows that hold each element of the expression `e` between `lower` and `upper`, numbers
        (or one for each element) that may be infinite. With `at`, a list of subscripts, one tuple
        for each, only these elements are bounded. Raises ValueError, with nothing added, if the
        bounds don't fit."""
        lower, upper = bounds(e.shape, lower, upper, at)
        rows = numbers(len(self._rows), len(lower))
        with self.evaluator.w.scratch():
            self._write(e, self._rows, rows, len(rows))
        self._row_lower.extend(lower)
        self._row_upper.extend(upper)
        return Constraint(e.shape, rows)

    def constrain_cone(self, e, kind, *dimensions, offset=0.0):
        """Puts the expression `e` less `offset`, a number or one for each element, into cones.

        "quadratic", with one dimension: along it, the first element is at least the norm of the
        others. "semidefinite", with two ascending ones: the symmetric part of each matrix along
        them is positive semidefinite. Raises ValueError, with nothing added, if there are no such
        dimensions.
        """
        if kind not in KINDS or len(dimensions) != (1 if kind == QUADRATIC else 2):
            raise ValueError("there is no cone %r of %d dimensions" % (kind, len(dimensions)))
        layout, offset = KINDS[kind](e.shape, *dimensions), each(offset, size(e.shape))
        if not all_finite(offset):
            raise ValueError("an offset is not finite")
        with self.evaluator.w.scratch():
            add = self._quadratic if kind == QUADRATIC else self._semidefinite
            return Constraint(e.shape, add(e, layout, offset, dimensions))

    def _quadratic(self, e, layout, offset, _):
        rows = numbers(len(self._members), size(e.shape))
        slots, constants = layout.slots(len(self.cones), offset)
        self._write(e, self._members, rows, len(rows))
        self.cones.add(QUADRATIC, layout, layout.gather(rows), constants)
        return complements(slots)

    def _semidefinite(self, e, layout, offset, dimensions):
        ev = self.evaluator
        if any(offset):
            e = ev.weighted_sum([e, ev.push_expression(e.shape, offset)], [1.0, -1.0])
        e = ev.scale_offdiag(ev.triangle(ev.symmetrize(e, *dimensions), *dimensions, lower=True),
                             *dimensions, OFF_DIAGONAL)
        # The triangle lists its elements in ascending order: so they are numbered.
        rows = layout.gather(numbers(len(self._members), layout.count * layout.size))
        self._write(e, self._members, layout.spread(rows), len(rows))
        slots = self.cones.add(SEMIDEFINITE, layout, rows, zeros("f64", len(rows)))
        return complements(layout.spread(slots))

    def _write(self, e, target, rows, new):
        """The elements of `e` become the rows `rows` of `target`, after the `new` ones among them
        are added. Raises ValueError, with nothing added, if `e` can't be in the model."""
        ev, w = self.evaluator, self.evaluator.w
        e = ev.finish(e)
        with w.section("i64", e.nidxs_base, e.nnz) as nidxs:
            if not all_within(nidxs, len(self.tables), len(self._lower)):
                raise ValueError("an expression has a variable that is not in the model")
        forms = split(self.tables, w, e)
        if not all(map(all_finite, (forms.offset, forms.cof, forms.matcof))):
            raise ValueError("a coefficient is not finite")
        stored = stored_rows(w, e, rows)
        self._solution = None
        target.add(new)
        target.write(w, e, forms, stored)

    # Solving.

    def problem(self):
        """The problem for the present parameter values."""
        forms = lambda rows: rows.forms(self.param_value, self.evaluator.x)
        rows = forms(self._rows).copy()
        rows.add(forms(self._objective), [0])
        return Problem(self._maximize, self._lower, self._upper, bytearray(len(self._lower)), rows, self._row_lower,
                            self._row_upper, self._slots(forms(self._members)), self.cones.cones,
                            self._blocks)

    def _slots(self, members):
        """The forms of the slots: each is one of the affine rows, less its constant."""
        slot_of, slots = zeros("i32", len(members)), Forms.zero(len(members))
        for slot, row in enumerate(self.cones.accafeidxs):
            slot_of[row] = slot
        for slot, constant in enumerate(self.cones.accb):
            slots.offset[slot] = -constant
        slots.add(members, slot_of)
        return slots

    def solve(self):
        """Solves for the present parameter values; "optimal", "infeasible" or "unbounded"."""
        self._solution = None
        self.native.load(self.problem())
        s = self.native.solve(Options(form="standard"))
        if s.status == "optimal":
            self._solution = Reading(s, self.cones, self._cone, self._place)
        return s.status

    # The solution, in the order of the elements. None of it is there before an optimum is found.

    def objective(self):
        return self._solved().s.objective

    def levels(self, variable):
        return self._solved(variable).levels(variable)

    def duals(self, variable):
        """Of a scalar variable the combined dual of its bounds, that of the lower minus that of the
        upper one, or its dual in its cone; of a semidefinite one the dual matrix."""
        return self._solved(variable).duals(variable)

    def row_levels(self, constraint):
        """The values of the elements, constants included; in a cone less their offsets."""
        return self._solved(constraint, "accx", "xc").row_levels(constraint)

    def row_duals(self, constraint):
        return self._solved(constraint, "accx", "xc").row_duals(constraint)

    def _solved(self, item=None, negative="barx", others="xx"):
        """The solution; ValueError if there is none, or not of the variable or constraint `item`,
        whose numbers are places in these lists of it, negative ones by their complements."""
        if self._solution is None:
            raise ValueError("the model has no solution: it is not solved as it is now, or has no "
                             "optimum")
        s = self._solution.s
        if item is not None and not all_within(item.nativeidxs, len(getattr(s, negative)),
                                               len(getattr(s, others))):
            raise ValueError("what is to be read is not in the model")
        return self._solution


def all_within(numbers, below, above):
    """Whether all of the numbers are under `above`, and the complements of negative ones under
    `below`."""
    return -below <= min(numbers, default=0) and max(numbers, default=0) < above


def complements(slots):
    """The codes of conic rows."""
    return array("i", [~slot for slot in slots])
