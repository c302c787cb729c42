"""What moves elements of an expression: stacks, repeats, transposes, permuted dimensions, slices
and picks. One method per operation.

No term changes. Along a dimension a shape is seen as three extents: the positions before it, its
own, and the positions behind it.
"""

from array import array
from typing import Any, Iterable, Sequence, Tuple

from ..closures import closure
from ..data.buffers import LARGEST, Array, Shape, as_array, require_room, size, zeros
from ..data.entries import converted, outside, subscript_table
from ..data.shapes import box, checked_shape, unit_strides, within
from .stacks import Expression, OperandList
from .sums import Sums


class Structure(Sums):
    """The structural operations of an Evaluator. A sparse operand gives a sparse result, but for
    picks, which are dense."""

    def stack(self, operands: Iterable[Expression], dim: int) -> Expression:
        """The operands one behind the other along dimension `dim`; the dimension behind their last
        one is a new one, in which each has one position. Dense if all operands are.

        Raises ValueError if there is no operand or no such dimension, or if the shapes differ in
        other extents than that of `dim`.
        """
        w, operands = self.w, [self.w.operand(e) for e in operands]
        if not operands:
            raise ValueError("a stack needs an operand")
        first, h = operands[0], OperandList(operands)
        if not within(dim, 0, first.nd):
            raise ValueError("the shape %s has no dimension %s, and %d would be the next one"
                             % (list(first.shape), dim, first.nd))
        other_rank = any(e.nd != first.nd for e in operands)
        alldense, mismatch = closure(427, not first.hassp, dim, h.hassp, other_rank, h.n, first.nd,
                                     h.nd, first.shape_base, h.shape_base, w.i32)
        if mismatch:
            raise ValueError("a stack along dimension %d needs shapes that differ in no other: %s"
                             % (dim, ", ".join(str(list(e.shape)) for e in operands)))
        d1s = [e.shape[dim] if dim < e.nd else 1 for e in operands]
        require_room(sum(d1s))
        rdim = closure(428, dim, h.n, first.nd, 0, h.shape_base, w.i32)
        shape = along(first.shape, dim, rdim, alldense)
        coded = any(e.ncodeatom > 0 for e in operands)
        # A term without code gets an atom where others have code.
        atoms = sum(e.ncodeatom if e.ncodeatom > 0 else e.nnz for e in operands) if coded else 0
        require_room(sum(e.nelem for e in operands), sum(e.nnz for e in operands), atoms)
        outcode, *sizes = closure(429, h.n, h.ncodeatom, h.nelem, h.nnz, False, 0, 0, 0)
        if alldense:
            return self._stack_dense(first, h, dim, as_array("i32", d1s), shape, outcode, sizes)
        if dim == 0:
            return self._stack_first(first, h, shape, sizes)
        return self._stack_sorted(first, h, dim, as_array("i32", d1s), shape, outcode, sizes)

    def _stack_dense(self, first: Expression, h: OperandList, dim: int, d1s: Array, shape: Shape,
                     outcode: bool, sizes: Sequence[int]) -> Expression:
        r, w = self.r, self.w
        d0 = closure(430, 1, dim, first.shape_base, w.i32)
        d2 = closure(433, 1, dim, first.nd, first.shape_base, w.i32)
        s = self._reserve_stack(shape, sizes, False)
        closure(435, h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, d0, d1s, d2, h.n,
                h.ncodeatom, h.nidxs_base, outcode, h.ptr_base, s.cconst_base, s.code_base,
                s.codeptr_base, s.cof_base, r.f64, r.i32, r.i64, s.nidxs_base, s.ptr_base, w.f64,
                w.i32, w.i64)
        return s

    def _stack_first(self, first: Expression, h: OperandList, shape: Shape,
                     sizes: Sequence[int]) -> Expression:
        """Along the first dimension the elements are in order."""
        r, w = self.r, self.w
        s = self._reserve_stack(shape, sizes, True)
        closure(438, h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, h.hassp, h.n,
                h.ncodeatom, first.nd, h.nelem, h.nidxs_base, h.ptr_base, s.cconst_base,
                s.code_base, s.codeptr_base, s.cof_base, r.f64, r.i32, r.i64, s.ncodeatom,
                s.nidxs_base, s.ptr_base, s.sp_base, h.shape_base, h.sp_base, w.f64, w.i32, w.i64)
        return s

    def _stack_sorted(self, first: Expression, h: OperandList, dim: int, d1s: Array, shape: Shape,
                      outcode: bool, sizes: Sequence[int]) -> Expression:
        """Along a later dimension they are sorted by their new linear indexes."""
        r, w, x, (_, nelem, _) = self.r, self.w, self.x, sizes
        with x.scratch():
            offset = zeros("i32", h.n)
            closure(431, d1s, h.n, offset)
            rd1 = closure(432, 0, d1s, h.n)
            d2 = closure(437, dim, first.nd, 1, first.shape_base, w.i32)
            top, pos = x.reserve("i32", nelem), x.reserve("i32", nelem)
            val = x.reserve("i64", nelem)
            closure(440, d1s, d2, h.hassp, h.n, h.nelem, offset, rd1, h.sp_base, top, pos, val,
                    w.i64, x.i32, x.i64)
            perm = self._sort(shape, nelem, x.i64, val)
            s = self._reserve_stack(shape, sizes, True)
            closure(442, h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, perm, h.ncodeatom,
                    h.nidxs_base, outcode, h.ptr_base, s.cconst_base, s.code_base, s.codeptr_base,
                    s.cof_base, r.f64, r.i32, r.i64, s.ncodeatom, s.nelem, s.nidxs_base, s.ptr_base,
                    s.sp_base, top, pos, val, w.f64, w.i32, w.i64, x.i32, x.i64)
        return s

    def _reserve_stack(self, shape: Shape, sizes: Sequence[int], hassp: bool) -> Expression:
        ncodeatom, nelem, nnz = sizes
        s = self.r.reserve_expression(shape, nelem, nnz, ncodeatom, hassp)
        self._write_shape(s)
        return s

    def _sort(self, shape: Shape, count: int, i64: Array, base: int) -> int:
        """The position, on the x stack, of the permutation that sorts the `count` linear indexes
        that stand in `i64` from `base` on."""
        x, shape = self.x, as_array("i32", shape or (1,))
        perm, other = x.reserve("i32", count), x.reserve("i32", count)
        counters = x.reserve("i32", closure(439, 0, shape, len(shape), 0) + 1)
        perm, _ = closure(441, perm, shape, len(shape), count, 0, other, base, x.i32, i64, counters)
        return perm

    def repeat(self, e: Expression, copies: int, dim: int) -> Expression:
        """So many copies of `e` one behind the other along dimension `dim`. Raises ValueError if
        there is no such dimension."""
        r, w = self.r, self.w
        if not (within(dim, 0, self.w.operand(e).nd - 1) and within(copies, 0, LARGEST)):
            raise ValueError("the shape %s can't be repeated %s times along dimension %s"
                             % (list(e.shape), copies, dim))
        nelem, nnz, ncodeatom = (copies * n for n in (e.nelem, e.nnz, max(e.ncodeatom, 0)))
        require_room(nelem, nnz, ncodeatom)
        d1 = e.shape[dim]
        h = r.reserve_expression(along(e.shape, dim, copies * d1, not e.hassp), nelem, nnz,
                                 ncodeatom, e.hassp)
        d0 = closure(423, 1, dim, e.shape_base, w.i32)
        d2 = closure(424, 1, dim, e.nd, e.shape_base, w.i32)
        closure(425, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, d0, d1, d2, dim,
                e.hassp, copies, e.ncodeatom, e.nd, e.nelem, e.nidxs_base, e.ptr_base,
                h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, copies * d1, r.f64, r.i32,
                r.i64, h.ncodeatom, h.nidxs_base, h.ptr_base, h.shape_base, h.sp_base, e.shape_base,
                e.sp_base, w.f64, w.i32, w.i64)
        return h

    # The order of dimensions.

    def transpose(self, e: Expression) -> Expression:
        """A matrix with rows and columns exchanged. Raises ValueError if `e` is none."""
        r, w, x = self.r, self.w, self.x
        if self.w.operand(e).nd != 2:
            raise ValueError("the shape %s can't be transposed: it has not two dimensions"
                             % list(e.shape))
        d0, d1 = e.shape
        positions = (e.cconst_base, e.code_base, e.codeptr_base, d0, d1, e.cof_base, e.nidxs_base,
                     e.ptr_base)
        with x.scratch():
            perm, columns = (x.reserve("i32", n if e.hassp else 0) for n in (e.nelem, d1 + 1))
            h = r.reserve_expression((d1, d0), e.nelem, e.nnz, e.ncodeatom, e.hassp)
            self._write_shape(h)
            result = (h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64,
                      h.nidxs_base, h.ptr_base)
            if e.hassp:
                closure(421, *positions, e.sp_base, e.ncodeatom, e.nelem, perm, columns, *result,
                        h.sp_base, w.f64, w.i32, w.i64, x.i32)
            else:
                closure(422, *positions, e.ncodeatom, *result, w.f64, w.i32, w.i64)
        return h

    def permute_dims(self, e: Expression, perm: Any) -> Expression:
        """`e` with its dimensions in another order: dimension k of the result is dimension perm[k]
        of `e`. Raises ValueError if `perm` isn't a permutation of all dimensions."""
        perm = as_array("i32", perm)
        if sorted(perm) != list(range(self.w.operand(e).nd)):
            raise ValueError("%s is no permutation of the dimensions of the shape %s"
                             % (list(perm), list(e.shape)))
        shape = [e.shape[k] for k in perm]
        # Where a dimension of `e` has gone, and the steps of both shapes.
        back = [perm.index(k) for k in range(e.nd)]
        strides, rstrides = unit_strides(e.nd), unit_strides(e.nd)
        closure(412, e.nd, e.shape_base, strides, self.w.i32)
        closure(415, e.nd, as_array("i32", shape), rstrides)
        # The steps in the order that is read pass in 32 bits.
        require_room(0, *(rstrides if e.hassp else strides))
        if e.hassp:
            return self._permute_sparse(e, perm, back, shape, strides, rstrides)
        return self._permute_dense(e, perm, back, shape, strides, rstrides)

    def _permute_dense(self, e: Expression, perm: Array, back: Sequence[int], shape: Shape,
                       strides: Array, rstrides: Array) -> Expression:
        r, w, dperm = self.r, self.w, as_array("i32", perm)
        dstride = as_array("i32", [strides[k] for k in perm])
        h = r.reserve_expression(shape, e.nelem, e.nnz, e.ncodeatom)
        closure(417, dperm, e.nd, r.i32, h.shape_base, e.shape_base, w.i32)
        closure(420, e.cconst_base, e.code_base, e.codeptr_base, dperm, dstride, e.cof_base,
                e.nidxs_base, e.ptr_base, e.ncodeatom, e.nd, e.nelem, h.cconst_base, h.code_base,
                h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.nidxs_base, h.ptr_base,
                e.shape_base, as_array("i64", [rstrides[k] for k in back]), w.f64, w.i32, w.i64)
        return h

    def _permute_sparse(self, e: Expression, perm: Array, back: Sequence[int], shape: Shape,
                        strides: Array, rstrides: Array) -> Expression:
        r, w, x = self.r, self.w, self.x
        sp, order = zeros("i64", e.nelem), zeros("i64", e.nelem)
        closure(418, as_array("i32", back), as_array("i32", rstrides), e.sp_base, e.nd, e.nelem,
                e.shape_base, sp, strides, w.i32, w.i64)
        with x.scratch():
            narrow = self._sort(shape, e.nelem, sp, 0)
            with x.section("i32", narrow, e.nelem) as section:
                closure(197, section, order)
        h = r.reserve_expression(shape, e.nelem, e.nnz, e.ncodeatom, hassp=True)
        closure(417, as_array("i32", perm), e.nd, r.i32, h.shape_base, e.shape_base, w.i32)
        closure(419, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, e.nidxs_base,
                e.ptr_base, 0, 0, e.ncodeatom, e.nelem, order, h.cconst_base, h.code_base,
                h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.nidxs_base, h.ptr_base,
                h.sp_base, sp, w.f64, w.i32, w.i64)
        return h

    # Other shapes.

    def reshape(self, e: Expression, shape: Shape) -> Expression:
        """The same elements, in row-major order, in a shape of as many positions; nothing is
        copied. Raises ValueError if the shape has more or fewer."""
        shape = checked_shape(shape)
        if size(self.w.operand(e).shape) != size(shape):
            raise ValueError("the shape %s can't become %s" % (list(e.shape), list(shape)))
        h = self.w.share(e, shape, e.hassp)
        self._write_shape(h)
        return h

    def spread(self, e: Expression, shape: Shape) -> Expression:
        """The only element of `e` in each position of the shape. Raises ValueError if it has not
        one."""
        shape = checked_shape(shape)
        if size(self.w.operand(e).shape) != 1:
            raise ValueError("one element is needed, not the shape %s" % list(e.shape))
        require_room(size(shape))
        with self.r.undone_on_error():
            return self.reshape(self.repeat(self.reshape(e, [1]), size(shape), 0), shape)

    def diagonal_matrix(self, e: Expression) -> Expression:
        """The square matrix with the vector `e` on its diagonal: sparse, with these elements.
        Raises ValueError if `e` is no vector."""
        if self.w.operand(e).nd != 1:
            raise ValueError("a vector is needed, not the shape %s" % list(e.shape))
        (n,) = e.shape
        checked_shape([n, n])
        with self.r.undone_on_error():
            h = self.w.share(self.densify(e) if e.hassp else e, [n, n], True)
        self._write_shape(h)
        with self.w.section("i64", h.sp_base, n) as places:
            places[:] = array("q", range(0, n * (n + 1), n + 1))
        return h

    # Parts of an expression.

    def slice(self, e: Expression, first: Sequence[int], last: Sequence[int]) -> Expression:
        """The elements whose subscript in dimension k is first[k] or more and below last[k], for
        all k. Raises ValueError if that is no box within the shape."""
        r, w, (first, last, shape) = self.r, self.w, box(self.w.operand(e).shape, first, last)
        st, rst = unit_strides(e.nd), unit_strides(e.nd)
        closure(412, e.nd, e.shape_base, st, w.i32)
        ncodeatom, nelem, nnz = closure(413, e.codeptr_base, first, e.hassp, last, e.ncodeatom,
                                        e.nd, e.nelem, e.ptr_base, 0, 0, 0, e.shape_base, e.sp_base,
                                        st, w.i32, w.i64)
        h = r.reserve_expression(shape, nelem, nnz, ncodeatom, e.hassp)
        closure(414, h.nd, r.i32, shape, h.shape_base)
        closure(415, h.nd, shape, rst)
        closure(416, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, first, e.hassp, 0,
                0, last, e.nd, e.nelem, e.nidxs_base, e.ptr_base, h.cconst_base, h.code_base,
                h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom, h.nidxs_base,
                h.ptr_base, h.sp_base, rst, e.shape_base, e.sp_base, st, w.f64, w.i32, w.i64)
        return h

    def pick(self, e: Expression, idxs: Any) -> Expression:
        """The elements at the linear indexes `idxs` (i64), in their order and as often as they
        stand there, as a dense vector. Raises ValueError if an index lies outside of the shape."""
        r, w, x = self.r, self.w, self.x
        total = size(self.w.operand(e).shape)
        idxs = converted("i64", idxs, (total,), lambda: zip(idxs))
        if closure(407, idxs, total, False):
            raise outside((total,), zip(idxs))
        with x.scratch():
            spos = x.reserve("i32", len(idxs)) if e.hassp else 0
            ncodeatom, nnz = self._size_pick(e, idxs, spos)
            h = r.reserve_expression((len(idxs),), len(idxs), nnz, ncodeatom)
            self._write_shape(h)
            arguments = (e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, idxs, 0,
                         e.nidxs_base, e.ptr_base, h.cconst_base, h.code_base, h.codeptr_base,
                         h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom, h.nidxs_base, h.ptr_base)
            if e.hassp:
                closure(411, *arguments, spos, w.f64, w.i32, w.i64, x.i32)
            else:
                closure(409, *arguments, w.f64, w.i32, w.i64)
        return h

    def _size_pick(self, e: Expression, idxs: Array, spos: int) -> Tuple[int, int]:
        """(ncodeatom, nnz) of a pick, counted in portions whose sizes can't exceed 32 bits."""
        w, x, ncodeatom, nnz = self.w, self.x, 0, 0
        portion = max(LARGEST // max(e.nnz, e.ncodeatom, 1), 1)
        for start in range(0, len(idxs), portion):
            with memoryview(idxs)[start:start + portion] as part:
                if e.hassp:
                    sizes = closure(410, e.codeptr_base, part, e.ncodeatom, e.nelem, e.ptr_base, 0,
                                    0, e.sp_base, spos + start, w.i32, w.i64, x.i32)
                else:
                    sizes = closure(408, e.codeptr_base, part, e.ncodeatom, e.ptr_base, 0, 0, w.i32)
            ncodeatom, nnz = ncodeatom + sizes[0], nnz + sizes[1]
        require_room(len(idxs), ncodeatom, nnz)
        return ncodeatom, nnz

    def pick_subscripts(self, e: Expression, rows: Iterable[Sequence[int]]) -> Expression:
        """As `pick`, by rows of subscripts, one for each dimension of `e`. Raises ValueError if a
        row has another length or a subscript lies outside of the shape."""
        rows, nd, shape = list(rows), self.w.operand(e).nd, as_array("i32", e.shape)
        table, idxs = subscript_table(shape, rows, len(rows)), zeros("i64", len(rows))
        if table is not None:
            if closure(405, table, nd, shape, False):
                raise outside(shape, rows)
            closure(406, table, nd, shape, idxs)
        return self.pick(e, idxs)


def along(shape: Shape, dim: int, extent: int, dense: bool) -> Tuple[int, ...]:
    """The shape with this extent in dimension `dim`. Raises ValueError where the closures take 32
    bits and that doesn't suffice, and where linear indexes would need more than 64."""
    result = tuple(shape[:dim]) + (extent,) + tuple(shape[dim + 1:])
    require_room(extent, size(shape[dim + 1:]))
    if dense:
        require_room(size(shape[:dim]), size(result))
    checked_shape(result)
    return result
