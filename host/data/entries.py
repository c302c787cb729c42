"""Constant data as people have it: entries in any order, with repeats and zeros, and dense arrays.
Checked here, and put into the form that the closures take.

An entry is told by its subscripts, a row of them for each entry, or by its row-major linear index.
"""

import itertools
import math
from array import array
from numbers import Integral
from typing import Any, Callable, Iterable, Tuple

from ..closures import closure
from .buffers import LARGEST, Array, Shape, Triplets, as_array, size, zeros
from .shapes import checked_shape, within


FEW = 50  # numbers that are looked at faster one by one


def nonzeros(subi_: Array, subj_: Array, val_: Array) -> Triplets:
    """The triplets whose value isn't 0.0, in their order: rows, columns (i32) and values (f64)."""
    count = closure(635, 0, val_)
    subi, subj, val = zeros("i32", count), zeros("i32", count), zeros("f64", count)
    closure(636, 0, subi, subi_, subj, subj_, val, val_)
    return subi, subj, val


def checked_triplets(rows: int, columns: int, subi: Any, subj: Any, val: Any) -> Triplets:
    """The triplets as arrays, none outside of a `rows` x `columns` matrix. Raises ValueError if
    there are not as many of each, or with the first entry outside."""
    shape, val = checked_shape((rows, columns)), as_array("f64", val)
    if not len(subi) == len(subj) == len(val):
        raise ValueError("triplets need as many rows and columns as values: %d, %d, %d"
                         % (len(subi), len(subj), len(val)))
    subi, subj = (converted("i32", sub, shape, lambda: zip(subi, subj)) for sub in (subi, subj))
    if closure(634, rows, columns, len(val), False, subi, subj):
        raise outside(shape, zip(subi, subj))
    return subi, subj, val


def linear_indexes(shape: Shape, subscripts: Any, count: int) -> Array:
    """The linear indexes (i64) of `count` entries from their subscripts, as subscript_table takes
    them. Raises ValueError if there are not so many, or with the first entry outside."""
    shape, inst = checked_shape(shape), zeros("i64", count)
    table = subscript_table(shape, subscripts, count)
    if closure(612, shape, False, table):
        raise outside(shape, () if table is None else table.tolist())
    closure(613, shape, inst, table)
    return inst


def subscript_table(shape: Shape, subscripts: Any, count: int) -> Any:
    """The subscripts of `count` entries as a rank-2 array (i32), or None if it has no entries: from
    a row for each entry, or all in one list. Raises ValueError if there are not so many, or with
    the first entry that isn't one of 32-bit integers."""
    nd = len(shape)
    if len(subscripts) > 0 and hasattr(subscripts[0], "__len__"):
        if any(len(row) != nd for row in subscripts):
            raise ValueError("an entry of the shape %s has %d subscripts" % (list(shape), nd))
        subscripts = list(itertools.chain.from_iterable(subscripts))
    if len(subscripts) != nd * count:
        raise ValueError("%d entries of %d dimensions can't have %d subscripts"
                         % (count, nd, len(subscripts)))
    rows = lambda: zip(*[iter(subscripts)] * nd)
    return rank2(converted("i32", subscripts, shape, rows), count, nd)


def merged(shape: Shape, inst_: Array, cof_: Array) -> Tuple[Array, Array]:
    """Linear indexes (i64), in any order, and their coefficients (f64): in ascending order, each
    index once, the coefficients of repeats added up in the order of the list. A sum of 0.0 stays.
    Raises ValueError with the first entry outside of the shape."""
    total, n = size(checked_shape(shape)), len(inst_)
    if closure(620, False, inst_, n, total):
        raise outside((total,), zip(inst_))
    if n == 0:
        return inst_, cof_
    perm = None if closure(621, inst_, True) else sorting_permutation(inst_, total)
    first = 0 if perm is None else perm[0]
    count = closure(622, inst_, 1) if perm is None else closure(624, inst_, 1, perm)
    inst, cof = zeros("i64", count), zeros("f64", count)
    inst[0], cof[0] = inst_[first], cof_[first]
    if perm is None:
        closure(623, cof, cof_, inst, inst_, 0)
    else:
        closure(625, cof, cof_, inst, inst_, 0, perm)
    return inst, cof


def sorting_permutation(linear: Array, total: int) -> Array:
    """The stable permutation (i64) that sorts linear indexes below `total`: as numbers of two
    digits, by the lower and then by the upper one, unless these have too many values."""
    n, base = len(linear), math.isqrt(total) + 1
    if base > min(16 * n + 1024, LARGEST):
        return array("q", sorted(range(n), key=linear.__getitem__))
    perm, ptrb = array("q", range(n)), zeros("i64", base + 1)
    closure(103, 1, base, base, perm, ptrb, linear)
    closure(103, base, base, 1, perm, ptrb, linear)
    return perm


def all_finite(values: Array) -> bool:
    """Whether no number of the list (f64) is infinite or NaN."""
    if len(values) <= FEW:
        return all(map(math.isfinite, values))
    differences = zeros("f64", len(values))
    closure(23, len(values), values, values, differences)
    return bool(closure(400, differences, 0) == 0)  # each is 0.0, or else NaN


def gathered(values: Any, places: Any) -> Array:
    """values[k] (i32) for each of the places (i32)."""
    values, places = as_array("i32", values), as_array("i32", places)
    result = zeros("i32", len(places))
    closure(307, result, rank2(places, len(places), 1), 1, values, as_array("i64", [1]))
    return result


def rank2(values: Any, rows: int, columns: int) -> Any:
    """An array as a rank-2 one; None if it has no entries, as there are no such views."""
    if rows * columns == 0:
        return None
    return memoryview(values).cast("B").cast(values.typecode, [rows, columns])


def converted(kind: str, values: Any, shape: Shape, entries: Callable[[], Iterable[Any]]) -> Array:
    """The values as an array; if it can't hold one, the error that names the first of the entries,
    made by a call of `entries`, that is outside."""
    try:
        return as_array(kind, values)
    except ValueError:
        raise outside(shape, entries()) from None


def outside(shape: Shape, entries: Iterable[Any]) -> ValueError:
    """The error that names the first of the entries, rows of subscripts, that is outside."""
    for t, subscripts in enumerate(entries):
        if not all(isinstance(i, Integral) for i in subscripts):
            return ValueError("entry %d, at %s, has a subscript that is no integer"
                              % (t, list(subscripts)))
        if not all(within(i, 0, extent - 1) for i, extent in zip(subscripts, shape)):
            return ValueError("entry %d, at %s, lies outside of the shape %s"
                              % (t, list(subscripts), list(shape)))
    return ValueError("an entry lies outside of the shape %s" % list(shape))


def pattern(shape: Shape, subscripts: Any) -> Tuple[Array, Array]:
    """The linear indexes (i64) of the elements with these subscripts, in ascending order, and for
    each of them the place of its subscripts in the list. Raises ValueError if they are no elements
    of the shape or one is listed twice."""
    n, shape = len(subscripts), checked_shape(shape)
    linear, sp = linear_indexes(shape, subscripts, n), zeros("i64", n)
    perm = sorting_permutation(linear, size(shape))
    closure(165, n, sp, perm, linear)
    if not closure(245, True, n, sp):
        raise ValueError("an element is listed twice")
    return sp, perm
