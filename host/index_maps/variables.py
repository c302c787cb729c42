"""Variables as lists of native indexes, and views of them: other lists of the same ones.

A view of a dense variable lists its elements in the order of the result. One of a sparse variable
rewrites the linear index of each stored element, at the cost of these alone, and brings the
elements in order again where the new indexes don't ascend. A view as an expression is what the
operation of its name makes of the variable as an expression.
"""

from typing import Any, Iterable, Optional, Sequence, Tuple

from ..closures import closure
from ..data.buffers import LARGEST, Array, Shape, as_array, size, zeros
from ..data.entries import outside
from ..data.shapes import (box, checked_shape, require_dimension, stored_places, strides,
                           unit_strides, within)


class Variable:
    """An array of scalar variables of the native model, or a view of one.

    `nativeidxs` (i64) holds the native index of each stored element in row-major order: above 0 for
    a scalar variable, and ~k for the entry k of the semidefinite element table. With `sparsity`
    (i64, strictly ascending linear indexes) only those positions are stored, and all others are
    fixed zeros. Raises ValueError if these lists don't fit the shape; a view does if it isn't one
    of this shape.
    """

    def __init__(self, shape: Iterable[int], nativeidxs: Any, sparsity: Any = None) -> None:
        self.shape, self.nativeidxs = checked_shape(shape), as_array("i64", nativeidxs)
        self.sparsity = stored_places(self.shape, len(self.nativeidxs), sparsity)

    def __len__(self) -> int:
        """The number of stored elements."""
        return len(self.nativeidxs)

    def narrow(self) -> Array:
        """The native indexes in 32 bits."""
        n = len(self)
        result = zeros("i32", n + 1)  # the closure leaves the first
        closure(246, n, self.nativeidxs, result)
        return result[1:]

    # Views.

    def slice(self, first: Sequence[int], last: Sequence[int]) -> "Variable":
        """The box of positions from `first` up to but not including `last`, one entry of each list
        per dimension."""
        first, last, shape = box(self.shape, first, last)
        nd = len(shape)
        if nd == 0:
            return Variable(shape, self.nativeidxs, self.sparsity)
        if self.sparsity is None:
            n = closure(184, first, last, nd, 1)
            idxs = zeros("i64", n)
            closure(187, self.nativeidxs, first, last, nd, self.shape, idxs, n)
            return Variable(shape, idxs)
        require_fit(size(shape))
        key = zeros("i32", nd)
        n = closure(185, first, key, last, nd, 0, self.shape, self.sparsity)
        idxs, sp = zeros("i64", n), zeros("i64", n)
        closure(186, self.nativeidxs, first, 0, idxs, key, last, nd, self.shape, shape, sp,
                self.sparsity)
        return Variable(shape, idxs, sp)

    def take(self, places: Any) -> "Variable":
        """The elements at these linear indexes (i64), as a vector in their order and as often as
        they stand there."""
        places, total = as_array("i64", places), size(self.shape)
        if closure(407, places, total, False):
            raise outside((total,), zip(places))
        if self.sparsity is None:
            idxs = zeros("i64", len(places))
            closure(165, len(places), idxs, places, self.nativeidxs)
            return Variable([len(places)], idxs)
        stored = dict(zip(self.sparsity, self.nativeidxs))
        hits = [(k, stored[place]) for k, place in enumerate(places) if place in stored]
        return Variable([len(places)], [native for _, native in hits], [k for k, _ in hits])

    # Other shapes and orders of dimensions.

    def reshape(self, shape: Shape) -> "Variable":
        """The same elements, in row-major order, in a shape of as many positions."""
        if size(checked_shape(shape)) != size(self.shape):
            raise ValueError("the shape %s can't become %s" % (list(self.shape), list(shape)))
        return Variable(shape, self.nativeidxs, self.sparsity)

    def spread(self, shape: Shape) -> "Variable":
        """The only element in each position of the shape."""
        if size(self.shape) != 1:
            raise ValueError("one element is needed, not the shape %s" % list(self.shape))
        count = size(checked_shape(shape))
        require_fit(count)
        if len(self) == 0:
            return Variable(shape, [], [])
        return Variable(shape, self.nativeidxs * count)

    def permute_dims(self, perm: Any) -> "Variable":
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
            return Variable(shape, idxs)
        require_fit(size(shape[1:]))
        place, rstrides = zeros("i32", nd), zeros("i32", nd)
        for k, dim in enumerate(perm):
            place[dim] = k
        closure(49, nd, shape, rstrides)
        closure(418, place, rstrides, 0, nd, n, 0, sp, strides(self.shape), self.shape,
                self.sparsity)
        return Variable(shape, *in_order(shape, self.nativeidxs, sp))

    # Several arrays in one.

    @classmethod
    def stack(cls, variables: Iterable["Variable"], dim: int) -> "Variable":
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
        return cls(shape, *lists)

    def repeat(self, copies: int, dim: int) -> "Variable":
        """`copies` of this array one behind the other along dimension `dim`."""
        nd, n = len(self.shape), len(self)
        require_dimension(self.shape, dim, 0, nd - 1)
        if not within(copies, 0, LARGEST):
            raise ValueError("an array can't be repeated %s times" % copies)
        before, extent, inner = size(self.shape[:dim]), self.shape[dim], size(self.shape[dim + 1:])
        block = extent * inner
        require_fit(n * copies, extent * copies, before, copies * block)
        shape, (idxs, sp) = self.shape[:], self._lists(n * copies)
        shape[dim] = copies * extent
        if sp is None:
            closure(224, before, extent, inner, 0, copies, idxs, copies * block, inner,
                    self.nativeidxs)
            return Variable(shape, idxs)
        closure(216, extent, inner, 0, copies, n, copies * block, idxs, sp, block, inner,
                self.nativeidxs, self.sparsity)
        return Variable(shape, *in_order(shape, idxs, sp))

    def _lists(self, n: int) -> Tuple[Array, Optional[Array]]:
        """Room for `n` native indexes, and for their pattern if this is sparse, else None."""
        return zeros("i64", n), None if self.sparsity is None else zeros("i64", n)


# The chains of a stack: the lists of its parts to that of the stack of this shape.


def stack_dense(variables: Sequence[Variable], shape: Shape, dim: int, extents: Array,
                offset: Array) -> Array:
    outer, inner = size(shape[:dim]), size(shape[dim + 1:])
    require_fit(outer, inner, shape[dim] * inner)
    idxs = zeros("i64", size(shape))
    for v, extent, first in zip(variables, extents, offset):
        with memoryview(idxs)[first * inner:] as part:
            closure(224, outer, extent, inner, 0, 1, part, shape[dim] * inner, inner, v.nativeidxs)
    return idxs


def stack_sparse(variables: Sequence[Variable], shape: Shape, dim: int, extents: Array,
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
