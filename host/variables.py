"""Variables as lists of native indexes."""

from .stacks import as_array, size
from .views import VariableViews, require_linear


class Variable(VariableViews):
    """An array of scalar variables of the native model, or a view of one.

    `nativeidxs` (i64) holds the native index of each stored element in row-major order: above 0 for
    a scalar variable, and ~k for the entry k of the semidefinite element table. With `sparsity`
    (i64, strictly ascending linear indexes) only those positions are stored, and all others are
    fixed zeros.
    """

    def __init__(self, shape, nativeidxs, sparsity=None):
        self.shape = as_array("i32", shape)
        self.nativeidxs = as_array("i64", nativeidxs)
        self.sparsity = None if sparsity is None else as_array("i64", sparsity)
        require_linear(self.shape)
        stored = size(self.shape) if sparsity is None else len(self.sparsity)
        if len(self.nativeidxs) != stored:
            raise ValueError("a variable of %d elements can't have %d native indexes"
                             % (stored, len(self.nativeidxs)))

    def __len__(self):
        """The number of stored elements."""
        return len(self.nativeidxs)

    @staticmethod
    def view(shape, nativeidxs, sparsity=None):
        return Variable(shape, nativeidxs, sparsity)
