"""Variables as lists of native indexes, and views of them."""

from .closures import closure
from .stacks import as_array, size, zeros


class Variable:
    """An array of scalar variables of the native model, or a view of one.

    `nativeidxs` (i64) holds the native index of each stored element in row-major order: above 0 for
    a scalar variable. With `sparsity` (i64, strictly ascending linear indexes) only those positions
    are stored, and all others are fixed zeros.
    """

    def __init__(self, shape, nativeidxs, sparsity=None):
        self.shape = as_array("i32", shape)
        self.nativeidxs = as_array("i64", nativeidxs)
        self.sparsity = None if sparsity is None else as_array("i64", sparsity)
        stored = size(self.shape) if sparsity is None else len(self.sparsity)
        if len(self.nativeidxs) != stored:
            raise ValueError("a variable of %d elements can't have %d native indexes"
                             % (stored, len(self.nativeidxs)))

    def __len__(self):
        """The number of stored elements."""
        return len(self.nativeidxs)

    def slice(self, first, last):
        """The box of positions from `first` up to but not including `last`, one entry of each list
        per dimension. Raises ValueError if the box doesn't lie in the shape."""
        first, last, nd = as_array("i32", first), as_array("i32", last), len(self.shape)
        if nd == 0 or not len(first) == len(last) == nd or not all(
                0 <= f <= l <= extent for f, l, extent in zip(first, last, self.shape)):
            raise ValueError("the box from %s to %s doesn't lie in the shape %s"
                             % (list(first), list(last), list(self.shape)))
        shape = [l - f for f, l in zip(first, last)]
        if self.sparsity is None:
            count = closure(184, first, last, nd, 1)
            idxs = zeros("i64", count)
            closure(187, self.nativeidxs, first, last, nd, self.shape, idxs, count)
            return Variable(shape, idxs)
        key, sliceshape = zeros("i32", nd), as_array("i32", shape)
        count = closure(185, first, key, last, nd, 0, self.shape, self.sparsity)
        idxs, sp = zeros("i64", count), zeros("i64", count)
        closure(186, self.nativeidxs, first, 0, idxs, key, last, nd, self.shape, sliceshape, sp,
                self.sparsity)
        return Variable(shape, idxs, sp)
