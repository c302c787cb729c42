"""Constant matrices as operands."""

from array import array
from typing import Any, Union

from ..closures import closure
from .assembly import sort_triplets
from .buffers import Shape, as_array, zeros
from .entries import checked_triplets, nonzeros, rank2
from .reading import read
from .shapes import checked_shape


def require_order(shape: Shape, badidx: bool, badorder: bool) -> None:
    """Raises ValueError if the test of a matrix or tensor of that shape found something."""
    if badidx:
        raise ValueError("an entry lies outside of the shape %s" % list(shape))
    if badorder:
        raise ValueError("entries must ascend in row-major order, without repeats")


class SparseMatrix:
    """A `rows` x `columns` matrix by its entries: parallel lists of row `msubi` (i32), column
    `msubj` (i32) and value `mval` (f64), in ascending order of row and, within a row, of column,
    each position once. Raises ValueError if that is no shape or the lists differ in length; the
    entries are looked at where they are used."""

    def __init__(self, rows: int, columns: int, msubi: Any, msubj: Any, mval: Any) -> None:
        checked_shape((rows, columns))
        self.rows, self.columns = rows, columns
        self.msubi, self.msubj = as_array("i32", msubi), as_array("i32", msubj)
        self.mval = as_array("f64", mval)
        self.mnnz = len(self.mval)
        if not len(self.msubi) == len(self.msubj) == self.mnnz:
            raise ValueError("a sparse matrix needs as many rows and columns as values: %d, %d, %d"
                             % (len(self.msubi), len(self.msubj), self.mnnz))

    @classmethod
    def from_triplets(cls, rows: int, columns: int, subi: Any, subj: Any,
                      val: Any) -> "SparseMatrix":
        """The matrix of triplets in any order: the values of repeats are added up, and zeros are
        left out. Raises ValueError with the first triplet that lies outside of the matrix."""
        triplets = nonzeros(*checked_triplets(rows, columns, subi, subj, val))
        return cls(rows, columns, *sort_triplets(rows, columns, *triplets))

    @classmethod
    def from_dense(cls, data: Any) -> "SparseMatrix":
        """The entries other than 0.0 of a matrix as DenseMatrix.from_rows takes it."""
        m = DenseMatrix.from_rows(data)
        count = m.rows * m.columns
        subi, subj, val = zeros("i32", count), zeros("i32", count), zeros("f64", count)
        closure(629, rank2(m.mval, m.rows, m.columns), m.rows, m.columns, 0, subi, subj, val)
        return cls(m.rows, m.columns, *nonzeros(subi, subj, val))

    @classmethod
    def diagonal(cls, values: Any) -> "SparseMatrix":
        """The square matrix with these values on its diagonal."""
        n, values = len(values), as_array("f64", values)
        subi, subj = zeros("i32", n), zeros("i32", n)
        closure(626, n, 0, array("i", range(n)), 0, 0, subi, subj)
        return cls(n, n, subi, subj, values)

    def dense(self) -> "DenseMatrix":
        """The same matrix with all of its values. Raises ValueError if an entry lies outside or the
        order is broken."""
        self.test()
        values = zeros("f64", self.rows * self.columns)
        closure(638, self.columns, values, self.msubi, self.msubj, self.mval)
        return DenseMatrix(self.rows, self.columns, values)

    def test(self, number: int = 482) -> None:
        """Raises ValueError if an entry lies outside of the matrix or the order is broken. `number`
        is the closure with the operation's own test."""
        require_order((self.rows, self.columns),
                      *closure(number, False, False, self.rows, self.columns, self.mnnz,
                               self.msubi, self.msubj))


class DenseMatrix:
    """A `rows` x `columns` matrix, all values in `mval` (f64), row by row. Raises ValueError if
    these are not as many."""

    def __init__(self, rows: int, columns: int, mval: Any) -> None:
        checked_shape((rows, columns))
        self.rows, self.columns, self.mval = rows, columns, as_array("f64", mval)
        if rows * columns != len(self.mval):
            raise ValueError("a dense %d x %d matrix can't have %d values"
                             % (rows, columns, len(self.mval)))

    @classmethod
    def from_rows(cls, data: Any) -> "DenseMatrix":
        """The matrix of a list of rows, or of a buffer of two dimensions. Raises ValueError if the
        rows differ in length or an entry is no number."""
        shape, values = read(data, "a matrix")
        if len(shape) != 2 and shape != (0,):
            raise ValueError("a matrix needs two dimensions, not the shape %s" % list(shape))
        rows, columns = shape if len(shape) == 2 else (0, 0)
        return cls(rows, columns, values)

    def transpose(self) -> "DenseMatrix":
        values = zeros("f64", len(self.mval))
        closure(632, self.mval, self.rows, self.columns, values, 0, self.rows)
        return DenseMatrix(self.columns, self.rows, values)

    def entries(self) -> SparseMatrix:
        """The same matrix by its entries, zeros among them."""
        size = len(self.mval)
        msubi, msubj, mval = zeros("i32", size), zeros("i32", size), zeros("f64", size)
        closure(580, self.rows, self.columns, msubi, msubj, mval,
                rank2(self.mval, self.rows, self.columns))
        return SparseMatrix(self.rows, self.columns, msubi, msubj, mval)


Matrix = Union[DenseMatrix, SparseMatrix]


def sparse(matrix: Matrix) -> SparseMatrix:
    """The matrix by its entries."""
    return matrix.entries() if isinstance(matrix, DenseMatrix) else matrix
