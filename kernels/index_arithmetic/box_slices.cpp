// slice_box and slice_range: the elements of an array in a box of subscripts, and those of a
// one-dimensional array in a range of linear indexes. Elements keep their order, so `rsp` ascends
// strictly as `sp` does.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// The subscripts start[k] up to but not including stop[k] of an array of this shape.
template <class S>
struct Box
{
    I32<S> start;
    I32<S> stop;
    int nd;
    I32<S> shape;
    I64<S> strides;
};

/// Calls `element(k)` for each of `n` elements that lies in the box; linear(k) is its linear index
/// and `index`, of `nd` entries, gets its subscripts. Without dimensions all elements lie in the
/// box, and no linear index is looked at.
template <class S, class Linear, class Element>
void for_each_in_box(int64_t n, Linear linear, const Box<S>& box, I32Out<S> index, Element element)
{
    for (int64_t k = 0; k < n; ++k) {
        if (box.nd > 0) split_linear(linear(k), box.strides, box.shape, box.nd, index);
        if (in_box(index, box.start, box.stop, box.nd)) element(k);
    }
}

/// Calls `element(k)` for each linear index in the range.
template <class S, class Element>
void for_each_in_range(int start, int stop, I64<S> sp, Element element)
{
    for (int64_t k = 0; k < sp.length(); ++k)
        if (start <= sp[k] && sp[k] < stop) element(k);
}

} // namespace

/// Sizes the box of a sparse array: `count` plus its elements. The length of `nidxs` counts.
CLOSURE(320, int,
        (I32 astart, I32 astop, int count, I32Out index, int nd, I32 nidxs, I32 shape, I64 sp,
         I64 stride))
{
    for_each_in_box(
        nidxs.length(), [&](int64_t k) { return sp[k]; },
        Box<Stride>{astart, astop, nd, shape, stride}, index, [&](int64_t) { ++count; });
    return count;
}

/// Writes the box of a sparse array from slot `ipos` on: the entry of `nidxs`, and the linear index
/// by the strides of the box. Returns the slot behind the last.
CLOSURE(322, int,
        (I32 astart, I32 astop, I32Out index, int ipos, int nd, I32 nidxs, I32Out rnidxs,
         I64Out rsp, I64 rstride, I32 shape, I64 sp, I64 stride))
{
    for_each_in_box(
        nidxs.length(), [&](int64_t k) { return sp[k]; },
        Box<Stride>{astart, astop, nd, shape, stride}, index,
        [&](int64_t k) {
            rsp[ipos] = linear_in_box(index, astart, rstride, nd);
            rnidxs[ipos++] = nidxs[k];
        });
    return ipos;
}

/// The same for a dense array, whose element k has linear index k.
CLOSURE(319, int,
        (I32 astart, I32 astop, I32Out index, int ipos, int nd, I32 nidxs, I32Out rnidxs, I32 shape,
         I64 stride))
{
    for_each_in_box(nidxs.length(), each_position, Box<Stride>{astart, astop, nd, shape, stride},
                    index, [&](int64_t k) { rnidxs[ipos++] = nidxs[k]; });
    return ipos;
}

/// Sizes the range of a sparse array: `count` plus its elements.
CLOSURE(323, int, (int count, I64 sp, int start, int stop))
{
    for_each_in_range(start, stop, sp, [&](int64_t) { ++count; });
    return count;
}

/// Writes the range of a sparse array from slot `count` on, linear indexes counted from `start`.
/// Returns the slot behind the last.
CLOSURE(324, int, (int count, I32 nidxs, I32Out rnidxs, I64Out rsp, I64 sp, int start, int stop))
{
    for_each_in_range(start, stop, sp, [&](int64_t k) {
        rnidxs[count] = nidxs[k];
        rsp[count++] = sp[k] - start;
    });
    return count;
}

} // namespace fragments
