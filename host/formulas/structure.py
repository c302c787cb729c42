"""What moves elements of formulas: indexes, other shapes and orders, stacks, repeats, triangles.

A variable or an array of parameters gives a view of itself: another list of the same places. Of all
else there is a formula that says what is to be done.
"""

from __future__ import annotations

import itertools
import math
import operator
from array import array
from typing import Any, Iterable, List, Optional, Sequence, Tuple, Union

from ..data.constants import Constant
from ..index_maps.variables import Variable as IndexMap
from . import algebra, printing, tree
from .tree import Formula, Shape


def size(shape: Shape) -> int:
    return math.prod(shape)


# Indexing.


def index(f: Formula, key: Any) -> Formula:
    """f[key], as NumPy has it, for integers, slices and lists of integers. Several lists are taken
    in pairs. Raises IndexError outside of the shape, TypeError for other indexes."""
    axes, shape = selected(f.shape, key, f)
    if all(isinstance(a, int) or isinstance(a, range) and a.step == 1 for a in axes):
        corners = [(a, a + 1) if isinstance(a, int) else (a.start, a.start + len(a)) for a in axes]
        return reshaped(sliced(f, [a for a, _ in corners], [b for _, b in corners]), shape)
    return reshaped(picked(f, linear(f.shape, axes)), shape)


def selected(shape: Shape, key: Any, what: Any) -> Tuple[List[Any], Shape]:
    """What `key` selects along each axis of a shape, an int, a range or a list of ints, and the
    shape of all that. `what` is what has the shape, for errors."""
    nd = len(shape)
    items = list(key) if isinstance(key, tuple) else [key]
    if any(item is Ellipsis for item in items):
        at = next(k for k, item in enumerate(items) if item is Ellipsis)
        items[at:at + 1] = [slice(None)] * (nd - len(items) + 1)
    if len(items) > nd:
        raise IndexError("%d indexes are too many for the shape %s of %s"
                         % (len(items), list(shape), what))
    items += [slice(None)] * (nd - len(items))
    axes = [along(shape, axis, item, what) for axis, item in enumerate(items)]
    lists = [k for k, item in enumerate(axes) if isinstance(item, list)]
    if len({len(axes[k]) for k in lists}) > 1:
        raise IndexError("lists of indexes need one length: %s" % [len(axes[k]) for k in lists])
    if lists and lists[-1] - lists[0] + 1 != len(lists):
        raise IndexError("lists of indexes have to stand side by side")
    extents = [len(item) for k, item in enumerate(axes)
               if isinstance(item, range) or isinstance(item, list) and k == lists[0]]
    return axes, tuple(extents)


def along(shape: Shape, axis: int, item: Any, what: Any) -> Any:
    """What an index selects along an axis, none of it negative."""
    if isinstance(item, slice):
        return range(shape[axis])[item]
    if hasattr(item, "tolist"):
        item = item.tolist()
    if hasattr(item, "__index__") and not isinstance(item, bool):
        return within(shape, axis, operator.index(item), what)
    if isinstance(item, (list, range)) and not any(isinstance(k, bool) for k in item):
        if all(hasattr(k, "__index__") for k in item):
            return [within(shape, axis, operator.index(k), what) for k in item]
    raise TypeError("an index is an integer, a slice or a list of integers, not %s"
                    % printing.clipped(repr(item)))


def within(shape: Shape, axis: int, k: int, what: Any) -> int:
    extent = shape[axis]
    if not -extent <= k < extent:
        raise IndexError("the index %d lies outside of axis %d of %s, which has the extent %d"
                         % (k, axis, what, extent))
    return k % extent


def linear(shape: Shape, axes: List[Any]) -> array[int]:
    """The linear indexes that these select; several lists go together."""
    strides = [size(shape[k + 1:]) for k in range(len(shape))]
    parts: List[Iterable[int]] = []
    lists = [(stride, item) for stride, item in zip(strides, axes) if isinstance(item, list)]
    for stride, item in zip(strides, axes):
        if isinstance(item, int):
            parts.append((stride * item,))
        elif isinstance(item, range):
            parts.append([stride * i for i in item])
        elif lists:  # all of them in the place of the first
            parts.append([sum(row) for row in zip(*([s * i for i in held] for s, held in lists))])
            lists = []
    return array("q", map(sum, itertools.product(*parts)))


def sliced(f: Formula, first: Sequence[int], last: Sequence[int]) -> Formula:
    shape = tuple(b - a for a, b in zip(first, last))
    if shape == f.shape:
        return f
    if is_leaf(f):
        return f.view(f.map.slice(first, last))
    return tree.node("slice", shape, (f,), (list(first), list(last)))


def picked(f: Formula, places: array[int]) -> Formula:
    """The elements at these linear indexes (i64) as a vector."""
    if is_leaf(f):
        return f.view(f.map.take(places))
    return tree.node("pick", (len(places),), (f,), places)


def is_leaf(f: Formula) -> bool:
    return f.op in ("variable", "parameter")


# Shapes and orders.


def axis_of(f: Formula, axis: Any, extra: int = 0) -> int:
    """An axis as a number that isn't negative; else IndexError."""
    axis, nd = operator.index(axis), f.ndim + extra
    if not -nd <= axis < nd:
        raise IndexError("the shape %s of %s has no axis %d" % (list(f.shape), printing.short(f),
                                                                axis))
    return int(axis % nd)


def reshape(f: Formula, *shape: Any) -> Formula:
    if len(shape) == 1 and not hasattr(shape[0], "__index__"):
        shape = tuple(shape[0])
    extents = [operator.index(extent) for extent in shape]
    if extents.count(-1) == 1:
        known = size(tuple(e for e in extents if e != -1))
        extents[extents.index(-1)] = f.size // known if known else 0
    if min(extents, default=0) < 0 or size(tuple(extents)) != f.size:
        raise ValueError("the shape %s of %s can't become %s"
                         % (list(f.shape), printing.short(f), list(shape)))
    return reshaped(f, tuple(extents))


def reshaped(f: Formula, shape: Shape) -> Formula:
    if shape == f.shape:
        return f
    if is_leaf(f):
        return f.view(f.map.reshape(shape or (1,)), shape)
    if f.op == "constant":
        return algebra.constant_formula(f.data.reshape(shape))
    if f.op == "reshape":
        return reshaped(f.operands[0], shape)
    return tree.node("reshape", shape, (f,))


def spread(f: Formula, shape: Shape) -> Formula:
    """A scalar in all elements of a shape."""
    if shape == f.shape:
        return f
    if f.op == "constant":
        values = array("d", [f.data.number]) * size(shape)
        return algebra.constant_formula(Constant(shape, values))
    if is_leaf(f):
        return f.view(f.map.spread(shape))
    return tree.node("spread", shape, (f,))


def transpose(f: Formula, *axes: Any) -> Formula:
    if len(axes) == 1 and not hasattr(axes[0], "__index__"):
        axes = tuple(axes[0])
    order = [axis_of(f, a) for a in axes] if axes else list(range(f.ndim))[::-1]
    if sorted(order) != list(range(f.ndim)):
        raise ValueError("%s is no order of the axes of the shape %s" % (list(axes), list(f.shape)))
    if order == sorted(order):
        return f
    if is_leaf(f):
        return f.view(f.map.permute_dims(order))
    return tree.node("permute", tuple(f.shape[a] for a in order), (f,), order)


# Several in one.


def concatenate(items: Iterable[Any], axis: int = 0) -> Formula:
    """Formulas and constant data one behind the other along an axis."""
    parts = [tree.as_formula(item) for item in items]
    if not parts:
        raise ValueError("nothing to concatenate")
    axis = axis_of(parts[0], axis)
    others = {f.shape[:axis] + f.shape[axis + 1:] for f in parts}
    if len(others) > 1 or len({f.ndim for f in parts}) > 1:
        raise ValueError("shapes that differ in more than axis %d can't be concatenated: %s"
                         % (axis, ", ".join(str(list(f.shape)) for f in parts)))
    if len(parts) == 1:
        return parts[0]
    extent = sum(f.shape[axis] for f in parts)
    shape = parts[0].shape[:axis] + (extent,) + parts[0].shape[axis + 1:]
    ops = {f.op for f in parts}
    if ops in ({"variable"}, {"parameter"}):
        tree.owner(parts)
        leaves: List[Any] = parts
        roots = tuple({id(root): root for f in leaves for root in f.roots}.values())
        return parts[0].view(IndexMap.stack([f.map for f in parts], axis), shape, roots)
    return tree.node("stack", shape, parts, axis)


def stack(items: Iterable[Any], axis: int = 0) -> Formula:
    """Formulas and constant data of one shape along a new axis."""
    parts = [tree.as_formula(item) for item in items]
    if not parts or len({f.shape for f in parts}) > 1:
        raise ValueError("a stack needs equal shapes: %s"
                         % ", ".join(str(list(f.shape)) for f in parts))
    axis = axis_of(parts[0], axis, extra=1)
    return concatenate([reshaped(f, f.shape[:axis] + (1,) + f.shape[axis:]) for f in parts], axis)


def vstack(items: Iterable[Any]) -> Formula:
    """Matrices one below the other; vectors and scalars are rows."""
    parts = [tree.as_formula(item) for item in items]
    return concatenate([f if f.ndim > 1 else reshaped(f, (1, f.size)) for f in parts], 0)


def hstack(items: Iterable[Any]) -> Formula:
    """Matrices side by side, vectors and scalars one behind the other."""
    parts = [tree.as_formula(item) for item in items]
    parts = [f if f.ndim > 0 else reshaped(f, (1,)) for f in parts]
    return concatenate(parts, 1 if parts and parts[0].ndim > 1 else 0)


def tile(f: Any, copies: int, axis: int = 0) -> Formula:
    """So many copies one behind the other along an axis."""
    g = tree.as_formula(f)
    g = reshaped(g, g.shape or (1,))
    axis, copies = axis_of(g, axis), count_of(copies)
    if is_leaf(g):
        return g.view(g.map.repeat(copies, axis))
    shape = g.shape[:axis] + (copies * g.shape[axis],) + g.shape[axis + 1:]
    return tree.node("tile", shape, (g,), (copies, axis))


def repeat(f: Any, repeats: int, axis: Optional[int] = None) -> Formula:
    f = tree.as_formula(f)
    f, axis = (reshaped(f, (f.size,)), 0) if axis is None else (f, axis_of(f, axis))
    repeats, before, behind = count_of(repeats), f.shape[:axis + 1], f.shape[axis + 1:]
    copies = tile(reshaped(f, before + (1,) + behind), repeats, axis + 1)
    return reshaped(copies, f.shape[:axis] + (repeats * f.shape[axis],) + behind)


def count_of(copies: Any) -> int:
    count = operator.index(copies)
    if count < 0:
        raise ValueError("%d copies can't be" % count)
    return count


# Sums along axes, diagonals and triangles.


def sum_axes(f: Formula, axis: Union[None, int, Sequence[int]] = None) -> Formula:
    if axis is None:
        f, axes = reshaped(f, (f.size,)), [0]
    else:
        given = [axis] if hasattr(axis, "__index__") else list(axis)
        axes = sorted({axis_of(f, a) for a in given}, reverse=True)
    for a in axes:
        f = tree.node("axis sum", f.shape[:a] + f.shape[a + 1:], (f,), a)
    return f


def require_matrix(f: Any) -> Formula:
    g = tree.as_formula(f)
    if g.ndim != 2:
        raise ValueError("a matrix is needed, not the shape %s of %s" % (list(g.shape), g))
    return g


def diagonal(f: Any) -> Formula:
    matrix = require_matrix(f)
    product = algebra.diagonal(matrix)
    if product is not None:
        return product
    rows, columns = matrix.shape
    return picked(matrix, array("q", range(0, min(rows, columns) * (columns + 1), columns + 1)))


def diag(f: Any) -> Formula:
    """The square matrix with a vector on its diagonal, or the diagonal of a matrix."""
    v = tree.as_formula(f)
    if v.ndim != 1:
        return diagonal(v)
    return tree.node("diagonal", (v.size, v.size), (v,))


def trace(f: Any) -> Formula:
    g = require_matrix(f)
    n, columns = g.shape
    if n != columns:
        raise ValueError("a trace needs a square matrix, not the shape %s" % list(g.shape))
    places = array("q", range(0, n * n, n + 1))
    identity = Constant((n, n), array("d", [1.0]) * n, places)
    return algebra.dot(algebra.constant_formula(identity), g)


def pair(f: Formula, axis1: int, axis2: int) -> Tuple[int, int]:
    """Two ascending axes of equal extent."""
    first, second = sorted((axis_of(f, axis1), axis_of(f, axis2)))
    if first == second or f.shape[first] != f.shape[second]:
        raise ValueError("the axes %d and %d of the shape %s have no square"
                         % (axis1, axis2, list(f.shape)))
    return first, second


def tril(f: Any, axis1: int = -2, axis2: int = -1) -> Formula:
    """The lower triangle along two axes, zeros elsewhere."""
    f = tree.as_formula(f)
    return tree.node("triangle", f.shape, (f,), (pair(f, axis1, axis2), True))


def triu(f: Any, axis1: int = -2, axis2: int = -1) -> Formula:
    """The upper triangle along two axes, zeros elsewhere."""
    f = tree.as_formula(f)
    return tree.node("triangle", f.shape, (f,), (pair(f, axis1, axis2), False))


def symmetric_part(f: Any, axis1: int = -2, axis2: int = -1) -> Formula:
    """(f + its transpose) / 2 along two axes."""
    f = tree.as_formula(f)
    return tree.node("symmetric", f.shape, (f,), pair(f, axis1, axis2))
