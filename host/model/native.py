"""What has changed in a model since a solver got it, and the solver brought up to date."""

from __future__ import annotations

import itertools
from typing import Any, Dict, Optional, Set, Type

from ..closures import closure
from ..data.buffers import zeros
from ..solvers import Adapter
from .rows import Rows
from .slots import Slots

MOST = 0.5  # the part of all rows that may change where a problem is not loaded anew


class Columns:
    """The scalar variables, counted from 1: bounds and whether they are integer. Those that are
    given back are fixed at 0 until they are taken again."""

    def __init__(self) -> None:
        self.slots = Slots()
        self.lower, self.upper, self.integer = zeros("f64", 1), zeros("f64", 1), bytearray(1)
        self.slots.take(1)

    def __len__(self) -> int:
        return len(self.lower) - 1

    def take(self, lower: Any, upper: Any, integer: bool) -> Any:
        """The numbers (i32) of new columns between these bounds."""
        columns, before = self.slots.take(len(lower)), len(self)
        more = max(0, max(columns, default=0) - before)
        self.lower.extend(zeros("f64", more))
        self.upper.extend(zeros("f64", more))
        self.integer.extend(bytes(more))
        self.bound(columns, lower, upper)
        for j in columns:
            self.integer[j] = integer
        return columns

    def bound(self, columns: Any, lower: Any, upper: Any) -> None:
        closure(102, columns, self.lower, lower)
        closure(102, columns, self.upper, upper)

    def give_back(self, columns: Any) -> None:
        none = zeros("f64", len(columns))
        self.bound(columns, none, none)
        self.slots.give_back(columns)


class Native:
    """A solver and what the model has changed since it was loaded. Only the solvers that say so are
    changed in place; the others get each problem anew."""

    def __init__(self) -> None:
        self.adapter: Any = None
        self._costed: Set[int] = set()  # columns that have been given a coefficient in an objective
        self.forget()

    def forget(self) -> None:
        """All is as it was handed over."""
        self.reason: Optional[str] = None  # why all is to be handed over
        self.rows: Set[int] = set()        # with other terms
        self.sides: Set[int] = set()       # rows with other sides
        self.bounds: Set[int] = set()      # columns with other bounds
        self.objective = self.values = False
        self._changes: Dict[str, int] = {}

    def note(self, what: str, count: int = 1) -> None:
        """Something changed, in the words of the account."""
        if count > 0:
            self._changes[what] = self._changes.get(what, 0) + count

    def bring(self, model: Any, chosen: Type[Adapter]) -> str:
        """Makes the solver of that class hold the model as it is, and tells what was built."""
        reason, account = self._reason(chosen), self._account()
        if reason is not None:
            account = "all of it, because %s" % reason
            if type(self.adapter) is not chosen:
                self.adapter = chosen()
        try:
            if reason is None and chosen.in_place:
                self._change(model)
            else:
                self.adapter.load(model.problem())
                self._costed = model.rows.costed()
            model.rows.handed = len(model.rows.terms.subi)
            self.forget()
        except BaseException:
            self.reason = "the change before failed"
            raise
        return account

    def _reason(self, chosen: Type[Adapter]) -> Optional[str]:
        """Why that solver has to be loaded anew, or None."""
        adapter, held = self.adapter, type(self.adapter)
        if held is not chosen:
            return "%s has not had it yet" % chosen.name
        if chosen.in_place and not adapter.loaded:
            return "%s has lost it" % chosen.name
        if chosen.in_place and len(self.rows) > MOST * max(adapter.rows, 1):
            return "more than half of its rows changed"
        return self.reason

    def _change(self, model: Any) -> None:
        spans, triplets, moved = model.run_programs() if self.values else ((), ((), (), ()), ())
        self._columns(model.columns)
        self._rows(model.rows)
        self.sides.update(moved)
        rows = sorted(self.sides - {0})
        if rows:
            numbers = model.rows.numbers
            offset, lower, upper = (table.at(rows) for table in numbers)
            self.adapter.set_row_bounds(rows, lower, upper, offset)
        self._coefficients(model, spans, triplets)

    def _account(self) -> str:
        parts = ["%s: %d" % change for change in self._changes.items()]
        if self.values:
            parts.append("numbers of parameters" if parts else "nothing but numbers")
        return ", ".join(parts) or "nothing"

    def _columns(self, columns: Columns) -> None:
        adapter, held = self.adapter, self.adapter.columns
        if len(columns) > held:
            adapter.add_columns(columns.lower[held + 1:], columns.upper[held + 1:],
                                columns.integer[held + 1:])
        known = sorted(j for j in self.bounds if j <= held)
        if known:
            adapter.set_column_bounds(known, [columns.lower[j] for j in known],
                                      [columns.upper[j] for j in known])

    def _rows(self, rows: Rows) -> None:
        """Rows that are new, or gone."""
        adapter, held = self.adapter, self.adapter.rows
        if len(rows) - 1 > held:
            new = range(held + 1, len(rows))
            offset, lower, upper = (table.at(new) for table in rows.numbers)
            adapter.add_rows(lower, upper, offset)
        if not self.rows:
            return
        spans = dict.fromkeys(sorted(self.rows), (0, 0))
        first, terms = rows.handed, rows.terms
        subi, begin = terms.subi[first:], 0
        for row, group in itertools.groupby(subi):
            end = begin + len(list(group))
            if row not in rows.freed:
                spans[row] = begin, end
            begin = end
        adapter.set_rows(list(spans), [begin for begin, _ in spans.values()],
                         [end for _, end in spans.values()], terms.subj[first:], terms.cof[first:])

    def _coefficients(self, model: Any, spans: Any, triplets: Any) -> None:
        """The objective, and the coefficients that parameters have made."""
        adapter, rows = self.adapter, model.rows
        if self.objective:
            adapter.maximize = model.is_maximized
            self._cost(sorted(self._costed), [0.0] * len(self._costed))
            self._cost(rows.objective.subj, rows.objective.cof)
        if self.objective or self.values:
            adapter.set_objective([0], rows.offset.at([0]))
        _, subj, val = triplets
        for row, begin, end in spans:
            if row == 0:
                self._cost(subj[begin:end], val[begin:end])
        spans = [span for span in spans if span[0] > 0]
        if spans:
            adapter.change_rows(*zip(*spans), subj, val)

    def _cost(self, columns: Any, coefficients: Any) -> None:
        self._costed.update(columns)
        self.adapter.set_objective(columns, coefficients)
