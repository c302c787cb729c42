"""Arrays of the host that are no expressions: arrays of indexes, such as of parameters, with their
elements, boxes and ranges; and the bounds of a matrix, which come in several forms, in one."""

from math import inf
from typing import Any, List, Sequence, Tuple

from ..closures import closure
from ..data.buffers import Shape, as_array, size, zeros
from ..data.entries import linear_indexes, rank2
from ..data.matrices import DenseMatrix, SparseMatrix
from ..data.shapes import box, checked_shape, position, stored_places, strides
from .variables import Variable


class IndexArray:
    """An array of indexes: `indexes` (i32) has one for each stored element, in row-major order.
    All elements are stored, or those at the linear indexes `sparsity` (i64, strictly ascending).
    Raises ValueError if these lists don't fit the shape."""

    def __init__(self, shape: Shape, indexes: Any, sparsity: Any = None) -> None:
        self.shape, self.indexes = checked_shape(shape), as_array("i32", indexes)
        self.sparsity = stored_places(self.shape, len(self.indexes), sparsity)

    def at(self, *subscripts: int) -> int:
        """The index at these subscripts. Raises ValueError if no element is stored there."""
        (linear,) = linear_indexes(self.shape, subscripts, 1)
        if self.sparsity is None:
            return int(self.indexes[linear])
        place = closure(313, linear, 0, self.sparsity)
        if place == len(self.sparsity) or self.sparsity[place] != linear:
            raise ValueError("no element is stored at %s" % list(subscripts))
        return int(self.indexes[place])

    def subscripts(self) -> List[Tuple[int, ...]]:
        """The subscripts of each stored element."""
        linear = zeros("i64", len(self.indexes))
        closure(316, linear, self.indexes, 0, self.sparsity)
        return [position(self.shape, index) for index in linear]

    def box(self, start: Sequence[int], stop: Sequence[int]) -> "IndexArray":
        """The elements at the subscripts from `start` up to but not including `stop`, an entry of
        each for each dimension. Raises ValueError if the box doesn't lie in the shape."""
        start, stop, shape = box(self.shape, start, stop)
        nd, stride = len(shape), strides(self.shape)
        index = zeros("i32", nd)
        if self.sparsity is None:
            indexes = zeros("i32", size(shape))
            closure(319, start, stop, index, 0, nd, self.indexes, indexes, self.shape, stride)
            return IndexArray(shape, indexes)
        count = closure(320, start, stop, 0, index, nd, self.indexes, self.shape, self.sparsity,
                        stride)
        indexes, sparsity = zeros("i32", count), zeros("i64", count)
        closure(322, start, stop, index, 0, nd, self.indexes, indexes, sparsity,
                strides(shape), self.shape, self.sparsity, stride)
        return IndexArray(shape, indexes, sparsity)

    def range(self, start: int, stop: int) -> "IndexArray":
        """The elements of an array of one dimension from `start` up to but not including `stop`.
        Raises ValueError if there are no such."""
        box(self.shape, [start], [stop])
        if self.sparsity is None:
            return self.box([start], [stop])
        count = closure(323, 0, self.sparsity, start, stop)
        indexes, sparsity = zeros("i32", count), zeros("i64", count)
        closure(324, 0, self.indexes, indexes, sparsity, self.sparsity, start, stop)
        return IndexArray([stop - start], indexes, sparsity)


class Bounds:
    """Bounds of the elements of a matrix, in row-major order: `lower` and `upper` (f64) have one
    for each stored element. All elements are stored, or those at the linear indexes `sparsity`
    (i64); the others are 0."""

    def __init__(self, shape: Shape, lower: Any, upper: Any, sparsity: Any = None) -> None:
        self.shape, self.lower, self.upper, self.sparsity = shape, lower, upper, sparsity

    @classmethod
    def dense(cls, lower: DenseMatrix, upper: DenseMatrix) -> "Bounds":
        """Those in two dense matrices. Raises ValueError if the shapes differ."""
        rows, columns = common_shape(DenseMatrix, lower, upper)
        lval, uval = zeros("f64", rows * columns), zeros("f64", rows * columns)
        closure(286, rows, columns, 0, rank2(lower.mval, rows, columns), lval,
                rank2(upper.mval, rows, columns), uval)
        return cls((rows, columns), lval, uval)

    @classmethod
    def listed(cls, lower: SparseMatrix, upper: SparseMatrix) -> "Bounds":
        """Those in two sparse matrices, for all elements: a side that isn't listed is free. Raises
        ValueError if the shapes differ or a matrix is out of order."""
        rows, columns = common_shape(SparseMatrix, lower, upper)
        lval, uval = (as_array("f64", [free]) * (rows * columns) for free in (-inf, inf))
        closure(284, columns, lval, lower.msubi, lower.msubj, lower.mval)
        closure(285, columns, upper.msubi, upper.msubj, uval, upper.mval)
        return cls((rows, columns), lval, uval)

    @classmethod
    def sparse(cls, lower: SparseMatrix, upper: SparseMatrix) -> "Bounds":
        """The same for the elements that one of the two lists, and for these alone: the other side
        is 0.0 if it isn't listed, as in any sparse matrix."""
        shape, lists = common_shape(SparseMatrix, lower, upper), (lower.msubi, lower.msubj)
        count = closure(282, *lists, 0, upper.msubi, upper.msubj)
        lbv, ubv, inst = zeros("f64", count), zeros("f64", count), zeros("i32", 2 * count)
        closure(283, rank2(inst, count, 2), lbv, *lists, lower.mval, ubv, upper.msubi, upper.msubj,
                upper.mval)
        return cls(shape, lbv, ubv, linear_indexes(shape, inst, count))

    def variable(self, model: Any) -> Any:
        """A new variable of the model between these bounds, sparse as they are."""
        columns = model.variable([len(self.lower)], self.lower, self.upper)
        return Variable(self.shape, columns.nativeidxs, self.sparsity).among([columns])


def common_shape(form: type, lower: Any, upper: Any) -> Tuple[int, int]:
    """The shape of two matrices of this class. Raises ValueError if they aren't such, differ in
    their shape or a sparse one is out of order."""
    if not all(isinstance(m, form) for m in (lower, upper)):
        raise ValueError("bounds in this form need each a %s" % form.__name__)
    shapes = [(m.rows, m.columns) for m in (lower, upper)]
    if shapes[0] != shapes[1]:
        raise ValueError("bounds need equal shapes: %s, %s" % tuple(map(list, shapes)))
    for m in (lower, upper):
        if form is SparseMatrix:
            m.test()
    return shapes[0]
