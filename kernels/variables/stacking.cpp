// Stacking the patterns of variables along a dimension, and the row codes of constraints.
//
// The patterns of the parts stand one after the other in `rsp`, part o with numnz[o] entries. A
// pattern from a stack along the first dimension ascends already; one along another dimension is
// sorted afterwards (pattern_sort.cpp).

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

/// Moves the pattern of one part of a stack along the first dimension: its numnz[part] entries,
/// from place `pos` of `rsp` on, rise by `delta`, the linear index of the part's first position.
/// Returns the place behind them.
CLOSURE(235, int, (int part, int pos, long long delta, I32 numnz, I64Out rsp))
{
    const int n = numnz[part];
    const auto entries = rsp.from(pos);
    for (int64_t t = 0; t < n; ++t) entries[t] += delta;
    return pos + n;
}

/// Rewrites the patterns of `nparts` parts, which stand in `rsp` one behind the other from place
/// `pos` on, from linear indexes in the parts to those in the stack: along the stacked dimension
/// part o has sdims[o] positions, from offset[o] on, and the stack `rext`. `inner` is the product
/// of the extents behind it. The result is still to be sorted. Returns the place behind the last
/// part.
CLOSURE(238, int,
        (int rext, int inner, int pos, int nparts, I32 numnz, I32 offset, I64Out rsp, I32 sdims))
{
    for (int64_t o = 0; o < nparts; ++o) {
        const int n = numnz[o];
        const auto entries = rsp.from(pos);
        for (int64_t t = 0; t < n; ++t)
            entries[t] = linear_in_longer(entries[t], sdims[o], inner, offset[o], rext);
        pos += n;
    }
    return pos;
}

/// Stacks constraints along a new last dimension: interleaves the first `nlist` lists of row codes.
/// The first `nd` extents of `resshape` are those of each constraint.
CLOSURE(256, void, (I32Out con_nativeidxs, int nlist, int nd, I32List nidxlist, I32 resshape))
{
    if (nidxlist.length() == 0 || is_empty(nlist)) return;
    const int64_t total = product(int64_t{1}, resshape, nd);
    int64_t pos = 0;
    for (int64_t i = 0; i < total; ++i)
        for (int64_t l = 0; l < nlist; ++l) con_nativeidxs[pos++] = nidxlist[l][i];
}

} // namespace fragments
