#pragma once

/// The walks of the products of a matrix M and an expression E that is read as a matrix: which
/// entry of the left factor meets which one of the right factor, in the order of the result.
///
/// A walk is made of three parts. How a factor is stored is told by Triplets or LinearEntries; they
/// go row by row, as GroupedRows do, and under ColumnRuns or GroupedColumns column by column. Which
/// entries meet is the walk's, a function below. What becomes of a pair is the product's: `pair`
/// takes the two entries, and `element` stands behind the pairs of each element of the result, with
/// its row and column. A sizing closure and its writer share a walk, so that the two agree.
///
/// The types of rows and columns carry over to what is computed from them: 32 bits in triplets, 64
/// in linear indexes.

#include "algorithms.h"
#include "array.h"
#include "division.h"

namespace fragments {

// Merges and searches where one list may be much longer than the other.

/// lower_bound by doubling steps from the first place (Bentley and Yao's unbounded search), where
/// the bound may be near: the cost is the logarithm of its distance.
template <class Key, class Value>
int64_t near_lower_bound(Range places, Key key, Value bound)
{
    int64_t step = 1;
    int64_t high = places.begin;
    while (high < places.end && key(high) < bound) {
        places.begin = high + 1;
        high += step;
        step *= 2;
    }
    return lower_bound({places.begin, std::min(high, places.end)}, key, bound);
}

/// for_each_run over ascending whole-numbered keys, for runs that may be long: the end of each is
/// searched.
template <class Key, class Run>
int64_t for_each_long_run(int64_t begin, int64_t end, Key key, Run run)
{
    while (begin < end) {
        const auto common = key(begin);
        const int64_t next = near_lower_bound({begin + 1, end}, key, common + 1);
        run(common, Range{begin, next});
        begin = next;
    }
    return begin;
}

/// near_lower_bound of a bound that may stand at `guess`, any place or none of the list, whose keys
/// ascend strictly.
template <class Key, class Value>
int64_t guessed_lower_bound(Range places, Key key, Value bound, int64_t guess)
{
    const bool inside = places.begin <= guess && guess < places.end;
    return inside && key(guess) == bound ? guess : near_lower_bound(places, key, bound);
}

/// How many times longer a list has to be than the other one for a search in it to cost less than
/// the steps of a merge, as measured with random lists of 8000 keys.
constexpr int64_t search_pays = 16;

/// for_each_match, but if `b` is much longer than `a`, the next key of `a` is searched in it: the
/// cost is then that of `a` times the logarithm of the distances in `b`, or 1 where guess(place of
/// `a`) is the place. Which of the two is done doesn't show in the matches.
template <class KeyA, class KeyB, class Guess, class Match>
void for_each_match_in_long(Range a, KeyA key_a, Range b, KeyB key_b, Guess guess, Match match)
{
    const bool is_long = b.end - b.begin > search_pays * (a.end - a.begin);
    while (a.begin < a.end && b.begin < b.end) {
        const auto left = key_a(a.begin);
        const auto right = key_b(b.begin);
        if (left < right)
            ++a.begin;
        else if (right < left)
            b.begin = is_long
                          ? guessed_lower_bound({b.begin + 1, b.end}, key_b, left, guess(a.begin))
                          : b.begin + 1;
        else
            match(a.begin++, b.begin++);
    }
}

/// Merges two lists by their runs of equal ascending keys and calls `meet(key, run_a, run_b)` for
/// each key that both hold. Leaves the cursors where one of the lists is used up.
template <class KeyA, class KeyB, class Meet>
void for_each_meeting(Range& a, KeyA key_a, Range& b, KeyB key_b, Meet meet)
{
    merge(a, key_a, b, key_b, [&](auto key) {
        const Range run_a{a.begin, run_end(a.begin + 1, a.end, key_a, key)};
        const Range run_b{b.begin, run_end(b.begin + 1, b.end, key_b, key)};
        meet(key, run_a, run_b);
        a.begin = run_a.end;
        b.begin = run_b.end;
    });
}

/// The entries of a matrix as triplet lists `msubi`, `msubj`, ordered strictly by row and then
/// column, with the values elsewhere. There is no row pointer: a row is a run of equal `msubi`.
template <class S>
struct Triplets
{
    int64_t count;
    I32<S> msubi;
    I32<S> msubj;

    int row(int64_t k) const { return msubi[k]; }
    int column(int64_t k) const { return msubj[k]; }
    int column_in_row(int64_t k, int /*row*/) const { return msubj[k]; }

    /// What the entries of one column ascend by, without a division: the key of entry k, and the
    /// one that an entry at (row, column) has.
    int64_t key(int64_t k) const { return msubi[k]; }
    int64_t key(int64_t row, int64_t /*column*/) const { return row; }

    /// Calls `visit(row, entries)` for each row that has an entry, from entry `begin` on. Returns
    /// the entry behind the last row.
    template <class Visit>
    int64_t for_each_row(int64_t begin, Visit visit) const
    {
        return for_each_run(
            begin, count, [&](int64_t k) { return row(k); }, visit);
    }
};

template <class S>
Triplets(int64_t, I32<S>, I32<S>) -> Triplets<S>;

/// The entries of a matrix, or the stored elements of an expression, as a list of row-major linear
/// indexes, strictly ascending.
template <class S>
struct LinearEntries
{
    int64_t count;
    I64<S> linear;
    int columns;

    int64_t row(int64_t k) const { return quotient(linear[k], columns); }
    int64_t column(int64_t k) const { return remainder(linear[k], columns); }
    /// The same without a division, where the row is known.
    int64_t column_in_row(int64_t k, int64_t row) const { return linear[k] - row * columns; }

    int64_t key(int64_t k) const { return linear[k]; }
    int64_t key(int64_t row, int64_t column) const { return row * columns + column; }

    template <class Visit>
    int64_t for_each_row(int64_t begin, Visit visit) const
    {
        while (begin < count) {
            const int64_t in_row = row(begin);
            const int64_t next = near_lower_bound(
                {begin + 1, count}, [&](int64_t k) { return linear[k]; }, (in_row + 1) * columns);
            visit(in_row, Range{begin, next});
            begin = next;
        }
        return begin;
    }
};

template <class S>
LinearEntries(int64_t, I64<S>, int) -> LinearEntries<S>;

/// The entries of a matrix by rows, in ascending column: those of row i are the ones from ptr[i] up
/// to but not including ptr[i + 1].
template <class S>
struct GroupedRows
{
    int count;
    I32<S> ptr;
    I32<S> columns;

    int column_in_row(int64_t k, int /*row*/) const { return columns[k]; }

    template <class Visit>
    int64_t for_each_row(int64_t begin, Visit visit) const
    {
        for (int i = static_cast<int>(begin); i < count; ++i) {
            const Range entries{ptr[i], ptr[i + 1]};
            if (entries.begin < entries.end) visit(i, entries);
        }
        return count;
    }
};

/// Entries taken column by column, in ascending row: the p-th one is entry perm[p]. The columns are
/// runs, and those without an entry don't occur.
template <class Entries, class S>
struct ColumnRuns
{
    Entries entries;
    I32<S> perm;

    bool empty() const { return entries.count <= 0; }
    int64_t entry(int64_t p) const { return perm[p]; }
    auto column(int64_t p) const { return entries.column(perm[p]); }

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

    bool empty() const { return count <= 0; }
    int64_t entry(int64_t p) const { return grouping.perm[p]; }

    template <class Visit>
    void for_each_column(int begin, Visit visit) const
    {
        for (int c = begin; c < count; ++c) visit(c, grouping.column(c));
    }
};
template <class Entries, class S>
GroupedColumns(Entries, ColumnGrouping<S>, int) -> GroupedColumns<Entries, S>;

// The walks.

/// M E with a dense E of `d1` columns, from entry `begin` of M on: `pair(m, e)`, and an element of
/// the result in each column of each row of M that has an entry. Returns the entry behind the last
/// row.
template <class M, class Pair, class Element>
int walk_left_dense(const M& m, int64_t begin, int d1, Pair pair, Element element)
{
    return static_cast<int>(m.for_each_row(begin, [&](auto row, Range entries) {
        for (int c = 0; c < d1; ++c) {
            for (int64_t k = entries.begin; k < entries.end; ++k)
                pair(k, d1 * m.column_in_row(k, row) + c);
            element(row, c);
        }
    }));
}

/// E M with a dense E of `d0` rows and `d1` columns, by the columns of M: `pair(m, e)`, and an
/// element of the result in each row for each column of M that occurs.
template <class Rows, class Columns, class Pair, class Element>
void walk_right_dense(Rows d0, int d1, const Columns& m, Pair pair, Element element)
{
    if (m.empty()) return;
    for (Rows r = 0; r < d0; ++r) {
        m.for_each_column(0, [&](auto c, Range places) {
            for (int64_t p = places.begin; p < places.end; ++p)
                pair(m.entry(p), m.entries.row(m.entry(p)) + d1 * r);
            element(r, c);
        });
    }
}

/// `pair(a, b)` for each of the entries of a row of the left factor that meets one of the places of
/// column c of the right one. Returns whether there was some. The full products are `searched`, as
/// each of their columns meets many rows; a diagonal merges each of its columns once.
template <bool searched, class Left, class Row, class Columns, class Column, class Pair>
bool match_row_and_column(const Left& left, Row row, Range entries, const Columns& right, Column c,
                          Range places, Pair pair)
{
    bool met = false;
    const auto left_key = [&](int64_t a) {
        return right.entries.key(left.column_in_row(a, row), c);
    };
    const auto right_key = [&](int64_t p) { return right.entries.key(right.entry(p)); };
    const auto match = [&](int64_t a, int64_t p) {
        pair(a, right.entry(p));
        met = true;
    };
    if constexpr (searched)
        // A column with an element in each row has it at the place that is the row's number.
        for_each_match_in_long(
            entries, left_key, places, right_key,
            [&](int64_t a) { return places.begin + left.column_in_row(a, row); }, match);
    else
        for_each_match(entries, left_key, places, right_key, match);
    return met;
}

/// A product of two sparse factors, the left one by rows from entry `begin` on and the right one by
/// columns: `pair(a, b)` with an entry of each, and an element of the result where there is some
/// pair. Returns the entry behind the last row. Costs for each row the number of right columns, and
/// for each of these the length of row and column together or, where the column is much longer,
/// that of the row times the logarithm of the distances in the column: products with constants and
/// with parameters have the outcome of a merge, by a search where that is less.
template <class Left, class Columns, class Pair, class Element>
int walk_sparse(const Left& left, int64_t begin, const Columns& right, Pair pair, Element element)
{
    return static_cast<int>(left.for_each_row(begin, [&](auto row, Range entries) {
        right.for_each_column(0, [&](auto c, Range places) {
            if (match_row_and_column<true>(left, row, entries, right, c, places, pair))
                element(row, c);
        });
    }));
}

/// The diagonal of M E with a dense E, from entry `begin` of M on: `pair(m, e)`, and an element of
/// the result for each row of M that has an entry. Returns the entry behind the last row.
template <class M, class Pair, class Element>
int walk_left_diagonal(const M& m, int64_t begin, int d1, Pair pair, Element element)
{
    return static_cast<int>(m.for_each_row(begin, [&](auto row, Range entries) {
        for (int64_t k = entries.begin; k < entries.end; ++k)
            pair(k, d1 * m.column_in_row(k, row) + row);
        element(row);
    }));
}

/// The diagonal of E M with a dense E, by the columns of M from place `begin` on: `pair(m, e)`, and
/// an element of the result for each column of M that has an entry. Returns the place behind the
/// last column.
template <class Columns, class Pair, class Element>
int walk_right_diagonal(int d1, const Columns& m, int64_t begin, Pair pair, Element element)
{
    return static_cast<int>(m.for_each_column(begin, [&](auto c, Range places) {
        for (int64_t p = places.begin; p < places.end; ++p)
            pair(m.entry(p), m.entries.row(m.entry(p)) + d1 * c);
        element(c);
    }));
}

/// The diagonal of a product of two sparse factors. Row i of the left one has to meet column i of
/// the right one first, and inside that meeting entries meet: `pair(a, b)` with an entry of each,
/// and `element(i)` behind a meeting with some pair. Moves both cursors: `entries` over the left
/// factor, `places` over the columns of the right one.
template <class Left, class Columns, class Pair, class Element>
void walk_diagonal(const Left& left, Range& entries, const Columns& right, Range& places, Pair pair,
                   Element element)
{
    for_each_meeting(
        entries, [&](int64_t a) { return left.row(a); }, places,
        [&](int64_t p) { return right.column(p); },
        [&](auto i, Range in_row, Range in_column) {
            if (match_row_and_column<false>(left, i, in_row, right, i, in_column, pair)) element(i);
        });
}

/// The pairs of one element of a list of indexes and an expression of the same shape: `pair(k, q)`
/// for each of the `n` indexes k of the list, strictly ascending, that the expression stores, as
/// its element q. A dense expression stores all.
template <class S, class Pair>
void walk_elementwise(int64_t n, I64<S> list, bool hassp, int nelem, I64<S> sp, Pair pair)
{
    if (!hassp) {
        for (int64_t k = 0; k < n; ++k) pair(k, list[k]);
        return;
    }
    for_each_match(
        {0, n}, [&](int64_t k) { return list[k]; }, {0, nelem}, [&](int64_t q) { return sp[q]; },
        pair);
}

} // namespace fragments
