// Products, sums and extremes of extents. `init` or `start` is the value to start from, which comes
// back where there are no extents in the range. The arithmetic is in the type of the result: that
// of int wraps.

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

// All extents.
CLOSURE_AS(0, int, (int init, I32 shape), product(init, shape, shape.length()))
CLOSURE_AS(50, int, (int init, I32 shape), product(init, shape, shape.length()))
CLOSURE_AS(63, int, (int init, I32 shape), product(init, shape, shape.length()))
CLOSURE_AS(190, int, (int init, I32 shape), product(init, shape, shape.length()))
CLOSURE_AS(193, int, (I32 shape, int init), product(init, shape, shape.length()))
CLOSURE_AS(261, int, (I32 shape, int init), product(init, shape, shape.length()))
CLOSURE_AS(262, int, (I32 shape, int start), product(start, shape, shape.length()))
CLOSURE_AS(277, int, (I32 dims, int start), product(start, dims, dims.length()))

// All extents, in 64 bits.
CLOSURE_AS(167, long long, (I32 shape, long long init), product(init, shape, shape.length()))
CLOSURE_AS(249, long long, (I32 shape, long long init), product(init, shape, shape.length()))
CLOSURE_AS(268, long long, (I32 shape, long long start), product(start, shape, shape.length()))
CLOSURE_AS(281, long long, (I32 dims, long long start), product(start, dims, dims.length()))
CLOSURE_AS(288, long long, (I32 dim, long long start), product(start, dim, dim.length()))
CLOSURE_AS(276, long long, (long long start, I32 shape), product(start, shape, shape.length()))
CLOSURE_AS(278, long long, (long long start, I32 shape), product(start, shape, shape.length()))
CLOSURE_AS(279, long long, (long long start, I32 shape), product(start, shape, shape.length()))
CLOSURE_AS(280, long long, (long long start, I32 shape), product(start, shape, shape.length()))

// The first `n` extents.
CLOSURE_AS(56, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(93, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(147, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(156, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(160, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(210, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(254, int, (int init, int n, I32 resshape), product(init, resshape, n))
CLOSURE_AS(318, int, (int start, int n, I32 rshape), product(start, rshape, n))
CLOSURE_AS(57, int, (int n, int init, I32 shape), product(init, shape, n))
CLOSURE_AS(69, int, (int n, int init, I32 shape), product(init, shape, n))
CLOSURE_AS(94, int, (int n, int init, I32 shape), product(init, shape, n))
CLOSURE_AS(198, int, (int n, int init, I32 shape), product(init, shape, n))
CLOSURE_AS(206, int, (int n, I32 shape, int init), product(init, shape, n))

/// Of a shape on the r stack.
CLOSURE_AS(81, int, (int n, int init, I32 ri32, int shape_base),
           product(init, ri32.from(shape_base), n))

/// Extents that the shape doesn't have count as 1.
CLOSURE_AS(232, int, (int init, int n, I32 shape0),
           product(init, shape0, std::min<int64_t>(n, shape0.length())))

// The first `n` extents, in 64 bits.
CLOSURE_AS(84, long long, (int n, long long init, I32 shape), product(init, shape, n))
CLOSURE_AS(295, long long, (int n, long long start, I32 rshape), product(start, rshape, n))

// The extents behind dimension `k`, up to but not including dimension `end`.
CLOSURE_AS(157, int, (int init, int k, int end, I32 shape), product_behind(init, shape, k, end))
CLOSURE_AS(161, int, (int init, int k, int end, I32 shape), product_behind(init, shape, k, end))
CLOSURE_AS(211, int, (int init, int k, int end, I32 shape), product_behind(init, shape, k, end))
CLOSURE_AS(255, int, (int init, int k, int end, I32 resshape),
           product_behind(init, resshape, k, end))
CLOSURE_AS(58, int, (int k, int init, int end, I32 shape), product_behind(init, shape, k, end))
CLOSURE_AS(95, int, (int k, int init, int end, I32 shape), product_behind(init, shape, k, end))
CLOSURE_AS(200, int, (int k, int init, int end, I32 shape), product_behind(init, shape, k, end))
CLOSURE_AS(70, int, (int k, int end, int init, I32 shape), product_behind(init, shape, k, end))
CLOSURE_AS(71, int, (int k, int end, int init, I32 shape), product_behind(init, shape, k, end))
CLOSURE_AS(199, int, (int k, int end, int init, I32 shape), product_behind(init, shape, k, end))

// All extents behind dimension `k`.
CLOSURE_AS(148, int, (int init, int k, I32 shape), product_behind(init, shape, k, shape.length()))
CLOSURE_AS(158, int, (int init, int k, I32 shape), product_behind(init, shape, k, shape.length()))
CLOSURE_AS(162, int, (int init, int k, I32 shape), product_behind(init, shape, k, shape.length()))
CLOSURE_AS(234, int, (int init, int k, I32 shape0),
           product_behind(init, shape0, k, shape0.length()))

// The extents behind dimension `k` or `first`, in 64 bits.
CLOSURE_AS(85, long long, (int k, int end, long long init, I32 shape),
           product_behind(init, shape, k, end))
CLOSURE_AS(86, long long, (int k, long long init, int end, I32 shape),
           product_behind(init, shape, k, end))
CLOSURE_AS(296, long long, (int first, long long start, int last, I32 rshape),
           product_behind(start, rshape, first, last))

/// The first `n` extents but for those of dimensions `k1` and `k2`.
CLOSURE(83, int, (int k1, int k2, int n, int init, I32 shape))
{
    for (int k = 0; k < n; ++k)
        if (k != k1 && k != k2) init *= shape[k];
    return init;
}

// The greatest of the first `n` entries.
CLOSURE_AS(52, int, (int init, int n, I32 shape), greatest(init, shape, n))
CLOSURE_AS(65, int, (int init, int n, I32 shape), greatest(init, shape, n))
CLOSURE_AS(217, int, (int init, int n, I32 rshape), greatest(init, rshape, n))
CLOSURE_AS(239, int, (int init, int n, I32 rshape), greatest(init, rshape, n))
CLOSURE_AS(228, int, (int n, I32 nds, int init), greatest(init, nds, n))

/// The same but for entry 0, which the host passes as `start`.
CLOSURE_AS(298, int, (int start, int n, I32 rshape),
           greatest(start, rshape.from(1), int64_t{n} - 1))

// Sums.
CLOSURE_AS(227, int, (int n, I32 numnz, int init), sum_n(init, numnz, n))
CLOSURE_AS(251, int, (int n, I32 numnz, int init), sum_n(init, numnz, n))
CLOSURE_AS(233, int, (int init, int n, I32 sdims), sum_n(init, sdims, n))
CLOSURE_AS(294, int, (I32 nnzs, int start), sum_n(start, nnzs, nnzs.length()))

/// Number of extents that are not 1, added to `count`.
CLOSURE(204, int, (int n, int count, I32 shape))
{
    for (int k = 0; k < n; ++k) count += static_cast<int>(shape[k] != 1);
    return count;
}

} // namespace fragments
