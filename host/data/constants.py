"""Constant data from whatever holds numbers: the one entrance for what users bring."""

from typing import Any, List, Optional, Tuple, Union

from ..closures import closure
from .buffers import Array, as_array, size, zeros
from .matrices import DenseMatrix, SparseMatrix
from .reading import Path, place, read
from .shapes import ascending, checked_shape, position
from .tensors import SparseTensor


class Constant:
    """An array of numbers that doesn't change. `shape` is () for a single number. `values` (f64)
    are all of them in row-major order or, with `sparsity` (i64, strictly ascending linear indexes),
    those at the places listed, all others being 0.0. None is NaN."""

    __slots__ = "shape", "values", "sparsity"

    def __init__(self, shape: Path, values: Array, sparsity: Optional[Array] = None) -> None:
        self.shape, self.values, self.sparsity = shape, values, sparsity

    @property
    def number(self) -> float:
        """The only number. Raises ValueError if there are more or fewer."""
        if size(self.shape) != 1:
            raise ValueError("a number is needed, not the shape %s" % list(self.shape))
        return float(self.values[0]) if len(self.values) > 0 else 0.0

    def matrix(self, column: bool = False) -> Union[DenseMatrix, SparseMatrix]:
        """The operand of a product: dense or sparse as this is. One dimension becomes a row or,
        with `column`, a column, and a number a 1 x 1 matrix. Raises ValueError for more than two
        dimensions."""
        if len(self.shape) > 2:
            raise ValueError("a matrix is needed, not the shape %s" % list(self.shape))
        ones = (1,) * (2 - len(self.shape))
        rows, columns = self.shape + ones if column else ones + self.shape
        if self.sparsity is None:
            return DenseMatrix(rows, columns, self.values)
        subi, subj = split(rows, columns, self.sparsity)
        return SparseMatrix(rows, columns, subi, subj, self.values)

    def tensor(self) -> SparseTensor:
        """The operand of an elementwise or an inner product, which lists its entries."""
        if self.sparsity is not None:
            return SparseTensor(self.shape, self.sparsity, self.values)
        return SparseTensor(self.shape, ascending(len(self.values)), self.values)

    def dense(self) -> Array:
        """All numbers (f64) in row-major order."""
        if self.sparsity is None:
            return self.values
        result = zeros("f64", size(self.shape))
        closure(168, self.sparsity, self.values, self.sparsity, result)
        return result

    def reshape(self, shape: Path) -> "Constant":
        """The same numbers in another shape of as many positions, which is not tested."""
        return Constant(tuple(shape), self.values, self.sparsity)


def constant(data: Any, what: str = "constant data") -> Constant:
    """The numbers in `data` as they are now, in a Constant of their shape.

    `data` is a number, nested lists of one length on each level, any buffer by its own format (or a
    list of such), a NumPy array or scalar, a matrix or array of SciPy, a DenseMatrix, SparseMatrix,
    SparseTensor or Constant. Sparse data stays so, and repeats add up. Integers and booleans become
    floating-point numbers. Raises ValueError, which names `what` and the place, for anything that
    is no number and for NaN; infinite numbers pass.
    """
    if isinstance(data, Constant):
        return data
    if isinstance(data, (int, float, list)):
        result = Constant(*read(data, what))
    elif hasattr(data, "tocoo"):
        coo = data.tocoo()
        places = list(getattr(coo, "coords", None) or (coo.row, coo.col))
        result = sparse_constant(coo.shape, places, read(coo.data, what)[1])
    elif all(hasattr(data, name) for name in ("V", "I", "J")):  # as CVXOPT has them
        result = sparse_constant(data.size, [data.I, data.J], read(data.V, what)[1])
    elif isinstance(data, DenseMatrix):
        result = Constant((data.rows, data.columns), data.mval[:])
    elif isinstance(data, (SparseMatrix, SparseTensor)):
        tensor = SparseTensor.of(data)
        result = Constant(tensor.shape, tensor.mcof[:], tensor.msp[:])
    else:
        result = Constant(*read(data, what))
    with memoryview(result.values) as values:
        if values != values:
            t = next(t for t, value in enumerate(values) if value != value)
            at = t if result.sparsity is None else result.sparsity[t]
            raise ValueError("%s%s is NaN" % (what, place(position(result.shape, at))))
    return result


def split(rows: int, columns: int, linear: Array) -> Tuple[Array, Array]:
    """Rows and columns (i32) of the places at these linear indexes of a matrix."""
    n = len(linear)
    held, base = zeros("i32", rows + 1 + 2 * n), rows + 1
    closure(489, 2, n, 0, 0, held, linear, rows, as_array("i32", [rows, columns]), base, base + n)
    return held[base : base + n], held[base + n :]


def sparse_constant(shape: Any, places: List[Any], values: Array) -> Constant:
    """From the subscripts of each dimension, in any order."""
    shape = tuple(checked_shape(shape))
    table = zeros("i32", len(shape) * len(values))
    for dim, subscripts in enumerate(places):
        table[dim :: len(shape)] = as_array("i32", subscripts)
    tensor = SparseTensor.from_subscripts(shape, table, values)
    return Constant(shape, tensor.mcof, tensor.msp)
