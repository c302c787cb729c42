"""Domains: the elements that a table of subscripts lists, and bounds of elements."""

import math
from array import array
from typing import Any, Optional, Sequence, Tuple

from ..closures import closure
from ..data.bounds import sides
from ..data.buffers import Array, Shape, as_array, require_room, size, zeros


def table(shape: Shape, subscripts: Sequence[Sequence[int]]) -> Any:
    """Subscripts, one tuple for each element, as a rank-2 i32 array, or None for none. Raises
    ValueError if they are no elements of the shape."""
    if any(len(row) != len(shape) for row in subscripts):
        raise ValueError("an element of the shape %s needs %d subscripts"
                         % (list(shape), len(shape)))
    flat = as_array("i32", [k for row in subscripts for k in row])
    result = memoryview(flat).cast("B").cast("i", [len(subscripts), len(shape)]) if flat else None
    if closure(174, False, result, as_array("i32", shape)):
        raise ValueError("a listed element lies outside of the shape %s" % list(shape))
    return result


def pattern(shape: Shape, subscripts: Sequence[Sequence[int]]) -> Tuple[Array, Any]:
    """The linear indexes (i64) of the elements with these subscripts, in ascending order, and
    that order: for each of them the place of its subscripts in the list. Raises ValueError if they
    are no elements of the shape or one is listed twice."""
    shape, midxs = as_array("i32", shape), table(shape, subscripts)
    nd, n = len(shape), len(subscripts)
    require_room(size(shape))
    sparsity, strides, perm = zeros("i64", n), zeros("i32", nd), range(n)
    closure(49, nd, shape, strides)
    closure(51, False, n, shape, midxs, sparsity, strides)
    if not closure(42, True, sparsity):
        perm, other = zeros("i32", n), zeros("i32", n)
        ptr = zeros("i32", closure(52, 0, nd, shape) + 1)
        closure(53, perm, n)
        for k in range(nd):
            closure(54, perm, k, midxs, n, nd, ptr, shape, other)
            perm, other = other, perm
        closure(55, perm, midxs, n, nd, sparsity, strides)
        if not closure(42, True, sparsity):
            raise ValueError("an element is listed twice")
    return sparsity, perm


def bounds(shape: Shape, lower: Any, upper: Any,
           subscripts: Optional[Sequence[Sequence[int]]] = None) -> Tuple[Array, Array]:
    """The lower and the upper bounds (f64) of all elements of a shape. Each side is a number for
    all, or a list with one for each; where elements are listed by `subscripts`, for these, and the
    others have no bounds. Raises ValueError if the lists don't fit or a bound is not one."""
    n = size(shape)
    bl, bu = array("d", [-math.inf]) * n, array("d", [math.inf]) * n
    listed = subscripts is not None
    scalar = not listed and all(isinstance(side, (int, float)) for side in (lower, upper))
    count = 1 if scalar else len(subscripts) if listed else n
    midxs = table(shape, subscripts) if listed else None
    lower, upper = sides(lower, upper, () if scalar else [count] if listed else shape)
    if n > 0:
        closure(82, bl, bu, listed, lower, scalar, midxs, upper, len(shape), n,
                as_array("i32", shape), 0)
    return bl, bu
