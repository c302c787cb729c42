"""Arrays of indexes, such as of parameters."""

from typing import Any

from ..data.buffers import Shape, as_array
from ..data.shapes import checked_shape, stored_places


class IndexArray:
    """An array of indexes: `indexes` (i32) has one for each stored element, in row-major order.
    All elements are stored, or those at the linear indexes `sparsity` (i64, strictly ascending).
    Raises ValueError if these lists don't fit the shape."""

    def __init__(self, shape: Shape, indexes: Any, sparsity: Any = None) -> None:
        self.shape, self.indexes = checked_shape(shape), as_array("i32", indexes)
        self.sparsity = stored_places(self.shape, len(self.indexes), sparsity)
