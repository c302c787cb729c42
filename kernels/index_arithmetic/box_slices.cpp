// slice_box and slice_range: the elements of an array in a box of subscripts, and those of a
// one-dimensional array in a range of linear indexes. Elements keep their order, so `rsp` ascends
// strictly as `sp` does.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// What for_each_in_box asks for: the subscripts of element k, whose linear index is linear(k), in
/// `index`. Without dimensions no linear index is looked at.
template <class S, class Linear>
auto split_into(I32Out<S> index, int nd, I32<S> shape, I64<S> strides, Linear linear)
{
    return [=](int64_t k) {
        if (nd > 0) split_linear(linear(k), strides, shape, nd, index);
        return index;
    };
}

/// Calls `element(k)` for each linear index in the range.
template <class S, class Element>
void for_each_in_range(int start, int stop, I64<S> sp, Element element)
{
    for (int64_t k = 0; k < sp.length(); ++k)
        if (start <= sp[k] && sp[k] < stop) element(k);
}

} // namespace

/// Sizes the box of a sparse array: `count` plus the elements with a subscript from astart[d] up to
/// but not including astop[d] in each dimension d. The length of `nidxs` says how many elements
/// there are; `index` is scratch of `nd` entries.
CLOSURE(320, int,
        (I32 astart, I32 astop, int count, I32Out index, int nd, I32 nidxs, I32 shape, I64 sp,
         I64 stride))
{
    for_each_in_box(astart, astop, nd, nidxs.length(),
                    split_into(index, nd, shape, stride, [=](int64_t k) { return sp[k]; }),
                    [&](int64_t, I32) { ++count; });
    return count;
}

/// Writes the box of a sparse array from slot `ipos` on: of each element the entry of `nidxs`, and
/// the linear index by the strides `rstride` of the box. `index` is scratch of `nd` entries.
/// Returns the slot behind the last.
CLOSURE(322, int,
        (I32 astart, I32 astop, I32Out index, int ipos, int nd, I32 nidxs, I32Out rnidxs,
         I64Out rsp, I64 rstride, I32 shape, I64 sp, I64 stride))
{
    for_each_in_box(astart, astop, nd, nidxs.length(),
                    split_into(index, nd, shape, stride, [=](int64_t k) { return sp[k]; }),
                    [&](int64_t k, I32 subscripts) {
                        rsp[ipos] = linear_in_box(subscripts, astart, rstride, nd);
                        rnidxs[ipos++] = nidxs[k];
                    });
    return ipos;
}

/// Writes the box of a dense array, whose element k has linear index k, from slot `ipos` on: of
/// each element the entry of `nidxs`. `index` is scratch of `nd` entries. Returns the slot behind
/// the last.
CLOSURE(319, int,
        (I32 astart, I32 astop, I32Out index, int ipos, int nd, I32 nidxs, I32Out rnidxs, I32 shape,
         I64 stride))
{
    for_each_in_box(astart, astop, nd, nidxs.length(),
                    split_into(index, nd, shape, stride, each_position),
                    [&](int64_t k, I32) { rnidxs[ipos++] = nidxs[k]; });
    return ipos;
}

/// Sizes the range of a one-dimensional sparse array: `count` plus the elements with a linear index
/// from `start` up to but not including `stop`.
CLOSURE(323, int, (int count, I64 sp, int start, int stop))
{
    for_each_in_range(start, stop, sp, [&](int64_t) { ++count; });
    return count;
}

/// Writes the range of a one-dimensional sparse array from slot `count` on: of each element the
/// entry of `nidxs`, and its linear index counted from `start`. Returns the slot behind the last.
CLOSURE(324, int, (int count, I32 nidxs, I32Out rnidxs, I64Out rsp, I64 sp, int start, int stop))
{
    for_each_in_range(start, stop, sp, [&](int64_t k) {
        rnidxs[count] = nidxs[k];
        rsp[count++] = sp[k] - start;
    });
    return count;
}

} // namespace fragments
