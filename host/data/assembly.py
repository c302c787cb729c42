"""Sparse matrices from lists of triplets, put in order by counting: the cost is linear in the
numbers of entries, rows and columns.

A list of triplets is three arrays: rows `subi` (i32), columns `subj` (i32) and values `val` (f64).
That rows and columns lie in their ranges is the caller's to see to.
"""

from ..closures import closure
from .buffers import Array, Triplets, zeros


def sort_triplets(rows: int, columns: int, subi: Array, subj: Array, val: Array) -> Triplets:
    """The triplets (subi, subj, val) of a `rows` x `columns` matrix from those in any order: in
    ascending order of row and, within a row, of column, each position once. The values of repeats
    are added up in the order of the list; a sum of 0.0 stays. Lists that are so already come back
    themselves."""
    n = len(val)
    if not closure(498, False, subi, subj):
        return subi, subj, val
    rptrb, cptrb = pointers(rows), pointers(columns)
    by_column, by_place = zeros("i32", n), zeros("i32", n)
    closure(121, cptrb, n, subj)
    closure(122, cptrb, columns)
    closure(123, by_column, cptrb, n, subj)
    closure(124, n, rptrb, subi)
    closure(125, rows, rptrb)
    closure(126, by_column, cptrb, columns, by_place, rptrb, subi)
    count = closure(127, n, min(n, 1), by_place, subi, subj)
    result = empty_triplets(count)
    if n > 0:
        for target, source in zip(result, (subi, subj, val)):
            target[0] = source[by_place[0]]
    closure(128, 1, n, by_place, subi, subj, *result, val)
    return result


def transpose_triplets(ptr: Array, columns: int, subj: Array, val: Array) -> Triplets:
    """Triplets by row in ascending order of column and, within a column, of row: (ptr, subi, val).
    In both lists `ptr` (i64) has where each row or column starts, and the end of the last."""
    begin, end = ptr[0], ptr[-1]
    cptrb = pointers(columns)
    closure(121, cptrb, end - begin, memoryview(subj)[begin:end])
    closure(122, cptrb, columns)
    tsubi, tsubj, tval = empty_triplets(end - begin)
    # The sum has left the start of each column one place up.
    closure(120, cptrb[1:], len(ptr) - 1, ptr, subj, tsubi, tsubj, tval, val)
    return cptrb[: columns + 1], tsubi, tval


def rows_of_entries(ptr: Array) -> Array:
    """The row (i32) of each entry of triplets by row, from where each row starts (i64); the first
    does at 0."""
    n = ptr[-1]
    subi, column, val = zeros("i32", n), zeros("i32", n), zeros("f64", n)
    # Transposed as one column all entries stay in their places: so the values are not moved.
    closure(120, pointers(1)[1:], len(ptr) - 1, ptr, column, subi, column, val, val)
    return subi


def pointers(count: int) -> memoryview:
    """A pointer array over `count` rows or columns, with one entry more for the counts."""
    return memoryview(zeros("i64", count + 2))


def empty_triplets(count: int) -> Triplets:
    return zeros("i32", count), zeros("i32", count), zeros("f64", count)
