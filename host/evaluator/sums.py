"""Sums of expressions and of their elements, and what concerns a pair of axes: symmetric and
triangular part, dense form, scaling off the diagonal. One method per operation.

A pair of axes of equal extent is seen as axes 1 and 3 of a five-dimensional view of the shape: the
extents before, between and behind them are folded into one each. The diagonal of the pair is where
both subscripts are equal.
"""

from typing import Any, Iterable, Sequence, Tuple

from ..closures import closure
from ..data.buffers import Array, Shape, as_array, require_room, size
from ..data.shapes import axis_pair, within
from .stacks import Expression, OperandList
from .workspace import Workspace


class Sums(Workspace):
    """The sums of an Evaluator. All terms are kept, as numbers of 0.0 too, and none are merged."""

    def weighted_sum(self, operands: Iterable[Expression], weights: Any) -> Expression:
        """The sum of weights[k] * operands[k], for one operand or more of one shape.

        Sparse if all operands are (the merge path), else dense (the scatter path). Raises
        ValueError if the shapes differ or there are not as many weights as operands.
        """
        operands, weights = [self.w.operand(e) for e in operands], as_array("f64", weights)
        if not operands or len(operands) != len(weights):
            raise ValueError("a sum needs an operand, and a weight for each: %d, %d"
                             % (len(operands), len(weights)))
        sum_sizes(operands)
        h = OperandList(operands)
        if not closure(509, h.n, h.nd, True, h.shape_base, self.w.i32):
            raise ValueError("a sum needs equal shapes: %s"
                             % ", ".join(str(list(e.shape)) for e in operands))
        anycode = closure(510, False, h.n, h.ncodeatom)
        add = self._merge if all(e.hassp for e in operands) else self._scatter
        return add(operands, h, weights, anycode)

    def _merge(self, operands: Sequence[Expression], h: OperandList, weights: Any,
               anycode: bool) -> Expression:
        r, w = self.r, self.w
        rncodeatom, rnelem, rnnz = closure(512, anycode, h.n, h.ncodeatom, h.nelem, h.nnz, 0, 0, 0,
                                           h.sp_base, w.i64)
        s = r.reserve_expression(operands[0].shape, rnelem, rnnz, rncodeatom, hassp=True)
        closure(513, h.nd, r.i32, s.shape_base, h.shape_base, w.i32)
        closure(523, anycode, h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, h.n,
                h.ncodeatom, h.nelem, h.nidxs_base, h.ptr_base, s.cconst_base, s.code_base,
                s.codeptr_base, s.cof_base, r.f64, r.i32, r.i64, s.nidxs_base, s.ptr_base,
                s.sp_base, h.sp_base, weights, w.f64, w.i32, w.i64)
        return s

    def _scatter(self, operands: Sequence[Expression], h: OperandList, weights: Any,
                 anycode: bool) -> Expression:
        r, w, x = self.r, self.w, self.x
        rnelem = size(operands[0].shape)
        rncodeatom, rnnz = closure(511, anycode, h.n, h.ncodeatom, h.nnz, 0, 0)
        s = r.reserve_expression(operands[0].shape, rnelem, rnnz, rncodeatom)
        closure(513, h.nd, r.i32, s.shape_base, h.shape_base, w.i32)
        with x.scratch():
            xcode = x.reserve("i32", rnelem + 1)
            closure(514, r.i32, rnelem, s.ptr_base)
            closure(515, rncodeatom, rnelem, xcode, x.i32)
            for k, e in enumerate(operands):
                if e.hassp:
                    closure(516, anycode, h.codeptr_base, k, h.ncodeatom, h.nelem, h.ptr_base,
                            r.i32, s.ptr_base, h.sp_base, w.i32, w.i64, xcode, x.i32)
                else:
                    closure(517, anycode, h.codeptr_base, k, h.ncodeatom, h.nelem, h.ptr_base,
                            r.i32, s.ptr_base, w.i32, xcode, x.i32)
            closure(518, r.i32, rnelem, s.ptr_base)
            closure(519, rncodeatom, rnelem, xcode, x.i32)
            for k, e in enumerate(operands):
                head = (anycode, h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, k,
                        h.ncodeatom, h.nelem, h.nidxs_base, h.ptr_base, s.cconst_base, s.code_base,
                        s.codeptr_base, s.cof_base, r.f64, r.i32, r.i64, s.nidxs_base, s.ptr_base)
                tail = (weights, w.f64, w.i32, w.i64, xcode, x.i32)
                if e.hassp:
                    closure(520, *head, h.sp_base, *tail)
                else:
                    closure(521, *head, *tail)
        closure(522, r.i32, rnelem, s.ptr_base)
        r.i32[s.ptr_base] = 0
        return s

    # Two expressions.

    def weighted_add(self, mul1: float, e1: Expression, mul2: float, e2: Expression) -> Expression:
        """mul1 * e1 + mul2 * e2, sparse if both are, else dense. Raises ValueError if the shapes
        differ."""
        w, mul1, mul2 = self.w, float(mul1), float(mul2)
        if self.w.operand(e1).shape != self.w.operand(e2).shape:
            raise ValueError("a sum needs equal shapes: %s, %s" % (list(e1.shape), list(e2.shape)))
        if e1.hassp and not e2.hassp:
            mul1, e1, mul2, e2 = mul2, e2, mul1, e1
        nnz, ncodeatom = sum_sizes((e1, e2))
        if e1.hassp:
            nelem = closure(506, e1.nelem, e2.nelem, 0, e1.sp_base, e2.sp_base, w.i64)
        else:
            nelem = closure(505, e1.nd, e1.shape_base, 1, w.i32)
        s = self.r.reserve_expression(e1.shape, nelem, nnz, ncodeatom, e1.hassp)
        closure(507 if s.hassp else 503, self.r.i32, s.nd, s.shape_base, e1.shape_base, w.i32)
        self._write_add(mul1, e1, mul2, e2, s)
        return s

    def _write_add(self, mul1: float, e1: Expression, mul2: float, e2: Expression,
                   s: Expression) -> None:
        r, w = self.r, self.w
        code = (e1.cconst_base, e2.cconst_base, e1.code_base, e2.code_base)
        terms = (e1.codeptr_base, e2.codeptr_base, e1.cof_base, e2.cof_base)
        weights = (mul1, mul2, e1.ncodeatom, e2.ncodeatom)
        result = (s.cconst_base, s.code_base, s.codeptr_base, s.cof_base, r.f64, r.i32, r.i64,
                  s.ncodeatom)
        if s.hassp:
            closure(508, *code, *terms, *weights, e1.nelem, e2.nelem, e1.nidxs_base, e2.nidxs_base,
                    e1.ptr_base, e2.ptr_base, *result, s.nidxs_base, s.ptr_base, s.sp_base,
                    e1.sp_base, e2.sp_base, w.f64, w.i32, w.i64)
        elif e2.hassp:
            closure(504, *code, 0, *terms, 0, 0, 0, *weights, e1.nelem, e2.nelem, e1.nidxs_base,
                    e2.nidxs_base, 0, e1.ptr_base, e2.ptr_base, *result, s.nidxs_base, s.ptr_base,
                    e2.sp_base, w.f64, w.i32, w.i64)
        else:
            closure(502, *code, 0, *terms, 0, *weights, e1.nidxs_base, e2.nidxs_base, e1.ptr_base,
                    e2.ptr_base, *result, s.nelem, s.nidxs_base, s.ptr_base, w.f64, w.i32, w.i64)

    # The elements along an axis.

    def sum_axis(self, e: Expression, dim: int) -> Expression:
        """The sum over axis `dim`, which the result doesn't have. A sparse `e` gives a sparse
        result: the elements that one of its elements goes to. Raises ValueError if there is no such
        axis."""
        self.w.operand(e)
        if not within(dim, 0, e.nd - 1):
            raise ValueError("the shape %s has no axis %s" % (list(e.shape), dim))
        shape = e.shape[:dim] + e.shape[dim + 1:]
        require_room(size(e.shape[:dim]), size(e.shape[dim:]), size(e.shape[dim + 1:]),
                     0 if e.hassp else size(shape))
        return (self._sum_sparse if e.hassp else self._sum_dense)(e, dim, shape)

    def _sum_sparse(self, e: Expression, dim: int, shape: Shape) -> Expression:
        r, w, x = self.r, self.w, self.x
        with x.scratch():
            largest = closure(524, 0, e.nd, e.shape_base, w.i32)
            perm, tmpperm = x.reserve("i32", e.nelem), x.reserve("i32", e.nelem)
            radix = x.reserve("i32", largest + 1)
            closure(525, perm, e.nelem, x.i32)
            perm, tmpperm = closure(526, perm, dim, e.nd, e.nelem, radix, e.shape_base, e.sp_base,
                                    tmpperm, w.i32, w.i64, x.i32)
            d0 = closure(527, 1, dim, e.shape_base, w.i32)
            d2 = closure(528, 1, dim, e.nd, e.shape_base, w.i32)
            slab = e.shape[dim] * d2
            _, _, nelem = closure(529, perm, d0, d2, e.nelem, -1, -1, 0, slab, e.sp_base, w.i64,
                                  x.i32)
            s = r.reserve_expression(shape, nelem, e.nnz, e.ncodeatom, hassp=True)
            closure(530, dim, r.i32, s.shape_base, e.shape_base, w.i32)
            closure(531, dim, e.nd, r.i32, s.shape_base, e.shape_base, w.i32)
            closure(532, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, perm, d0, d2, 0,
                    0, 0, e.nelem, e.nidxs_base, e.ptr_base, s.cconst_base, s.code_base,
                    s.codeptr_base, s.cof_base, r.f64, r.i32, r.i64, s.ncodeatom, s.nidxs_base,
                    s.ptr_base, s.sp_base, slab, e.sp_base, w.f64, w.i32, w.i64, x.i32)
        return s

    def _sum_dense(self, e: Expression, dim: int, shape: Shape) -> Expression:
        r, w, d1 = self.r, self.w, e.shape[dim]
        d0 = closure(533, 1, dim, e.shape_base, w.i32)
        d2 = closure(534, 1, dim, e.nd, e.shape_base, w.i32)
        s = r.reserve_expression(shape, d0 * d2, e.nnz, e.ncodeatom)
        closure(535, dim, r.i32, s.shape_base, e.shape_base, w.i32)
        closure(536, dim, e.nd, r.i32, s.shape_base, e.shape_base, w.i32)
        closure(537, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d0, d1, d2, 0, 0,
                e.nidxs_base, e.ptr_base, s.cconst_base, s.code_base, s.codeptr_base, s.cof_base,
                r.f64, r.i32, r.i64, s.ncodeatom, s.nidxs_base, s.ptr_base, d1 * d2, d2, w.f64,
                w.i32, w.i64)
        return s

    # A pair of axes.

    def symmetrize(self, e: Expression, dim1: int, dim2: int) -> Expression:
        """(e + its transpose) / 2, the transpose exchanging the axes dim1 < dim2; sparse as `e` is.
        Elements of the diagonal stay as they are. Raises ValueError if that is no pair of axes of
        equal extent."""
        w, (before, n, between, behind) = self.w, axis_pair(self.w.operand(e).shape, dim1, dim2)
        # The result with all terms twice is the largest; a halved term has two atoms more.
        ncodeatom = 2 * e.ncodeatom + 4 * e.nnz if e.ncodeatom > 0 else 0
        require_room(before, between, behind, 2 * e.nelem, 2 * e.nnz, ncodeatom)
        dim, stride = as_array("i32", [1, n, 1, n, 1]), as_array("i64", [0, 0, 0, 0, 1])
        closure(557, dim, dim1, e.shape_base, w.i32)
        closure(558, dim, dim1, dim2, e.shape_base, w.i32)
        closure(559, dim, dim2, e.nd, e.shape_base, w.i32)
        closure(560, dim, stride)
        if e.hassp:
            return self._symmetrize_sparse(e, dim, stride)
        return self._symmetrize_dense(e, dim, stride, ncodeatom)

    def _symmetrize_sparse(self, e: Expression, dim: Array, stride: Array) -> Expression:
        r, w, x = self.r, self.w, self.x
        # Least significant axis of the mirrored index first; axis 4 is in order already.
        sortidx = as_array("i32", [1, 2, 3, 0])
        with x.scratch():
            largest = closure(556, 0, len(sortidx), 0, dim)
            perm, tmpperm = x.reserve("i32", e.nelem), x.reserve("i32", e.nelem)
            radix, mirrored = x.reserve("i32", largest + 1), x.reserve("i64", e.nelem)
            closure(561, perm, e.nelem, x.i32)
            perm, tmpperm = closure(562, perm, dim, e.nelem, sortidx, e.sp_base, stride, tmpperm,
                                    w.i64, x.i32, radix)
            closure(563, dim, e.nelem, e.sp_base, stride, w.i64, x.i64, mirrored)
            ncodeatom, nelem, nnz = closure(564, e.codeptr_base, perm, e.ncodeatom, e.nelem,
                                            e.ptr_base, 0, 0, 0, e.sp_base, w.i32, w.i64, x.i32,
                                            x.i64, mirrored)
            s = r.reserve_expression(e.shape, nelem, nnz, ncodeatom, hassp=True)
            closure(565, e.nd, r.i32, s.shape_base, e.shape_base, w.i32)
            closure(566, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, perm, 0, 0, 0,
                    e.nelem, e.nidxs_base, 0, e.ptr_base, s.cconst_base, s.code_base,
                    s.codeptr_base, s.cof_base, r.f64, r.i32, r.i64, s.ncodeatom, s.nidxs_base,
                    s.ptr_base, s.sp_base, e.sp_base, w.f64, w.i32, w.i64, x.i32, x.i64, mirrored)
        return s

    def _symmetrize_dense(self, e: Expression, dim: Array, stride: Array,
                          ncodeatom: int) -> Expression:
        r, w = self.r, self.w
        ncodeatom, nnz = closure(567, e.codeptr_base, dim, e.ncodeatom, e.ptr_base, ncodeatom,
                                 2 * e.nnz, stride, w.i32)
        s = r.reserve_expression(e.shape, e.nelem, nnz, ncodeatom)
        closure(568, e.nd, r.i32, s.shape_base, e.shape_base, w.i32)
        closure(569, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, dim, 0,
                e.nidxs_base, 0, e.ptr_base, s.cconst_base, s.code_base, s.codeptr_base, s.cof_base,
                0, r.f64, r.i32, r.i64, s.ncodeatom, s.nidxs_base, s.ptr_base, stride, w.f64, w.i32,
                w.i64)
        return s

    def triangle(self, e: Expression, xdim: int, ydim: int, lower: bool = False) -> Expression:
        """The elements whose subscript on axis xdim is at most the one on axis ydim, xdim < ydim;
        with `lower` the elements where it is at least that. Sparse, with every position of the
        triangle listed. Raises ValueError if that is no pair of axes of equal extent, or if the
        shape has more than 2^31 - 1 positions."""
        r, w = self.r, self.w
        before, n, between, behind = axis_pair(self.w.operand(e).shape, xdim, ydim)
        require_room(before, between, behind, size(e.shape))
        dim, stride = as_array("i32", [1, n, 1, n, 1]), as_array("i32", [0, 0, 0, 0, 1])
        closure(545, dim, e.shape_base, w.i32, xdim)
        closure(546, dim, e.shape_base, w.i32, xdim, ydim)
        closure(547, dim, e.nd, e.shape_base, w.i32, ydim)
        closure(548, dim, stride)
        ncodeatom, nnz = closure(549, e.codeptr_base, dim, e.hassp, e.ncodeatom, e.nelem,
                                 e.ptr_base, 0, 0, e.sp_base, stride, lower, w.i32, w.i64)
        nelem = before * (n * (n + 1) // 2) * between * behind
        t = r.reserve_expression(e.shape, nelem, nnz, ncodeatom, hassp=True)
        closure(550, e.nd, r.i32, t.shape_base, e.shape_base, w.i32)
        closure(551 if lower else 552, dim, 0, r.i64, t.sp_base, stride)
        closure(553, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, nelem, e.hassp,
                e.nelem, e.nidxs_base, 0, e.ptr_base, t.cconst_base, t.code_base, t.codeptr_base,
                t.cof_base, r.f64, r.i32, r.i64, t.ncodeatom, t.nidxs_base, t.ptr_base, t.sp_base,
                e.sp_base, w.f64, w.i32, w.i64)
        return t

    def scale_offdiag(self, e: Expression, xdim: int, ydim: int, scale: float) -> Expression:
        """`e` with the elements off the diagonal of the axes xdim < ydim times `scale`. Raises
        ValueError if that is no pair of axes of equal extent."""
        r, w, scale = self.r, self.w, float(scale)
        _, n, _, _ = axis_pair(self.w.operand(e).shape, xdim, ydim)
        ncodeatom = scaled_atoms(e)
        require_room(ncodeatom)
        h = r.reserve_expression(e.shape, e.nelem, e.nnz, ncodeatom, e.hassp)
        # Copied as if there were no code: 544 writes all of it.
        closure(395, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, e.hassp, 0, e.nd,
                e.nelem, e.nidxs_base, e.nnz, e.ptr_base, h.cconst_base, h.code_base,
                h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.nidxs_base, h.ptr_base,
                h.shape_base, h.sp_base, e.shape_base, e.sp_base, w.f64, w.i32, w.i64)
        d = (closure(540, 1, e.shape_base, w.i32, xdim), n,
             closure(541, 1, e.shape_base, w.i32, xdim, ydim), n,
             closure(542, 1, e.nd, e.shape_base, w.i32, ydim))
        closure(543, *d, e.hassp, e.nelem, h.cof_base, r.f64, r.i32, h.ptr_base, scale, e.sp_base,
                w.i64)
        closure(544, e.cconst_base, e.code_base, e.codeptr_base, *d, e.hassp, e.ncodeatom, e.nelem,
                e.ptr_base, h.cconst_base, h.code_base, h.codeptr_base, r.f64, r.i32, scale,
                e.sp_base, w.f64, w.i32, w.i64)
        return h

    # The dense form.

    def densify(self, e: Expression) -> Expression:
        """`e` with every element stored. Raises ValueError if these are more than 2^31 - 1."""
        r, w = self.r, self.w
        self.w.operand(e)
        require_room(size(e.shape))
        hassp, nelem = closure(554, e.nd, e.hassp, 1, e.shape_base, w.i32)
        h = r.reserve_expression(e.shape, nelem, e.nnz, e.ncodeatom)
        closure(555, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, hassp, e.ncodeatom,
                e.nd, e.nelem, e.nidxs_base, e.nnz, e.ptr_base, h.cconst_base, h.code_base,
                h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.nelem, h.nidxs_base, h.ptr_base,
                h.shape_base, e.shape_base, e.sp_base, w.f64, w.i32, w.i64)
        return h


def scaled_atoms(e: Expression) -> int:
    """The number of atoms of `e` times a number: two are added to the program of each term."""
    return e.ncodeatom + 2 * e.nnz if e.ncodeatom > 0 else 0


def sum_sizes(operands: Sequence[Expression]) -> Tuple[int, int]:
    """(nnz, ncodeatom) of a weighted sum. Raises ValueError if they may not fit 32 bits."""
    nnz, coded = sum(e.nnz for e in operands), any(e.ncodeatom > 0 for e in operands)
    # Where others have code, a term without gets an atom.
    ncodeatom = sum(scaled_atoms(e) or e.nnz for e in operands) if coded else 0
    require_room(nnz, ncodeatom)
    return nnz, ncodeatom
