"""A linear model: variables, parameters, rows and an objective over a native solver.

Rows are made from expressions. A native row is known by its row code, at least 0 for a linear row
(as all are here), and the objective takes the part of row 0. What is a number in an expression goes
to the native model; what depends on parameters goes to a row store, and only its programs run when
parameter values change.
"""

import itertools
import math
import operator
from array import array

from .closures import closure
from .expressions import Evaluator
from .row_store import RowStore
from .stacks import as_array, size, zeros
from .variables import Variable

CONSTANT = array("i", [0])  # the variable index of the constant term


class Parameter:
    """A number that can change without the model being built again; `index` is its place in the
    model's table. A new value is taken up by the next `Model.solve`."""

    def __init__(self, model, value):
        self._table, self.index = model.param_value, len(model.param_value)
        self._table.append(value)

    @property
    def value(self):
        return self._table[self.index]

    @value.setter
    def value(self, value):
        self._table[self.index] = value


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
        for row in rows:
            self.fixed[row] = self.moving[row] = 0.0

    def write(self, w, e, rows):
        """Rows `rows` (i32) get the constants of the elements of the finished expression `e`."""
        nvar, block = len(CONSTANT), zeros("f64", e.nelem)
        lsubi, at = zeros("i32", e.nelem), zeros("i64", e.nelem)
        closure(33, None, 0, e.cof_base, rows, None, block, 0, lsubi, e.nelem, e.nidxs_base,
                e.ptr_base, CONSTANT, w.f64, w.i32, w.i64)
        closure(197, lsubi, at)
        closure(168, at, block, at, self.fixed)
        self.store.store(w, e, rows)

    def evaluate(self, param_value, x):
        """Runs the programs. Returns the rows whose constant moves, and the (row, variable,
        coefficient) of all terms of variables that do."""
        if self.store.entry_used == 0:
            return array("i"), ()
        subi, subj, val = self.store.evaluate(param_value, x)
        if not all_finite(val):
            raise OverflowError("a coefficient is not finite for the present parameter values")
        constant = list(map(operator.not_, subj))
        rows = array("i", itertools.compress(subi, constant))
        at = zeros("i64", len(rows))
        closure(197, rows, at)
        closure(168, at, array("d", itertools.compress(val, constant)), at, self.moving)
        return rows, itertools.compress(zip(subi, subj, val), subj)


class Constraint:
    """The rows of one expression: `nativeidxs` (i32) holds the row code of each element."""

    def __init__(self, shape, nativeidxs):
        self.shape, self.nativeidxs = tuple(shape), nativeidxs


class Model:
    """A problem that is built and solved in `native`, an empty native problem (see `glpk`)."""

    def __init__(self, native):
        self.native = native
        self.evaluator = Evaluator()
        self.param_value = array("d")
        # By native row: the bounds of its element, and the constants in it.
        self._lower, self._upper = array("d", [-math.inf]), array("d", [math.inf])
        self._constants, self._floor = Constants(), Constants()
        self._has_floor = bytearray(1)
        self._costed = array("i")  # the columns in the objective
        self._solution = self._y = self._yx = None

    # Building.

    def parameter(self, value):
        return Parameter(self, value)

    def variable(self, shape, lower=-math.inf, upper=math.inf):
        """A variable of that shape; each bound is a number or one for each element."""
        count = size(shape)
        first = self.native.add_columns(each(lower, count), each(upper, count))
        return Variable(shape, array("q", range(first, first + count)))

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
            self.native.maximize = maximize
            self.native.set_objective(self._costed, zeros("f64", len(self._costed)))
            self.native.set_objective(subj[1:], val[1:])
            self._costed = subj[1:]
            self._constants.clear(rows)
            self._constants.write(w, e, self._stored(e, rows))

    def constrain(self, e, lower, upper, floor=None):
        """Rows that hold each element of the expression `e` between `lower` and `upper`, numbers
        (or one for each element) that may be infinite.

        With the expression `floor` the constants in that take the place of those in `e` where it
        is held above `lower`: a range whose sides move with parameters. Nothing but the constants
        of `floor` counts. Raises ValueError, with nothing added, if the shapes differ.
        """
        if floor is not None and floor.shape != e.shape:
            raise ValueError("the shapes %s and %s differ" % (list(floor.shape), list(e.shape)))
        w, shape, count = self.evaluator.w, e.shape, size(e.shape)
        lower, upper = each(lower, count), each(upper, count)
        with w.scratch():
            e = self.evaluator.finish(e)
            subj, val = self._terms(e)
            floor = None if floor is None else self.evaluator.finish(floor)
            rows = self._add_rows(lower, upper, floor is not None)
            stored = self._stored(e, rows)
            self._write_rows(e, stored, subj, val)
            self._constants.write(w, e, stored)
            if floor is not None:
                self._floor.write(w, floor, self._stored(floor, rows))
        self._bound(rows)
        return Constraint(shape, rows)

    def _add_rows(self, lower, upper, has_floor):
        """The codes of new rows, which have no terms yet."""
        count = len(lower)
        first = self.native.add_rows(count)
        self._lower.extend(lower)
        self._upper.extend(upper)
        self._has_floor.extend(bytes([has_floor]) * count)
        self._constants.add_rows(count)
        self._floor.add_rows(count)
        return array("i", range(first, first + count))

    def _terms(self, e):
        """Variables (i32) and coefficients (f64) of all terms, counted from 1 as the native model
        counts. A term that has a program carries the number 0.0."""
        w, subj, val = self.evaluator.w, zeros("i32", e.nnz + 1), zeros("f64", e.nnz + 1)
        with w.section("i64", e.nidxs_base, e.nnz) as nidxs, \
                w.section("f64", e.cof_base, e.nnz) as cof:
            if closure(21, nidxs, 0) < e.nnz:
                raise ValueError("a linear model can't take semidefinite terms")
            closure(22, 1, nidxs, subj, val, cof)
        if not all_finite(val):
            raise ValueError("a coefficient is not finite")
        return subj, val

    def _stored(self, e, rows):
        """The rows of those elements that are stored."""
        if not e.hassp:
            return rows
        with self.evaluator.w.section("i64", e.sp_base, e.nelem) as sp:
            return array("i", map(rows.__getitem__, sp))

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
        self.native.set_row_bounds(
            rows,
            [self._lower[row] - floor for row, floor in zip(rows, floors)],
            [self._upper[row] - constant for row, constant in zip(rows, constants)])

    # Solving.

    def update(self):
        """Brings the native model to the present parameter values: the programs in the row stores
        run, and what they moved is set. Nothing is built again."""
        x = self.evaluator.x
        moved, coefficients = self._constants.evaluate(self.param_value, x)
        moved_floor, _ = self._floor.evaluate(self.param_value, x)
        rows = sorted({*moved, *moved_floor})
        if rows[:1] == [0]:
            self.native.set_objective(rows[:1], self._constants.at(rows[:1]))
            del rows[0]
        self._bound(rows)
        for row, terms in itertools.groupby(coefficients, operator.itemgetter(0)):
            terms = {j: coefficient for _, j, coefficient in terms}
            if row == 0:
                self.native.set_objective(terms, terms.values())
            else:
                self.native.change_row(row, terms)

    def solve(self):
        """Solves for the present parameter values; "optimal", "infeasible" or "unbounded"."""
        self.update()
        self._solution = None
        status = self.native.solve()
        if status == "optimal":
            self._solution = s = self.native.solution()
            self._y, self._yx = zeros("f64", len(s.xc)), zeros("f64", len(s.xx))
            closure(24, len(s.xc), s.slc, s.suc, self._y)
            closure(23, len(s.xx), s.slx, s.sux, self._yx)
        return status

    # The solution, in the order of the elements. None of it is there before an optimum is found.

    def objective(self):
        return self._solved().objective

    def levels(self, variable):
        res = zeros("f64", len(variable))
        closure(19, None, len(variable), variable.nativeidxs, 0, res, self._solved().xx)
        return res

    def duals(self, variable):
        """The combined duals of the bounds, that of the lower minus that of the upper one."""
        res, columns = zeros("f64", len(variable)), len(self._solved().xx)
        no_block = array("i", [-1]) * columns
        closure(20, None, None, None, len(variable), variable.nativeidxs, 0, res, no_block, None,
                self._yx)
        return res

    def row_levels(self, constraint):
        """The sums of the terms of variables; constants are not among them."""
        return self._read_rows(15, constraint, self._solved().xc)

    def row_duals(self, constraint):
        self._solved()
        return self._read_rows(16, constraint, self._y)

    def _read_rows(self, number, constraint, values):
        rows = constraint.nativeidxs
        res = zeros("f64", len(rows))
        closure(number, None, None, None, None, None, len(rows), rows, 0, res, values)
        return res

    def _solved(self):
        if self._solution is None:
            raise ValueError("the model has no solution: it is not solved, or has no optimum")
        return self._solution


def all_finite(values):
    """Whether no number of the list (f64) is infinite or NaN."""
    differences = zeros("f64", len(values))
    closure(23, len(values), values, values, differences)
    view = memoryview(differences)
    return view == view  # each is 0.0, or NaN, which is not equal to itself


def each(bound, count):
    """A bound for each of `count` elements, from one number or as many."""
    bounds = [bound] * count if isinstance(bound, (int, float)) else list(bound)
    if len(bounds) != count:
        raise ValueError("%d elements can't have %d bounds" % (count, len(bounds)))
    return bounds
