// Range fills of a work stack with values that stand out: a section still holding one has not been
// written. Each kind has its own.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// Fills `n` entries from `pos` on.
CLOSURE_AS(608, void, (I32Out i32, int n, int pos), fill_n(i32.from(pos), n, 99999))
CLOSURE_AS(607, void, (I64Out i64, int n, int pos), fill_n(i64.from(pos), n, 99998))
CLOSURE_AS(606, void, (F64Out f64, int n, int pos), fill_n(f64.from(pos), n, 99997.0))

/// i64[pos] = n - 1, that one entry, if `n` is above 0.
CLOSURE(605, void, (I64Out i64, int n, int pos))
{
    if (n > 0) i64[pos] = n - 1;
}

} // namespace fragments
