"""Variables and parameters of a model: the leaves of formulas, and views of them."""

from array import array
from typing import Any, List, Optional, Tuple

from ..index_maps.variables import Variable as IndexMap
from . import structure
from .tree import PARAMETERS, VARIABLES, Formula, Shape


class Root:
    """What a model has made under one name; views share it. `map` lists its places, `removed` tells
    that the model has it no more."""

    __slots__ = ("name", "shape", "map", "semidefinite", "removed")

    def __init__(self, name: str, shape: Shape, map: IndexMap, semidefinite: bool = False) -> None:
        self.name, self.shape, self.map = name, shape, map
        self.semidefinite, self.removed = semidefinite, False

    def require_kept(self) -> None:
        """ValueError if the model has removed this."""
        if self.removed:
            raise ValueError("%s has been removed from its model" % self.name)


class Leaf(Formula):
    """Elements of what a model has made; `roots` are what they are elements of."""

    __slots__ = ("roots",)
    kind, bit = "", 0

    def __init__(self, model: Any, shape: Shape, data: Any, roots: Tuple[Root, ...]) -> None:
        super().__init__(self.kind, shape, (), data, model, self.bit)
        self.roots = roots

    @property
    def map(self) -> IndexMap:
        held: IndexMap = IndexMap([1], [self.data]) if isinstance(self.data, int) else self.data
        return held

    @property
    def name(self) -> str:
        return self.roots[0].name

    def require_kept(self) -> None:
        """ValueError if the model has removed what this has elements of."""
        for root in self.roots:
            root.require_kept()

    def view(self, map: IndexMap, shape: Optional[Shape] = None,
             roots: Optional[Tuple[Any, ...]] = None) -> "Leaf":
        return type(self)(self.model, tuple(map.shape) if shape is None else shape, map,
                          self.roots if roots is None else roots)

    def __getitem__(self, key: Any) -> Formula:
        data, shape = self.data, self.shape
        if type(data) is int or data.sparsity is not None:
            return super().__getitem__(key)
        if type(key) is int and len(shape) == 1 and -shape[0] <= key < shape[0]:
            return self.element(data.nativeidxs[key])
        if type(key) is tuple and len(key) == len(shape) == 2:
            i, j = key
            if type(i) is type(j) is int and 0 <= i < shape[0] and 0 <= j < shape[1]:
                return self.element(data.nativeidxs[i * shape[1] + j])
        return super().__getitem__(key)

    def element(self, place: int) -> "Leaf":
        """One element as a scalar, the quick way, as rows in loops begin with it."""
        f = object.__new__(type(self))
        f.op, f.shape, f.operands, f.data = self.op, (), (), place
        f.model, f.kinds, f.roots = self.model, self.kinds, self.roots
        return f

    @property
    def is_whole(self) -> bool:
        """Whether this is all that was made under its name, as it was made."""
        (root, *others) = self.roots
        return not others and root.map is self.data


class Variable(Leaf):
    """A variable of a model, or a view of some: `x`, `x[2]`, `x[1:, ::2].T`.

    Levels and duals are those of the last solution, as nested lists of the shape; they raise
    ValueError where there are none, or the model has changed since.
    """

    __slots__ = ()
    kind, bit = "variable", VARIABLES

    @property
    def level(self) -> Any:
        return self.model.level(self)

    @property
    def dual(self) -> Any:
        """The change of the objective for a unit by which the bound in force moves; of a
        semidefinite variable its dual matrix."""
        return self.model.dual(self)

    @property
    def lower(self) -> Any:
        return self.model.bounds(self)[0]

    @property
    def upper(self) -> Any:
        return self.model.bounds(self)[1]

    def update(self, lower: Any = None, upper: Any = None) -> None:
        """Gives the elements other bounds; a side that isn't given stays."""
        self.model.update_variable(self, lower, upper)


class Parameter(Leaf):
    """A parameter of a model or an array of such, or a view: numbers that can change without the
    model being built again. The next solution takes them up."""

    __slots__ = ()
    kind, bit = "parameter", PARAMETERS

    @property
    def value(self) -> Any:
        return self.model.parameter_values(self)

    @value.setter
    def value(self, value: Any) -> None:
        self.model.set_parameter(self, value)


def dense(values: Any, map: IndexMap) -> Any:
    """The values (f64) of the elements that are stored among all of the shape, 0.0 for others."""
    if map.sparsity is None:
        return values
    result = array("d", [0.0]) * structure.size(tuple(map.shape))
    for place, value in zip(map.sparsity, values):
        result[place] = value
    return result


def nested(values: Any, shape: Shape) -> Any:
    """The values of a shape in nested lists; a float for the shape ()."""
    if shape == ():
        return values[0]
    result: List[Any] = list(values)
    for axis in range(len(shape) - 1, 0, -1):
        extent, count = shape[axis], 1
        for e in shape[:axis]:
            count *= e
        result = [result[k * extent:(k + 1) * extent] for k in range(count)]
    return result
