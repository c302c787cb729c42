"""Products of expressions with constant matrices, tensors and numbers: one method per operation.

Operands stand in the order of the formula: `mul_right(e, matrix)` is e * matrix. An element of a
product lists the scaled terms of all elements that come together in it. No terms are merged or
dropped, and a factor of 0.0 gives terms with the coefficient 0.0; one exception is told at
`mul_right`.
"""

import math
from dataclasses import replace
from typing import Any, Tuple, Union

from ..closures import closure
from ..data.buffers import Array, Shape, as_array, require_room, size, zeros
from ..data.matrices import DenseMatrix, Matrix, SparseMatrix, require_order, sparse
from ..data.tensors import SparseTensor
from .copies import require_copies
from .plain_products import PlainProducts, require_extents, require_shape
from .stacks import Expression
from .sums import Sums, scaled_atoms


class Products(PlainProducts, Sums):
    """The products of an Evaluator. A `matrix` is a DenseMatrix or a SparseMatrix; where there are
    no closures for a dense one, it goes as a sparse one with all entries."""

    # A matrix times an expression.

    def mul_left(self, matrix: Matrix, e: Expression) -> Expression:
        """matrix * e, for an `e` of shape (matrix.columns,) or (matrix.columns, d1).

        A sparse matrix gives a sparse result: the elements that one of its entries reaches. A dense
        matrix gives a dense one, unless `e` is dense too: there is no chain for that pair, and the
        matrix goes as a sparse one with all entries. Raises ValueError, with nothing written, if
        the shapes don't fit or the matrix is out of order.
        """
        self.w.operand(e)
        if e.nd not in (1, 2) or e.shape[0] != matrix.columns:
            raise ValueError("a %d x %d matrix can't be multiplied by the shape %s"
                             % (matrix.rows, matrix.columns, list(e.shape)))
        shape = (matrix.rows,) + e.shape[1:]
        require_shape(shape)
        if isinstance(matrix, DenseMatrix) and not e.hassp:
            matrix = matrix.entries()
        d1, added = size(e.shape[1:]), 2 if e.ncodeatom > 0 else 0
        if isinstance(matrix, SparseMatrix):
            matrix.test()
            require_copies(self.w, e, matrix.mnnz, matrix.msubj, True, added, shape)
        else:
            require_room(max(e.nnz, scaled_atoms(e)) * matrix.rows)
        with self.x.scratch():
            columns = self._group_columns(e, d1) if e.hassp else None
            ncodeatom, nelem, nnz = self._size_left(matrix, e, d1, columns)
            result = self._reserve(shape, nelem, nnz, ncodeatom, isinstance(matrix, SparseMatrix))
            self._write_left(matrix, e, d1, columns, result)
        return result

    def _group_columns(self, e: Expression, d1: int) -> Tuple[int, int]:
        """The stored elements of `e` by column, on the x stack."""
        x, w = self.x, self.w
        eptr, eperm = x.reserve("i32", d1 + 1), x.reserve("i32", e.nelem)
        closure(476, d1, eperm, eptr, e.nelem, e.sp_base, w.i64, x.i32)
        return eptr, eperm

    def _size_left(self, m: Any, e: Expression, d1: int, columns: Any) -> Any:
        """(ncodeatom, nelem, nnz) of the product."""
        w, x = self.w, self.x
        entries = (True, m.mnnz, m.msubi, m.msubj) if isinstance(m, SparseMatrix) else (
            False, 0, None, None)
        if not e.hassp:
            return closure(478, e.codeptr_base, d1, m.rows, *entries, e.ncodeatom, e.nnz,
                           e.ptr_base, 0, 0, 0, w.i32)
        eptr, eperm = columns
        return closure(477, e.codeptr_base, d1, eperm, eptr, m.rows, *entries, e.ncodeatom, e.nnz,
                       e.ptr_base, 0, 0, 0, e.sp_base, w.i32, w.i64, x.i32)

    def _write_left(self, m: Any, e: Expression, d1: int, columns: Any,
                    h: Expression) -> None:
        r, w, x = self.r, self.w, self.x
        if not e.hassp:
            closure(481, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d1, 0, m.mnnz,
                    0, m.msubi, m.msubj, m.mval, e.nidxs_base, 0, e.ptr_base, h.cconst_base,
                    h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom,
                    h.nidxs_base, h.ptr_base, h.sp_base, w.f64, w.i32, w.i64)
            return
        eptr, eperm = columns
        if isinstance(m, DenseMatrix):
            closure(480, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d1, 0, eperm,
                    eptr, m.rows, m.columns, m.mval, e.nidxs_base, 0, e.ptr_base, h.cconst_base,
                    h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom,
                    h.nidxs_base, h.ptr_base, e.sp_base, w.f64, w.i32, w.i64, x.i32)
        else:
            closure(479, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, d1, eperm, eptr,
                    m.mnnz, m.msubi, m.msubj, m.mval, e.nidxs_base, e.ptr_base, h.cconst_base,
                    h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom,
                    h.nidxs_base, h.ptr_base, h.sp_base, e.sp_base, w.f64, w.i32, w.i64, x.i32)

    # An expression times a matrix.

    def mul_right(self, e: Expression, matrix: Matrix) -> Expression:
        """e * matrix, for an `e` of shape (matrix.rows,) or (d0, matrix.rows).

        A dense matrix gives a dense result. A sparse one gives one with all elements listed for a
        dense `e`, and for a sparse `e` the elements where an entry of the matrix meets one of `e`;
        entries of 0.0 meet nothing there, so they give no term. Raises ValueError if the shapes
        don't fit or the matrix is out of order.
        """
        self.w.operand(e)
        if e.nd not in (1, 2) or e.shape[-1] != matrix.rows:
            raise ValueError("the shape %s can't be multiplied by a %d x %d matrix"
                             % (list(e.shape), matrix.rows, matrix.columns))
        shape, d0 = e.shape[:-1] + (matrix.columns,), size(e.shape[:-1])
        if isinstance(matrix, DenseMatrix):
            return self._right_dense(e, matrix, shape, d0)
        m, x = matrix, self.x
        if e.hassp:
            require_extents(shape)
        else:
            require_shape(shape)
        badorder = closure(475, False, m.mnnz, m.msubi, m.msubj)
        badidx = closure(474, False, m.rows, m.columns, m.mnnz, m.msubi, m.msubj)
        require_order((m.rows, m.columns), badidx, badorder)
        require_copies(self.w, e, m.mnnz, m.msubi, False, 2 if e.ncodeatom > 0 else 0, shape)
        with x.scratch():
            mcolptr, mperm = x.reserve("i32", m.columns + 1), x.reserve("i32", m.mnnz)
            erowptr = x.reserve("i32", d0 + 1)
            closure(466, d0, erowptr, mcolptr, m.columns, m.mnnz, mperm, m.msubj, x.i32)
            if e.hassp:
                return self._right_sparse(e, m, shape, mperm)
            return self._right_listed(e, m, shape, d0, mcolptr, mperm)

    def _right_dense(self, e: Expression, m: DenseMatrix, shape: Shape, d0: int) -> Expression:
        r, w, x = self.r, self.w, self.x
        ncodeatom, nelem, nnz = scaled_atoms(e) * m.columns, size(shape), e.nnz * m.columns
        require_shape(shape)
        require_room(ncodeatom, nnz)
        with x.scratch():
            xrowptr = x.reserve("i32", d0 + 1)
            h = self._reserve(shape, nelem, nnz, ncodeatom)
            head = (e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d0, m.rows, 0,
                    m.columns, m.mval, e.ncodeatom)
            body = (e.nidxs_base, 0, e.ptr_base, h.cconst_base, h.code_base, h.codeptr_base,
                    h.cof_base, r.f64, r.i32, r.i64, h.nidxs_base, h.ptr_base)
            if e.hassp:
                closure(471, d0, x.i32, xrowptr)
                closure(472, *head, e.nelem, *body, e.sp_base, w.f64, w.i32, w.i64, x.i32, xrowptr)
            else:
                closure(473, *head, *body, w.f64, w.i32, w.i64)
        return h

    def _right_listed(self, e: Expression, m: SparseMatrix, shape: Shape, d0: int, mcolptr: int,
                      mperm: int) -> Expression:
        r, w, x = self.r, self.w, self.x
        ncodeatom, nnz = closure(469, e.codeptr_base, d0, m.rows, mcolptr, m.columns, mperm,
                                 m.msubi, e.ncodeatom, e.ptr_base, 0, 0, w.i32, x.i32)
        h = self._reserve(shape, size(shape), nnz, ncodeatom, hassp=True)
        closure(470, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d0, m.rows, mcolptr,
                m.columns, mperm, m.msubi, m.mval, e.nidxs_base, 0, e.ptr_base, h.cconst_base,
                h.code_base, h.codeptr_base, h.cof_base, 0, r.f64, r.i32, r.i64, h.ncodeatom,
                h.nidxs_base, h.ptr_base, h.sp_base, w.f64, w.i32, w.i64, x.i32)
        return h

    def _right_sparse(self, e: Expression, m: SparseMatrix, shape: Shape, mperm: int) -> Expression:
        """The closures take only the entries above 0.0, so E M is formed as E M+ - E M-."""
        if any(map(math.isnan, m.mval)):
            raise ValueError("an entry of the matrix is not a number")
        with self.r.undone_on_error():
            above = self._right_above_zero(e, m, m.mval, shape, mperm)
            if not any(value < 0.0 for value in m.mval):
                return above
            below = self._right_above_zero(e, m, negated(m.mval), shape, mperm)
            return self.weighted_sum([above, below], [1.0, -1.0])

    def _right_above_zero(self, e: Expression, m: SparseMatrix, mval: Array, shape: Shape,
                          mperm: int) -> Expression:
        """The product with the entries above 0.0 of the matrix whose values are `mval`."""
        r, w, x = self.r, self.w, self.x
        ncodeatom, nelem, nnz = closure(
            467, e.codeptr_base, m.rows, m.mnnz, mperm, m.msubi, m.msubj, mval, e.ncodeatom,
            e.nelem, e.ptr_base, 0, 0, 0, e.sp_base, w.i32, w.i64, x.i32)
        h = self._reserve(shape, nelem, nnz, ncodeatom, hassp=True)
        closure(468, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, m.rows, 0, 0,
                m.columns, m.mnnz, mperm, m.msubi, m.msubj, mval, e.ncodeatom, e.nelem,
                e.nidxs_base, 0, e.ptr_base, h.cconst_base, h.code_base, h.codeptr_base, h.cof_base,
                r.f64, r.i32, r.i64, h.nidxs_base, h.ptr_base, h.sp_base, e.sp_base, w.f64, w.i32,
                w.i64, x.i32)
        return h

    # The diagonal of a product.

    def mul_diag_left(self, matrix: Matrix, e: Expression) -> Expression:
        """The diagonal of matrix * e, for an `e` of shape (matrix.columns, matrix.rows): sparse,
        for a dense `e` with an element for each row of the matrix that has an entry, and for a
        sparse `e` with one where terms come together. Raises ValueError if the shapes don't fit or
        the matrix is out of order."""
        r, w, x = self.r, self.w, self.x
        self.w.operand(e)
        if e.shape != (matrix.columns, matrix.rows):
            raise ValueError("a %d x %d matrix and the shape %s have no square product"
                             % (matrix.rows, matrix.columns, list(e.shape)))
        m, d1, diaglen = sparse(matrix), matrix.rows, (matrix.rows,)
        m.test(458)
        require_room(scaled_atoms(e), e.nnz)
        if not e.hassp:
            _, ncodeatom, nelem, nnz = closure(454, e.codeptr_base, d1, 0, m.msubi, m.msubj,
                                               e.ncodeatom, e.ptr_base, 0, 0, 0, w.i32)
            h = r.reserve_expression(diaglen, nelem, nnz, ncodeatom, hassp=True)
            # Entry 0 of `codeptr` is written if there are atoms: those of the result are told, as
            # it has no such section without them.
            closure(455, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, d1, m.rows,
                    m.msubi, m.msubj, m.mval, h.ncodeatom, e.nidxs_base, e.ptr_base, h.cconst_base,
                    h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom,
                    h.nidxs_base, h.ptr_base, h.shape_base, h.sp_base, w.f64, w.i32, w.i64)
            return h
        with x.scratch():
            xcolptr, xcperm = x.reserve("i32", d1 + 1), x.reserve("i32", e.nelem)
            ncodeatom, nelem, nnz = closure(
                456, e.codeptr_base, d1, m.msubi, m.msubj, e.ncodeatom, e.nelem, e.ptr_base, 0, 0,
                0, e.sp_base, w.i32, w.i64, xcolptr, xcperm, x.i32)
            h = self._reserve(diaglen, nelem, nnz, ncodeatom, hassp=True)
            # Elements without terms that meet an entry are sized, but not written.
            _, nelem, _, _, _ = closure(
                457, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d1, 0, 0, 0,
                m.msubi, m.msubj, m.mval, e.ncodeatom, e.nelem, e.nidxs_base, 0, e.ptr_base,
                h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64,
                h.nidxs_base, h.ptr_base, h.sp_base, e.sp_base, w.f64, w.i32, w.i64, xcperm, x.i32)
        return replace(h, nelem=nelem)

    def mul_diag_right(self, e: Expression, matrix: Matrix) -> Expression:
        """The diagonal of e * matrix, for an `e` of shape (matrix.columns, matrix.rows): sparse,
        for a dense `e` with an element for each column of the matrix that has an entry, and for a
        sparse `e` with one where an entry meets an element. Raises ValueError if the shapes don't
        fit or the matrix is out of order."""
        r, w, x = self.r, self.w, self.x
        self.w.operand(e)
        if e.shape != (matrix.columns, matrix.rows):
            raise ValueError("the shape %s and a %d x %d matrix have no square product"
                             % (list(e.shape), matrix.rows, matrix.columns))
        m, d1 = sparse(matrix), matrix.rows
        m.test(453)
        require_room(scaled_atoms(e), e.nnz)
        with x.scratch():
            xmcolptr, xmperm = x.reserve("i32", m.columns + 1), x.reserve("i32", m.mnnz)
            closure(450, m.columns, m.mnnz, m.msubj, x.i32, xmcolptr, xmperm)
            ncodeatom, nelem, nnz = closure(
                451, e.codeptr_base, d1, e.hassp, m.columns, m.mnnz, m.msubi, m.msubj, e.ncodeatom,
                e.nelem, e.ptr_base, 0, 0, 0, e.sp_base, w.i32, w.i64, x.i32, xmperm)
            h = self._reserve((m.columns,), nelem, nnz, ncodeatom, hassp=True)
            closure(452, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d1, 0, e.hassp,
                    m.columns, m.mnnz, m.msubi, m.msubj, m.mval, e.ncodeatom, e.nelem, e.nidxs_base,
                    0, e.ptr_base, h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64,
                    r.i32, r.i64, h.nidxs_base, h.ptr_base, h.sp_base, e.sp_base, w.f64, w.i32,
                    w.i64, x.i32, xmperm)
        return h

    # Products without a contraction.

    def mul_const(self, a: float, e: Expression) -> Expression:
        """a * e for a number `a`, with the elements and terms of `e`."""
        r, w, a = self.r, self.w, float(a)
        self.w.operand(e)
        ncodeatom = scaled_atoms(e)
        require_room(ncodeatom)
        h = r.reserve_expression(e.shape, e.nelem, e.nnz, ncodeatom, e.hassp)
        closure(463, a, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, e.hassp,
                e.ncodeatom, e.nd, e.nelem, e.nidxs_base, e.nnz, e.ptr_base, h.cconst_base,
                h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.nidxs_base,
                h.ptr_base, h.shape_base, h.sp_base, e.shape_base, e.sp_base, w.f64, w.i32, w.i64)
        return h

    def mul_scalar_matrix(self, matrix: Matrix, e: Expression) -> Expression:
        """matrix * e for an `e` with one position: sparse, with an element for each entry of the
        matrix, a dense one having all. Raises ValueError if `e` has not one position or the matrix
        is out of order."""
        r, w = self.r, self.w
        self.w.operand(e)
        if size(e.shape) != 1:
            raise ValueError("a scalar is needed, not the shape %s" % list(e.shape))
        m = sparse(matrix)
        shape = (m.rows, m.columns)
        require_shape(shape)
        m.test(465)
        ncodeatom, nnz = scaled_atoms(e) * m.mnnz, e.nnz * m.mnnz
        require_room(ncodeatom, nnz)
        h = self._reserve(shape, m.mnnz, nnz, ncodeatom, hassp=True)
        # As in mul_diag_left, no atoms of the result are told as none of `e`.
        closure(464, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, m.columns, m.mnnz,
                m.msubi, m.msubj, m.mval, h.ncodeatom, e.nidxs_base, e.nnz, 0, h.cconst_base,
                h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.nidxs_base,
                h.ptr_base, h.sp_base, w.f64, w.i32, w.i64)
        return h

    def mul_elm(self, tensor: Union[SparseTensor, Matrix], e: Expression) -> Expression:
        """The elementwise product with a SparseTensor or a matrix of e's shape: sparse, with an
        element for each entry of the tensor, if `e` is sparse only where it meets one of `e`.
        Raises ValueError if the shapes differ or the tensor is out of order."""
        r, w = self.r, self.w
        t = fitting(tensor, self.w.operand(e))
        positions = closure(461, e.nd, 1, e.shape_base, w.i32)
        require_order(t.shape, *closure(459, False, False, t.msp, positions))
        require_room(scaled_atoms(e))
        ncodeatom, nelem, nnz = closure(460, e.codeptr_base, e.hassp, t.msp, e.ncodeatom, e.nelem,
                                        e.ptr_base, 0, 0, 0, e.sp_base, w.i32, w.i64)
        h = r.reserve_expression(e.shape, nelem, nnz, ncodeatom, hassp=True)
        closure(462, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, e.hassp, t.mcof, t.msp,
                e.ncodeatom, e.nelem, e.nidxs_base, e.ptr_base, h.cconst_base, h.code_base,
                h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom, h.nd, h.nidxs_base,
                h.ptr_base, h.shape_base, h.sp_base, e.shape_base, e.sp_base, w.f64, w.i32, w.i64)
        return h

    def dot(self, tensor: Union[SparseTensor, Matrix], e: Expression) -> Expression:
        """The inner product with a SparseTensor or a matrix of e's shape, as an expression of shape
        (1,). Raises ValueError if the shapes differ or the tensor is out of order."""
        r, w = self.r, self.w
        t = fitting(tensor, self.w.operand(e))
        require_order(t.shape, *closure(445, False, False, size(e.shape) - 1, t.msp))
        nnz = closure(446, e.hassp, e.nelem, e.ptr_base, 0, e.sp_base, t.msp, w.i32, w.i64)
        # No closure counts the atoms: at most all of e's are copied, and two are added for a term.
        most = e.ncodeatom + 2 * nnz if e.ncodeatom > 0 and nnz > 0 else 0
        require_room(most)
        h = self._reserve((1,), 1, nnz, most)
        ncodeatom, r.i32[h.ptr_base + 1] = closure(
            447, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, e.hassp, 0, e.nelem,
            e.nidxs_base, e.ptr_base, h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64,
            r.i32, r.i64, h.ncodeatom, h.nidxs_base, e.sp_base, t.mcof, t.msp, w.f64, w.i32, w.i64)
        return replace(h, ncodeatom=ncodeatom)


def negated(values: Any) -> Array:
    """-values, as an f64 array."""
    result = zeros("f64", len(values))
    closure(610, result, -1.0, len(values), values)
    return result


def fitting(data: Union[SparseTensor, Matrix], e: Expression) -> SparseTensor:
    """`data`, a tensor or a matrix, as a tensor of e's shape; else ValueError."""
    tensor = SparseTensor.of(data)
    if tensor.shape != e.shape:
        raise ValueError("the shapes %s and %s differ" % (list(tensor.shape), list(e.shape)))
    return tensor
