"""The terms of model rows whose coefficients depend on parameters.

Terms with a number for a coefficient go into the native model; the others are kept here, with their
programs, and give (row, variable, value) triplets for the current parameter values.
"""

from __future__ import annotations

import itertools
import operator
from array import array
from typing import Any, List, Set, Tuple

from ..closures import closure
from ..data.buffers import require_room, zeros
from ..evaluator.stacks import Expression, Stack


class RowStore:
    """Row r has the entries row_param_ptrb[r] up to but not including row_param_ptre[r] of the
    pools `param_varidx` and `param_code_sizes`; their programs lie back to back in the pools `code`
    and `cconst`, from row_code_ptr[r] on.

    Cleared rows leave gaps in the pools, which are closed once they are the larger part.
    """

    def __init__(self) -> None:
        self.row_param_ptrb, self.row_param_ptre, self.row_code_ptr = (array("i") for _ in range(3))
        self.param_varidx, self.param_code_sizes = zeros("i64", 8), zeros("i32", 8)
        self.code, self.cconst = zeros("i32", 32), zeros("f64", 32)
        self.entry_used = self.code_used = 0  # by the rows as they are
        self.entry_top = self.code_top = 0    # where the pools are free
        self.longest = 0                      # atoms of the longest program
        self._triplets = zeros("i32", 0), zeros("i32", 0), zeros("f64", 0)

    def add_rows(self, count: int) -> None:
        """Appends `count` rows without entries."""
        for table in (self.row_param_ptrb, self.row_param_ptre, self.row_code_ptr):
            table.extend(zeros("i32", count))

    def clear(self, rows: Any) -> None:
        """Rows `rows` (i32) have no entries any more."""
        self.code_used, self.entry_used = closure(
            138, self.code_used, rows, self.param_code_sizes, self.row_param_ptrb,
            self.row_param_ptre, self.entry_used)

    def store(self, r: Stack, e: Expression, rows: Any) -> None:
        """Element i of the finished expression `e` on the stack `r` becomes the content of row
        rows[i] (i32), with those of its terms that have a program. A row that has entries is to be
        cleared first."""
        if e.ncodeatom <= 0:
            return
        longest = closure(390, 0, e.nnz, e.codeptr_base, r.i32)
        nparam, natom = closure(135, e.code_base, e.codeptr_base, e.nelem, 0, 0, e.ptr_base, r.i32)
        self._make_room(nparam, natom)
        self.code_top, self.entry_top = closure(
            136, e.code_base, e.codeptr_base, self.code_top, self.entry_top, rows, e.nelem,
            e.ptr_base, r.i32, self.row_code_ptr, self.row_param_ptrb, self.row_param_ptre)
        closure(137, self.cconst, e.cconst_base, self.code, e.code_base, e.codeptr_base, rows,
                e.nelem, e.nidxs_base, True, self.param_code_sizes, self.param_varidx, e.ptr_base,
                r.f64, r.i32, r.i64, self.row_code_ptr, self.row_param_ptrb)
        self.entry_used += nparam
        self.code_used += natom
        self.longest = max(self.longest, longest)

    def spans(self) -> List[Tuple[int, int, int]]:
        """(row, begin, end) for each row that has entries: their places in an evaluation."""
        ends = list(itertools.accumulate(map(operator.sub, self.row_param_ptre,
                                             self.row_param_ptrb)))
        begins = itertools.chain([0], ends)
        return [span for span in zip(itertools.count(), begins, ends) if span[1] < span[2]]

    def variables(self) -> Set[int]:
        """The variables that have an entry in some row."""
        return set(itertools.chain.from_iterable(
            self.param_varidx[b:e] for b, e in zip(self.row_param_ptrb, self.row_param_ptre)))

    def _make_room(self, nparam: int, natom: int) -> None:
        if self.code_top > 2 * self.code_used and self.code_top + natom > len(self.code):
            self._close_gaps()
        require_room(2 * (self.entry_top + nparam), 2 * (self.code_top + natom))
        entries = closure(142, self.entry_top, len(self.param_varidx), nparam)
        atoms = closure(142, self.code_top, len(self.code), natom)
        for pool, capacity in ((self.param_varidx, entries), (self.param_code_sizes, entries),
                               (self.code, atoms), (self.cconst, atoms)):
            pool *= capacity // len(pool)  # a power of 2; in place, and faster than to append zeros

    def _close_gaps(self) -> None:
        """Moves what the rows hold to the front of the pools, in the order that it has there."""
        held = [r for r, (begin, end) in enumerate(zip(self.row_param_ptrb, self.row_param_ptre))
                if begin < end]
        held.sort(key=self.row_param_ptrb.__getitem__)
        self.entry_top = self.code_top = 0
        for r in held:
            natom = closure(139, 0, r, self.param_code_sizes, self.row_param_ptrb,
                            self.row_param_ptre)
            entries = slice(self.row_param_ptrb[r], self.row_param_ptre[r])
            atoms = slice(self.row_code_ptr[r], self.row_code_ptr[r] + natom)
            self.row_param_ptrb[r], self.row_code_ptr[r] = self.entry_top, self.code_top
            self.entry_top = move(entries, self.entry_top, self.param_varidx, self.param_code_sizes)
            self.code_top = move(atoms, self.code_top, self.code, self.cconst)
            self.row_param_ptre[r] = self.entry_top

    def evaluate(self, param_value: Any, x: Stack) -> Tuple[Any, Any, Any]:
        """The triplets (subi, subj, val) for the parameter values `param_value` (f64): row (i32),
        variable (i32) and coefficient (f64), in ascending order of row. The next evaluation of as
        many entries overwrites them. The f64 array of the stack `x` is scratch."""
        if len(self._triplets[0]) != self.entry_used:
            n = self.entry_used
            self._triplets = zeros("i32", n), zeros("i32", n), zeros("f64", n)
        subi, subj, val = self._triplets
        with x.scratch():
            stack = x.reserve("f64", self.longest)
            closure(134, self.cconst, self.code, 0, self.param_code_sizes, param_value,
                    self.param_varidx, self.row_code_ptr, self.row_param_ptrb, self.row_param_ptre,
                    stack, 0, subi, subj, val, x.f64)
        return subi, subj, val


def move(places: slice, top: int, *pools: Any) -> int:
    """Moves entries of the pools to the places from `top` on; returns the place behind them."""
    for pool in pools:
        entries = pool[places]
        pool[top : top + len(entries)] = entries
    return top + int(places.stop - places.start)
