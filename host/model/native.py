"""What has changed in a model since a solver got it, and the solver brought up to date."""

from __future__ import annotations

from array import array
from typing import Any, Dict, List, Optional, Set, Type

from ..data.buffers import zeros
from ..solvers import Adapter, Problem

MOST = 0.5  # the part of all rows that may be new where a problem is changed and not loaded anew


class Columns:
    """The scalar variables, counted from 1: bounds and whether they are integer."""

    def __init__(self) -> None:
        self.lower, self.upper, self.integer = zeros("f64", 1), zeros("f64", 1), bytearray(1)


class Native:
    """A solver and what the model has changed since it was loaded. Only the solvers that say so are
    changed in place; the others get each problem anew."""

    def __init__(self) -> None:
        self.adapter: Any = None
        self.forget()

    def forget(self) -> None:
        """All is as it was handed over."""
        self.reason: Optional[str] = None  # why all is to be handed over
        self.rows: Set[int] = set()        # with other terms
        self.sides: Set[int] = set()
        self.bounds: Set[int] = set()      # columns with other bounds
        self.objective = self.values = False
        self.added: Dict[str, int] = {}    # what changed, in the words of the account

    def count(self, what: str, number: int = 1) -> None:
        self.added[what] = self.added.get(what, 0) + number

    def bring(self, model: Any, chosen: Type[Adapter]) -> str:
        """Makes the solver of that class hold the model as it is, and tells what was built."""
        reason = self._reason(model, chosen)
        if reason is None:
            account = self._change(model)
        else:
            if type(self.adapter) is not chosen:
                self.adapter = chosen()
            self.adapter.load(model.problem())
            account = "all of it, because %s" % reason
        self.forget()
        model.handed_over()
        return account

    def _reason(self, model: Any, chosen: Type[Adapter]) -> Optional[str]:
        if type(self.adapter) is not chosen:
            return "%s has not had it yet" % chosen.name
        if not chosen.in_place:
            return "%s takes each problem anew" % chosen.name
        if self.reason is None and len(self.rows) > MOST * max(self.adapter.rows, 1):
            return "more rows are new than were there"
        return self.reason

    def _change(self, model: Any) -> str:
        adapter, columns = self.adapter, model.columns
        held = adapter.columns
        if len(columns.lower) - 1 > held:
            adapter.add_columns(columns.lower[held + 1:], columns.upper[held + 1:],
                                columns.integer[held + 1:])
        known = sorted(j for j in self.bounds if j <= held)
        if known:
            adapter.set_column_bounds(known, [columns.lower[j] for j in known],
                                      [columns.upper[j] for j in known])
        spans, triplets, moved = model.moved
        self._rows(model)
        rows = sorted(self.sides.union(moved if self.values else ()) - {0})
        if rows:
            adapter.set_row_bounds(rows, *model.rows.sides_at(rows))
        self._terms(model, spans if self.values else [], triplets)
        parts = ["%d %s" % (n, what) for what, n in self.added.items()]
        return ", ".join(parts + (["numbers of parameters"] if self.values else [])) or "nothing"

    def _rows(self, model: Any) -> None:
        """Rows that are new, or gone."""
        rows, adapter = model.rows, self.adapter
        more = len(rows) - 1 - adapter.rows
        if more > 0:
            adapter.add_rows(*model.rows.sides_at(list(range(adapter.rows + 1, len(rows)))))
        touched = sorted(self.rows)
        if not touched:
            return
        first, terms = rows.handed, rows.terms
        begins, ends = dict.fromkeys(touched, 0), dict.fromkeys(touched, 0)
        subi = terms.subi[first:]
        for k, row in enumerate(subi):
            if k == 0 or subi[k - 1] != row:
                begins[row] = k
            ends[row] = k + 1
        adapter.set_rows(touched, [begins[row] for row in touched], [ends[row] for row in touched],
                         terms.subj[first:], terms.cof[first:])

    def _terms(self, model: Any, spans: List[Any], triplets: Any) -> None:
        """The objective, and the coefficients that parameters have made."""
        adapter, rows = self.adapter, model.rows
        if self.objective:
            adapter.maximize = model.is_maximized
            adapter.clear_objective()
            adapter.set_objective(rows.objective.subj, rows.objective.cof)
        if self.objective or self.values:
            adapter.set_objective(array("i", [0]), array("d", rows.offset.at([0])))
        _, subj, val = triplets
        for row, begin, end in spans:
            if row == 0:
                adapter.set_objective(subj[begin:end], val[begin:end])
        spans = [span for span in spans if span[0] > 0]
        if spans:
            adapter.change_rows(*zip(*spans), subj, val)


def problem_of(model: Any) -> Problem:
    """All of a model for the present parameter values."""
    raise NotImplementedError
