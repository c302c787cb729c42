// Stacking expressions along a dimension.

#include "closure_frame.h"

namespace fragments {

/// Extent of a stack: resshape[dim] += shapes[i][dim] for all shapes but the first, whose extents
/// `resshape` holds already.
CLOSURE(444, void, (int dim, I32 resshape, I32List shapes))
{
    for (int64_t i = 1; i < shapes.length(); ++i) resshape[dim] += shapes[i][dim];
}

} // namespace fragments
