"""Views of variables and constraints: other lists of the same native variables and rows.

A view of a dense variable lists its elements in the order of the result. One of a sparse variable
rewrites the linear index of each stored element, at the cost of these alone, and brings the
elements in order again where the new indexes don't ascend. A view as an expression is what the
operation of its name makes of the variable as an expression.
"""

from array import array
from itertools import compress, count
from math import isqrt
from typing import Any, Callable, Iterable, Optional, Sequence, Tuple

from ..closures import closure
from ..data.buffers import LARGEST, Array, Shape, as_array, size, zeros
from ..data.entries import linear_indexes, outside
from ..data.shapes import (axis_pair, box, checked_shape, require_dimension, strides, unit_strides,
                           within)


class Views:
    """What a view and what it is one of have in common. `origins` are the variables or constraints
    that a view lists elements of; `removed` tells that a model has taken one out of itself."""

    shape: Any
    nativeidxs: Array
    sparsity: Optional[Array] = None
    origins: Tuple[Any, ...] = ()
    removed = False

    def require_kept(self) -> None:
        """ValueError if a model has removed this, or what this is a view of."""
        if any(item.removed for item in (self, *self.origins)):
            raise ValueError("a variable or constraint is not in the model any more")

    def among(self, items: Iterable[Any]) -> Any:
        """This view, as one of these."""
        self.origins = tuple({origin for item in items for origin in item.origins or (item,)})
        return self


class VariableViews(Views):
    """The views of a Variable, which `view` makes of a shape, native indexes and a pattern. Each
    raises ValueError if it isn't one of this shape."""

    view: Callable[..., Any]

    def __len__(self) -> int:
        """The number of stored elements."""
        return len(self.nativeidxs)

    def slice(self, first: Sequence[int], last: Sequence[int]) -> Any:
        """The box of positions from `first` up to but not including `last`, one entry of each list
        per dimension."""
        first, last, shape = box(self.shape, first, last)
        nd = len(shape)
        if nd == 0:
            return self._view(shape, self.nativeidxs, self.sparsity)
        if self.sparsity is None:
            n = closure(184, first, last, nd, 1)
            idxs = zeros("i64", n)
            closure(187, self.nativeidxs, first, last, nd, self.shape, idxs, n)
            return self._view(shape, idxs)
        require_fit(size(shape))
        key = zeros("i32", nd)
        n = closure(185, first, key, last, nd, 0, self.shape, self.sparsity)
        idxs, sp = zeros("i64", n), zeros("i64", n)
        closure(186, self.nativeidxs, first, 0, idxs, key, last, nd, self.shape, shape, sp,
                self.sparsity)
        return self._view(shape, idxs, sp)

    def pick(self, rows: Sequence[Sequence[int]]) -> Any:
        """The elements at these rows of subscripts, as a vector in their order."""
        return self.take(linear_indexes(self.shape, rows, len(rows)))

    def take(self, places: Any) -> Any:
        """The elements at these linear indexes (i64), as a vector in their order and as often as
        they stand there."""
        places, total = as_array("i64", places), size(self.shape)
        if closure(407, places, total, False):
            raise outside((total,), zip(places))
        if self.sparsity is None:
            idxs = zeros("i64", len(places))
            closure(165, len(places), idxs, places, self.nativeidxs)
            return self._view([len(places)], idxs)
        stored = dict(zip(self.sparsity, self.nativeidxs))
        hits = [(k, stored[place]) for k, place in enumerate(places) if place in stored]
        return self._view([len(places)], [native for _, native in hits], [k for k, _ in hits])

    # Other shapes and orders of dimensions.

    def reshape(self, shape: Shape) -> Any:
        """The same elements, in row-major order, in a shape of as many positions."""
        if size(checked_shape(shape)) != size(self.shape):
            raise ValueError("the shape %s can't become %s" % (list(self.shape), list(shape)))
        return self._view(shape, self.nativeidxs, self.sparsity)

    def spread(self, shape: Shape) -> Any:
        """The only element in each position of the shape."""
        if size(self.shape) != 1:
            raise ValueError("one element is needed, not the shape %s" % list(self.shape))
        count = size(checked_shape(shape))
        require_fit(count)
        if len(self) == 0:
            return self._view(shape, [], [])
        return self._view(shape, self.nativeidxs * count)

    def transpose(self) -> Any:
        """The transposed matrix."""
        if len(self.shape) != 2:
            raise ValueError("only a matrix can be transposed, not the shape %s" % list(self.shape))
        idxs, sp = self._lists(len(self))
        closure(170, self.nativeidxs, idxs, self.shape, sp, self.sparsity)
        return self._view(self.shape[::-1], idxs, sp)

    def permute_dims(self, perm: Any) -> Any:
        """The array whose dimension k is dimension perm[k] of this one."""
        perm, nd, n = as_array("i32", perm), len(self.shape), len(self)
        if sorted(perm) != list(range(nd)):
            raise ValueError("%s is no order of %d dimensions" % (list(perm), nd))
        shape = as_array("i32", map(self.shape.__getitem__, perm))
        idxs, sp = self._lists(n)
        if sp is None:
            pstrides = unit_strides(nd)
            closure(207, nd, perm, pstrides, self.shape)
            closure(208, self.nativeidxs, nd, n, perm, pstrides, idxs, self.shape)
            return self._view(shape, idxs)
        require_fit(size(shape[1:]))
        place, rstrides = zeros("i32", nd), zeros("i32", nd)
        for k, dim in enumerate(perm):
            place[dim] = k
        closure(49, nd, shape, rstrides)
        closure(418, place, rstrides, 0, nd, n, 0, sp, strides(self.shape), self.shape,
                self.sparsity)
        return self._view(shape, *in_order(shape, self.nativeidxs, sp))

    # Pairs of dimensions that are symmetric.

    def lower_triangle(self, dim1: int, dim2: int) -> Any:
        """The elements whose subscript in dimension `dim2` is at most that in `dim1`, row by row in
        the place of dimension `dim1`: the entry (r, c) at r (r + 1) / 2 + c."""
        before, n, between, behind = axis_pair(self.shape, dim1, dim2)
        packed = n * (n + 1) // 2
        require_fit(packed, before, between, behind)
        shape = zeros("i32", len(self.shape) - 1)
        closure(153, dim1, shape, self.shape)
        shape[dim1] = packed
        closure(154, dim1, dim2, shape, self.shape)
        closure(155, dim2, shape, self.shape)
        if self.sparsity is None:
            idxs = zeros("i64", size(shape))
            closure(159, self.nativeidxs, before, n, between, n, behind, 0, idxs)
            return self._view(shape, idxs)
        st = [n * between * n * behind, between * n * behind, n * behind, behind]
        rst = [packed * between * behind, between * behind, behind, 1]
        require_fit(*st, *rst)
        count = closure(163, n, n, 0, st[1], st[3], self.sparsity)
        perm, idxs, sp = (zeros("i64", count) for _ in range(3))
        closure(164, self.nativeidxs, n, between, n, behind, 0, count, perm, idxs, *rst, sp, *st, 1,
                self.sparsity)
        return self._view(shape, *in_order(shape, idxs, sp))

    def unpack_symmetric(self, dim: int) -> Any:
        """The full square of a symmetric variable that has its lower triangle, row by row, in
        dimension `dim`: two dimensions in the place of that one."""
        require_dimension(self.shape, dim, 0, len(self.shape) - 1)
        packed = self.shape[dim]
        n = (isqrt(8 * packed + 1) - 1) // 2
        if n * (n + 1) // 2 != packed:
            raise ValueError("dimension %d of the shape %s has no extent of a packed triangle"
                             % (dim, list(self.shape)))
        shape = zeros("i32", len(self.shape) + 1)
        closure(149, dim, shape, self.shape)
        shape[dim] = shape[dim + 1] = n
        closure(150, dim, shape, self.shape)
        require_fit(size(shape))
        before, behind = closure(147, 1, dim, self.shape), closure(148, 1, dim, self.shape)
        nativeidxs, idxs = self.nativeidxs, zeros("i64", size(shape))
        if self.sparsity is not None:  # on the dense list, whose zeros are dropped again
            nativeidxs = zeros("i64", size(self.shape))
            closure(194, self.nativeidxs, nativeidxs, self.sparsity)
        closure(151, nativeidxs, n, before, packed, behind, idxs, 0)
        if self.sparsity is None:
            return self._view(shape, idxs)
        sp = array("q", compress(count(), idxs))
        return self._view(shape, array("q", filter(None, idxs)), sp)

    @classmethod
    def semidefinite(cls, shape: Shape, dim1: int, dim2: int, elements: Any) -> Any:
        """The full square, in the dimensions dim1 < dim2, of a semidefinite variable. `elements`
        lists the entries of the element table (i64): the columns of the lower triangle one after
        the other, for each position before dim1 and, within a column, between dim1 and dim2."""
        shape, elements = checked_shape(shape), as_array("i64", elements)
        before, n, between, behind = axis_pair(shape, dim1, dim2)
        if len(elements) != before * between * behind * n * (n + 1) // 2:
            raise ValueError("%d elements are no lower triangles for dimensions %d and %d of the "
                             "shape %s" % (len(elements), dim1, dim2, list(shape)))
        if min(elements, default=0) < 0:
            raise ValueError("%d is no entry of an element table" % min(elements))
        st = [n * between * n * behind, between * n * behind, n * behind, behind]
        require_fit(before, between, *st)
        idxs = zeros("i64", size(shape))
        closure(201, before, n, between, n, behind, elements, idxs, *st)
        return cls.view(shape, idxs)

    # Several arrays in one.

    @classmethod
    def stack(cls, variables: Iterable[Any], dim: int) -> Any:
        """The variables one behind the other along dimension `dim`; one with fewer dimensions has
        the extent 1 in the others, and all may be without `dim`. Sparse if one of them is."""
        variables = list(variables)
        n = len(variables)
        nds = as_array("i32", [len(v.shape) for v in variables])
        if n == 0 or not within(dim, 0, max(nds)):
            raise ValueError("a stack needs a variable, and a dimension from 0 to that behind the "
                             "last: %d variables, dimension %s" % (n, dim))
        nd = closure(228, n, nds, dim + 1)
        shapes = [padded(v.shape, nd) for v in variables]
        if not all(closure(292, dim, True, shapes[0], shape) for shape in shapes):
            raise ValueError("a stack along dimension %d needs equal shapes but for that dimension:"
                             " %s" % (dim, ", ".join(str(list(v.shape)) for v in variables)))
        extents, offset = as_array("i32", [shape[dim] for shape in shapes]), zeros("i32", n)
        require_fit(sum(extents), sum(map(len, variables)))
        closure(236, n, offset, extents)
        shape = shapes[0][:]
        shape[dim] = closure(233, 0, n, extents)
        checked_shape(shape)
        if all(v.sparsity is None for v in variables):
            lists = stack_dense(variables, shape, dim, extents, offset), None
        else:
            lists = stack_sparse(variables, shape, dim, extents, offset)
        return cls.view(shape, *lists).among(variables)

    def repeat(self, copies: int, dim: int) -> Any:
        """`copies` of this array one behind the other along dimension `dim`: -1 is a new first
        dimension, and the number of dimensions a new last one."""
        nd, n = len(self.shape), len(self)
        require_dimension(self.shape, dim, -1, nd)
        if not within(copies, 0, LARGEST):
            raise ValueError("an array can't be repeated %s times" % copies)
        before, behind = self.shape[:max(dim, 0)], self.shape[dim + 1:]
        extent, inner = self.shape[dim] if 0 <= dim < nd else 1, size(behind)
        require_fit(n * copies, extent * copies)
        shape = before + as_array("i32", [extent * copies]) + behind
        idxs, sp = self._lists(n * copies)
        lists, block = (self.nativeidxs, self.sparsity), extent * inner
        if sp is None or 0 <= dim < nd:
            require_fit(size(before), block, copies * block)
        if sp is None:
            closure(224, size(before), extent, inner, 0, copies, idxs, copies * block, inner,
                    self.nativeidxs)
        elif dim == -1:
            closure(214, inner, 0, copies, n, idxs, sp, *lists)
        elif dim == nd:
            closure(215, 0, copies, n, idxs, sp, *lists)
        else:
            closure(216, extent, inner, 0, copies, n, copies * block, idxs, sp, block, inner,
                    *lists)
            idxs, sp = in_order(shape, idxs, sp)
        return self._view(shape, idxs, sp)

    def _view(self, *lists: Any) -> Any:
        return self.view(*lists).among([self])

    def _lists(self, n: int) -> Tuple[Array, Optional[Array]]:
        """Room for `n` native indexes, and for their pattern if this is sparse, else None."""
        return zeros("i64", n), None if self.sparsity is None else zeros("i64", n)


# The chains of a stack: the lists of its parts to that of the stack of this shape.


def stack_dense(variables: Sequence[Any], shape: Shape, dim: int, extents: Array,
                offset: Array) -> Array:
    outer, inner = size(shape[:dim]), size(shape[dim + 1:])
    require_fit(outer, inner, shape[dim] * inner)
    idxs = zeros("i64", size(shape))
    for v, extent, first in zip(variables, extents, offset):
        with memoryview(idxs)[first * inner:] as part:
            closure(224, outer, extent, inner, 0, 1, part, shape[dim] * inner, inner, v.nativeidxs)
    return idxs


def stack_sparse(variables: Sequence[Any], shape: Shape, dim: int, extents: Array,
                 offset: Array) -> Tuple[Array, Array]:
    n, inner = len(variables), size(shape[dim + 1:])
    numnz, pos = as_array("i32", map(len, variables)), 0
    total = closure(227, n, numnz, 0)
    idxs, sp = zeros("i64", total), zeros("i64", total)
    for v in variables:
        if v.sparsity is None:
            closure(188, idxs, pos, sp, pos, v.nativeidxs)
        else:
            closure(189, v.nativeidxs, idxs, pos)
            closure(189, v.sparsity, sp, pos)
        pos += len(v)
    if dim == 0:
        pos = 0
        for k, first in enumerate(offset):
            pos = closure(235, k, pos, first * inner, numnz, sp)
        return idxs, sp
    require_fit(inner)
    closure(238, shape[dim], inner, 0, n, numnz, offset, sp, extents)
    return in_order(shape, idxs, sp)


# Shapes and patterns.


def padded(shape: Shape, nd: int) -> Array:
    """The shape with as many extents of 1 at its end that it has `nd`."""
    result = zeros("i32", nd)
    closure(225, shape, result)
    closure(226, nd, shape, result)
    return result


def in_order(shape: Shape, nativeidxs: Any, sp: Array) -> Tuple[Array, Array]:
    """The lists in ascending order of linear index: a radix sort, the last dimension first."""
    nd, n = len(shape), len(sp)
    if closure(245, True, n, sp):
        return nativeidxs, sp
    s, ptr = strides(shape), zeros("i32", closure(239, 0, nd, shape) + 1)
    curperm, tgtperm = zeros("i32", n), zeros("i32", n)
    closure(237, curperm, n)
    for k in reversed(range(nd)):
        closure(241, k, ptr, shape)
        closure(242, k, ptr, n, shape, sp, s)
        closure(243, k, ptr, shape)
        closure(244, curperm, k, ptr, n, shape, sp, s, tgtperm)
        curperm, tgtperm = tgtperm, curperm
    perm, idxs, ordered = (zeros("i64", n) for _ in range(3))
    closure(197, curperm, perm)
    closure(165, n, idxs, perm, nativeidxs)
    closure(166, n, perm, sp, ordered)
    return idxs, ordered


def require_fit(*counts: int) -> None:
    """ValueError if a count or a stride doesn't fit 32 bits."""
    if max(counts) > LARGEST:
        raise ValueError("a view can't have an extent, a stride or a number of elements of %d: the "
                         "most is %d" % (max(counts), LARGEST))
