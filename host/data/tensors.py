"""Constant arrays of any number of dimensions, as operands."""

from typing import Any

from ..closures import closure
from .buffers import Shape, as_array, zeros
from .entries import linear_indexes, merged, rank2
from .matrices import sparse


class SparseTensor:
    """An array of `shape` by its entries: parallel lists of linear index `msp` (i64, row-major) and
    value `mcof` (f64), in strictly ascending order of index."""

    def __init__(self, shape: Shape, msp: Any, mcof: Any) -> None:
        self.shape, self.msp, self.mcof = tuple(shape), as_array("i64", msp), as_array("f64", mcof)
        if len(self.msp) != len(self.mcof):
            raise ValueError("a sparse tensor needs as many indexes as values: %d, %d"
                             % (len(self.msp), len(self.mcof)))

    @classmethod
    def from_subscripts(cls, shape: Shape, subscripts: Any, mcof: Any) -> "SparseTensor":
        """The tensor whose entries are told by their subscripts, a row for each or all in one list,
        in any order: the values of repeats are added up. Raises ValueError with the first entry
        that lies outside of the shape."""
        return cls.from_indexes(shape, linear_indexes(shape, subscripts, len(mcof)), mcof)

    @classmethod
    def from_indexes(cls, shape: Shape, msp: Any, mcof: Any) -> "SparseTensor":
        """The same by their linear indexes."""
        msp, mcof = as_array("i64", msp), as_array("f64", mcof)
        if len(msp) != len(mcof):
            raise ValueError("%d indexes can't have %d values" % (len(msp), len(mcof)))
        return cls(shape, *merged(shape, msp, mcof))

    @classmethod
    def of(cls, data: Any) -> "SparseTensor":
        """A matrix as a tensor, a dense one with all of its entries; a tensor itself. Raises
        ValueError if the matrix is out of order."""
        if isinstance(data, cls):
            return data
        m = sparse(data)
        m.test()
        msp, strides = zeros("i64", m.mnnz), as_array("i64", [0, 1])
        closure(448, 2, strides, as_array("i32", [m.rows, m.columns]))
        subscripts = zeros("i32", 2 * m.mnnz)
        subscripts[0::2], subscripts[1::2] = m.msubi, m.msubj
        closure(449, 2, msp, strides, rank2(subscripts, m.mnnz, 2))
        return cls((m.rows, m.columns), msp, m.mval)
