"""Changes of a model: what is removed, and other bounds and sides."""

from __future__ import annotations

from array import array
from typing import Any

from ..closures import closure
from ..data.bounds import sides
from ..formulas.leaves import Root, Variable
from ..interruptions import uninterrupted
from .constraints import Constraint
from .solving import Solving


class Changes(Solving):
    """What can change in a model once it is there."""

    @uninterrupted()
    def remove(self, item: Any) -> None:
        """Takes a constraint, or a variable that stands nowhere any more, out of the model; neither
        it nor a view of it can be used from then on. Raises ValueError if this model has not made
        it, or has it no more."""
        made = isinstance(item, (Constraint, Variable)) and item.model is self
        if not made or not item.is_whole:
            raise ValueError("only a whole constraint or variable of this model, %r, can be "
                             "removed from it, not %r" % (self.name, item))
        if isinstance(item, Constraint):
            self._remove_constraint(item)
        else:
            self._remove_variable(item.roots[0])
        self.changed("%s was removed" % item.name)

    def _remove_constraint(self, c: Constraint) -> None:
        c.require_kept()
        if c.cones is not None:
            del self.cones[c]
        else:
            rows = c.codes
            self.rows.free(rows)
            self.native.rows.update(rows)
            self.native.sides.update(rows)
            self.native.note("rows removed", len(rows))
        c.removed = True
        del self.constraints[c.key]

    def _remove_variable(self, root: Root) -> None:
        root.require_kept()
        self.build()
        if self._stands(root):
            raise ValueError("%s can't be removed while it stands in the objective or in a "
                             "constraint" % root.name)
        if root.semidefinite:
            self.removed_matrices.update(self._matrices_of(root))
        else:
            columns = root.map.narrow()
            self.columns.give_back(columns)
            self.native.bounds.update(columns)
            self.native.note("columns removed", len(columns))
        root.removed = True
        del self.variables[root.name]

    def _matrices_of(self, root: Root) -> Any:
        return {self.tables.barj[~place] for place in root.map.nativeidxs}

    def _stands(self, root: Root) -> bool:
        """Whether a row, the objective or a cone has an element of a variable."""
        self.rows.compact()
        cones, places = self.cones.values(), set(root.map.nativeidxs)
        stores = [self.rows.offset.store, *(held.store for held in cones)]
        if any(not places.isdisjoint(store.variables()) for store in stores):
            return True
        forms = [self.rows.terms, self.rows.objective, *(held.forms for held in cones)]
        if root.semidefinite:
            matrices = self._matrices_of(root)
            return any(not matrices.isdisjoint(held.barsubj) for held in forms)
        return any(not places.isdisjoint(held.subj) for held in forms)

    @uninterrupted()
    def update_variable(self, x: Variable, lower: Any, upper: Any) -> None:
        """Gives a variable, or a view, the bounds that aren't None."""
        map = x.map
        for root in x.roots:
            root.require_kept()
            if root.semidefinite:
                raise ValueError("%s is semidefinite: it has no bounds" % x)
        columns = map.narrow()
        for k, values in enumerate(sides(lower, upper, x.shape, str(x))):
            if (lower, upper)[k] is not None:
                if map.sparsity is not None:
                    values = array("d", [values[place] for place in map.sparsity])
                closure(102, columns, (self.columns.lower, self.columns.upper)[k], values)
        self.native.bounds.update(columns)
        self.native.note("bounds changed", len(columns))
        self.changed("%s has other bounds" % x)

    @uninterrupted()
    def update_constraint(self, c: Constraint, lower: Any, upper: Any) -> None:
        """Gives a constraint, or a view, the sides that aren't None."""
        rows = self._rows_of(c)
        given = [(table, self.checked(table, self.side(side), c.shape, c.name))
                 for table, side in ((self.rows.lower, lower), (self.rows.upper, upper))
                 if side is not None]
        for table, side in given:
            self.set_side(table, rows, side)
        self.native.sides.update(rows)
        self.native.note("sides changed", len(rows))
        self.changed("%s has another side" % c.name)

    def _rows_of(self, c: Constraint) -> Any:
        c.require_kept()
        if c.cones is not None:
            raise ValueError("%s holds a formula in a cone: it has no sides" % c.name)
        return c.codes
