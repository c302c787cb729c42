"""Shapes, their subscripts and linear indexes, and the errors where these don't fit."""

from numbers import Integral
from typing import Any, Iterable, Optional, Tuple

from ..closures import closure
from .buffers import LARGEST, Array, Shape, as_array, size, zeros

LARGEST_SIZE = 2 ** 63 - 1  # linear indexes are 64-bit


def within(value: Any, first: int, last: int) -> bool:
    """Whether the value is an integer from `first` to `last`."""
    return isinstance(value, Integral) and first <= int(value) <= last


def checked_shape(shape: Iterable[int]) -> Array:
    """The shape (i32), if it is one that linear indexes can number; else ValueError."""
    shape = list(shape)
    if not all(within(extent, 0, LARGEST) for extent in shape) or size(shape) > LARGEST_SIZE:
        raise ValueError("%s is no shape: extents are integers up to %d, and positions go to %d"
                         % (shape, LARGEST, LARGEST_SIZE))
    return as_array("i32", shape)


def require_dimension(shape: Shape, dim: int, first: int, last: int) -> None:
    if not within(dim, first, last):
        raise ValueError("the shape %s has no dimension %s" % (list(shape), dim))


def axis_pair(shape: Shape, first: int, second: Any) -> Tuple[int, int, int, int]:
    """What the axes first < second, of equal extent, make of a shape: the positions before, the
    extent, the positions between and behind. Else ValueError."""
    if not (within(second, 0, len(shape) - 1) and within(first, 0, second - 1)
            and shape[first] == shape[second]):
        raise ValueError("%s and %s are no ascending axes of equal extent in the shape %s"
                         % (first, second, list(shape)))
    before, between, behind = shape[:first], shape[first + 1:second], shape[second + 1:]
    return size(before), shape[first], size(between), size(behind)


def box(shape: Shape, first: Iterable[int], last: Iterable[int]) -> Tuple[Array, Array, Array]:
    """The corners of a box and its extents (i32), if it lies in the shape; else ValueError. It goes
    in each dimension from `first` up to but not including `last`."""
    first, last = list(first), list(last)
    if not len(first) == len(last) == len(shape) or not all(
            within(b, 0, extent) and within(a, 0, b) for a, b, extent in zip(first, last, shape)):
        raise ValueError("the box from %s to %s doesn't lie in the shape %s"
                         % (first, last, list(shape)))
    extents = [b - a for a, b in zip(first, last)]
    return as_array("i32", first), as_array("i32", last), as_array("i32", extents)


def stored_places(shape: Shape, count: int, sparsity: Any) -> Optional[Array]:
    """`sparsity` as i64, or None; ValueError if it doesn't list `count` places of the shape in
    strict order, or if without one the shape doesn't have `count` places."""
    total = size(checked_shape(shape))
    sparsity = None if sparsity is None else as_array("i64", sparsity)
    if count != (total if sparsity is None else len(sparsity)):
        raise ValueError("%d elements don't fit the shape %s or the list of stored ones"
                         % (count, list(shape)))
    if sparsity is not None and closure(404, False, sparsity, total):
        raise ValueError("a linear index lies outside of the shape %s" % list(shape))
    if sparsity is not None and not closure(245, True, count, sparsity):
        raise ValueError("the linear indexes of the stored elements must ascend, without repeats")
    return sparsity


def strides(shape: Shape) -> Array:
    """The row-major strides (i64) of a shape (i32)."""
    result = unit_strides(len(shape))
    closure(240, len(shape), shape, result)
    return result


def unit_strides(nd: int) -> Array:
    """Room for strides (i64), of which the last is 1 already."""
    result = zeros("i64", nd)
    result[-1:] = as_array("i64", [1] * min(nd, 1))
    return result


def position(shape: Shape, linear: int) -> Tuple[int, ...]:
    """The subscripts at a linear index of the shape."""
    subscripts = zeros("i32", len(shape))
    if len(shape) > 0:
        closure(272, linear, subscripts, as_array("i32", shape))
    return tuple(subscripts)


def ascending(n: int) -> Array:
    """0, 1, ..., n - 1 as i64."""
    narrow, wide = zeros("i32", n), zeros("i64", n)
    closure(525, 0, n, narrow)
    closure(197, narrow, wide)
    return wide
