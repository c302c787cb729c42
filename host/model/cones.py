"""Cones over one or two dimensions of an expression: their layouts, and the tables that tie each
element to its place in a cone."""

from __future__ import annotations

from array import array
from typing import Any, List, Union

from ..closures import closure
from ..data.buffers import as_array, size, zeros
from ..evaluator.stacks import Expression, Stack
from ..formulas.tree import Shape
from ..solvers.problem import OFF_DIAGONAL, Cone, Forms
from .affine_rows import stored_rows
from .row_store import RowStore


def numbers(first: int, count: int) -> Any:
    """`count` numbers (i32) from `first` on."""
    result = zeros("i32", count)
    closure(7, result, first, count)
    return result


class QuadraticLayout:
    """Cones along one dimension of a shape: `count` cones of `size` elements each. Raises
    ValueError if there is no such dimension."""

    def __init__(self, shape: Shape, dim: int) -> None:
        nd, extents = len(shape), as_array("i32", shape)
        if not 0 <= dim < nd:
            raise ValueError("the shape %s has no dimension %s" % (list(shape), dim))
        self._elements, self.size = size(shape), shape[dim]
        self._split = shape[dim], closure(57, dim, 1, extents), closure(58, dim, 1, nd, extents)
        self.count = self._elements // self.size if self.size else 0

    def slots(self) -> Any:
        """The slot (i32) of each element."""
        result = zeros("i32", self._elements)
        closure(96, *self._split, 0, None, 0, None, result)
        return result


class SemidefiniteLayout:
    """Cones along the dimensions dim1 < dim2 of equal extent: `count` cones of `size` slots each,
    one for each entry of the lower triangle of a matrix of dimension `dim`. Raises ValueError if
    there are no such dimensions."""

    def __init__(self, shape: Shape, dim1: int, dim2: int) -> None:
        nd, extents = len(shape), as_array("i32", shape)
        if not 0 <= dim1 < dim2 < nd or shape[dim1] != shape[dim2]:
            raise ValueError("%s and %s are no ascending dimensions of equal extent in the shape %s"
                             % (dim1, dim2, list(shape)))
        self._elements, self.dim = size(shape), shape[dim1]
        self.size = self.dim * (self.dim + 1) // 2
        self.count = closure(83, dim1, dim2, nd, 1, extents) if self.dim else 0
        self._split = (closure(84, dim1, 1, extents), self.dim,
                       closure(85, dim1, dim2, 1, extents), self.dim,
                       closure(86, dim2, 1, nd, extents))

    def slots(self) -> Any:
        """The slot (i32) of each element: (i, j) and (j, i) have the same."""
        result = zeros("i32", self._elements)
        closure(89, numbers(0, self.count * self.size), self.size, *self._split, result, False)
        return result

    def set_scale(self, table: Any, slots: Any) -> None:
        """The factor between slots and entries of the matrices, where it is not 1."""
        closure(87, table, slots, *self._split, 0, 1.0 / OFF_DIAGONAL)


Layout = Union[QuadraticLayout, SemidefiniteLayout]


class Cones:
    """The cones that one constraint makes. Their slots are numbered from 0 on, cone by cone:
    `forms` has the numbers of each and `store` the programs. By slot: `accid`, `ofs` and `scale`,
    its cone, its place there, and the factor that turns its value into that of its element. By
    cone: `accptr`, its first slot."""

    def __init__(self, kind: str, layout: Layout) -> None:
        self.kind, self.layout, n = kind, layout, layout.count * layout.size
        self.accid, self.ofs, afe = (zeros("i32", n) for _ in range(3))
        self.scale, slots = zeros("f64", n), numbers(0, n)
        closure(4, numbers(0, layout.count), self.accid, afe, self.ofs, self.scale, slots, slots,
                layout.size, layout.count)
        if isinstance(layout, SemidefiniteLayout):
            layout.set_scale(self.scale, slots)
        self.accptr = array("i", range(0, n, layout.size) if n > 0 else ())
        self.forms, self.store = Forms.zero(n), RowStore()
        self.store.add_rows(n)
        self.first = 0  # its first slot in the problem that was handed over at last

    def __len__(self) -> int:
        """The number of slots."""
        return len(self.scale)

    def write(self, w: Stack, e: Expression, forms: Forms, slots: Any) -> None:
        """The slots get the elements of the finished expression `e`, whose numbers are `forms`."""
        stored = stored_rows(w, e, slots)
        self.forms.add(forms, stored)
        self.store.store(w, e, stored)

    def cones(self, first: int) -> List[Cone]:
        """The cones, if the first slot is that one."""
        self.first, layout = first, self.layout
        dim = layout.dim if isinstance(layout, SemidefiniteLayout) else 0
        return [Cone(self.kind, first + k * layout.size, layout.size, dim)
                for k in range(layout.count)]
