// Constant matrices as triplets: parallel lists of row `subi` (i32), column `subj` (i32) and value
// `val` (f64). Names with a trailing underscore are raw input, in any order; those without are the
// cleaned form. `k` and `pos` are running places, which come back as the result.

#include "algorithms.h"
#include "closure_frame.h"
#include "triplet_matrix.h"

namespace fragments {

/// The greatest of the value passed and the first `n` entries, of each list: (maxi, maxj).
CLOSURE(631, results(int, int), (int maxi, int maxj, int n, I32 subi, I32 subj))
{
    return {greatest(maxi, subi, n), greatest(maxj, subj, n)};
}
/// The same.
CLOSURE(630, results(int, int), (int maxi, int maxj, int n, I32 subi, I32 subj))
{
    return {greatest(maxi, subi, n), greatest(maxj, subj, n)};
}

/// `outofrange`, or whether one of the first `n` entries lies outside a `dimi` x `dimj` matrix.
CLOSURE_AS(634, bool, (int dimi, int dimj, long long n, bool outofrange, I32 subi_, I32 subj_),
           outofrange || has_bad_entry(dimi, dimj, n, subi_, subj_))

/// `count` plus the number of values other than 0.0, as 636 keeps them: a NaN is one.
CLOSURE(635, int, (int count, F64 val_))
{
    for (int64_t t = 0; t < val_.length(); ++t) count += val_[t] != 0.0;
    return count;
}

/// Copies the triplets whose value isn't 0.0, in their order, to the places from `k` on. The length
/// of `val_` counts. Returns the place behind the last.
CLOSURE(636, int, (int k, I32Out subi, I32 subi_, I32Out subj, I32 subj_, F64Out val, F64 val_))
{
    for (int64_t t = 0; t < val_.length(); ++t) {
        if (val_[t] == 0.0) continue;
        subi[k] = subi_[t];
        subj[k] = subj_[t];
        val[k] = val_[t];
        ++k;
    }
    return k;
}

/// Row starts, from ascending `subi`: the entries of row i are ptrb[i] up to but not including
/// ptrb[i + 1]. Writes `dimi` entries and returns the closing one, at most `nnz`. The search begins
/// at `pos`.
CLOSURE(637, long long, (int dimi, long long nnz, long long pos, I64Out ptrb, I32 subi))
{
    for (int i = 0; i < dimi; ++i) {
        ptrb[i] = pos;
        pos = run_end(
            pos, nnz, [&](int64_t t) { return subi[t]; }, i);
    }
    return pos;
}

/// Dense, row-major, from triplets. Of several entries for one place the last stays, and places
/// without an entry keep what they hold. The length of `subi` counts.
CLOSURE_AS(638, void, (int dimj, F64Out r, I32 subi, I32 subj, F64 val),
           scatter_triplets(subi.length(), subi, subj, val, dimj, r))

/// Triplets of a dense matrix, row by row, zeros too, to the places from `k` on. Returns the place
/// behind the last.
CLOSURE(629, int, (F64Matrix data, int dimi, int dimj, int k, I32Out subi, I32Out subj, F64Out val))
{
    const int64_t count =
        dense_to_triplets(dimi, dimj, data, subi.from(k), subj.from(k), val.from(k));
    return static_cast<int>(k + count);
}

/// All positions of a `dimi` x `dimj` matrix, row by row, to the places from `k` on. Returns the
/// place behind the last.
CLOSURE(633, int, (int dimi, int dimj, int k, I32Out subi, I32Out subj))
{
    for (int i = 0; i < dimi; ++i) {
        for (int j = 0; j < dimj; ++j, ++k) {
            subi[k] = i;
            subj[k] = j;
        }
    }
    return k;
}

/// A row-major block of `data`, from `pos` on, to columns that are `step` apart in `newdata`.
/// Returns the place behind the block.
CLOSURE(632, int, (F64 data, int dimi, int dimj, F64Out newdata, int pos, int step))
{
    const auto block = data.from(pos);
    for (int64_t i = 0; i < dimi; ++i)
        for (int64_t j = 0; j < dimj; ++j) newdata[i + j * step] = block[i * dimj + j];
    return pos + dimi * dimj;
}

/// `count` plus the first `n` extents.
CLOSURE_AS(628, int, (int count, I32 jdims, int n), sum_n(count, jdims, n))
CLOSURE_AS(627, int, (int count, I32 idims, int n), sum_n(count, idims, n))

/// The diagonal entries `msubi` (rows and columns alike) of a block with its corner at (`offi`,
/// `offj`), to places `k` and on.
CLOSURE(626, void,
        (long long count, long long k, I32 msubi, int offi, int offj, I32Out subi, I32Out subj))
{
    const auto rows = subi.from(k);
    const auto columns = subj.from(k);
    for (int64_t t = 0; t < count; ++t) {
        rows[t] = msubi[t] + offi;
        columns[t] = msubi[t] + offj;
    }
}

} // namespace fragments
