"""Constraints of a model, as their maker holds them."""

from __future__ import annotations

import math
from array import array
from typing import Any, Optional

from ..formulas import structure
from ..formulas.tree import Shape
from .cones import Cones
from .recorder import Batch


class Constraint:
    """What Model.constrain has made, or a view of some elements of it, `c[1:]`: rows between sides,
    or the elements of cones. Others that go leave it as it is.

    `level` is the value of the formula that is held: of a comparison the side with variables, and
    with variables on both sides left minus right. `dual` is the change of the objective for a unit
    by which the side in force moves, in cones what `solvers.problem` tells. Both are nested lists
    of the shape, and raise ValueError where there is no such solution, or the model has changed
    since.
    """

    __slots__ = ("model", "shape", "removed", "said", "_name", "_codes", "_batch", "_place",
                 "cones", "_places", "_whole")

    def __init__(self, model: Any, name: str, shape: Shape, said: Any, codes: Any = None,
                 batch: Optional[Batch] = None, place: int = 0, cones: Optional[Cones] = None,
                 places: Any = None, whole: Optional[Constraint] = None) -> None:
        self.model, self._name, self.shape, self.said = model, name, shape, said
        self._codes, self._batch, self._place, self.cones = codes, batch, place, cones
        self._places, self._whole, self.removed = places, whole, False

    @property
    def name(self) -> str:
        return self._name

    @property
    def whole(self) -> Constraint:
        """The constraint that this is a view of, or this one."""
        return self._whole or self

    @property
    def codes(self) -> Any:
        """By element (i32) its row, or the complement of its slot in the cones."""
        if self._codes is None:
            self.model.build()
            assert self._batch is not None
            self._codes = self._batch.rows[self._place:self._place + 1]
            self._batch = None
        return self._codes

    def __getitem__(self, key: Any) -> Constraint:
        axes, shape = structure.selected(self.shape, key, self.name)
        places = structure.linear(self.shape, axes)
        codes = array("i", map(self.codes.__getitem__, places))
        return Constraint(self.model, self._name, shape, None, codes, cones=self.cones,
                          places=places, whole=self.whole)

    @property
    def level(self) -> Any:
        return self.model.constraint_level(self)

    @property
    def dual(self) -> Any:
        return self.model.constraint_dual(self)

    @property
    def lower(self) -> Any:
        """The lower side, for the present parameter values."""
        return self.model.sides(self)[0]

    @property
    def upper(self) -> Any:
        return self.model.sides(self)[1]

    def update(self, lower: Any = None, upper: Any = None) -> None:
        """Gives the rows other sides, numbers or formulas of parameters; one that isn't given
        stays, and -inf or inf is none."""
        self.model.update_constraint(self, lower, upper)

    def __repr__(self) -> str:
        if self.said is not None:
            return "%s: %s" % (self.name, self.said)
        return self.model.describe(self)


def sides_of(sense: str, side: Any) -> Any:
    """The lower and the upper side that a comparison of a formula with `side` gives."""
    return (side if sense != "<=" else -math.inf), (side if sense != ">=" else math.inf)
