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
#include "prefetch.h"

namespace fragments {

namespace {

constexpr int64_t ahead = prefetch_distance;

/// Counts each of the `n` entries of `sub` in its bucket, two places up.
template <class S>
void count_entries(int64_t n, I32<S> sub, I64Out<S> ptr)
{
    const auto count = ptr.from(2);
    with_prefetch(ptr, [&](auto far) {
        for (int64_t k = 0; k < n; ++k) {
            if (far && k < n - ahead) prefetch(count, sub[k + ahead]);
            ++count[sub[k]];
        }
    });
}

/// The same for two lists at once.
template <class S>
void count_both(I64Out<S> cptrb, int64_t n, I64Out<S> rptrb, I32<S> subi, I32<S> subj)
{
    const auto columns = cptrb.from(2);
    const auto rows = rptrb.from(2);
    with_prefetch(cptrb, [&](auto far) {
        for (int64_t k = 0; k < n; ++k) {
            if (far && k < n - ahead) prefetch(columns, subj[k + ahead]);
            ++columns[subj[k]];
            ++rows[subi[k]];
        }
    });
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

/// Whether these buckets follow each other, so that their places can be gone through in one loop:
/// the ends of many small ones cost more than the test.
template <class S>
bool is_one_range(int64_t buckets, I64<S> ptr)
{
    return buckets > 0 && ascending(true, ptr, buckets + 1);
}

/// Whether nothing that is written to `target` changes `array`. Strided ones aren't looked at.
template <class T, class U, class S>
bool apart(Array<T, S> array, Array<U, S> target)
{
    if (!is_block<S>) return false;
    const auto begin = reinterpret_cast<uint64_t>(array.data());
    const auto written = reinterpret_cast<uint64_t>(target.data());
    return begin + static_cast<uint64_t>(array.length()) * sizeof(T) <= written ||
           written + static_cast<uint64_t>(target.length()) * sizeof(U) <= begin;
}

/// The row-sorted entries, each to the next free place of its column: the result is in ascending
/// order of column and, within a column, of row.
template <class S, class T>
void scatter_by_column(I64Out<S> cptrb, int64_t nrow, I64<S> rptrb, I32<S> subj,
                       ArrayOut<T, S> tsubi, ArrayOut<T, S> tsubj, F64Out<S> tval, F64<S> val)
{
    with_prefetch(tval, [&](auto far) {
        walk_buckets(nrow, rptrb, [&](int64_t i, int64_t p) {
            if (far && p < subj.length() - 2 * ahead) {
                prefetch(cptrb, subj[p + 2 * ahead]);
                const int64_t q = peek(cptrb, subj[p + ahead]);
                prefetch(tsubi, q);
                prefetch(tsubj, q);
                prefetch(tval, q);
            }
            const int32_t j = subj[p];
            const int64_t q = cptrb[j];
            tsubi[q] = static_cast<T>(i);
            tsubj[q] = j;
            tval[q] = val[p];
            cptrb[j] = q + 1;
        });
    });
}

} // namespace

// sort_triplets: an LSD radix sort of positions, with the column and then the row for a digit
// (121, 122, 123 and 124, 125, 126), and the sum of what repeats (127, 128). Both passes are
// stable: entries of one place keep the order of the list.

/// cptrb[subj[k] + 2] += 1 for k below `n`: the entries of each column, counted two places up.
CLOSURE_AS(121, void, (I64Out cptrb, long long n, I32 subj), count_entries(n, subj, cptrb))

/// cptrb[i + 2] += cptrb[i + 1] for i below `ncol` - 1, in ascending order: from counts the start
/// of each column, one place up.
CLOSURE_AS(122, void, (I64Out cptrb, int ncol), pointer_sum(ncol, cptrb))

/// `cols` gets the positions in the list by column, each at the next free place of its column,
/// cptrb[j + 1], which moves on by 1. The low 32 bits of `n` count.
CLOSURE(123, void, (I32Out cols, I64Out cptrb, long long n, I32 subj))
{
    const int32_t count = static_cast<int32_t>(n);
    const auto next = cptrb.from(1);
    with_prefetch(cols, [&](auto far) {
        for (int32_t k = 0; k < count; ++k) {
            if (far && k < count - 2 * ahead) {
                prefetch(next, subj[k + 2 * ahead]);
                prefetch(cols, peek(next, subj[k + ahead]));
            }
            const int32_t j = subj[k];
            cols[next[j]] = k;
            ++next[j];
        }
    });
}

/// rptrb[subi[k] + 2] += 1 for k below `n`: the entries of each row, counted two places up.
CLOSURE_AS(124, void, (long long n, I64Out rptrb, I32 subi), count_entries(n, subi, rptrb))

/// rptrb[i + 2] += rptrb[i + 1] for i below `nrow` - 1, in ascending order: from counts the start
/// of each row, one place up.
CLOSURE_AS(125, void, (int nrow, I64Out rptrb), pointer_sum(nrow, rptrb))

/// `rows` gets the positions in the list by row and, within a row, by column, from those by column:
/// column j has the places cptrb[j] up to but not including cptrb[j + 1] of `cols`. The next free
/// place of row i is rptrb[i + 1], which moves on by 1.
CLOSURE(126, void, (I32 cols, I64 cptrb, int ncol, I32Out rows, I64Out rptrb, I32 subi))
{
    const auto next = rptrb.from(1);
    with_prefetch(rows, [&](auto far) {
        const auto place = [&](int64_t p) {
            if (far && p < cols.length() - 3 * ahead) {
                prefetch(subi, cols[p + 3 * ahead]);
                prefetch(next, peek(subi, cols[p + 2 * ahead]));
                prefetch(rows, peek(next, peek(subi, cols[p + ahead])));
            }
            const int32_t k = cols[p];
            const int32_t i = subi[k];
            rows[next[i]] = k;
            ++next[i];
        };
        if (apart(cptrb, rows) && apart(cptrb, rptrb) && is_one_range(ncol, cptrb)) {
            const int64_t end = cptrb[ncol];
            for (int64_t p = cptrb[0]; p < end; ++p) place(p);
        } else {
            walk_buckets(ncol, cptrb, [&](int64_t, int64_t p) { place(p); });
        }
    });
}

/// `count` plus the positions of the list, sorted by `rows`, whose row or column differs from that
/// of the one before; the caller counts the first.
CLOSURE(127, int, (long long n, int count, I32 rows, I32 subi, I32 subj))
{
    if (n < 2) return count;
    int32_t last_i = subi[rows[0]];
    int32_t last_j = subj[rows[0]];
    with_prefetch(subi, [&](auto far) {
        for (int64_t k = 1; k < n; ++k) {
            if (far && k < n - ahead) {
                prefetch(subi, rows[k + ahead]);
                prefetch(subj, rows[k + ahead]);
            }
            const int32_t i = subi[rows[k]];
            const int32_t j = subj[rows[k]];
            count += (i != last_i) | (j != last_j);
            last_i = i;
            last_j = j;
        }
    });
    return count;
}

/// The list sorted by `rows`, each row and column once, with its values added up in the order of
/// the list, to `tsubi`, `tsubj`, `tval` from slot `pos` on. The caller has written the first entry
/// to slot `pos` - 1. Returns the slot behind the last. A sum of 0.0 stays.
CLOSURE(128, int,
        (int pos, long long n, I32 rows, I32 subi, I32 subj, I32Out tsubi, I32Out tsubj,
         F64Out tval, F64 val))
{
    with_prefetch(val, [&](auto far) {
        for (int64_t k = 1; k < n; ++k) {
            if (far && k < n - ahead) {
                prefetch(subi, rows[k + ahead]);
                prefetch(subj, rows[k + ahead]);
                prefetch(val, rows[k + ahead]);
            }
            const int32_t e = rows[k];
            if (tsubj[pos - 1] == subj[e] && tsubi[pos - 1] == subi[e]) {
                tval[pos - 1] += val[e];
            } else {
                tsubi[pos] = subi[e];
                tsubj[pos] = subj[e];
                tval[pos] = val[e];
                ++pos;
            }
        }
    });
    return pos;
}

// transpose_triplets: a row-sorted list becomes a column-sorted one, with indexes in 64 bits (113
// to 116) or 32 (117 to 120). The scatter takes each bucket's start at the bucket itself, so it
// gets the pointer arrays from their second entry on. It needs the end of the last row, too: 114
// and 118 are called with one row more.

/// The entries of each column and of each row, counted two places up.
CLOSURE_AS(113, void, (I64Out cptrb, long long n, I64Out rptrb, I32 subi, I32 subj),
           count_both(cptrb, n, rptrb, subi, subj))
CLOSURE_AS(117, void, (I64Out cptrb, long long n, I64Out rptrb, I32 subi, I32 subj),
           count_both(cptrb, n, rptrb, subi, subj))

/// rptrb[i + 2] += rptrb[i + 1] for i below `nrow` - 1, in ascending order.
CLOSURE_AS(114, void, (int nrow, I64Out rptrb), pointer_sum(nrow, rptrb))
CLOSURE_AS(118, void, (int nrow, I64Out rptrb), pointer_sum(nrow, rptrb))

/// cptrb[i + 2] += cptrb[i + 1] for i below `ncol` - 1, in ascending order.
CLOSURE_AS(115, void, (I64Out cptrb, int ncol), pointer_sum(ncol, cptrb))
CLOSURE_AS(119, void, (I64Out cptrb, int ncol), pointer_sum(ncol, cptrb))

/// The column-sorted list, from a row-sorted one whose row i has the places rptrb[i] up to but not
/// including rptrb[i + 1] of `subj` and `val`: each entry goes to place cptrb[j] of `tsubi`,
/// `tsubj` and `tval`, which moves on by 1 and so ends as the end of column j.
CLOSURE_AS(116, void,
           (I64Out cptrb, int nrow, I64 rptrb, I32 subj, I64Out tsubi, I64Out tsubj, F64Out tval,
            F64 val),
           scatter_by_column(cptrb, nrow, rptrb, subj, tsubi, tsubj, tval, val))
CLOSURE_AS(120, void,
           (I64Out cptrb, int nrow, I64 rptrb, I32 subj, I32Out tsubi, I32Out tsubj, F64Out tval,
            F64 val),
           scatter_by_column(cptrb, nrow, rptrb, subj, tsubi, tsubj, tval, val))

} // namespace fragments
