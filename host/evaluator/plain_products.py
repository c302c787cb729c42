"""Products of a constant matrix and a variable: one method per operation.

A term is a native index and a value of the matrix, so the variable needs not become an expression
before. The results are sparse.
"""

from typing import Any, Tuple

from ..closures import closure
from ..data.buffers import LARGEST, Shape, require_room, size, zeros
from ..data.matrices import DenseMatrix, Matrix, SparseMatrix, sparse
from ..index_maps.variables import Variable
from .copies import require_plain_copies
from .stacks import Expression
from .workspace import Workspace


class PlainProducts(Workspace):
    """The products of an Evaluator with variables. A `matrix` is a DenseMatrix or a SparseMatrix.
    """

    def mul_plain_left(self, matrix: Matrix, variable: Variable) -> Expression:
        """matrix * variable, for a variable of shape (matrix.columns,) or (matrix.columns, d1).

        A dense variable gives the elements in each row of the matrix that has an entry, a sparse
        one the elements where an entry meets one of the variable's. Raises ValueError if the shapes
        don't fit or the matrix is out of order.
        """
        x, given, m = self.x, tuple(variable.shape), sparse(matrix)
        if len(given) not in (1, 2) or given[0] != m.columns:
            raise ValueError("a %d x %d matrix can't be multiplied by the shape %s"
                             % (m.rows, m.columns, list(given)))
        shape, vd1 = (m.rows,) + given[1:], size(given[1:])
        if variable.sparsity is None:
            require_shape(shape)
            m.test()
            require_room(m.mnnz * vd1)
            with x.scratch():
                nidxs, _ = self._put_plain(variable)
                nelem, nnz = closure(493, m.mnnz, m.msubi, 0, 0, vd1)
                h = self._reserve(shape, nelem, nnz, hassp=True)
                closure(495, m.mval, m.mnnz, m.msubi, m.msubj, nidxs, *self._plain_sections(h), vd1,
                        x.i64)
            return h
        require_extents(shape)
        m.test()
        require_plain_copies(variable, m.msubj, True)
        with x.scratch():
            nidxs, sp = self._put_plain(variable)
            mrowptr, pcolptr = x.reserve("i32", m.rows + 1), x.reserve("i32", vd1 + 1)
            pcolperm, xvi, xvj = (x.reserve("i32", len(variable)) for _ in range(3))
            nelem, nnz = closure(492, m.rows, mrowptr, m.msubi, m.msubj, len(given), len(variable),
                            pcolperm, pcolptr, 0, 0, sp, vd1, x.i32, x.i64, xvi, xvj)
            h = self._reserve(shape, nelem, nnz, hassp=True)
            closure(494, m.mval, m.rows, mrowptr, m.msubj, nidxs, pcolperm, pcolptr,
                    *self._plain_sections(h), vd1, x.i32, x.i64, xvi)
        return h

    def mul_plain_right(self, variable: Variable, matrix: Matrix) -> Expression:
        """variable * matrix, for a variable of shape (matrix.rows,) or (d0, matrix.rows).

        A dense variable gives the elements in each column of the matrix that has an entry. A sparse
        one gives the elements where an entry of a sparse matrix meets one of the variable's, and
        with a dense matrix all elements in the rows where the variable has some. Raises ValueError
        if the shapes don't fit or the matrix is out of order.
        """
        given = tuple(variable.shape)
        if len(given) not in (1, 2) or given[-1] != matrix.rows:
            raise ValueError("the shape %s can't be multiplied by a %d x %d matrix"
                             % (list(given), matrix.rows, matrix.columns))
        shape, xd0 = given[:-1] + (matrix.columns,), size(given[:-1])
        if variable.sparsity is None:
            return self._plain_right_dense(variable, sparse(matrix), shape, xd0)
        require_extents(shape)
        if isinstance(matrix, DenseMatrix):
            return self._plain_right_full(variable, matrix, shape)
        return self._plain_right_sparse(variable, matrix, shape, xd0)

    def _plain_right_dense(self, variable: Variable, m: SparseMatrix, shape: Shape,
                           xd0: int) -> Expression:
        x = self.x
        require_shape(shape)
        m.test()
        require_room(m.mnnz * xd0)
        with x.scratch():
            nidxs, _ = self._put_plain(variable)
            _, perm = self._group_plain(m)
            ncols = closure(486, m.msubj, 0, m.mnnz, perm, x.i32)
            h = self._reserve(shape, ncols * xd0, m.mnnz * xd0, hassp=True)
            closure(487, 0, 0, m.mval, m.columns, m.msubi, m.msubj, nidxs, m.mnnz, perm,
                    *self._plain_sections(h), x.i32, x.i64, xd0, m.rows)
        return h

    def _plain_right_full(self, variable: Variable, m: DenseMatrix, shape: Shape) -> Expression:
        x, nnz = self.x, len(variable)
        require_room(nnz * m.columns)
        with x.scratch():
            nidxs, sp = self._put_plain(variable)
            rows = closure(483, nnz, sp, x.i64, 0, len(shape), m.rows)
            h = self._reserve(shape, rows * m.columns, nnz * m.columns, hassp=True)
            closure(484, m.mval, m.columns, nidxs, nnz, *self._plain_sections(h), sp, x.i64, m.rows)
        return h

    def _plain_right_sparse(self, variable: Variable, m: SparseMatrix, shape: Shape,
                            xd0: int) -> Expression:
        x, nelem = self.x, len(variable)
        m.test()
        require_plain_copies(variable, m.msubi, False)
        with x.scratch():
            nidxs, sp = self._put_plain(variable)
            rowptr = x.reserve("i32", xd0 + 1)
            xvi, xvj = x.reserve("i32", nelem), x.reserve("i32", nelem)
            closure(488, rowptr, x.i32, xd0)
            closure(489, len(shape), nelem, rowptr, sp, x.i32, x.i64, xd0, variable.shape, xvi, xvj)
            colptr, perm = self._group_plain(m)
            nout, nnz = closure(490, m.columns, colptr, m.msubi, 0, 0, perm, rowptr, x.i32, xd0,
                                xvj)
            h = self._reserve(shape, nout, nnz, hassp=True)
            closure(491, m.mval, m.columns, colptr, m.msubi, nidxs, perm, rowptr,
                    *self._plain_sections(h), x.i32, x.i64, xd0, xvj)
        return h

    def _put_plain(self, variable: Variable) -> Tuple[int, int]:
        """Positions on the x stack of the variable's native indexes and its sparsity."""
        return self._put(variable.nativeidxs), self._put(variable.sparsity or zeros("i64", 0))

    def _put(self, values: Any) -> int:
        base = self.x.reserve("i64", len(values))
        self.x.i64[base : base + len(values)] = values
        return base

    def _group_plain(self, m: SparseMatrix) -> Tuple[int, int]:
        """The entries of a matrix by column, on the x stack."""
        x = self.x
        colptr, perm = x.reserve("i32", m.columns + 1), x.reserve("i32", m.mnnz)
        closure(485, m.columns, m.columns, colptr, m.msubj, m.mnnz, perm, x.i32)
        return colptr, perm

    def _plain_sections(self, h: Expression) -> Tuple[Any, ...]:
        r = self.r
        return h.cof_base, r.f64, r.i32, r.i64, h.nidxs_base, h.ptr_base, h.sp_base


def require_extents(shape: Shape) -> None:
    """Raises ValueError if a closure can't take one of the extents."""
    if not all(0 <= extent <= LARGEST for extent in shape):
        raise ValueError("a product can't have the shape %s" % list(shape))


def require_shape(shape: Shape) -> None:
    """Raises ValueError if the positions of a shape need more than 32 bits."""
    require_extents(shape)
    require_room(size(shape))
