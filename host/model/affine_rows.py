"""Affine rows of a native model, from finished expressions: what is a number in them as Forms, what
depends on parameters in a row store."""

from __future__ import annotations

import itertools
from array import array
from typing import Any, Iterable, List, Sequence

from ..closures import closure
from ..data.assembly import rows_of_entries
from ..data.buffers import zeros
from ..data.entries import all_finite
from ..evaluator.stacks import Expression, Stack
from ..index_maps.variables import Variable
from ..solvers.problem import Forms
from .row_store import RowStore


class ElementTables:
    """By entry of the semidefinite variables, their lower triangles column by column: `barj`, `i`,
    `j`, the number of the matrix and the place there. By matrix: `dim`. By block of matrices that
    were added together: `ptr`, its first entry. All i32. In an expression, entry k has the variable
    index ~k."""

    def __init__(self) -> None:
        self.barj, self.i, self.j, self.dim = (array("i") for _ in range(4))
        self.ptr = array("i", [0])

    def __len__(self) -> int:
        """The number of entries."""
        return len(self.barj)

    def add(self, count: int, dim: int) -> Variable:
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


def split(tables: ElementTables, w: Stack, e: Expression) -> Forms:
    """The elements of the finished expression `e` on the stack `w`, as Forms. Raises ValueError if
    a number in it is not finite."""
    n, at = e.nelem, (e.nidxs_base, e.ptr_base, w.i32, w.i64)
    nmat, nlin, nz = closure(75, 0, tables.barj, 0, n, *at, 0)
    offset, ptrb, subj, cof = (zeros("f64", n), zeros("i32", n + 1), zeros("i32", nlin),
                               zeros("f64", nlin))
    closure(76, offset, cof, e.cof_base, n, e.nidxs_base, e.ptr_base, ptrb, w.f64, w.i32, w.i64,
            subj)
    none: List[Any] = [array(kind) for kind in "iiiid"]
    forms = Forms(offset, owners(ptrb), subj, cof, *none)
    if nmat > 0:
        ptr, matnnz = zeros("i32", n + 1), zeros("i64", nmat)
        barsubj, matdim = zeros("i32", nmat), zeros("i32", nmat)
        matsubi, matsubj, matcof = zeros("i32", nz), zeros("i32", nz), zeros("f64", nz)
        closure(77, 0, 0, barsubj, tables.barj, tables.i, tables.j, tables.dim, e.cof_base, matcof,
                matdim, matnnz, matsubi, matsubj, e.nidxs_base, n, ptr, e.ptr_base, w.f64, w.i32,
                w.i64)
        forms.barsubi = repeated(owners(ptr), matnnz)
        forms.barsubj = repeated(barsubj, matnnz)
        forms.matsubi, forms.matsubj, forms.matcof = matsubi, matsubj, matcof
    if not (all_finite(offset) and all_finite(cof) and all_finite(forms.matcof)):
        raise ValueError("a coefficient is not finite")
    return forms


def owners(ptr: Sequence[int]) -> Any:
    """For each entry the row (i32) that it stands in, from where each row begins."""
    wide = zeros("i64", len(ptr))
    closure(197, ptr, wide)
    return rows_of_entries(wide)


def repeated(values: Iterable[int], counts: Iterable[int]) -> Any:
    """Each value (i32) as often as its count says."""
    runs: Iterable[Iterable[int]] = map(itertools.repeat, values, counts)
    return array("i", itertools.chain.from_iterable(runs))


def stored_rows(w: Stack, e: Expression, rows: Any) -> Any:
    """The rows (i32) of those elements of `e` that are stored, from those of all elements."""
    if e.nelem == len(rows):
        return rows
    with w.section("i64", e.sp_base, e.nelem) as sp:
        return array("i", map(rows.__getitem__, sp))


def evaluated(store: RowStore, param_value: Any, x: Stack) -> Any:
    """The (row, variable, value) triplets of a row store for these parameter values. Raises
    OverflowError if they are not finite."""
    if store.entry_used == 0:
        return array("i"), array("i"), array("d")
    triplets = store.evaluate(param_value, x)
    if not all_finite(triplets[2]):
        raise OverflowError("a coefficient is not finite for the present parameter values")
    return triplets


def with_terms(forms: Forms, subi: Any, subj: Any, val: Any, tables: ElementTables) -> Forms:
    """The forms with the terms of triplets beside their own; variable 0 is the constant, and ~k
    entry k of the semidefinite variables."""
    if len(val) == 0:
        return forms
    forms = forms.copy()
    if min(subj) > 0:
        forms.subi.extend(subi)
        forms.subj.extend(subj)
        forms.cof.extend(val)
        return forms
    for i, j, v in zip(subi, subj, val):
        if j == 0:
            forms.offset[i] += v
    scalar, matrix = [j > 0 for j in subj], [j < 0 for j in subj]
    forms.subi.extend(itertools.compress(subi, scalar))
    forms.subj.extend(itertools.compress(subj, scalar))
    forms.cof.extend(itertools.compress(val, scalar))
    nidxs = array("q", itertools.compress(subj, matrix))
    cof = array("d", itertools.compress(val, matrix))
    n = len(cof)
    entries: List[Any] = [*(zeros("i32", n) for _ in range(3)), zeros("f64", n)]
    closure(48, tables.barj, tables.i, tables.j, 0, 0, n, cof, nidxs, *entries)
    forms.barsubi.extend(itertools.compress(subi, matrix))
    for name, values in zip(("barsubj", "matsubi", "matsubj", "matcof"), entries):
        getattr(forms, name).extend(values)
    return forms
