"""The linear rows of a model: terms, sides, and which of them move with parameters."""

from __future__ import annotations

import itertools
import math
from array import array
from dataclasses import fields
from typing import Any, Iterable, List, Set, Tuple

from ..closures import closure
from ..data.buffers import zeros
from ..data.entries import nonzeros
from ..evaluator.stacks import Expression, Stack
from ..interruptions import uninterrupted
from ..solvers.problem import Forms
from .affine_rows import ElementTables, evaluated, stored_rows, with_terms
from .row_store import RowStore
from .slots import Slots

OBJECTIVE = array("i", [0])  # the row that the objective is
Span = Tuple[int, int, int]


class Numbers:
    """A number for each row (f64), in two parts: `fixed`, and `moving` what the parameters made of
    it at last. `store` holds the programs."""

    def __init__(self) -> None:
        self.fixed, self.moving, self.store = array("d"), array("d"), RowStore()

    def add_rows(self, count: int) -> None:
        self.fixed.extend(zeros("f64", count))
        self.moving.extend(zeros("f64", count))
        self.store.add_rows(count)

    def clear(self, rows: Any) -> None:
        self.store.clear(rows)
        for table in (self.fixed, self.moving):
            closure(102, rows, table, zeros("f64", len(rows)))

    def set(self, rows: Any, values: Any) -> None:
        closure(102, rows, self.fixed, values)

    def write(self, w: Stack, e: Expression, forms: Forms, rows: Any) -> None:
        """The rows get the constants of the elements of the finished expression `e`, whose numbers
        are `forms`; its programs are stored."""
        stored = stored_rows(w, e, rows)
        self.set(stored, forms.offset)
        self.store.store(w, e, stored)

    def at(self, rows: Iterable[int]) -> List[float]:
        return [self.fixed[row] + self.moving[row] for row in rows]

    def all(self) -> Any:
        """All of them (f64)."""
        values, n = self.fixed[:], len(self.fixed)
        if self.store.entry_used > 0:
            less = zeros("f64", n)
            closure(610, less, -1.0, n, self.moving)
            closure(23, n, self.fixed, less, values)
        return values

    def evaluate(self, param_value: Any, x: Stack) -> Tuple[List[int], List[Span], Any]:
        """Runs the programs. Returns the rows whose number moves, the places (row, begin, end) of
        the terms of variables that do, and the triplets that these are places of."""
        triplets = evaluated(self.store, param_value, x)
        subi, subj, val = triplets
        moved: List[int] = []
        spans: List[Span] = []
        if not any(subj):
            closure(102, subi, self.moving, val)
            return list(subi), spans, triplets
        for row, begin, end in self.store.spans() if len(val) > 0 else ():
            # Terms ascend: entries of matrices, the constant, and then the columns.
            at = next((k for k in range(begin, end) if subj[k] >= 0), end)
            if at < end and subj[at] == 0:
                self.moving[row] = val[at]
                moved.append(row)
                at += 1
            if at < end:
                spans.append((row, at, end))
        return moved, spans, triplets


class Rows:
    """Row 0 is the objective. The terms of variables whose coefficients are numbers stand in
    `terms`, those with programs in the store of `offset`, beside the constant of each row; its
    sides are `lower` and `upper`.

    Rows that are freed keep their number and their terms until there are many of them: then both
    are given up, and the numbers are taken again.
    """

    def __init__(self) -> None:
        self.slots, self.terms = Slots(), Forms.zero(0)
        self.offset, self.lower, self.upper = self.numbers = Numbers(), Numbers(), Numbers()
        self.freed: Set[int] = set()
        self.objective = Forms.zero(0)
        self.handed = 0  # terms that a native problem has which is changed in place
        self.bound(self.take(1), -math.inf, math.inf)

    def __len__(self) -> int:
        return len(self.terms)

    def take(self, count: int) -> Any:
        """The numbers (i32) of new rows, without terms."""
        if 2 * len(self.freed) > len(self):
            self.compact()
        rows = self.slots.take(count)
        more = max(0, max(rows, default=0) + 1 - len(self))
        self.terms.offset.extend(zeros("f64", more))
        for table in self.numbers:
            table.add_rows(more)
        return rows

    def write(self, w: Stack, e: Expression, forms: Forms, rows: Any) -> None:
        """The rows get the elements of the finished expression `e`, whose numbers are `forms`."""
        self.offset.write(w, e, forms, rows)
        forms.offset = zeros("f64", 0)
        if e.ncodeatom > 0:  # a term with a program has the number 0.0
            forms.subi, forms.subj, forms.cof = nonzeros(forms.subi, forms.subj, forms.cof)
        self.terms.add(forms, stored_rows(w, e, rows))

    def write_objective(self, w: Stack, e: Expression, forms: Forms) -> None:
        self.offset.clear(OBJECTIVE)
        self.offset.write(w, e, forms, OBJECTIVE)
        forms.offset = zeros("f64", 0)
        self.objective = forms

    def free(self, rows: Any) -> None:
        for numbers in self.numbers:
            numbers.clear(rows)
        self.bound(rows, -math.inf, math.inf)
        self.freed.update(rows)

    def bound(self, rows: Any, lower: float, upper: float) -> None:
        self.lower.set(rows, array("d", [lower]) * len(rows))
        self.upper.set(rows, array("d", [upper]) * len(rows))

    @uninterrupted()
    def compact(self) -> None:
        """Gives up what freed rows hold."""
        if not self.freed:
            return
        terms, gone = self.terms, self.freed
        kept = [row not in gone for row in terms.subi], [row not in gone for row in terms.barsubi]
        for field in fields(Forms)[1:]:
            held = getattr(terms, field.name)
            chosen = kept[0] if field.name in ("subi", "subj", "cof") else kept[1]
            setattr(terms, field.name, array(held.typecode, itertools.compress(held, chosen)))
        self.handed = sum(kept[0][:self.handed])
        for row in sorted(gone):
            self.slots.give_back(array("i", [row]))
        self.freed = set()

    def costed(self) -> Set[int]:
        """The columns in the objective, with numbers or programs."""
        store = self.offset.store
        return {*self.objective.subj,
                *store.param_varidx[store.row_param_ptrb[0]:store.row_param_ptre[0]]} - {0}

    # For a solver.

    def forms(self, triplets: Any, tables: ElementTables) -> Forms:
        """Those of all rows, with the terms that parameters have made."""
        self.compact()
        forms = self.terms
        if len(self.objective.subj) + len(self.objective.barsubj) + len(triplets[2]) > 0:
            forms = Forms.zero(len(forms))
            forms.add(self.objective, OBJECTIVE)  # first, so that rows in order stay so
            forms.add_terms(self.terms)
            subi, subj, val = triplets
            forms = with_terms(forms, subi, subj, val, tables)
        forms.offset = self.offset.all()
        return forms
