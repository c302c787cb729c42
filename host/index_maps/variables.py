"""Variables as lists of native indexes."""

from typing import Any

from ..data.buffers import Shape, as_array
from ..data.shapes import checked_shape, stored_places
from .views import VariableViews


class Variable(VariableViews):
    """An array of scalar variables of the native model, or a view of one.

    `nativeidxs` (i64) holds the native index of each stored element in row-major order: above 0 for
    a scalar variable, and ~k for the entry k of the semidefinite element table. With `sparsity`
    (i64, strictly ascending linear indexes) only those positions are stored, and all others are
    fixed zeros. Raises ValueError if these lists don't fit the shape.
    """

    def __init__(self, shape: Shape, nativeidxs: Any, sparsity: Any = None) -> None:
        self.shape, self.nativeidxs = checked_shape(shape), as_array("i64", nativeidxs)
        self.sparsity = stored_places(self.shape, len(self.nativeidxs), sparsity)

    @staticmethod
    def view(shape: Shape, nativeidxs: Any, sparsity: Any = None) -> "Variable":
        return Variable(shape, nativeidxs, sparsity)
