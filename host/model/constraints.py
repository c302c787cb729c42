"""Constraints of a model, as their maker holds them."""

from __future__ import annotations

from array import array
from typing import Any, Optional, Union

from ..formulas import structure
from ..formulas.tree import Shape
from .cones import Cones
from .recorder import Batch, name_of


class Constraint:
    """What Model.constrain has made, or a view of some elements of it, `c[1:]`: rows between sides,
    or the elements of cones. Others that go leave it as it is.

    `level` is the value of the formula that is held: of a comparison the side with variables, and
    with variables on both sides left minus right. `dual` is the change of the objective for a unit
    by which the side in force moves, in cones what `solvers.problem` tells. Both are nested lists
    of the shape, and raise ValueError where there is no such solution, or the model has changed
    since.
    """

    __slots__ = ("model", "shape", "removed", "said", "cones", "_name", "_codes", "_batch",
                 "_place", "_whole")

    def __init__(self, model: Any, name: Union[str, int], shape: Shape, said: Any,
                 codes: Any = None, batch: Optional[Batch] = None, place: int = 0,
                 cones: Optional[Cones] = None, whole: Optional[Constraint] = None) -> None:
        self.model, self._name, self.shape, self.said = model, name, shape, said
        self._codes, self._batch, self._place, self.cones = codes, batch, place, cones
        self._whole, self.removed = whole, False

    @property
    def key(self) -> Any:
        """Its name, or a number in the place of one."""
        return self._name

    @property
    def name(self) -> str:
        return name_of(self._name)

    @property
    def is_whole(self) -> bool:
        return self._whole is None

    def require_kept(self) -> None:
        """ValueError if the model has removed this, or what this is a view of."""
        if (self._whole or self).removed:
            raise ValueError("the constraint %s has been removed from the model %r"
                             % (self.name, self.model.name))

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
        codes = self.codes
        picked = array("i", [codes[place] for place in structure.linear(self.shape, axes)])
        return Constraint(self.model, self._name, shape, None, picked, cones=self.cones,
                          whole=self._whole or self)

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

    def __copy__(self) -> Constraint:
        return self  # as there is one in the model

    def __deepcopy__(self, memo: Any) -> Constraint:
        return self

    def __repr__(self) -> str:
        return str(self.model.line(self))
