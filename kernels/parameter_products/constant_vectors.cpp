// What push_constant_vector starts with: 400 sizes a vector of constants, 401 writes its shape. The
// elements are written by the closures that make expressions of constant data.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// Sizes the terms of a constant vector: `count` plus the number of entries of `bfix` that aren't
/// equal to 0.0. A NaN counts.
CLOSURE(400, int, (F64 bfix, int count))
{
    for (int64_t i = 0; i < bfix.length(); ++i) count += bfix[i] != 0.0;
    return count;
}

/// Copies the `nd` extents of a shape from an array of the host's own to the r stack.
CLOSURE_AS(401, void, (int nd, I32Out ri32, int rshape_base, I32 shape),
           copy_n(shape, nd, ri32.from(rshape_base)))

} // namespace fragments
