// Row-major strides, last dimension fastest: each is the next one times the next extent.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// Row-major strides of a shape of `n` dimensions, in 64 bits. The last one must be set before;
/// with fewer than two dimensions nothing is written.
CLOSURE_AS(43, void, (int n, I32 shape, I64Out strides), row_major_strides(shape, n, strides))
CLOSURE_AS(175, void, (int n, I32 shape, I64Out strides), row_major_strides(shape, n, strides))
CLOSURE_AS(180, void, (int n, I32 shape, I64Out strides), row_major_strides(shape, n, strides))
CLOSURE_AS(257, void, (int n, I32 shape, I64Out strides), row_major_strides(shape, n, strides))
CLOSURE_AS(218, void, (int n, I32 rshape, I64Out s), row_major_strides(rshape, n, s))
CLOSURE_AS(240, void, (int n, I32 rshape, I64Out s), row_major_strides(rshape, n, s))

/// The same in 32 bits: row-major strides of a shape of `n` dimensions, of which the last one must
/// be set before.
CLOSURE_AS(99, void, (int n, I32 shape, I32Out stride), row_major_strides(shape, n, stride))

/// All row-major strides of a shape of `n` dimensions, in 32 bits, the last one 1.
CLOSURE_AS(49, void, (int n, I32 shape, I32Out strides), all_row_major_strides(shape, n, strides))
CLOSURE_AS(62, void, (int n, I32 shape, I32Out strides), all_row_major_strides(shape, n, strides))

/// Row-major strides, in 64 bits, of the shape of `n` dimensions whose dimension k is dimension
/// perm[k] of `shape`. The last one must be set before.
CLOSURE(207, void, (int n, I32 perm, I64Out pstrides, I32 shape))
{
    for (int64_t k = int64_t{n} - 1; k > 0; --k) pstrides[k - 1] = shape[perm[k]] * pstrides[k];
}

} // namespace fragments
