// Plain moves between the lists and tables of an array: fills, copies, gathers, searches.

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// The first place from `pos` on whose linear index is at least `key`, in whatever order they are;
/// else the length of `sp`. A place at or behind the end comes back.
template <class S>
int first_at_least(long long key, int pos, I64<S> sp)
{
    while (pos < sp.length() && sp[pos] < key) ++pos;
    return pos;
}

} // namespace

/// The smallest place from `pos` on whose linear index in `sp` is at least `key`; else the length
/// of `sp`. A place at or behind the end comes back.
CLOSURE_AS(313, int, (long long key, int pos, I64 sp), first_at_least(key, pos, sp))
CLOSURE_AS(314, int, (int key, int pos, I64 sp), first_at_least(key, pos, sp))

/// Appends the linear indexes of an array to `dest`, from slot `pos` on: those of `sp`, or for a
/// dense array, which has no `sp`, 0, 1, 2 and so on, one for each entry of `nidxs`.
CLOSURE(316, void, (I64Out dest, I32 nidxs, int pos, I64 sp))
{
    if (sp.given())
        copy_n(sp, sp.length(), dest.from(pos));
    else
        iota_n(dest.from(pos), nidxs.length());
}

/// Appends the list `nidxs` to `dst`, from slot `pos` on.
CLOSURE_AS(325, void, (I32Out dst, I32 nidxs, int pos),
           copy_n(nidxs, nidxs.length(), dst.from(pos)))

/// The table `values2`, of `shape`, row by row as the list `vals`.
CLOSURE(326, void, (I32 shape, F64Out vals, F64Matrix values2))
{
    const int rows = shape[0];
    if (is_empty(rows)) return;
    const int columns = shape[1];
    if (!is_empty(columns)) flatten(values2, rows, columns, vals);
}

/// The entries of the table `values2` at the linear indexes `sp`, with as many columns to a row as
/// shape[1] says, as the list `vals`. The length of `sp` counts.
CLOSURE(327, void, (I32 shape, I64 sp, F64Out vals, F64Matrix values2))
{
    for (int64_t k = 0; k < sp.length(); ++k) {
        const int64_t linear = sp[k];
        const int32_t columns = shape[1];
        vals[k] = values2(quotient(linear, columns), remainder(linear, columns));
    }
}

/// The entries of `values` at the linear indexes `sp`, as the list `cvals`. The length of `nidxs`
/// counts.
CLOSURE_AS(328, void, (F64Out cvals, I32 nidxs, I64 sp, F64 values),
           gather_n(values, nidxs.length(), sp, cvals))

/// Sets the first `n` entries of `vals` to `value`.
CLOSURE_AS(329, void, (long long n, F64Out vals, double value), fill_n(vals, n, value))

/// A list of indexes as the first column of the table `idxs`.
CLOSURE(330, void, (I32MatrixOut idxs, I32 indexes))
{
    for (int64_t k = 0; k < indexes.length(); ++k) idxs(k, 0) = indexes[k];
}

/// A list of indexes as the first row of the table `idxs`.
CLOSURE(331, void, (I32MatrixOut idxs, I32 indexes))
{
    for (int64_t k = 0; k < indexes.length(); ++k) idxs(0, k) = indexes[k];
}

} // namespace fragments
