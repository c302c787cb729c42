// Row-major strides, last dimension fastest, as linear indexes are counted in.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// Row-major strides of a shape of `nd` dimensions, in 64 bits: each is the next one times the next
/// extent. The last one must be set before; with fewer than two dimensions nothing is written.
CLOSURE_AS(273, void, (int nd, I32 shape, I64Out st), row_major_strides(shape, nd, st))
CLOSURE_AS(299, void, (int nd, I32 rshape, I64Out rstrides),
           row_major_strides(rshape, nd, rstrides))
CLOSURE_AS(306, void, (int nd, I32 shape, I64Out strides), row_major_strides(shape, nd, strides))
CLOSURE_AS(317, void, (int nd, I32 shape, I64Out stride), row_major_strides(shape, nd, stride))
CLOSURE_AS(321, void, (int nd, I32 rshape, I64Out rstride), row_major_strides(rshape, nd, rstride))

} // namespace fragments
