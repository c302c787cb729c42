"""What a model is made of, and how formulas become a part of it."""

from __future__ import annotations

from array import array
from typing import Any, Dict, List, NoReturn, Optional, Set, Union

from ..data.bounds import sides
from ..data.buffers import require_room, size, zeros
from ..data.constants import constant
from ..evaluator.expressions import Evaluator
from ..evaluator.stacks import Expression
from ..formulas import printing, structure
from ..formulas.leaves import Parameter, Variable
from ..formulas.tree import VARIABLES, Formula, Membership, Shape
from ..interruptions import uninterrupted
from ..solvers.problem import (OFF_DIAGONAL, QUADRATIC, ROTATED, SEMIDEFINITE, Forms, Problem,
                               needs)
from .affine_rows import ElementTables, evaluated, split, with_terms
from .cones import Cones, QuadraticLayout, SemidefiniteLayout, numbers
from .constraints import Constraint
from .evaluation import evaluate
from .native import Columns, Native
from .recorder import Batch, name_of
from .rows import Numbers, Rows

LAYOUTS: Dict[str, Any] = {QUADRATIC: QuadraticLayout, ROTATED: QuadraticLayout,
                           SEMIDEFINITE: SemidefiniteLayout}


class Building:
    """All of a model, as native columns, entries of matrices, rows and slots of cones."""

    def __init__(self, name: str) -> None:
        self.name, self.param_value = name, array("d")
        self.evaluator = Evaluator(self.param_value)
        self.columns, self.rows, self.tables = Columns(), Rows(), ElementTables()
        self.blocks, self.removed_matrices = array("i"), set()  # type: ignore[var-annotated]
        self.variables: Dict[str, Variable] = {}
        self.parameters: Dict[str, Parameter] = {}
        self.constraints: Dict[Union[str, int], Constraint] = {}
        self.cones: Dict[Constraint, Cones] = {}
        self.goal: Optional[Formula] = None
        self.is_maximized = False
        self.native, self.batch, self._serial = Native(), Batch(), 0
        self._since: Optional[str] = None  # the first change after the solution

    def __reduce__(self) -> NoReturn:
        raise TypeError("the model %r can't be copied or pickled: its formulas are its own, and so "
                        "is what a solver holds of it" % self.name)

    # What may stand in the model.

    def own(self, f: Formula) -> Formula:
        """A formula, if it can stand in this model; else ValueError."""
        if f.model is not self and f.model is not None:
            raise ValueError("%s belongs to the model %r, and not to this one, %r"
                             % (printing.culprit(f), f.model.name, self.name))
        return f

    def side(self, side: Any) -> Any:
        """A side as a formula of parameters or as constant data; None for none."""
        if side is None:
            return None
        if not isinstance(side, Formula):
            return constant(side, "a side")
        if side.kinds & VARIABLES:
            raise TypeError("a side has no variables: %s" % side)
        self.own(side)
        return side.data if side.op == "constant" else side

    # Rows.

    @uninterrupted()
    def build_objective(self, f: Formula, maximize: bool) -> None:
        w = self.evaluator.w
        with w.scratch():
            e = self._finished(f)
            self.rows.write_objective(w, e, split(self.tables, w, e))
            self.native.values |= e.ncodeatom > 0
        self.goal, self.is_maximized, self.native.objective = f, maximize, True
        self.native.note("objectives")

    @uninterrupted()
    def build_rows(self, name: Any, f: Formula, lower: Any, upper: Any, said: Any) -> Constraint:
        """A formula between sides, as rows."""
        self.build()
        w, n = self.evaluator.w, size(f.shape)
        with w.scratch():
            e = self._finished(f)
            forms = split(self.tables, w, e)
            require_room(len(self.rows) + n)
            held = [(table, self.checked(table, side, f.shape, name_of(name))) for table, side in
                    ((self.rows.lower, lower), (self.rows.upper, upper))]
            rows = self.rows.take(n)
            try:
                for table, side in held:
                    self.set_side(table, rows, side)
                self.rows.write(w, e, forms, rows)
            except BaseException:
                self.rows.free(rows)
                raise
            self.native.values |= e.ncodeatom > 0
        self._added(rows)
        return self.registered(Constraint(self, name, f.shape, said, rows))

    def registered(self, c: Constraint) -> Constraint:
        if self._since is None:
            self.changed("a constraint was added")
        self.constraints[c.key] = c
        return c

    def changed(self, what: str) -> None:
        self._since = self._since or what

    def build(self) -> None:
        """Builds the rows that are recorded."""
        self.batch.settle(self.constraints)
        if len(self.batch) > 0:
            self._build_batch(self.batch)

    @uninterrupted()
    def _build_batch(self, batch: Batch) -> None:
        w = self.evaluator.w
        with w.scratch():
            e = self.evaluator.finish(batch.push(self.evaluator))
            forms = split(self.tables, w, e)
            rows = self.rows.take(len(batch))
            self.rows.lower.set(rows, batch.lower)
            self.rows.upper.set(rows, batch.upper)
            self.rows.write(w, e, forms, rows)
        batch.rows, self.batch = rows, Batch()
        self._added(rows)

    def _added(self, rows: Any) -> None:
        self.native.rows.update(rows)
        self.native.sides.update(rows)
        self.native.note("rows added", len(rows))

    def checked(self, table: Numbers, side: Any, shape: Shape, name: str) -> Any:
        """A side of rows of that shape as a formula of the shape, or a number (f64) for each."""
        if not isinstance(side, Formula):
            is_lower = table is self.rows.lower
            both = (side, None) if is_lower else (None, side)
            return sides(*both, shape, name)[0 if is_lower else 1]
        if side.shape == ():
            side = structure.spread(side, shape)
        if side.shape != shape:
            raise ValueError("a side of shape %s can't have the shape %s: %s"
                             % (list(side.shape), list(shape), side))
        return side

    def set_side(self, table: Numbers, rows: Any, side: Any) -> None:
        """Gives rows a side, as `checked` makes it."""
        if not isinstance(side, Formula):
            table.clear(rows)
            table.set(rows, side)
            return
        w = self.evaluator.w
        with w.scratch():
            e = self._finished(side)
            forms = split(self.tables, w, e)
            table.clear(rows)
            table.write(w, e, forms, rows)
        self.native.values = True

    def _finished(self, f: Formula) -> Expression:
        return self.evaluator.finish(self._evaluated(f))

    def _evaluated(self, f: Formula) -> Expression:
        return evaluate(self.evaluator, f, len(self.columns) + len(self.tables))

    # Cones.

    @uninterrupted()
    def build_cones(self, name: Any, held: Membership) -> Constraint:
        f, ev, w = self.own(held.formula), self.evaluator, self.evaluator.w
        cones = Cones(held.kind, LAYOUTS[held.kind](f.shape, *held.axes))
        with w.scratch():
            e = self._evaluated(f)
            if held.kind == SEMIDEFINITE:
                first, second = held.axes
                e = ev.triangle(ev.symmetrize(e, first, second), first, second, lower=True)
                e = ev.scale_offdiag(e, first, second, OFF_DIAGONAL)
            e, slots = ev.finish(e), cones.layout.slots()
            cones.write(w, e, split(self.tables, w, e), slots)
        c = Constraint(self, name, f.shape, held, array("i", [~slot for slot in slots]),
                       cones=cones)
        self.cones[c] = cones
        return self.registered(c)

    # All of it.

    def run_programs(self) -> Any:
        """Runs the parameter programs of the rows: the places of the terms that move, the triplets
        that these are places of, and the rows whose constants or sides move."""
        x = self.evaluator.x
        moved, spans, triplets = self.rows.offset.evaluate(self.param_value, x)
        for side in (self.rows.lower, self.rows.upper):
            moved += side.evaluate(self.param_value, x)[0]
        return spans, triplets, moved

    def problem(self) -> Problem:
        """The problem for the present parameter values, without what was removed of matrices."""
        self.build()
        _, triplets, _ = self.run_programs()
        rows, cones, slots = self.rows.forms(triplets, self.tables), [], Forms.zero(0)
        for held in self.cones.values():
            subi, subj, val = evaluated(held.store, self.param_value, self.evaluator.x)
            at = numbers(len(slots), len(held))
            cones += held.cones(len(slots))
            slots.offset.extend(zeros("f64", len(held)))
            slots.add(with_terms(held.forms, subi, subj, val, self.tables), at)
        columns = self.columns
        return Problem(self.is_maximized, columns.lower, columns.upper, columns.integer,
                       self._without_removed(rows), self.rows.lower.all(), self.rows.upper.all(),
                       self._without_removed(slots), cones, self._kept_blocks())

    def _kept_blocks(self) -> Any:
        """The blocks (see Problem) but for the matrices that were removed."""
        kept, matrix = array("i"), 0
        for block in self.blocks:
            if block < 0 or matrix not in self.removed_matrices:
                kept.append(block)
            matrix += block > 0
        return kept

    def _without_removed(self, forms: Forms) -> Forms:
        """Forms whose matrices are numbered without those that were removed."""
        if not self.removed_matrices:
            return forms
        kept = (k for k in range(len(self.tables.dim)) if k not in self.removed_matrices)
        place = {matrix: k for k, matrix in enumerate(kept)}
        forms = forms.copy()
        forms.barsubj = array("i", map(place.__getitem__, forms.barsubj))
        return forms

    def needs(self) -> List[str]:
        """What a solver has to take."""
        return needs(self.columns.integer, (held.kind for held in self.cones.values()),
                     len(self.tables.dim) > len(self.removed_matrices))
