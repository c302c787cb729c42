// Products, sums and extremes of extents. `start` is the value to start from, which comes back
// where there are no extents in the range. The arithmetic is in the type of the result: that of int
// wraps.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// `start` times all extents, in 32 bits.
CLOSURE_AS(262, int, (I32 shape, int start), product(start, shape, shape.length()))
CLOSURE_AS(277, int, (I32 dims, int start), product(start, dims, dims.length()))

/// `start` times all extents, in 64 bits.
CLOSURE_AS(268, long long, (I32 shape, long long start), product(start, shape, shape.length()))
CLOSURE_AS(281, long long, (I32 dims, long long start), product(start, dims, dims.length()))
CLOSURE_AS(288, long long, (I32 dim, long long start), product(start, dim, dim.length()))
CLOSURE_AS(276, long long, (long long start, I32 shape), product(start, shape, shape.length()))
CLOSURE_AS(278, long long, (long long start, I32 shape), product(start, shape, shape.length()))
CLOSURE_AS(279, long long, (long long start, I32 shape), product(start, shape, shape.length()))
CLOSURE_AS(280, long long, (long long start, I32 shape), product(start, shape, shape.length()))

/// `start` times the first `n` extents, in 32 bits.
CLOSURE_AS(318, int, (int start, int n, I32 rshape), product(start, rshape, n))

/// `start` times the first `n` extents, in 64 bits.
CLOSURE_AS(295, long long, (int n, long long start, I32 rshape), product(start, rshape, n))

/// `start` times the extents behind dimension `first`, up to but not including dimension `last`, in
/// 64 bits.
CLOSURE_AS(296, long long, (int first, long long start, int last, I32 rshape),
           product_behind(start, rshape, first, last))

/// `start` plus all entries of `nnzs`.
CLOSURE_AS(294, int, (I32 nnzs, int start), sum_n(start, nnzs, nnzs.length()))

/// The greatest of `start` and the extents of dimensions 1 to `n` - 1. That of dimension 0 isn't
/// read: it comes as `start`.
CLOSURE_AS(298, int, (int start, int n, I32 rshape),
           greatest(start, rshape.from(1), int64_t{n} - 1))

} // namespace fragments
