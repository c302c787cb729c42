// Plain moves between the lists and tables of an array: fills, copies, gathers, searches.

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"

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

/// A list as the first row of a table,
CLOSURE(331, void, (I32MatrixOut idxs, I32 indexes))
{
    for (int64_t k = 0; k < indexes.length(); ++k) idxs(0, k) = indexes[k];
}
/// and as its first column.
CLOSURE(330, void, (I32MatrixOut idxs, I32 indexes))
{
    for (int64_t k = 0; k < indexes.length(); ++k) idxs(k, 0) = indexes[k];
}

CLOSURE_AS(329, void, (long long n, F64Out vals, double value), fill_n(vals, n, value))

/// Values at the linear indexes `sp`. The length of `nidxs` counts.
CLOSURE_AS(328, void, (F64Out cvals, I32 nidxs, I64 sp, F64 values),
           gather_n(values, nidxs.length(), sp, cvals))

/// The same from a table of values, as many columns as shape[1] says.
CLOSURE(327, void, (I32 shape, I64 sp, F64Out vals, F64Matrix values2))
{
    for (int64_t k = 0; k < sp.length(); ++k) {
        const int64_t linear = sp[k];
        const int32_t columns = shape[1];
        vals[k] = values2(linear / columns, linear % columns);
    }
}

/// All values of the table, row by row.
CLOSURE_AS(326, void, (I32 shape, F64Out vals, F64Matrix values2),
           flatten(values2, shape[0], shape[1], vals))

/// Appends a list from slot `pos` on.
CLOSURE_AS(325, void, (I32Out dst, I32 nidxs, int pos),
           copy_n(nidxs, nidxs.length(), dst.from(pos)))

/// Appends the linear indexes of an array from slot `pos` on: those of `sp`, or 0, 1, 2 and so on
/// for each element of a dense one, which has no `sp`.
CLOSURE(316, void, (I64Out dest, I32 nidxs, int pos, I64 sp))
{
    if (sp.given())
        copy_n(sp, sp.length(), dest.from(pos));
    else
        iota_n(dest.from(pos), nidxs.length());
}

CLOSURE_AS(314, int, (int key, int pos, I64 sp), first_at_least(key, pos, sp))
CLOSURE_AS(313, int, (long long key, int pos, I64 sp), first_at_least(key, pos, sp))

} // namespace fragments
