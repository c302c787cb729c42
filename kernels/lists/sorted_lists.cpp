// A constant sparse array as a list of row-major linear indexes (i64) with coefficients (f64).
// `inst_`, `cof_` are raw input, sorted or with `perm` (i64), a permutation that sorts them, and
// may repeat an index; `inst`, `cof` are the cleaned form, strictly ascending, with repeats added
// up.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// Calls `step(i, rises)` for each place i but the first of the sorted list inst_[at(0)],
/// inst_[at(1)] and so on: whether the index there is greater than the one before it.
template <class S, class At, class Step>
void for_each_step(I64<S> inst_, int64_t length, At at, Step step)
{
    for (int64_t i = 1; i < length; ++i) step(i, inst_[at(i - 1)] < inst_[at(i)]);
}

/// `n` plus the distinct indexes but the first.
template <class S, class At>
int count_distinct(I64<S> inst_, int64_t length, At at, int n)
{
    for_each_step(inst_, length, at, [&](int64_t, bool rises) { n += rises; });
    return n;
}

/// Merges the list, but for its first entry, which stands at place `k` already. Returns the place
/// of the last entry.
template <class S, class At>
int merge_repeats(F64Out<S> cof, F64<S> cof_, I64Out<S> inst, I64<S> inst_, int k, int64_t length,
                  At at)
{
    for_each_step(inst_, length, at, [&](int64_t i, bool rises) {
        if (rises) {
            ++k;
            inst[k] = inst_[at(i)];
            cof[k] = cof_[at(i)];
        } else {
            cof[k] += cof_[at(i)];
        }
    });
    return k;
}

/// The order of `perm`.
template <class S>
auto along(I64<S> perm)
{
    return [perm](int64_t i) { return perm[i]; };
}

} // namespace

/// `size` times all extents, in 64 bits.
CLOSURE_AS(619, long long, (I32 dims_, long long size), product(size, dims_, dims_.length()))
CLOSURE_AS(611, long long, (I32 dims_, long long size), product(size, dims_, dims_.length()))

/// `outofrange`, or whether some subscript is outside its dimension.
CLOSURE_AS(612, bool, (I32 dims_, bool outofrange, I32Matrix sub),
           any_out_of_range(outofrange, sub, sub.columns(), dims_))

/// The linear index of each row of subscripts, by Horner's rule in 64 bits.
CLOSURE(613, void, (I32 dims_, I64Out inst_, I32Matrix sub))
{
    for (int r = 0; r < sub.rows(); ++r) {
        int64_t linear = 0;
        for (int j = 0; j < sub.columns(); ++j) linear = sub(r, j) + dims_[j] * linear;
        inst_[r] = linear;
    }
}

/// `anybad`, or whether one of the first `n` indexes is outside [0, `size`).
CLOSURE_AS(620, bool, (bool anybad, I64 inst_, int n, long long size),
           anybad || has_bad_index(size, inst_, n))

/// Whether `sorted`, and the list ascends; repeats pass.
CLOSURE_AS(621, bool, (I64 inst_, bool sorted), ascending(sorted, inst_, inst_.length()))
CLOSURE_AS(614, bool, (I64 inst_, bool sorted), ascending(sorted, inst_, inst_.length()))

/// `n` plus the distinct indexes but the first, of a sorted list.
CLOSURE_AS(622, int, (I64 inst_, int n), count_distinct(inst_, inst_.length(), each_position, n))
CLOSURE_AS(615, int, (I64 inst_, int n), count_distinct(inst_, inst_.length(), each_position, n))

/// The same of a list that `perm` sorts; the length of `perm` counts.
CLOSURE_AS(624, int, (I64 inst_, int n, I64 perm),
           count_distinct(inst_, perm.length(), along(perm), n))
CLOSURE_AS(617, int, (I64 inst_, int n, I64 perm),
           count_distinct(inst_, perm.length(), along(perm), n))

/// Merges a sorted list to `inst` and `cof`, strictly ascending, with the coefficients of repeats
/// added up; a sum of 0.0 stays as an entry. The host has written the first entry to place `k`; the
/// place of the last entry comes back.
CLOSURE_AS(623, int, (F64Out cof, F64 cof_, I64Out inst, I64 inst_, int k),
           merge_repeats(cof, cof_, inst, inst_, k, inst_.length(), each_position))
CLOSURE_AS(616, int, (F64Out cof, F64 cof_, I64Out inst, I64 inst_, int k),
           merge_repeats(cof, cof_, inst, inst_, k, inst_.length(), each_position))

/// The same of a list that `perm` sorts; the length of `perm` counts.
CLOSURE_AS(625, int, (F64Out cof, F64 cof_, I64Out inst, I64 inst_, int k, I64 perm),
           merge_repeats(cof, cof_, inst, inst_, k, perm.length(), along(perm)))
CLOSURE_AS(618, int, (F64Out cof, F64 cof_, I64Out inst, I64 inst_, int k, I64 perm),
           merge_repeats(cof, cof_, inst, inst_, k, perm.length(), along(perm)))

} // namespace fragments
