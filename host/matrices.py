"""Constant matrices as operands."""

from .closures import closure
from .stacks import as_array, zeros


def require_order(shape, badidx, badorder):
    """Raises ValueError if the test of a matrix or tensor of that shape found something."""
    if badidx:
        raise ValueError("an entry lies outside of the shape %s" % list(shape))
    if badorder:
        raise ValueError("entries must ascend in row-major order, without repeats")


class SparseMatrix:
    """A `rows` x `columns` matrix by its entries: parallel lists of row `msubi` (i32), column
    `msubj` (i32) and value `mval` (f64), in ascending order of row and, within a row, of column,
    each position once."""

    def __init__(self, rows, columns, msubi, msubj, mval):
        self.rows, self.columns = rows, columns
        self.msubi, self.msubj = as_array("i32", msubi), as_array("i32", msubj)
        self.mval = as_array("f64", mval)
        self.mnnz = len(self.mval)
        if not len(self.msubi) == len(self.msubj) == self.mnnz:
            raise ValueError("a sparse matrix needs as many rows and columns as values: %d, %d, %d"
                             % (len(self.msubi), len(self.msubj), self.mnnz))

    def test(self, number=482):
        """Raises ValueError if an entry lies outside of the matrix or the order is broken. `number`
        is the closure with the operation's own test."""
        require_order((self.rows, self.columns),
                      *closure(number, False, False, self.rows, self.columns, self.mnnz,
                               self.msubi, self.msubj))


class DenseMatrix:
    """A `rows` x `columns` matrix, all values in `mval` (f64), row by row."""

    def __init__(self, rows, columns, mval):
        self.rows, self.columns, self.mval = rows, columns, as_array("f64", mval)
        if rows * columns != len(self.mval):
            raise ValueError("a dense %d x %d matrix can't have %d values"
                             % (rows, columns, len(self.mval)))

    def entries(self):
        """The same matrix by its entries, zeros among them."""
        size = len(self.mval)
        msubi, msubj, mval = zeros("i32", size), zeros("i32", size), zeros("f64", size)
        if size > 0:
            square = memoryview(self.mval).cast("B").cast("d", [self.rows, self.columns])
            closure(580, self.rows, self.columns, msubi, msubj, mval, square)
        return SparseMatrix(self.rows, self.columns, msubi, msubj, mval)
