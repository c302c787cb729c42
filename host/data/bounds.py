"""Bounds as people have them: numbers for all elements, or arrays."""

import math
from typing import Any, Tuple

from .buffers import Array, Shape, size
from .constants import constant
from .reading import place
from .shapes import position


def each(data: Any, shape: Shape, what: str) -> Array:
    """A number (f64) for each position of the shape, from one for all or an array of that shape.
    Raises ValueError if `data` is neither."""
    held = constant(data, what)
    if held.shape == tuple(shape):
        return held.dense()
    if held.shape != ():
        raise ValueError("%s of shape %s can't have the shape %s"
                         % (what, list(held.shape), list(shape)))
    return held.values * size(shape)


def sides(lower: Any, upper: Any, shape: Shape, name: str = "") -> Tuple[Array, Array]:
    """The lower and the upper bounds (f64) of all positions of a shape; None is no bound. Raises
    ValueError if they don't fit, or where one is NaN or leaves no number: a lower bound of inf, an
    upper one of -inf. `name` tells what the bounds are of."""
    result = []
    for what, data, none in (("lower", lower, -math.inf), ("upper", upper, math.inf)):
        what += " bound of " + name if name else " bound"
        values = each(none if data is None else data, shape, what)
        if -none in values:
            at = place(position(shape, values.index(-none)))
            raise ValueError("%s%s is %s, which leaves no number" % (what, at, -none))
        result.append(values)
    return result[0], result[1]
