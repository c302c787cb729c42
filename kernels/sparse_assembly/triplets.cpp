// sort_triplets, transpose_triplets: sparse matrices from triplets.
//
// A list of `n` triplets is its rows `subi`, columns `subj` and values `val`. Both chains sort by
// counting, in time linear in `n` and the numbers of rows and columns.
//
// A pointer array (`rptrb` by row, `cptrb` by column) comes zero-filled and has two entries more
// than there are buckets: the count of bucket b stands at b + 2, its sum turns that into the start
// of b at b + 1, and placing the entries advances this to the end of b. That is an ordinary pointer
// array then: bucket b reaches from entry b up to entry b + 1.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

namespace {

/// Counts each of the `n` entries of `sub` in its bucket, two places up.
template <class S>
void count_entries(int64_t n, I32<S> sub, I64Out<S> ptr)
{
    count_keys(
        n, [&](int64_t k) { return sub[k]; }, ptr.from(1));
}

/// The start of each of the `n` buckets, one place up.
template <class S>
void pointer_sum(int64_t n, I64Out<S> ptr)
{
    running_sum(ptr.from(1), n - 1);
}

/// Calls `entry(b, p)` for each place p of each bucket b. A bucket ends where `ptr` says by then.
template <class S, class Entry>
void walk_buckets(int64_t buckets, I64<S> ptr, Entry entry)
{
    for (int64_t b = 0; b < buckets; ++b)
        for (int64_t p = ptr[b]; p < ptr[b + 1]; ++p) entry(b, p);
}

/// The row-sorted entries, each to the next free place of its column: the result is in ascending
/// order of column and, within a column, of row.
template <class S, class T>
void scatter_by_column(I64Out<S> cptrb, int64_t nrow, I64<S> rptrb, I32<S> subj,
                       ArrayOut<T, S> tsubi, ArrayOut<T, S> tsubj, F64Out<S> tval, F64<S> val)
{
    walk_buckets(nrow, rptrb, [&](int64_t i, int64_t p) {
        const int32_t j = subj[p];
        const int64_t q = cptrb[j];
        tsubi[q] = static_cast<T>(i);
        tsubj[q] = j;
        tval[q] = val[p];
        cptrb[j] = q + 1;
    });
}

} // namespace

// sort_triplets: an LSD radix sort of positions, with the column and then the row for a digit
// (121, 122, 123 and 124, 125, 126), and the sum of what repeats (127, 128). Both passes are
// stable: entries of one place keep the order of the list.

CLOSURE_AS(121, void, (I64Out cptrb, long long n, I32 subj), count_entries(n, subj, cptrb))
CLOSURE_AS(122, void, (I64Out cptrb, int ncol), pointer_sum(ncol, cptrb))

/// `cols`: the positions in the list by column. The low 32 bits of `n` count.
CLOSURE(123, void, (I32Out cols, I64Out cptrb, long long n, I32 subj))
{
    place_by_key(
        static_cast<int32_t>(n), each_position, [&](int64_t k) { return subj[k]; }, cptrb.from(1),
        cols);
}

CLOSURE_AS(124, void, (long long n, I64Out rptrb, I32 subi), count_entries(n, subi, rptrb))
CLOSURE_AS(125, void, (int nrow, I64Out rptrb), pointer_sum(nrow, rptrb))

/// `rows`: the positions in the list by row and, within a row, by column.
CLOSURE(126, void, (I32 cols, I64 cptrb, int ncol, I32Out rows, I64Out rptrb, I32 subi))
{
    const auto next = rptrb.from(1);
    walk_buckets(ncol, cptrb, [&](int64_t, int64_t p) {
        const int32_t k = cols[p];
        rows[next[subi[k]]++] = k;
    });
}

/// `count` plus the places of the sorted list that differ from the one before; the caller counts
/// the first.
CLOSURE(127, int, (long long n, int count, I32 rows, I32 subi, I32 subj))
{
    for (int64_t k = 1; k < n; ++k) {
        const int32_t e = rows[k];
        const int32_t last = rows[k - 1];
        count += subi[e] != subi[last] || subj[e] != subj[last];
    }
    return count;
}

/// The sorted list, each place once, with its values added up in the order of the list, from slot
/// `pos` on. The caller has written the first entry to slot `pos` - 1. Returns the slot behind the
/// last. A sum of 0.0 stays.
CLOSURE(128, int,
        (int pos, long long n, I32 rows, I32 subi, I32 subj, I32Out tsubi, I32Out tsubj,
         F64Out tval, F64 val))
{
    for (int64_t k = 1; k < n; ++k) {
        const int32_t e = rows[k];
        if (tsubi[pos - 1] == subi[e] && tsubj[pos - 1] == subj[e]) {
            tval[pos - 1] += val[e];
        } else {
            tsubi[pos] = subi[e];
            tsubj[pos] = subj[e];
            tval[pos] = val[e];
            ++pos;
        }
    }
    return pos;
}

// transpose_triplets: a row-sorted list becomes a column-sorted one, with indexes in 64 bits (113
// to 116) or 32 (117 to 120). The scatter takes each bucket's start at the bucket itself, so it
// gets the pointer arrays from their second entry on. It needs the end of the last row, too: 114
// and 118 are called with one row more.

CLOSURE(113, void, (I64Out cptrb, long long n, I64Out rptrb, I32 subi, I32 subj))
{
    count_entries(n, subj, cptrb);
    count_entries(n, subi, rptrb);
}
CLOSURE(117, void, (I64Out cptrb, long long n, I64Out rptrb, I32 subi, I32 subj))
{
    count_entries(n, subj, cptrb);
    count_entries(n, subi, rptrb);
}

CLOSURE_AS(114, void, (int nrow, I64Out rptrb), pointer_sum(nrow, rptrb))
CLOSURE_AS(118, void, (int nrow, I64Out rptrb), pointer_sum(nrow, rptrb))
CLOSURE_AS(115, void, (I64Out cptrb, int ncol), pointer_sum(ncol, cptrb))
CLOSURE_AS(119, void, (I64Out cptrb, int ncol), pointer_sum(ncol, cptrb))

/// The column-sorted list; each entry of `cptrb` ends as the end of its column.
CLOSURE_AS(116, void,
           (I64Out cptrb, int nrow, I64 rptrb, I32 subj, I64Out tsubi, I64Out tsubj, F64Out tval,
            F64 val),
           scatter_by_column(cptrb, nrow, rptrb, subj, tsubi, tsubj, tval, val))
CLOSURE_AS(120, void,
           (I64Out cptrb, int nrow, I64 rptrb, I32 subj, I32Out tsubi, I32Out tsubj, F64Out tval,
            F64 val),
           scatter_by_column(cptrb, nrow, rptrb, subj, tsubi, tsubj, tval, val))

} // namespace fragments
