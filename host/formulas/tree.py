"""Formulas: immutable trees over variables, parameters and constant data, with operators.

A formula knows its shape, what it is made of and the model that its variables and parameters belong
to; it stands on no stack. The model evaluates it when it builds.

    op          operands              data
    variable    -                     a column (int), or a Variable that lists them
    parameter   -                     a Variable that lists places in the table of values
    constant    -                     a Constant
    sum         of one shape          the weight of each
    product     f                     (Constant C, how): "left" is C @ f, "right" f @ C, "elements"
                                      C * f, "dot" the sum of that; "diagonal left" and so on the
                                      diagonal of a product, "outer left" and so on all products
    parameters  P, f                  how, the same with an array of parameters P
    spread      a scalar              -
    slice       f                     corners (first, last)
    pick        f                     linear indexes (i64)
    reshape     f                     -
    permute     f                     the order of the dimensions
    stack       of any number         the axis
    tile        f                     (copies, axis)
    axis sum    f                     the axis
    triangle    f                     (axes, whether it is the lower one)
    symmetric   f                     the axes
    diagonal    a vector              -
"""

from numbers import Real
from typing import Any, Iterable, Iterator, NoReturn, Optional, Sequence, Tuple, Union

from ..data.constants import constant
from ..data.entries import all_finite
from ..index_maps.variables import Variable as IndexMap

Shape = Tuple[int, ...]
PARAMETERS, VARIABLES = 1, 2  # bits of `kinds`


class Formula:
    """An array of affine forms. `kinds` tells whether parameters and variables stand in it, `model`
    whose they are; None is that of constant data.

    Arithmetic goes element by element. A scalar, of shape (), meets any shape; other shapes have to
    be equal, or fit as for matrix products where `@` stands. Constant data is all that `constant`
    takes. Raises ValueError where shapes don't fit or the operands are of two models, and TypeError
    for a product of two variables.
    """

    __slots__ = ("op", "shape", "operands", "data", "model", "kinds")
    __array_ufunc__ = None  # so that NumPy leaves operators to this class
    __array_priority__ = 1e6

    def __array_function__(self, function: Any, *_: Any) -> NoReturn:
        raise TypeError("NumPy's %s can't take a formula: there are operators, methods and the "
                        "functions of this package" % function.__name__)

    def __init__(self, op: str, shape: Shape, operands: Tuple["Formula", ...], data: Any,
                 model: Any, kinds: int) -> None:
        self.op, self.shape, self.operands = op, shape, operands
        self.data, self.model, self.kinds = data, model, kinds

    def __copy__(self) -> "Formula":
        return self  # as it is immutable

    def __deepcopy__(self, memo: Any) -> "Formula":
        return self

    # Arithmetic.

    def __add__(self, other: Any) -> "Formula":
        return algebra.add(self, 1.0, other, 1.0)

    def __radd__(self, other: Any) -> "Formula":
        return algebra.add(self, 1.0, other, 1.0)

    def __sub__(self, other: Any) -> "Formula":
        return algebra.add(self, 1.0, other, -1.0)

    def __rsub__(self, other: Any) -> "Formula":
        return algebra.add(self, -1.0, other, 1.0)

    def __neg__(self) -> "Formula":
        return algebra.scaled(-1.0, self)

    def __pos__(self) -> "Formula":
        return self

    def __mul__(self, other: Any) -> "Formula":
        if type(other) in (float, int):
            return algebra.scaled(other, self)
        return algebra.multiply(self, other)

    __rmul__ = __mul__

    def __truediv__(self, other: Any) -> "Formula":
        return algebra.divide(self, other)

    def __rtruediv__(self, other: Any) -> "Formula":
        raise TypeError("a formula can't be a divisor: %s" % printing.short(self))

    def __matmul__(self, other: Any) -> "Formula":
        return algebra.matmul(self, other)

    def __rmatmul__(self, other: Any) -> "Formula":
        return algebra.matmul(other, self)

    def dot(self, other: Any) -> "Formula":
        """The sum of the elementwise product, for any equal shapes."""
        return algebra.dot(self, other)

    # Comparisons. What they give is no truth value, but what a model can be held to.

    def __le__(self, other: Any) -> "Comparison":
        return Comparison(self, "<=", side(self, other))

    def __ge__(self, other: Any) -> "Comparison":
        return Comparison(self, ">=", side(self, other))

    def __eq__(self, other: Any) -> "Comparison":  # type: ignore[override]
        return Comparison(self, "==", side(self, other))

    def __ne__(self, other: Any) -> bool:
        raise TypeError("a model can't be held to !=")

    def __lt__(self, other: Any) -> bool:
        raise TypeError("a model can't be held to a strict inequality: write <= or >=")

    __gt__ = __lt__
    __hash__ = object.__hash__

    def __bool__(self) -> bool:
        raise TypeError("a formula is neither true nor false: %s" % printing.short(self))

    # Parts and other arrangements.

    def __getitem__(self, key: Any) -> "Formula":
        return structure.index(self, key)

    def __len__(self) -> int:
        if not self.shape:
            raise TypeError("a scalar formula has no length")
        return self.shape[0]

    def __iter__(self) -> Iterator["Formula"]:
        if not self.shape:
            raise TypeError("a scalar formula has no elements to go through")
        return (self[k] for k in range(self.shape[0]))

    @property
    def ndim(self) -> int:
        return len(self.shape)

    @property
    def size(self) -> int:
        return structure.size(self.shape)

    @property
    def T(self) -> "Formula":
        return structure.transpose(self)

    def transpose(self, *axes: Any) -> "Formula":
        """The axes in another order; without one in the opposite order."""
        return structure.transpose(self, *axes)

    def sum(self, axis: Union[None, int, Sequence[int]] = None) -> "Formula":
        """The sum of all elements, or along an axis or several."""
        return structure.sum_axes(self, axis)

    def reshape(self, *shape: Any) -> "Formula":
        """The elements in row-major order in another shape; one extent may be -1."""
        return structure.reshape(self, *shape)

    def ravel(self) -> "Formula":
        """All elements as a vector, in row-major order."""
        return structure.reshape(self, -1)

    flatten = ravel

    def repeat(self, repeats: int, axis: Optional[int] = None) -> "Formula":
        """Each element so many times in a row along an axis, without one those of the vector."""
        return structure.repeat(self, repeats, axis)

    def diagonal(self) -> "Formula":
        """The diagonal of a matrix."""
        return structure.diagonal(self)

    def trace(self) -> "Formula":
        """The sum of the diagonal of a square matrix."""
        return structure.trace(self)

    # Of a leaf, a variable or parameter.

    @property
    def map(self) -> IndexMap:
        """The places of the elements of a leaf; a scalar has the shape (1,) there."""
        raise TypeError("%s is neither a variable nor a parameter" % self)

    def view(self, map: IndexMap, shape: Optional[Shape] = None,
             roots: Optional[Tuple[Any, ...]] = None) -> "Formula":
        """A leaf with these places of the same or of other roots."""
        raise TypeError("%s is neither a variable nor a parameter" % self)

    # To read.

    @property
    def value(self) -> Any:
        """Its value at the solution of its model, in nested lists. Raises ValueError as `level` of
        a variable does."""
        if self.model is None:
            raise ValueError("constant data belongs to no model: %s" % printing.short(self))
        return self.model.value(self)

    def __repr__(self) -> str:
        return printing.short(self)


class Comparison:
    """`left` compared with `right`, for Model.constrain; `right` is a formula, a number or a
    Constant."""

    __slots__ = ("left", "sense", "right")
    __array_ufunc__ = None
    __hash__ = None  # type: ignore[assignment]

    def __init__(self, left: Formula, sense: str, right: Any) -> None:
        self.left, self.sense, self.right = left, sense, right

    def __bool__(self) -> bool:
        raise TypeError("a comparison of formulas is neither true nor false: for a range write "
                        "constrain(f, lower=a, upper=b), not a <= f <= b")

    def __repr__(self) -> str:
        return printing.comparison(self)


class Membership:
    """A formula in a cone, for Model.constrain: `kind` is "quadratic", "rotated" or "semidefinite",
    along these axes."""

    __slots__ = ("formula", "kind", "axes")

    def __init__(self, formula: Formula, kind: str, axes: Tuple[int, ...]) -> None:
        self.formula, self.kind, self.axes = formula, kind, axes

    def __repr__(self) -> str:
        return "%s in %s cone" % (printing.short(self.formula), self.kind)


class Between:
    """A formula between sides, as a text to read."""

    def __init__(self, formula: Formula, lower: Any, upper: Any) -> None:
        self.formula, self.lower, self.upper = formula, lower, upper

    def __repr__(self) -> str:
        return printing.between(self)


def side(f: Formula, other: Any) -> Any:
    """What `f` is compared with. Raises ValueError if that is NaN or the shapes don't fit."""
    if type(other) in (float, int):
        if other != other:
            raise ValueError("%s can't be compared with NaN" % f)
        return other
    if not isinstance(other, Formula):
        other = constant(other, "what %s is compared with" % f)
    if f.shape != other.shape and f.shape != () != other.shape:
        raise ValueError("the shapes %s of %s and %s of what it is compared with don't fit"
                         % (list(f.shape), f, list(other.shape)))
    return other.number if not isinstance(other, Formula) and other.shape == () else other


def number(value: Any) -> bool:
    """Whether that is a number that goes to a float."""
    return isinstance(value, Real)


def as_formula(value: Any) -> Formula:
    """A formula itself, else constant data as one. Raises ValueError for numbers that are not
    finite."""
    if isinstance(value, Formula):
        return value
    data = constant(value)
    if not all_finite(data.values):
        raise ValueError("constant data in a formula has to be finite")
    return Formula("constant", data.shape, (), data, None, 0)


def owner(formulas: Iterable[Formula]) -> Any:
    """The model that all of these belong to; None if they are constant. Raises ValueError, which
    names both sides, if these are two."""
    held: Any = None
    for f in formulas:
        if f.model is None or held is not None and f.model is held.model:
            continue
        if held is not None:
            raise ValueError("%s belongs to the model %r and %s to another one, %r: a formula has "
                             "one model" % (printing.culprit(held), held.model.name,
                                            printing.culprit(f), f.model.name))
        held = f
    return None if held is None else held.model


def node(op: str, shape: Shape, operands: Sequence[Formula], data: Any = None) -> Formula:
    """A formula over operands of one model."""
    kinds = 0
    for f in operands:
        kinds |= f.kinds
    return Formula(op, shape, tuple(operands), data, owner(operands), kinds)


# The modules of what operators do stand above this one, but for the class that has the operators.
from . import algebra, printing, structure  # noqa: E402
