"""A linear model: variables, parameters, rows and an objective over a native solver.

Rows are made from expressions. A native row is known by its row code, at least 0 for a linear row
(as all are here), and the objective takes the part of row 0. What is a number in an expression goes
to the native model; what depends on parameters goes to a row store, and only its programs run when
parameter values change.
"""

import math
from array import array

from ..index_maps.arrays import IndexArray
from ..closures import closure
from ..data.bounds import sides
from ..data.shapes import checked_shape
from ..evaluator.expressions import Evaluator
from .row_store import RowStore
from .slots import Slots
from .solutions import Reading
from ..data.buffers import as_array, size, zeros
from ..index_maps.variables import Variable
from ..index_maps.views import ConstraintViews

CONSTANT = array("i", [0])  # the variable index of the constant term


class Parameter:
    """A number that can change without the model being built again; `index` is its place in the
    model's table. A new value is taken up by the next `Model.solve`."""

    def __init__(self, model, value):
        self.model, self.index = model, len(model.param_value)
        model.param_value.append(value)

    @property
    def value(self):
        return self.model.param_value[self.index]

    @value.setter
    def value(self, value):
        self.model.param_value[self.index] = value


class ParameterArray(IndexArray):
    """Parameters of a model that were made together, as an array of that shape. All elements have
    one, or those at the linear indexes `sparsity`."""

    def __init__(self, model, shape, values, sparsity=None):
        values, first = as_array("f64", values), len(model.param_value)
        super().__init__(shape, range(first, first + len(values)), sparsity)
        self._table, self._places = model.param_value, slice(first, first + len(values))
        self._table.extend(values)

    @property
    def values(self):
        """Those of all parameters (f64), in their order. Raises ValueError if others are set that
        are not as many."""
        return self._table[self._places]

    @values.setter
    def values(self, values):
        values, count = as_array("f64", values), len(self.indexes)
        if len(values) != count:
            raise ValueError("%d parameters can't have %d values" % (count, len(values)))
        self._table[self._places] = values


class Constants:
    """What is constant in the elements that stand in the native rows (f64 by row number): `fixed`
    the numbers, `moving` what the parameters made of it at last. `store` holds the programs."""

    def __init__(self):
        self.fixed, self.moving = zeros("f64", 1), zeros("f64", 1)
        self.store = RowStore()
        self.store.add_rows(1)

    def add_rows(self, count):
        self.fixed.extend(zeros("f64", count))
        self.moving.extend(zeros("f64", count))
        self.store.add_rows(count)

    def at(self, rows):
        fixed, moving = self.fixed, self.moving
        return [fixed[row] + moving[row] for row in rows]

    def clear(self, rows):
        self.store.clear(rows)
        for table in (self.fixed, self.moving):
            closure(102, rows, table, zeros("f64", len(rows)))

    def write(self, w, e, rows):
        """Rows `rows` (i32) get the constants of the elements of the finished expression `e`."""
        block, lsubi, at = (zeros(kind, e.nelem) for kind in ("f64", "i32", "i64"))
        closure(33, None, 0, e.cof_base, rows, None, block, 0, lsubi, e.nelem, e.nidxs_base,
                e.ptr_base, CONSTANT, w.f64, w.i32, w.i64)
        closure(197, lsubi, at)
        closure(168, at, block, at, self.fixed)
        self.store.store(w, e, rows)

    def evaluate(self, param_value, x):
        """Runs the programs. Returns the rows whose constant moves, and the terms of variables that
        do: a (row, begin, end) for each row that has some, and the lists of variables and
        coefficients where these are places."""
        if self.store.entry_used == 0:
            return array("i"), (), (), ()
        _, subj, val = self.store.evaluate(param_value, x)
        if not all_finite(val):
            raise OverflowError("a coefficient is not finite for the present parameter values")
        spans = self.store.spans()
        # The constant comes first in a row.
        constants = {row: val[begin] for row, begin, _ in spans if subj[begin] == 0}
        rows = array("i", constants)
        at = zeros("i64", len(rows))
        closure(197, rows, at)
        closure(168, at, array("d", constants.values()), at, self.moving)
        spans = [(row, begin + (row in constants), end) for row, begin, end in spans]
        return rows, [span for span in spans if span[1] < span[2]], subj, val


class Constraint(ConstraintViews):
    """The rows of one expression: `nativeidxs` (i32) holds the row code of each element. `model` is
    the model that has made it; a view of one has none."""

    def __init__(self, shape, nativeidxs, model=None):
        self.shape, self.nativeidxs, self.model = tuple(shape), nativeidxs, model


class ModelVariable(Variable):
    """A variable as a model has made it; others are views of such."""

    def __init__(self, shape, nativeidxs, model):
        super().__init__(shape, nativeidxs)
        self.model = model


class Model:
    """A problem that is built and solved in `native`, an empty native problem (see `glpk`).

    What is removed leaves rows or columns without terms in the native problem, and what is added
    next takes these first: a model that changes again and again doesn't grow.
    """

    def __init__(self, native):
        self.native = native
        self.param_value = array("d")
        self.evaluator = Evaluator(self.param_value)
        # Row 0 stands for the objective, column 0 for the constant: neither is a native one.
        self._rows, self._columns = Slots(), Slots()
        self._rows.take(1)
        self._columns.take(1)
        # By native row: the bounds of its element, and the constants in it.
        self._lower, self._upper = array("d", [-math.inf]), array("d", [math.inf])
        self._constants, self._floor = Constants(), Constants()
        self._has_floor = bytearray(1)
        self._costed = array("i")  # the columns in the objective
        self._solution = None

    # Building.

    def parameter(self, value):
        return Parameter(self, value)

    def parameters(self, values):
        """A list of parameters, one for each of the values."""
        return [Parameter(self, value) for value in as_array("f64", values)]

    def parameter_array(self, shape, values, sparsity=None):
        """A ParameterArray with these values. Raises ValueError if they don't fit the shape or the
        list of elements that have one."""
        return ParameterArray(self, shape, values, sparsity)

    def set_values(self, parameters, values):
        """Gives each of the parameters its value. Raises ValueError, with none set, if there are
        not as many or one is of another model."""
        values = as_array("f64", values)
        if len(values) != len(parameters):
            raise ValueError("%d parameters can't have %d values" % (len(parameters), len(values)))
        closure(102, self._indexes(parameters), self.param_value, values)

    def values(self, parameters):
        """The values of the parameters (f64). Raises ValueError if one is of another model."""
        values = zeros("f64", len(parameters))
        closure(101, self._indexes(parameters), self.param_value, values)
        return values

    def _indexes(self, parameters):
        if any(p.model is not self for p in parameters):
            raise ValueError("a parameter is of another model")
        return array("i", [p.index for p in parameters])

    def variable(self, shape, lower=-math.inf, upper=math.inf):
        """A variable of that shape; each bound is a number or one for each element. Raises
        ValueError, with nothing added, if that is no shape or the bounds don't fit."""
        count = size(checked_shape(shape))
        self.native.require_room(self._columns.used - 1 + count)
        lower, upper = sides(lower, upper, tuple(shape))
        columns = self._columns.take(count)
        try:
            self.native.add_columns(added(columns, self.native.columns))
            self.native.set_column_bounds(columns, lower, upper)
        except BaseException:
            self._columns.give_back(columns)
            raise
        self._solution = None
        return ModelVariable(shape, columns, self)

    def minimize(self, e):
        """Makes the only element of the expression `e` the objective."""
        self._optimize(e, maximize=False)

    def maximize(self, e):
        self._optimize(e, maximize=True)

    def _optimize(self, e, maximize):
        if size(e.shape) != 1:
            raise ValueError("an objective has one element, not the shape %s" % list(e.shape))
        w, rows = self.evaluator.w, array("i", [0])
        with w.scratch():
            e = self.evaluator.finish(e)
            subj, val = self._terms(e)
            self._solution = None
            self.native.maximize = maximize
            self.native.set_objective(self._costed, zeros("f64", len(self._costed)))
            self.native.set_objective(subj[1:], val[1:])
            self._costed = subj[1:]
            self._constants.clear(rows)
            self._constants.write(w, e, stored_rows(w, e, rows))

    def constrain(self, e, lower, upper, floor=None):
        """Rows that hold each element of the expression `e` between `lower` and `upper`, numbers
        (or one for each element) that may be infinite.

        With the expression `floor` the constants in that take the place of those in `e` where it
        is held above `lower`: a range whose sides move with parameters. Nothing but the constants
        of `floor` counts. Raises ValueError, with nothing added, if the shapes differ, the bounds
        don't fit or a variable is not in the model.
        """
        if floor is not None and floor.shape != e.shape:
            raise ValueError("the shapes %s and %s differ" % (list(floor.shape), list(e.shape)))
        w, shape, count = self.evaluator.w, e.shape, size(e.shape)
        self.native.require_room(self._rows.used - 1 + count)
        lower, upper = sides(lower, upper, shape)
        with w.scratch():
            e = self.evaluator.finish(e)
            subj, val = self._terms(e)
            if floor is not None:
                floor = self.evaluator.finish(floor)
                self._terms(floor)
            rows = self._add_rows(lower, upper, floor is not None)
            try:
                stored = stored_rows(w, e, rows)
                self._write_rows(e, stored, subj, val)
                self._constants.write(w, e, stored)
                if floor is not None:
                    self._floor.write(w, floor, stored_rows(w, floor, rows))
                self._bound(rows)
            except BaseException:
                self._free_rows(rows)
                raise
        return Constraint(shape, rows, self)

    def _add_rows(self, lower, upper, has_floor):
        """The codes of rows that have no terms yet."""
        rows = self._rows.take(len(lower))
        count = added(rows, self.native.rows)
        self.native.add_rows(count)
        for table in (self._lower, self._upper):
            table.extend(zeros("f64", count))
        self._has_floor.extend(bytes(count))
        self._constants.add_rows(count)
        self._floor.add_rows(count)
        closure(102, rows, self._lower, lower)
        closure(102, rows, self._upper, upper)
        for row in rows:
            self._has_floor[row] = has_floor
        self._solution = None
        return rows

    def remove(self, item):
        """Takes a constraint, or a variable that stands in none any more, out of the model. Raises
        ValueError if it is not one that this model has made and still has.

        Neither it nor a view of it can be used any more.
        """
        made = isinstance(item, (Constraint, ModelVariable)) and item.model is self
        if not made or item.removed:
            raise ValueError("only a constraint or variable that is in the model can be removed "
                             "from it: a view can't, nor what was removed before")
        if isinstance(item, Constraint):
            self._free_rows(item.nativeidxs)
        else:
            self._free_columns(array("i", item.nativeidxs))
        item.removed = True

    def _free_rows(self, rows):
        count = len(rows)
        self.native.set_rows(rows, zeros("i32", count), zeros("i32", count),
                             zeros("i32", 0), zeros("f64", 0))
        self.native.set_row_bounds(rows, [-math.inf] * count, [math.inf] * count)
        self._constants.clear(rows)
        self._floor.clear(rows)
        self._rows.give_back(rows)
        self._solution = None

    def _free_columns(self, columns):
        these = set(columns)
        if (any(self.native.column_lengths(columns)) or not these.isdisjoint(self._costed)
                or self._constants.store.holds(these) or self._floor.store.holds(these)):
            raise ValueError("a variable can't be removed while it stands in the objective or in a "
                             "constraint")
        self.native.set_column_bounds(columns, zeros("f64", len(columns)),
                                      zeros("f64", len(columns)))
        self._columns.give_back(columns)
        self._solution = None

    def _terms(self, e):
        """Variables (i32) and coefficients (f64) of all terms, counted from 1 as the native model
        counts. A term that has a program carries the number 0.0."""
        w, subj, val = self.evaluator.w, zeros("i32", e.nnz + 1), zeros("f64", e.nnz + 1)
        with w.section("i64", e.nidxs_base, e.nnz) as nidxs, \
                w.section("f64", e.cof_base, e.nnz) as cof:
            if closure(21, nidxs, 0) < e.nnz:
                raise ValueError("a linear model can't take semidefinite terms")
            closure(22, 1, nidxs, subj, val, cof)
        if not self._columns.all_used(subj):
            raise ValueError("a variable of the expression is not in the model, or not any more")
        if not all_finite(val):
            raise ValueError("a coefficient is not finite")
        return subj, val

    def _write_rows(self, e, rows, subj, val):
        """The terms go to their rows, all but the constant, which comes first in an element."""
        w, x = self.evaluator.w, self.evaluator.x
        with x.scratch():
            lcount = closure(31, rows, e.nelem, 0)
            lrowidx, lptr = zeros("i32", lcount), x.reserve("i32", lcount + 1)
            x.i32[lptr] = 1
            closure(35, 0, 0, rows, 0, None, 0, 1, lptr, lrowidx, e.nelem, e.ptr_base, w.i32,
                    x.i32)
            ptr = x.i32[lptr : lptr + lcount + 1]
        ends = ptr[1:]
        begins = [begin + (begin < end and subj[begin] == 0) for begin, end in zip(ptr, ends)]
        self.native.set_rows(lrowidx, begins, ends, subj, val)

    def _bound(self, rows):
        constants = self._constants.at(rows)
        floors = [floor if self._has_floor[row] else constant for row, constant, floor
                  in zip(rows, constants, self._floor.at(rows))]
        self.native.set_row_bounds(rows, moved_bounds(self._lower, rows, floors),
                                   moved_bounds(self._upper, rows, constants))

    # Solving.

    def update(self):
        """Brings the native model to the present parameter values: the programs in the row stores
        run, and what they moved is set. Nothing is built again."""
        x, self._solution = self.evaluator.x, None
        moved, spans, subj, val = self._constants.evaluate(self.param_value, x)
        moved_floor, *_ = self._floor.evaluate(self.param_value, x)
        rows = sorted({*moved, *moved_floor})
        if rows[:1] == [0]:
            self.native.set_objective(rows[:1], self._constants.at(rows[:1]))
            del rows[0]
        self._bound(rows)
        if spans and spans[0][0] == 0:
            _, begin, end = spans.pop(0)
            self.native.set_objective(subj[begin:end], val[begin:end])
        if spans:
            self.native.change_rows(*zip(*spans), subj, val)

    def solve(self):
        """Solves for the present parameter values; "optimal", "infeasible" or "unbounded"."""
        self.update()
        status = self.native.solve()
        if status == "optimal":
            self._solution = Reading(self.native.solution())
        return status

    # The solution, in the order of the elements. None of it is there before an optimum is found.

    def objective(self):
        return self._solved().s.objective

    def levels(self, variable):
        return self._solved(variable, self._columns).levels(variable)

    def duals(self, variable):
        """The combined duals of the bounds, that of the lower minus that of the upper one."""
        return self._solved(variable, self._columns).duals(variable)

    def row_levels(self, constraint):
        """The sums of the terms of variables; constants are not among them."""
        return self._solved(constraint, self._rows).row_levels(constraint)

    def row_duals(self, constraint):
        return self._solved(constraint, self._rows).row_duals(constraint)

    def _solved(self, item=None, slots=None):
        """The solution; ValueError if there is none, or not of the variable or constraint `item`,
        whose numbers are among `slots`."""
        if item is not None:
            item.require_kept()
            if not slots.all_used(item.nativeidxs):
                raise ValueError("what is to be read is not in the model, or not any more")
        if self._solution is None:
            raise ValueError("the model has no solution: it is not solved as it is now, or has no "
                             "optimum")
        return self._solution


def stored_rows(w, e, rows):
    """The rows (i32) of those elements of `e` that are stored, from those of all elements."""
    if not e.hassp:
        return rows
    with w.section("i64", e.sp_base, e.nelem) as sp:
        return array("i", map(rows.__getitem__, sp))


def added(slots, last):
    """How many of the slots, the last of which are the new ones, are behind the slot `last`."""
    return max(0, slots[-1] - last) if len(slots) > 0 else 0


def all_finite(values):
    """Whether no number of the list (f64) is infinite or NaN."""
    differences = zeros("f64", len(values))
    closure(23, len(values), values, values, differences)
    view = memoryview(differences)
    return view == view  # each is 0.0, or NaN, which is not equal to itself


def moved_bounds(bounds, rows, constants):
    """The bounds of these rows, less the constants. Raises OverflowError if a finite one doesn't
    stay finite."""
    before = [bounds[row] for row in rows]
    after = [bound - constant for bound, constant in zip(before, constants)]
    if sum(map(math.isinf, after)) != sum(map(math.isinf, before)):
        raise OverflowError("a bound less the constants of its row is not finite")
    return after
