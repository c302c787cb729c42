"""A problem in GLPK: what it holds, set and read in bulk.

All of this runs in the library's thread (see glpk_library), and trusts its caller: numbers are in
their ranges. Rows and columns count from 1, as the library has them.
"""

from __future__ import annotations

import bisect
import ctypes
import math
from array import array
from itertools import repeat
from typing import Any, Callable, Iterable, List, Sequence, Tuple

from ..data.assembly import rows_of_entries, sort_triplets
from ..data.buffers import zeros
from .glpk_library import Thread
from .problem import Forms, Problem

FREE, LOWER, UPPER, DOUBLE, FIXED = 1, 2, 3, 4, 5  # kinds of bounds
KINDS = ((FREE, UPPER), (LOWER, DOUBLE))  # by whether there is a lower and an upper bound
MINIMIZE, MAXIMIZE = 1, 2
CONTINUOUS, INTEGER = 1, 2  # kinds of columns
BASIC, AT_LOWER, AT_UPPER = 1, 2, 3  # statuses in a basis
FEASIBLE = 2
FEW = 20  # rows that are emptied: for more, to keep the basis takes longer than to make a new one
PIVOT = 1e-9  # in size, at least
LARGEST = 1.7976931348623157e308  # stands for an infinite bound


class NativeProblem:
    def __init__(self, thread: Thread) -> None:
        self.thread, self.lib = thread, thread.lib
        self.handle = ctypes.c_void_p(self.lib.create_prob())

    def __del__(self) -> None:
        if hasattr(self, "handle") and not self.thread.lost:
            self.thread.later(self.lib.delete_prob, self.handle)

    @property
    def rows(self) -> int:
        return int(self.lib.get_num_rows(self.handle))

    @property
    def columns(self) -> int:
        return int(self.lib.get_num_cols(self.handle))

    # Setting it.

    def load(self, problem: Problem, row_lower: Sequence[float], row_upper: Sequence[float],
             column_lower: Sequence[float], column_upper: Sequence[float]) -> None:
        """Takes a problem with these bounds in the place of all that there was."""
        self.lib.erase_prob(self.handle)
        self.set_direction(problem.maximize)
        self.add_rows(row_lower[1:], row_upper[1:])
        self.add_columns(column_lower[1:], column_upper[1:], problem.integer[1:])
        subi, subj, val = compact(problem.rows, len(problem.column_lower))
        first = bisect.bisect_left(subi, 1)  # terms of the objective stand before
        self.set_objective(array("i", [0, *subj[:first]]),
                           array("d", [problem.rows.offset[0], *val[:first]]))
        count = len(val) - first
        if count > 0:  # the library reads from the second entry on
            at = first - 1
            self.lib.load_matrix(self.handle, count, address(subi, at), address(subj, at),
                                 address(val, at))

    def set_direction(self, maximize: bool) -> None:
        self.lib.set_obj_dir(self.handle, MAXIMIZE if maximize else MINIMIZE)

    def add_columns(self, lower: Sequence[float], upper: Sequence[float], integer: Iterable[int]
                    ) -> None:
        if len(lower) == 0:
            return
        first = self.lib.add_cols(self.handle, len(lower))
        numbers = range(first, first + len(lower))
        self.set_column_bounds(numbers, lower, upper)
        whole = [j for j, one in zip(numbers, integer) if one]
        self._set(self.lib.set_col_kind, whole, repeat(INTEGER))

    def add_rows(self, lower: Sequence[float], upper: Sequence[float]) -> None:
        if len(lower) > 0:
            first = self.lib.add_rows(self.handle, len(lower))
            self.set_row_bounds(range(first, first + len(lower)), lower, upper)

    def set_row_bounds(self, rows: Iterable[int], lower: Sequence[float], upper: Sequence[float]
                       ) -> None:
        self._set(self.lib.set_row_bnds, rows, *native_bounds(lower, upper))

    def set_column_bounds(self, columns: Iterable[int], lower: Sequence[float],
                          upper: Sequence[float]) -> None:
        self._set(self.lib.set_col_bnds, columns, *native_bounds(lower, upper))

    def set_objective(self, columns: Iterable[int], coefficients: Iterable[float]) -> None:
        """The coefficients of some columns, and of column 0 the constant."""
        self._set(self.lib.set_obj_coef, columns, map(ctypes.c_double, coefficients))

    def _set(self, set_one: Callable[..., Any], numbers: Iterable[int], *values: Iterable[Any]
             ) -> None:
        for _ in map(set_one, repeat(self.handle), numbers, *values):
            pass

    def set_rows(self, rows: Sequence[int], begins: Sequence[int], ends: Sequence[int],
                 subj: array[int], val: array[float]) -> bool:
        """The terms of some rows: columns and coefficients at the places `begin` up to but not
        including `end` of the lists `subj` (i32, ascending) and `val` (f64). Returns whether there
        can still be a start from the basis."""
        sound = sum(map(int.__eq__, begins, ends)) <= FEW
        for i, begin, end in zip(rows, begins, ends):
            sound = sound and self._keeps_basis(i, subj[begin:end], val[begin:end])
            # The library reads from the second entry on.
            self.lib.set_mat_row(self.handle, i, end - begin, address(subj, begin - 1),
                                 address(val, begin - 1))
        return sound

    def _keeps_basis(self, row: int, subj: array[int], val: array[float]) -> bool:
        """Whether the basis can't become singular if a row gets these terms: of such a basis the
        library may die. A basic row may have any, another one those that it had, with other
        coefficients."""
        if self.lib.get_row_stat(self.handle, row) == BASIC:
            return True
        if len(subj) == 0:
            return self._make_basic(row)
        held = zeros("i32", self.lib.get_mat_row(self.handle, row, None, None))
        self.lib.get_mat_row(self.handle, row, address(held, -1), None)
        return sorted(held) == subj.tolist() and 0.0 not in val

    def _make_basic(self, row: int) -> bool:
        """Moves a row off its bound, until another row or column that is basic comes to one of its
        own. Returns whether that could be done."""
        lib, handle = self.lib, self.handle
        status = lib.get_row_stat(handle, row)
        if (lib.get_prim_stat(handle) != FEASIBLE
                or not lib.bf_exists(handle) and lib.factorize(handle) != 0):
            return False
        ind, val = zeros("i32", self.rows + 1), zeros("f64", self.rows + 1)
        count = lib.eval_tab_col(handle, row, address(ind), address(val))
        direction = 1 if status == AT_UPPER else -1
        place = lib.prim_rtest(handle, count, address(ind), address(val), direction, PIVOT)
        if place == 0:
            return False
        lib.set_row_stat(handle, row, BASIC)
        at = AT_UPPER if val[place] * direction > 0.0 else AT_LOWER
        if ind[place] <= self.rows:
            lib.set_row_stat(handle, ind[place], at)
        else:
            lib.set_col_stat(handle, ind[place] - self.rows, at)
        return True

    def change_rows(self, rows: Sequence[int], begins: Sequence[int], ends: Sequence[int],
                    subj: array[int], val: array[float]) -> bool:
        """Gives columns of some rows other coefficients, told as in `set_rows`. The other terms of
        these rows stay."""
        return all([self._change_row(i, subj[begin:end], val[begin:end])
                    for i, begin, end in zip(rows, begins, ends)])

    def _change_row(self, i: int, subj: array[int], val: array[float]) -> bool:
        length = self.lib.get_mat_row(self.handle, i, None, None)
        held, numbers = zeros("i32", length), zeros("f64", length)
        self.lib.get_mat_row(self.handle, i, address(held, -1), address(numbers, -1))
        # The library has the terms of a row that was set in the opposite order.
        if memoryview(held)[::-1] == memoryview(subj):
            if memoryview(numbers)[::-1] == memoryview(val):
                return True
        else:
            before, after = dict(zip(held, numbers)), dict(zip(subj, val))
            if all(before.get(j, 0.0) == coefficient for j, coefficient in after.items()):
                return True
            terms = sorted({**before, **after}.items())
            subj, val = array("i", [j for j, _ in terms]), array("d", [v for _, v in terms])
        return self.set_rows([i], [0], [len(subj)], subj, val)

    # Reading it.

    def values(self, name: str, count: int) -> array[float]:
        """What the routine of that name tells of each row or column up to number `count`; entry 0
        is 0."""
        routine = getattr(self.lib, name)
        return array("d", [0.0, *map(routine, repeat(self.handle), range(1, count + 1))])

    def problem(self) -> Problem:
        """All of it."""
        rows, columns = self.rows, self.columns
        forms, infinite = Forms.zero(rows + 1), {-LARGEST: -math.inf, LARGEST: math.inf}
        bounds = [array("d", [infinite.get(b, b) for b in self.values(name, count)])
                  for name, count in (("get_col_lb", columns), ("get_col_ub", columns),
                                      ("get_row_lb", rows), ("get_row_ub", rows))]
        costs = self.values("get_obj_coef", columns)
        forms.offset[0] = self.lib.get_obj_coef(self.handle, 0)
        costed = [j for j in range(1, columns + 1) if costs[j] != 0.0]
        forms.subi.extend(repeat(0, len(costed)))
        forms.subj.extend(costed)
        forms.cof.extend(costs[j] for j in costed)
        ptr, subi, val = self._compressed()
        subj = rows_of_entries(ptr)  # whose columns count from 0
        forms.subi.extend(subi)
        forms.subj.extend(j + 1 for j in subj)
        forms.cof.extend(val)
        integer = bytearray(columns + 1)
        for j in range(1, columns + 1):
            integer[j] = self.lib.get_col_kind(self.handle, j) != CONTINUOUS
        maximize = self.lib.get_obj_dir(self.handle) == MAXIMIZE
        return Problem(maximize, bounds[0], bounds[1], integer, forms, bounds[2], bounds[3],
                       Forms.zero(0), [], array("i", [-columns] if columns else []),
                       (self._names(self.lib.get_row_name, rows),
                        self._names(self.lib.get_col_name, columns)))

    def _names(self, get: Callable[..., Any], count: int) -> List[str]:
        return ["", *((name or b"").decode(errors="replace")
                      for name in map(get, repeat(self.handle), range(1, count + 1)))]

    def _compressed(self) -> Tuple[array[int], array[int], array[float]]:
        """All entries by column: where each column starts, and the end of the last (i64); rows,
        which count from 1 and are in any order within a column; values."""
        total = self.lib.get_num_nz(self.handle)
        ptr, subi, val = array("q", [0]), zeros("i32", total), zeros("f64", total)
        get, handle, place = self.lib.get_mat_col, self.handle, 0
        ind, num = ctypes.c_void_p(), ctypes.c_void_p()
        rows, values = address(subi, -1), address(val, -1)  # written from the second entry on
        for j in range(1, self.columns + 1):
            ind.value, num.value = rows + place * subi.itemsize, values + place * val.itemsize
            place += get(handle, j, ind, num)
            ptr.append(place)
        return ptr, subi, val


def compact(forms: Forms, columns: int) -> Tuple[array[int], array[int], array[float]]:
    """The terms of the columns, of which there are fewer than `columns`, in ascending order of form
    and column, each column once in a form."""
    return sort_triplets(len(forms), columns, forms.subi, forms.subj, forms.cof)


def address(numbers: array[Any], place: int = 0) -> int:
    """Where entry `place` of an array lies."""
    return numbers.buffer_info()[0] + place * numbers.itemsize


def native_bounds(lower: Sequence[float], upper: Sequence[float]) -> Tuple[Iterable[Any], ...]:
    """Kinds, lower and upper bounds as the library takes them."""
    least, greatest = -math.inf, math.inf
    kinds = [FIXED if l == u else KINDS[l > least][u < greatest] for l, u in zip(lower, upper)]
    return kinds, map(ctypes.c_double, lower), map(ctypes.c_double, upper)
