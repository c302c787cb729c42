// Products, sums and extremes of extents. `init` is the value to start from, which comes back where
// there are no extents in the range. The arithmetic is in the type of the result: that of int
// wraps.

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// `init` times all extents, in 32 bits.
CLOSURE_AS(0, int, (int init, I32 shape), product(init, shape, shape.length()))
CLOSURE_AS(50, int, (int init, I32 shape), product(init, shape, shape.length()))
CLOSURE_AS(63, int, (int init, I32 shape), product(init, shape, shape.length()))
CLOSURE_AS(190, int, (int init, I32 shape), product(init, shape, shape.length()))
CLOSURE_AS(193, int, (I32 shape, int init), product(init, shape, shape.length()))
CLOSURE_AS(261, int, (I32 shape, int init), product(init, shape, shape.length()))

/// `init` times all extents, in 64 bits.
CLOSURE_AS(167, long long, (I32 shape, long long init), product(init, shape, shape.length()))
CLOSURE_AS(249, long long, (I32 shape, long long init), product(init, shape, shape.length()))

/// `init` times the first `n` extents, in 32 bits.
CLOSURE_AS(56, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(93, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(147, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(156, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(160, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(210, int, (int init, int n, I32 shape), product(init, shape, n))
CLOSURE_AS(254, int, (int init, int n, I32 resshape), product(init, resshape, n))
CLOSURE_AS(57, int, (int n, int init, I32 shape), product(init, shape, n))
CLOSURE_AS(69, int, (int n, int init, I32 shape), product(init, shape, n))
CLOSURE_AS(94, int, (int n, int init, I32 shape), product(init, shape, n))
CLOSURE_AS(198, int, (int n, int init, I32 shape), product(init, shape, n))
CLOSURE_AS(206, int, (int n, I32 shape, int init), product(init, shape, n))

/// `init` times the first `n` extents, in 64 bits.
CLOSURE_AS(84, long long, (int n, long long init, I32 shape), product(init, shape, n))

/// `init` times the first `n` extents of a shape on the r stack, at `shape_base`.
CLOSURE_AS(81, int, (int n, int init, I32 ri32, int shape_base),
           product(init, ri32.from(shape_base), n))

/// `init` times the first `n` extents; those that the shape doesn't have count as 1.
CLOSURE_AS(232, int, (int init, int n, I32 shape0),
           product(init, shape0, std::min<int64_t>(n, shape0.length())))

/// `init` times the first `n` extents but for those of dimensions `k1` and `k2`.
CLOSURE(83, int, (int k1, int k2, int n, int init, I32 shape))
{
    for (int k = 0; k < n; ++k)
        if (k != k1 && k != k2) init *= shape[k];
    return init;
}

/// `init` times the extents behind dimension `k`, up to but not including dimension `end`, in 32
/// bits.
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

/// `init` times the extents behind dimension `k`, up to but not including dimension `end`, in 64
/// bits.
CLOSURE_AS(85, long long, (int k, int end, long long init, I32 shape),
           product_behind(init, shape, k, end))
CLOSURE_AS(86, long long, (int k, long long init, int end, I32 shape),
           product_behind(init, shape, k, end))

/// `init` times all extents behind dimension `k`.
CLOSURE_AS(148, int, (int init, int k, I32 shape), product_behind(init, shape, k, shape.length()))
CLOSURE_AS(158, int, (int init, int k, I32 shape), product_behind(init, shape, k, shape.length()))
CLOSURE_AS(162, int, (int init, int k, I32 shape), product_behind(init, shape, k, shape.length()))
CLOSURE_AS(234, int, (int init, int k, I32 shape0),
           product_behind(init, shape0, k, shape0.length()))

/// The greatest of `init` and the first `n` entries.
CLOSURE_AS(52, int, (int init, int n, I32 shape), greatest(init, shape, n))
CLOSURE_AS(65, int, (int init, int n, I32 shape), greatest(init, shape, n))
CLOSURE_AS(217, int, (int init, int n, I32 rshape), greatest(init, rshape, n))
CLOSURE_AS(239, int, (int init, int n, I32 rshape), greatest(init, rshape, n))
CLOSURE_AS(228, int, (int n, I32 nds, int init), greatest(init, nds, n))

/// `init` plus the first `n` entries.
CLOSURE_AS(227, int, (int n, I32 numnz, int init), sum_n(init, numnz, n))
CLOSURE_AS(251, int, (int n, I32 numnz, int init), sum_n(init, numnz, n))
CLOSURE_AS(233, int, (int init, int n, I32 sdims), sum_n(init, sdims, n))

} // namespace fragments
