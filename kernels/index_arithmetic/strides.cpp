// Row-major strides, last dimension fastest: strides[k - 1] = extents[k] * strides[k]. The host
// stores the last stride, unless told otherwise; with fewer than two dimensions nothing is written.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

CLOSURE_AS(43, void, (int n, I32 shape, I64Out strides), row_major_strides(shape, n, strides))
CLOSURE_AS(175, void, (int n, I32 shape, I64Out strides), row_major_strides(shape, n, strides))
CLOSURE_AS(180, void, (int n, I32 shape, I64Out strides), row_major_strides(shape, n, strides))
CLOSURE_AS(257, void, (int n, I32 shape, I64Out strides), row_major_strides(shape, n, strides))
CLOSURE_AS(306, void, (int nd, I32 shape, I64Out strides), row_major_strides(shape, nd, strides))
CLOSURE_AS(273, void, (int nd, I32 shape, I64Out st), row_major_strides(shape, nd, st))
CLOSURE_AS(317, void, (int nd, I32 shape, I64Out stride), row_major_strides(shape, nd, stride))
CLOSURE_AS(218, void, (int n, I32 rshape, I64Out s), row_major_strides(rshape, n, s))
CLOSURE_AS(240, void, (int n, I32 rshape, I64Out s), row_major_strides(rshape, n, s))
CLOSURE_AS(299, void, (int nd, I32 rshape, I64Out rstrides),
           row_major_strides(rshape, nd, rstrides))
CLOSURE_AS(321, void, (int nd, I32 rshape, I64Out rstride), row_major_strides(rshape, nd, rstride))

// In 32 bits.
CLOSURE_AS(99, void, (int n, I32 shape, I32Out stride), row_major_strides(shape, n, stride))

// In 32 bits, with the last stride.
CLOSURE_AS(49, void, (int n, I32 shape, I32Out strides), all_row_major_strides(shape, n, strides))
CLOSURE_AS(62, void, (int n, I32 shape, I32Out strides), all_row_major_strides(shape, n, strides))

/// Strides of the shape whose dimension k is dimension perm[k] of `shape`.
CLOSURE(207, void, (int n, I32 perm, I64Out pstrides, I32 shape))
{
    for (int64_t k = int64_t{n} - 1; k > 0; --k) pstrides[k - 1] = shape[perm[k]] * pstrides[k];
}

} // namespace fragments
