// Shapes made from shapes: copies, with a dimension dropped or a place opened, padded with ones,
// and those of stacks. Source and target may be the same array: entries are copied in ascending
// order.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

/// Copies the first `n` extents.
CLOSURE_AS(60, void, (I32Out accshape, int n, I32 shape), copy_n(shape, n, accshape))
CLOSURE_AS(97, void, (I32Out accshape, int n, I32 shape), copy_n(shape, n, accshape))
CLOSURE_AS(72, void, (int n, I32Out coneshape, I32 shape), copy_n(shape, n, coneshape))
CLOSURE_AS(90, void, (int n, I32Out coneshape, I32 shape), copy_n(shape, n, coneshape))
CLOSURE_AS(149, void, (int n, I32Out rshape, I32 shape), copy_n(shape, n, rshape))
CLOSURE_AS(153, void, (int n, I32Out rshape, I32 shape), copy_n(shape, n, rshape))
CLOSURE_AS(212, void, (int n, I32Out rshape, I32 shape), copy_n(shape, n, rshape))
CLOSURE_AS(229, void, (int n, I32Out rshape, I32 shape0), copy_n(shape0, n, rshape))

/// Copies the first `n` extents onto the r stack, to `shape_base`.
CLOSURE_AS(145, void, (int n, I32Out ri32, I32 shape, int shape_base),
           copy_n(shape, n, ri32.from(shape_base)))

/// Copies the extents behind dimension `k`, up to but not including dimension `end`, each to its
/// own place.
CLOSURE_AS(154, void, (int k, int end, I32Out rshape, I32 shape),
           copy_behind(k, end, shape, 0, rshape))

/// Drops dimension `k`: copies the extents behind it, up to but not including dimension `end`, each
/// one place down.
CLOSURE_AS(61, void, (I32Out accshape, int k, int end, I32 shape),
           copy_behind(k, end, shape, -1, accshape))
CLOSURE_AS(98, void, (I32Out accshape, int k, int end, I32 shape),
           copy_behind(k, end, shape, -1, accshape))
CLOSURE_AS(73, void, (int k, int end, I32Out coneshape, I32 shape),
           copy_behind(k, end, shape, -1, coneshape))
CLOSURE_AS(91, void, (int k, int end, I32Out coneshape, I32 shape),
           copy_behind(k, end, shape, -1, coneshape))

/// Drops dimension `k`: copies all extents behind it, each one place down.
CLOSURE_AS(155, void, (int k, I32Out rshape, I32 shape),
           copy_behind(k, shape.length(), shape, -1, rshape))

/// Drops dimension `k` where one before it was dropped already: copies the extents behind it, up to
/// but not including dimension `end`, each two places down.
CLOSURE_AS(74, void, (int k, I32Out coneshape, int end, I32 shape),
           copy_behind(k, end, shape, -2, coneshape))
CLOSURE_AS(92, void, (int k, I32Out coneshape, int end, I32 shape),
           copy_behind(k, end, shape, -2, coneshape))

/// Opens a place behind dimension `k`: copies all extents behind it, each one place up.
CLOSURE_AS(150, void, (int k, I32Out rshape, I32 shape),
           copy_behind(k, shape.length(), shape, 1, rshape))

/// Sets the extents of dimension `first` up to but not including `end` to 1.
CLOSURE_AS(213, void, (int first, int end, I32Out rshape),
           fill_n(rshape.from(first), int64_t{end} - first, 1))
CLOSURE_AS(230, void, (int first, int end, I32Out rshape),
           fill_n(rshape.from(first), int64_t{end} - first, 1))

/// Copies all of `sh` to the start of `shape`.
CLOSURE_AS(225, void, (I32 sh, I32Out shape), copy_n(sh, sh.length(), shape))

/// Pads `shape`, which starts with `sh`, with ones up to `n` dimensions.
CLOSURE_AS(226, void, (int n, I32 sh, I32Out shape),
           fill_n(shape.from(sh.length()), n - sh.length(), 1))

/// `count` plus the number of extents, among the first `n`, that are not 1.
CLOSURE(204, int, (int n, int count, I32 shape))
{
    for (int k = 0; k < n; ++k) count += static_cast<int>(shape[k] != 1);
    return count;
}

/// The extents, among the first `n`, that are not 1, in their order, to the start of `realshape`.
CLOSURE(205, void, (int n, I32Out realshape, I32 shape))
{
    int64_t count = 0;
    for (int k = 0; k < n; ++k)
        if (shape[k] != 1) realshape[count++] = shape[k];
}

/// The first subscripts of the parts of a stack in its dimension, from the extents `sdims` of the
/// `n` parts: offset[i + 1] = offset[i] + sdims[i]. offset[0] must be set before.
CLOSURE(236, void, (int n, I32Out offset, I32 sdims))
{
    for (int64_t i = 0; i < int64_t{n} - 1; ++i) offset[i + 1] = offset[i] + sdims[i];
}

/// Adds the extents in dimension `k` of the first `n` shapes of a list to rshape[k]. A shape of too
/// few dimensions, or an absent one, counts as 1.
CLOSURE(231, void, (int k, int n, I32Out rshape, I32List shapes))
{
    if (shapes.length() == 0) return;
    for (int i = 0; i < n; ++i) {
        const auto shape = shapes[i];
        rshape[k] += k < shape.length() ? shape[k] : 1;
    }
}

/// Fills a table of shapes, of `nrow` rows and `ncol` columns, with ones.
CLOSURE(250, void, (int nrow, int ncol, I32MatrixOut shape))
{
    if (is_empty(nrow, ncol)) return;
    for (int i = 0; i < nrow; ++i)
        for (int j = 0; j < ncol; ++j) shape(i, j) = 1;
}

/// Stores the shape `shpi` in row `row` of a table of shapes. Columns behind its last stay.
CLOSURE(252, void, (int row, I32MatrixOut shape, I32 shpi))
{
    for (int64_t j = 0; j < shpi.length(); ++j) shape(row, j) = shpi[j];
}

/// Adds the extents in dimension `k` of the first `n` shapes of a table to resshape[k], but for
/// that of row 0, from which `resshape` starts.
CLOSURE(253, void, (int k, int n, I32Out resshape, I32Matrix shape))
{
    for (int i = 1; i < n; ++i) resshape[k] += shape(i, k);
}

} // namespace fragments
