"""GLPK as a solver of linear and integer models, which changes in place.

Rows and columns count from 1, as the library has them; the row number 0 stands for the objective,
and the column number 0 for the constant in it. Bounds that are not there are infinite. The value of
a row counts its offset, and its bounds are those of the value.
"""

from __future__ import annotations

import math
import time
from array import array
from typing import Any, Callable, Iterable, List, NoReturn, Optional, Sequence, Set, Tuple

from ..closures import closure
from ..data.buffers import as_array, zeros
from .adapter import Adapter, Options, SolverError
from .glpk_library import Interrupted, library, thread
from .glpk_problem import NativeProblem
from .glpk_solving import Run
from .problem import FEASIBLE, INFEASIBLE, LIMIT, OPTIMAL, Problem, Solution, split_duals

MOST = 100_000_000  # rows or columns
MANY = 50  # numbers
SHRINKING, GROWING = 2e-224, 1.8e208  # make the others 0 and infinite
SMALLEST, GREATEST = 1e-100, 1e100  # of the size of a number other than 0
ALMOST = 1e-9  # by how much the bound of an integer column may miss a whole number


class Glpk(Adapter):
    """Numbers that the library can't work with are refused before it has them, by SolverError.
    Where it stops all the same, or doesn't stop when it should, it loses the problem: `loaded`
    tells whether it has one, and what is not loaded can't be changed or solved."""

    name, takes, in_place, warm = "glpk", frozenset({"linear", "integer"}), True, True

    def __init__(self) -> None:
        self._clear()

    def _clear(self) -> None:
        self._native: Optional[NativeProblem] = None
        self._offset = zeros("f64", 1)  # by row
        self._integer = bytearray(1)  # by column
        self._crossed: Tuple[Set[int], Set[int]] = set(), set()  # rows, columns without room
        self._maximize = self._has_basis = False
        self._primal = False  # whether the basis is more likely primal feasible than dual

    def __reduce__(self) -> NoReturn:
        raise TypeError("a problem in GLPK can't be copied: load it into another Glpk")

    @staticmethod
    def missing() -> Optional[str]:
        try:
            library()
        except SolverError as error:
            return str(error)
        return None

    @property
    def loaded(self) -> bool:
        return self._native is not None and not self._native.thread.lost

    @property
    def _held(self) -> NativeProblem:
        if self._native is None:
            raise SolverError("GLPK has no problem yet: it has to be loaded")
        return self._native

    def _do(self, name: str, *arguments: Any) -> Any:
        """Calls a method of the native problem."""
        return self._held.thread.call(getattr(self._held, name), *arguments)

    # Loading and changing.

    def load(self, problem: Problem) -> None:
        """Raises SolverError, with nothing loaded, for a number that the library can't work with,
        and for what is neither linear nor integer."""
        if problem.cones or problem.dims:
            raise SolverError("glpk doesn't take cones and semidefinite variables")
        rows = problem.rows
        require_room(max(len(rows), len(problem.column_lower)) - 1)
        require_numbers(rows.cof, lambda k: place(rows.subi[k], rows.subj[k]))
        require_numbers(rows.offset[:1], lambda _: "the constant of the objective")
        self._clear()
        offset = array("d", [0.0]) + rows.offset[1:]
        sides = self._row_sides(range(len(rows)), problem.row_lower, problem.row_upper, offset)
        bounds = self._column_sides(range(len(problem.column_lower)), problem.column_lower,
                                    problem.column_upper, problem.integer)
        self._offset, self._integer = offset, problem.integer[:]
        self._maximize = problem.maximize
        self._native = thread().call(NativeProblem, thread())
        self._do("load", problem, *sides, *bounds)

    @property
    def rows(self) -> int:
        return len(self._offset) - 1

    @property
    def columns(self) -> int:
        return len(self._integer) - 1

    @property
    def maximize(self) -> bool:
        return self._maximize

    @maximize.setter
    def maximize(self, value: bool) -> None:
        if value != self._maximize:
            self._do("set_direction", value)
            self._maximize, self._primal = value, True

    def add_columns(self, lower: Sequence[float], upper: Sequence[float], integer: Iterable[int]
                    ) -> None:
        """Appends columns without terms."""
        first, integer = self.columns + 1, bytes(integer)
        require_room(self.columns + len(lower))
        bounds = self._column_sides(range(first, first + len(lower)), lower, upper, integer)
        self._do("add_columns", *bounds, integer)
        self._integer.extend(integer)
        self._primal = True

    def add_rows(self, lower: Sequence[float], upper: Sequence[float],
                 offset: Optional[Sequence[float]] = None) -> None:
        """Appends rows without terms."""
        first, count = self.rows + 1, len(lower)
        require_room(self.rows + count)
        offset = zeros("f64", count) if offset is None else offset
        self._do("add_rows", *self._row_sides(range(first, first + count), lower, upper, offset))
        self._offset.extend(offset)

    def set_row_bounds(self, rows: Sequence[int], lower: Sequence[float], upper: Sequence[float],
                       offset: Optional[Sequence[float]] = None) -> None:
        """Gives each of the rows its bounds, and its offset; without it that stays."""
        offset = [self._offset[row] for row in rows] if offset is None else offset
        self._do("set_row_bounds", rows, *self._row_sides(rows, lower, upper, offset))
        for row, value in zip(rows, offset):
            self._offset[row] = value

    def set_column_bounds(self, columns: Sequence[int], lower: Sequence[float],
                          upper: Sequence[float]) -> None:
        integer = [self._integer[j] for j in columns]
        self._do("set_column_bounds", columns,
                 *self._column_sides(columns, lower, upper, integer))

    def _row_sides(self, rows: Sequence[int], lower: Sequence[float], upper: Sequence[float],
                   offset: Sequence[float]) -> Tuple[array[float], array[float]]:
        """The bounds less the offsets."""
        sides = tuple(array("d", map(float.__sub__, side, offset)) for side in (lower, upper))
        return self._checked(0, "row", rows, *sides)

    def _column_sides(self, columns: Sequence[int], lower: Sequence[float], upper: Sequence[float],
                      integer: Sequence[int]) -> Tuple[array[float], array[float]]:
        """The bounds, those of integer columns whole."""
        lower, upper = array("d", lower), array("d", upper)
        for k, whole in enumerate(integer):
            if whole:
                lower[k] = lower[k] if math.isinf(lower[k]) else math.ceil(lower[k] - ALMOST)
                upper[k] = upper[k] if math.isinf(upper[k]) else math.floor(upper[k] + ALMOST)
        return self._checked(1, "column", columns, lower, upper)

    def _checked(self, which: int, what: str, numbers: Sequence[int], lower: array[float],
                 upper: array[float]) -> Tuple[array[float], array[float]]:
        """The bounds, if the library can work with them."""
        for side, infinite in ((lower, -math.inf), (upper, math.inf)):
            require_numbers(side, lambda k: "a bound of %s %d" % (what, numbers[k]), infinite)
        crossed = self._crossed[which]
        if crossed:
            crossed.difference_update(numbers)
        crossed.update(n for n, l, u in zip(numbers, lower, upper) if l > u)
        return lower, upper

    def set_objective(self, columns: Sequence[int], coefficients: Sequence[float]) -> None:
        """The coefficients of some columns, and of column 0 the constant."""
        require_numbers(coefficients, lambda k: place(0, columns[k]))
        self._do("set_objective", columns, coefficients)
        self._primal = True

    def set_rows(self, rows: Sequence[int], begins: Sequence[int], ends: Sequence[int],
                 subj: array[int], val: array[float]) -> None:
        """The terms of some rows: columns and coefficients at the places `begin` up to but not
        including `end` of the lists `subj` (i32, ascending) and `val` (f64)."""
        self._set_rows("set_rows", rows, begins, ends, subj, val)

    def change_rows(self, rows: Sequence[int], begins: Sequence[int], ends: Sequence[int],
                    subj: array[int], val: array[float]) -> None:
        """Gives columns of some rows other coefficients, told as in `set_rows`. The other terms of
        these rows stay."""
        self._set_rows("change_rows", rows, begins, ends, subj, val)

    def _set_rows(self, change: str, rows: Sequence[int], begins: Sequence[int],
                  ends: Sequence[int], subj: array[int], val: array[float]) -> None:
        sound = are_ordinary(as_array("f64", val))
        for i, begin, end in zip(rows, begins, ends):
            if begin < end and not 1 <= subj[begin] <= subj[end - 1] <= self.columns:
                raise IndexError("a term of row %d names a column that is not in the problem" % i)
            if not sound:
                require_numbers(val[begin:end], lambda k: place(i, subj[begin + k]))
        self._primal = self._primal or any(map(int.__eq__, begins, ends))
        self._has_basis &= self._do(change, rows, begins, ends, subj, val)

    # Solving.

    def solve(self, options: Options) -> Solution:
        """Presolves, or with the start "basis" goes on from where the last solution ended: two
        problems with the same rows and columns in the same order and with the same history take
        the same steps and end with the same basis, also where several are optimal."""
        start = time.perf_counter()
        native = self._held
        if any(self._crossed):
            return Solution(INFEASIBLE, "the bounds of a row or column leave no room")
        warm = options.start is not None and self._has_basis
        try:
            found = native.thread.call(self._run, native, warm, log=options.log,
                                       seconds=options.seconds)
        except Interrupted:
            found = Solution(LIMIT, "the time limit is reached")
        found.seconds = time.perf_counter() - start
        return found

    def _run(self, native: NativeProblem, warm: bool) -> Solution:
        """In the library's thread."""
        run, integer = Run(native), any(self._integer)
        status = run.integer(warm) if integer else run.linear(warm, self._primal)
        found = Solution(status, run.last_words())
        if integer:
            found.bound = run.bound
        if status in (OPTIMAL, FEASIBLE):
            self._read(native, found, integer)
            self._has_basis, self._primal = self._has_basis or not integer, False
        if status == OPTIMAL:
            found.bound = found.objective
        return found

    def _read(self, native: NativeProblem, found: Solution, integer: bool) -> None:
        rows, columns = self.rows, self.columns
        kind = ("mip_row_val", "mip_col_val") if integer else ("get_row_prim", "get_col_prim")
        objective = native.lib.mip_obj_val if integer else native.lib.get_obj_val
        found.objective = objective(native.handle)
        if not math.isfinite(found.objective):
            raise SolverError("the objective of the solution is not finite")
        found.xc = array("d", map(float.__add__, self._offset, native.values(kind[0], rows)))
        found.xc[0] = found.objective
        found.xx = native.values(kind[1], columns)
        found.accx, found.barx = array("d"), array("d")
        if found.status == OPTIMAL and not integer:
            found.slc, found.suc = split_duals(native.values("get_row_dual", rows), self._maximize)
            found.accy, found.bars = array("d"), array("d")
            found.slx, found.sux = split_duals(native.values("get_col_dual", columns),
                                               self._maximize)


def require_room(count: int) -> None:
    """SolverError if that are more rows or columns than a problem can have."""
    if count > MOST:
        raise SolverError("GLPK can't hold %d rows or columns: the most is %d" % (count, MOST))


def place(row: int, column: int) -> str:
    """Where a coefficient stands, for an error."""
    where = "row %d" % row if row > 0 else "the objective"
    return "the coefficient of column %d in %s" % (column, where)


def are_ordinary(values: "array[float]") -> bool:
    """Whether all are 0 or clearly of such a size: times one factor none becomes 0, and times
    another one none infinite."""
    n, scaled = len(values), zeros("f64", len(values))
    closure(610, scaled, SHRINKING, n, values)
    if closure(400, scaled, 0) < closure(400, values, 0):
        return False
    closure(610, scaled, GROWING, n, values)
    closure(23, n, scaled, scaled, scaled)
    return bool(closure(400, scaled, 0) == 0)  # each is 0.0, or else NaN


def require_numbers(numbers: Sequence[float], name: Callable[[int], str],
                    infinite: float = 0.0) -> None:
    """SolverError, with the name of the place, if a number is not 0, nor `infinite`, nor of a size
    that the library can work with."""
    if len(numbers) > MANY and are_ordinary(as_array("f64", numbers)):
        return
    sizes = [abs(number) for number in numbers if number != 0.0 and number != infinite]
    # The sum tells a NaN.
    if not sizes or SMALLEST <= min(sizes) and max(sizes) <= GREATEST and sum(sizes) < math.inf:
        return
    for k, number in enumerate(numbers):
        if number not in (0.0, infinite) and not SMALLEST <= abs(number) <= GREATEST:
            raise SolverError("GLPK can't work with %s: %r is not a number between %g and %g in "
                              "size" % (name(k), number, SMALLEST, GREATEST))
