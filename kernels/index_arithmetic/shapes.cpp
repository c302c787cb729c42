// Shapes made from shapes: copies, with a dimension dropped or a place opened, padded with ones,
// stacked along a dimension.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

// The first `n` extents.
CLOSURE_AS(60, void, (I32Out accshape, int n, I32 shape), copy_n(shape, n, accshape))
CLOSURE_AS(97, void, (I32Out accshape, int n, I32 shape), copy_n(shape, n, accshape))
CLOSURE_AS(72, void, (int n, I32Out coneshape, I32 shape), copy_n(shape, n, coneshape))
CLOSURE_AS(90, void, (int n, I32Out coneshape, I32 shape), copy_n(shape, n, coneshape))
CLOSURE_AS(149, void, (int n, I32Out rshape, I32 shape), copy_n(shape, n, rshape))
CLOSURE_AS(153, void, (int n, I32Out rshape, I32 shape), copy_n(shape, n, rshape))
CLOSURE_AS(212, void, (int n, I32Out rshape, I32 shape), copy_n(shape, n, rshape))
CLOSURE_AS(229, void, (int n, I32Out rshape, I32 shape0), copy_n(shape0, n, rshape))
CLOSURE_AS(291, void, (int n, I32Out rshape, I32 shapei), copy_n(shapei, n, rshape))

/// Onto the r stack.
CLOSURE_AS(145, void, (int n, I32Out ri32, I32 shape, int shape_base),
           copy_n(shape, n, ri32.from(shape_base)))

// A shape padded with ones: all of it first, then the ones.
CLOSURE_AS(225, void, (I32 sh, I32Out shape), copy_n(sh, sh.length(), shape))
CLOSURE_AS(226, void, (int n, I32 sh, I32Out shape),
           fill_n(shape.from(sh.length()), n - sh.length(), 1))

// Ones from dimension `first` up to but not including `end`.
CLOSURE_AS(213, void, (int first, int end, I32Out rshape),
           fill_n(rshape.from(first), int64_t{end} - first, 1))
CLOSURE_AS(230, void, (int first, int end, I32Out rshape),
           fill_n(rshape.from(first), int64_t{end} - first, 1))

// The extents behind dimension `k`: where they are,
CLOSURE_AS(154, void, (int k, int end, I32Out rshape, I32 shape),
           copy_behind(k, end, shape, 0, rshape))

// with dimension `k` dropped,
CLOSURE_AS(61, void, (I32Out accshape, int k, int end, I32 shape),
           copy_behind(k, end, shape, -1, accshape))
CLOSURE_AS(98, void, (I32Out accshape, int k, int end, I32 shape),
           copy_behind(k, end, shape, -1, accshape))
CLOSURE_AS(73, void, (int k, int end, I32Out coneshape, I32 shape),
           copy_behind(k, end, shape, -1, coneshape))
CLOSURE_AS(91, void, (int k, int end, I32Out coneshape, I32 shape),
           copy_behind(k, end, shape, -1, coneshape))
CLOSURE_AS(155, void, (int k, I32Out rshape, I32 shape),
           copy_behind(k, shape.length(), shape, -1, rshape))

// with a second one dropped that stands before it,
CLOSURE_AS(74, void, (int k, I32Out coneshape, int end, I32 shape),
           copy_behind(k, end, shape, -2, coneshape))
CLOSURE_AS(92, void, (int k, I32Out coneshape, int end, I32 shape),
           copy_behind(k, end, shape, -2, coneshape))

// and with a place opened.
CLOSURE_AS(150, void, (int k, I32Out rshape, I32 shape),
           copy_behind(k, shape.length(), shape, 1, rshape))

/// The extents that are not 1, which 204 counts.
CLOSURE(205, void, (int n, I32Out realshape, I32 shape))
{
    int64_t count = 0;
    for (int k = 0; k < n; ++k)
        if (shape[k] != 1) realshape[count++] = shape[k];
}

// Stacking along a dimension. An array of too few dimensions has the extent 1 in the others.

/// Whether `ok`, and the shape of an operand is that of the result but for dimension `dim`.
CLOSURE(292, bool, (int dim, bool ok, I32 rshape, I32 shapei))
{
    for (int64_t k = 0; ok && k < shapei.length(); ++k) ok = k == dim || rshape[k] == shapei[k];
    return ok;
}

/// The extent of operand `i` in the stacked dimension goes to `dimsizes`, and is added to `sum`.
/// `ok` falls if the operand has that dimension, and the result is above 1 in one that the operand
/// lacks. Returns (ok, sum).
CLOSURE(293, results(bool, int),
        (int dim, bool ok, int sum, I32Out dimsizes, int i, int nd, I32 rshape, I32 shapei))
{
    const bool has_dim = dim < shapei.length();
    const int extent = has_dim ? shapei[dim] : 1;
    dimsizes[i] = extent;
    if (has_dim)
        for (int64_t k = shapei.length(); ok && k < nd; ++k) ok = rshape[k] == 1;
    return {ok, sum + extent};
}

/// First subscripts of the stack's parts, from the part sizes `sdims`; offset[0] is the host's.
CLOSURE(236, void, (int n, I32Out offset, I32 sdims))
{
    for (int64_t i = 0; i < int64_t{n} - 1; ++i) offset[i + 1] = offset[i] + sdims[i];
}

/// Adds the extents in dimension `k` of all shapes of a list.
CLOSURE(231, void, (int k, int n, I32Out rshape, I32List shapes))
{
    if (shapes.length() == 0) return;
    for (int i = 0; i < n; ++i) {
        const auto shape = shapes[i];
        rshape[k] += k < shape.length() ? shape[k] : 1;
    }
}

// The same for a table with a shape in each row: filled with ones (250), then stored row by row.

CLOSURE(250, void, (int nrow, int ncol, I32MatrixOut shape))
{
    for (int i = 0; i < nrow; ++i)
        for (int j = 0; j < ncol; ++j) shape(i, j) = 1;
}

CLOSURE(252, void, (int row, I32MatrixOut shape, I32 shpi))
{
    for (int64_t j = 0; j < shpi.length(); ++j) shape(row, j) = shpi[j];
}

/// Adds the extents in dimension `k` but for that of row 0, from which the host starts `resshape`.
CLOSURE(253, void, (int k, int n, I32Out resshape, I32Matrix shape))
{
    for (int i = 1; i < n; ++i) resshape[k] += shape(i, k);
}

} // namespace fragments
