"""Views of constraints: other lists of the same rows."""

from typing import Any, Iterable, Sequence

from ..closures import closure
from ..data.buffers import Array, Shape, as_array, zeros
from ..data.entries import linear_indexes
from ..data.shapes import box
from .views import Views


class ConstraintViews(Views):
    """The views of a Constraint, which is always dense. Each raises ValueError if it isn't one of
    this shape."""

    def slice(self, first: Sequence[int], last: Sequence[int]) -> Any:
        """The box of positions from `first` up to but not including `last`, one entry of each list
        per dimension."""
        first, last, shape = box(self.shape, first, last)
        nd, own = len(shape), as_array("i32", self.shape)
        if nd == 0:
            return self._view(shape, self.nativeidxs)
        n = closure(259, first, last, nd, 1)
        codes = zeros("i32", n)
        closure(260, self.nativeidxs, first, last, nd, own, codes, n)
        return self._view(shape, codes)

    def pick(self, rows: Sequence[Sequence[int]]) -> Any:
        """The rows of the elements at these rows of subscripts, as a vector in their order."""
        places = linear_indexes(self.shape, rows, len(rows))
        return self._view([len(rows)], as_array("i32", map(self.nativeidxs.__getitem__, places)))

    def element(self, *subscripts: int) -> Any:
        """The row of one element, as a constraint without dimensions."""
        return self._view((), self.pick([subscripts]).nativeidxs)

    def _view(self, shape: Shape, codes: Array) -> Any:
        return type(self)(shape, codes).among([self])

    @classmethod
    def stack(cls, constraints: Iterable[Any]) -> Any:
        """Constraints of one shape, side by side in a new last dimension."""
        constraints = list(constraints)
        n, shapes = len(constraints), {tuple(c.shape) for c in constraints}
        if len(shapes) != 1:
            raise ValueError("a stack needs constraints of one shape: %s"
                             % ", ".join(str(list(shape)) for shape in sorted(shapes)))
        codes = zeros("i32", n * len(constraints[0].nativeidxs))
        # Closure 256 does this at once, from an array of arrays, which only NumPy makes.
        for k, constraint in enumerate(constraints):
            with memoryview(codes)[k::n] as places:
                closure(325, places, constraint.nativeidxs, 0)
        return cls((*shapes.pop(), n), codes).among(constraints)
