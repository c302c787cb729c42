#pragma once

/// The walks of the products of a matrix M and an expression E that is read as a matrix with `d1`
/// columns: which entry of M meets which element of E, in the order of the result. What becomes of
/// a pair is left to the product: `pair(m, e)` takes entry m of M and element e of E, and
/// `element(...)` stands behind the pairs of each element of the result, with its row and column.
/// A sizing closure and its writer share a walk, so that the two agree.
///
/// A matrix has entries in row-major order, `row(k)` and `column(k)` of entry k, and rows that are
/// runs of them: for_each_row. The types of rows and columns carry over to what is computed from
/// them: 32 bits in triplets, 64 in linear indexes.

#include "algorithms.h"
#include "array.h"

namespace fragments {

/// The entries of a matrix as triplet lists `msubi`, `msubj`, ordered strictly by row and then
/// column, with the values elsewhere. There is no row pointer.
template <class S>
struct Triplets
{
    int64_t count;
    I32<S> msubi;
    I32<S> msubj;

    int row(int64_t k) const { return msubi[k]; }
    int column(int64_t k) const { return msubj[k]; }

    /// Calls `visit(row, entries, column)` for each row that has an entry, from entry `begin` on;
    /// `column(k)` is that of an entry of the row. Returns the place behind the last row.
    template <class Visit>
    int64_t for_each_row(int64_t begin, Visit visit) const
    {
        const auto row_of = [&](int64_t k) { return row(k); };
        return for_each_run(begin, count, row_of, [&](int row, Range entries) {
            visit(row, entries, [&](int64_t k) { return column(k); });
        });
    }
};

/// The entries of a matrix, or the stored elements of an expression, as a list of row-major linear
/// indexes, strictly ascending.
template <class S>
struct LinearEntries
{
    int64_t count;
    I64<S> linear;
    int columns;

    int64_t row(int64_t k) const { return linear[k] / columns; }
    int64_t column(int64_t k) const { return linear[k] % columns; }

    /// As in Triplets. Within a row a subtraction gives the column, without a division.
    template <class Visit>
    int64_t for_each_row(int64_t begin, Visit visit) const
    {
        const auto index = [&](int64_t k) { return linear[k]; };
        while (begin < count) {
            const int64_t in_row = row(begin);
            const int64_t start = in_row * columns;
            const int64_t next = first_not_below({begin + 1, count}, index, start + columns);
            visit(in_row, Range{begin, next}, [&](int64_t k) { return linear[k] - start; });
            begin = next;
        }
        return begin;
    }
};

/// Entries taken column by column, in ascending row: the p-th one is entry perm[p]. The columns are
/// runs, and those without an entry don't occur.
template <class Entries, class S>
struct ColumnRuns
{
    Entries entries;
    I32<S> perm;

    int64_t entry(int64_t p) const { return perm[p]; }
    auto row(int64_t p) const { return entries.row(entry(p)); }
    auto column(int64_t p) const { return entries.column(entry(p)); }

    /// Calls `visit(column, places)` for each column, from place `begin` on. Returns the place
    /// behind the last one.
    template <class Visit>
    int64_t for_each_column(int64_t begin, Visit visit) const
    {
        return for_each_long_run(
            begin, entries.count, [&](int64_t p) { return column(p); }, visit);
    }
};
template <class Entries, class S>
ColumnRuns(Entries, I32<S>) -> ColumnRuns<Entries, S>;

/// Positions by column: those of column c are perm[p] for p from ptr[c] up to but not including
/// ptr[c + 1].
template <class S>
struct ColumnGrouping
{
    I32<S> ptr;
    I32<S> perm;

    Range column(int c) const { return {ptr[c], ptr[c + 1]}; }
};

/// Entries taken by such a grouping. Each of the `count` columns occurs, also one without an entry.
template <class Entries, class S>
struct GroupedColumns
{
    Entries entries;
    ColumnGrouping<S> grouping;
    int count;

    int64_t entry(int64_t p) const { return grouping.perm[p]; }
    auto row(int64_t p) const { return entries.row(entry(p)); }

    template <class Visit>
    void for_each_column(int begin, Visit visit) const
    {
        for (int c = begin; c < count; ++c) visit(c, grouping.column(c));
    }
};
template <class Entries, class S>
GroupedColumns(Entries, ColumnGrouping<S>, int) -> GroupedColumns<Entries, S>;

/// M E with a dense E, from entry `begin` of M on: an element of the result in each column of each
/// row of M that has an entry. Returns the entry behind the last row.
template <class M, class Pair, class Element>
int walk_left_dense(const M& m, int64_t begin, int d1, Pair pair, Element element)
{
    return static_cast<int>(m.for_each_row(begin, [&](auto row, Range entries, auto column) {
        for (int c = 0; c < d1; ++c) {
            for (int64_t k = entries.begin; k < entries.end; ++k) pair(k, d1 * column(k) + c);
            element(row, c);
        }
    }));
}

/// The same with a sparse E, by columns: an element of the result only where some pair is met.
template <class M, class Columns, class Pair, class Element>
int walk_left_sparse(const M& m, int64_t begin, const Columns& e, int64_t d1, Pair pair,
                     Element element)
{
    return static_cast<int>(m.for_each_row(begin, [&](auto row, Range entries, auto column) {
        e.for_each_column(0, [&](auto c, Range places) {
            bool met = false;
            for_each_match_in_long(
                entries, [&](int64_t k) { return d1 * column(k) + c; }, places,
                [&](int64_t p) { return e.entries.linear[e.entry(p)]; },
                [&](int64_t k, int64_t p) {
                    pair(k, e.entry(p));
                    met = true;
                });
            if (met) element(row, c);
        });
    }));
}

/// E M with a dense E of `d0` rows, by the columns of M: an element of the result in each row for
/// each column of M that occurs.
template <class Index, class Columns, class Pair, class Element>
void walk_right_dense(Index d0, int d1, const Columns& m, Pair pair, Element element)
{
    for (Index r = 0; r < d0; ++r) {
        m.for_each_column(0, [&](auto c, Range places) {
            for (int64_t p = places.begin; p < places.end; ++p) pair(m.entry(p), m.row(p) + d1 * r);
            element(r, c);
        });
    }
}

/// The same with a sparse E, from element `begin` on: an element of the result only where some pair
/// is met of an entry for which `takes(m)` holds. Returns the element behind the last row. Costs
/// for each row of E the length of M, and that of the row for each column of M.
template <class S, class Columns, class Takes, class Pair, class Element>
int walk_right_sparse(const LinearEntries<S>& e, int64_t begin, const Columns& m, Takes takes,
                      Pair pair, Element element)
{
    return static_cast<int>(e.for_each_row(begin, [&](auto row, Range elements, auto column) {
        m.for_each_column(0, [&](auto c, Range places) {
            bool met = false;
            for_each_match(
                elements, column, places, [&](int64_t p) { return int64_t{m.row(p)}; },
                [&](int64_t q, int64_t p) {
                    if (!takes(m.entry(p))) return;
                    pair(m.entry(p), q);
                    met = true;
                });
            if (met) element(row, c);
        });
    }));
}

/// The diagonal of M E with a dense E, from entry `begin` of M on: an element of the result for
/// each row of M that has an entry. Returns the entry behind the last row.
template <class M, class Pair, class Element>
int walk_left_diagonal_dense(const M& m, int64_t begin, int d1, Pair pair, Element element)
{
    return static_cast<int>(m.for_each_row(begin, [&](auto row, Range entries, auto column) {
        for (int64_t k = entries.begin; k < entries.end; ++k) pair(k, d1 * column(k) + row);
        element(row);
    }));
}

/// The same with a sparse E, by columns. Row i of M has to meet column i of E first, and inside
/// that meeting entries meet elements; `element(i, met)` stands behind each meeting. Moves both
/// cursors: `entries` over M, `places` over the columns of E.
template <class M, class Columns, class Pair, class Element>
void walk_left_diagonal_sparse(const M& m, Range& entries, const Columns& e, Range& places,
                               Pair pair, Element element)
{
    for_each_meeting(
        entries, [&](int64_t k) { return int64_t{m.row(k)}; }, places,
        [&](int64_t p) { return int64_t{e.column(p)}; },
        [&](int64_t i, Range in_row, Range in_column) {
            bool met = false;
            for_each_match(
                in_row, [&](int64_t k) { return int64_t{m.column(k)}; }, in_column,
                [&](int64_t p) { return int64_t{e.row(p)}; },
                [&](int64_t k, int64_t p) {
                    pair(k, e.entry(p));
                    met = true;
                });
            element(i, met);
        });
}

/// The diagonal of E M with a dense E, by the columns of M from place `begin` on: an element of the
/// result for each column of M that has an entry. Returns the place behind the last column.
template <class Columns, class Pair, class Element>
int walk_right_diagonal_dense(int d1, const Columns& m, int64_t begin, Pair pair, Element element)
{
    return static_cast<int>(m.for_each_column(begin, [&](auto c, Range places) {
        for (int64_t p = places.begin; p < places.end; ++p) pair(m.entry(p), m.row(p) + d1 * c);
        element(c);
    }));
}

} // namespace fragments
