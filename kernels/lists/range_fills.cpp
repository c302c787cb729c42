// Range fills of a work stack with values that stand out: a section still holding one has not been
// written.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// i32[pos + i] = 99999 for i below `n`.
CLOSURE(608, void, (I32 i32, int n, int pos))
{
    fill_n(i32.from(pos), n, 99999);
}

} // namespace fragments
