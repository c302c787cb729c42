// An array that is symmetric in two of its axes, from a list of the entries of one triangle. The
// steps fold the shape into the five extents `dim`, make the 32-bit strides, and fill.

#include "algorithms.h"
#include "closure_frame.h"
#include "five_dimensional_view.h"

namespace fragments {

/// Multiplies dim[0] by the extents of the dimensions before `axis`, the first of the two.
CLOSURE_AS(263, void, (int axis, I32Out dim, I32 shape), fold_extents(shape, {0, axis}, dim, 0))

/// Multiplies dim[2] by the extents of the dimensions between the two axes.
CLOSURE_AS(264, void, (int axis0, int axis1, I32Out dim, I32 shape),
           fold_extents(shape, {int64_t{axis0} + 1, axis1}, dim, 2))

/// Multiplies dim[4] by the extents of the dimensions behind `axis`, the second of the two, up to
/// but not including dimension `nd`.
CLOSURE_AS(265, void, (int axis, I32Out dim, int nd, I32 shape),
           fold_extents(shape, {int64_t{axis} + 1, nd}, dim, 4))

/// Row-major strides of the five extents `dim`, in 32 bits, from stride[3] down to stride[0];
/// stride[4] must be set before.
CLOSURE_AS(266, void, (I32 dim, I32Out stride), row_major_strides(dim, 5, stride))

/// Fills the symmetric array `nidxs`: each entry of `nativeidxs`, from place `ipos` on, goes to the
/// next position, in row-major order, of the lower or with `upper` of the upper triangle in the two
/// axes, and to the mirrored one. The two axes have the extent dim[1]. Returns the place behind the
/// last entry.
CLOSURE(267, int, (I32 dim, int ipos, I32 nativeidxs, I32Out nidxs, I32 stride, bool upper))
{
    const Extents d = extents(dim);
    for_each_position(
        d,
        [&](int64_t i) {
            return upper ? Range{i, d[1]} : Range{0, i + 1};
        },
        [&](const Position& x) {
            const int32_t entry = nativeidxs[ipos++];
            nidxs[x.linear(stride)] = entry;
            nidxs[Position{x.a, x.j, x.m, x.i, x.b}.linear(stride)] = entry;
        });
    return ipos;
}

} // namespace fragments
