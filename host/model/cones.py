"""Cones over one or two dimensions of an expression: their layouts, and the tables that tie each
element to its place in a cone."""

from array import array

from ..closures import closure
from ..solvers.problem import OFF_DIAGONAL, SEMIDEFINITE, Cone
from ..data.buffers import as_array, size, zeros


def numbers(first, count):
    """`count` numbers (i32) from `first` on."""
    result = zeros("i32", count)
    closure(7, result, first, count)
    return result


class QuadraticLayout:
    """Cones along one dimension of a shape: `count` cones of `size` elements each. Raises
    ValueError if there is no such dimension."""

    def __init__(self, shape, dim):
        nd, extents = len(shape), as_array("i32", shape)
        if not 0 <= dim < nd:
            raise ValueError("the shape %s has no dimension %s" % (list(shape), dim))
        self._elements, self.size = size(shape), shape[dim]
        self._split = shape[dim], closure(57, dim, 1, extents), closure(58, dim, 1, nd, extents)
        self.count = self._elements // self.size if self.size else 0

    def gather(self, elements):
        """A list (i32), one entry for each element, in the order of the slots."""
        result = zeros("i32", self._elements)
        closure(59, *self._split, elements, 0, result)
        return result

    def slots(self, first, elements):
        """The slot (i32) of each element, if the first is slot `first`, and numbers (f64) of the
        elements in the order of the slots."""
        result, moved = zeros("i32", self._elements), zeros("f64", self._elements)
        closure(96, *self._split, self._elements, moved, 0, elements, result)
        closure(96, *self._split, 0, None, first, None, result)
        return result, moved


class SemidefiniteLayout:
    """Cones along the dimensions dim1 < dim2 of equal extent: `count` cones of `size` slots each,
    one for each entry of the lower triangle of a matrix of dimension `dim`. Raises ValueError if
    there are no such dimensions."""

    def __init__(self, shape, dim1, dim2):
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

    def gather(self, triangle):
        """A list (i32), one entry for each element on or below the diagonal, in the order of the
        slots."""
        result = zeros("i32", self.count * self.size)
        closure(88, triangle, result, self.size, *self._split, 0, False)
        return result

    def spread(self, slots):
        """A list (i32) in the order of the slots, for each element the entry of its slot: (i, j)
        and (j, i) have the same."""
        result = zeros("i32", self._elements)
        closure(89, slots, self.size, *self._split, result, False)
        return result

    def set_scale(self, table, slots):
        """The factor between slots and entries of the matrices, where it is not 1."""
        closure(87, table, slots, *self._split, 0, 1.0 / OFF_DIAGONAL)


class ConeTables:
    """The cones of a model. Conic row k is slot k: slots are numbered cone by cone.

    By slot: `accafeidxs` and `accb`, the affine row that it is and the constant that goes off; as a
    conic row `accid`, `ofs`, `afe` and `scale`, its cone, its place there, its affine row, and the
    factor that turns its value into that of its element. By cone: `accptr`, its first slot.
    """

    def __init__(self):
        self.cones, self.accptr = [], array("i")
        self.accafeidxs, self.accb = array("i"), array("d")
        self.accid, self.ofs, self.afe = (array("i") for _ in range(3))
        self.scale = array("d")

    def __len__(self):
        """The number of slots."""
        return len(self.accb)

    def add(self, kind, layout, afeidxs, constants):
        """The cones of a layout, over affine rows and constants in the order of the slots."""
        first, n = len(self), len(afeidxs)
        accidxs, aconidxs = numbers(len(self.cones), layout.count), numbers(first, n)
        for table in (self.accafeidxs, self.accid, self.ofs, self.afe):
            table.extend(zeros("i32", n))
        for table in (self.accb, self.scale):
            table.extend(zeros("f64", n))
        closure(2, self.accafeidxs, self.accb, afeidxs, 0, first, constants, n)
        closure(4, accidxs, self.accid, self.afe, self.ofs, self.scale, aconidxs, afeidxs,
                layout.size, layout.count)
        if kind == SEMIDEFINITE:
            layout.set_scale(self.scale, aconidxs)
        dim = layout.dim if kind == SEMIDEFINITE else 0
        for k in range(layout.count):
            self.accptr.append(first + k * layout.size)
            self.cones.append(Cone(kind, first + k * layout.size, layout.size, dim))
        return aconidxs
