"""Affine rows of a native model with semidefinite variables, from finished expressions."""

import itertools
import operator
from array import array

from ..closures import closure
from ..solvers.problem import Forms
from .linear import all_finite
from .row_store import RowStore
from ..data.buffers import zeros
from ..index_maps.variables import Variable


class ElementTables:
    """By entry of the semidefinite variables, their lower triangles column by column: `barj`, `i`,
    `j`, the number of the matrix and the place there. By matrix: `dim`. By block of matrices that
    were added together: `ptr`, its first entry. All i32. In an expression, entry k has the variable
    index ~k."""

    def __init__(self):
        self.barj, self.i, self.j, self.dim = (array("i") for _ in range(4))
        self.ptr = array("i", [0])

    def __len__(self):
        """The number of entries."""
        return len(self.barj)

    def add(self, count, dim):
        """`count` matrices of that dimension, as a variable of shape (count, dim, dim)."""
        block, n, first = len(self.ptr) - 1, count * dim * (dim + 1) // 2, len(self.dim)
        for table in (self.barj, self.i, self.j):
            table.extend(zeros("i32", n))
        self.dim.extend(zeros("i32", count))
        self.ptr.append(self.ptr[block] + n)
        triangles, squares = zeros("i64", n), zeros("i64", count * dim * dim)
        closure(8, self.barj, self.i, self.j, self.ptr, self.dim, block, dim, first, triangles,
                count)
        closure(201, count, dim, 1, dim, 1, triangles, squares, dim * dim, dim, dim, 1)
        return Variable([count, dim, dim], squares)


def split(tables, w, e):
    """The elements of the finished expression `e` on the stack `w`, as Forms."""
    n, at = e.nelem, (e.nidxs_base, e.ptr_base, w.i32, w.i64)
    nmat, nlin, nz = closure(75, 0, tables.barj, 0, n, *at, 0)
    offset, ptrb, subj, cof = (zeros("f64", n), zeros("i32", n + 1), zeros("i32", nlin),
                               zeros("f64", nlin))
    closure(76, offset, cof, e.cof_base, n, e.nidxs_base, e.ptr_base, ptrb, w.f64, w.i32, w.i64,
            subj)
    ptr, matnnz = zeros("i32", n + 1), zeros("i64", nmat)
    barsubj, matdim = zeros("i32", nmat), zeros("i32", nmat)
    matsubi, matsubj, matcof = zeros("i32", nz), zeros("i32", nz), zeros("f64", nz)
    closure(77, 0, 0, barsubj, tables.barj, tables.i, tables.j, tables.dim, e.cof_base, matcof,
            matdim, matnnz, matsubi, matsubj, e.nidxs_base, n, ptr, e.ptr_base, w.f64, w.i32, w.i64)
    counts = lambda pointers: map(operator.sub, pointers[1:], pointers)
    return Forms(offset, repeated(range(n), counts(ptrb)), subj, cof,
                 repeated(repeated(range(n), counts(ptr)), matnnz), repeated(barsubj, matnnz),
                 matsubi, matsubj, matcof)


def repeated(values, counts):
    """Each value (i32) as often as its count says."""
    return array("i", itertools.chain.from_iterable(map(itertools.repeat, values, counts)))


class AffineRows:
    """Rows that are elements of expressions. What is a number stands in `fixed`, what depends on
    parameters in a row store."""

    def __init__(self, tables):
        self._tables, self.fixed, self._store = tables, Forms.zero(0), RowStore()

    def __len__(self):
        return len(self.fixed)

    def add(self, count):
        """Appends `count` zero rows; returns the number of the first."""
        first = len(self)
        self.fixed.offset.extend(zeros("f64", count))
        self._store.add_rows(count)
        return first

    def write(self, w, e, forms, rows):
        """Zero row rows[k] (i32) becomes element k of the finished expression `e` on the stack `w`,
        whose numbers are the `forms`."""
        self.fixed.add(forms, rows)
        self._store.store(w, e, rows)

    def forms(self, param_value, x):
        """The rows for these parameter values. Raises OverflowError if they are not finite."""
        if self._store.entry_used == 0:
            return self.fixed
        subi, subj, val = self._store.evaluate(param_value, x)
        if not all_finite(val):
            raise OverflowError("a coefficient is not finite for the present parameter values")
        forms = self.fixed.copy()
        for i, j, v in zip(subi, subj, val):
            if j == 0:
                forms.offset[i] += v
        scalar, matrix = [j > 0 for j in subj], [j < 0 for j in subj]
        select = lambda kind, values, chosen: array(kind, itertools.compress(values, chosen))
        forms.subi.extend(itertools.compress(subi, scalar))
        forms.subj.extend(itertools.compress(subj, scalar))
        forms.cof.extend(itertools.compress(val, scalar))
        nidxs, cof = select("q", subj, matrix), select("d", val, matrix)
        n, t = len(cof), self._tables
        entries = zeros("i32", n), zeros("i32", n), zeros("i32", n), zeros("f64", n)
        closure(48, t.barj, t.i, t.j, 0, 0, n, cof, nidxs, *entries)
        forms.barsubi.extend(itertools.compress(subi, matrix))
        for name, values in zip(("barsubj", "matsubi", "matsubj", "matcof"), entries):
            getattr(forms, name).extend(values)
        return forms
