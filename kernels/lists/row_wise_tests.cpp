// Consistency of an expression that the host holds row by row: the linear indexes `inst` (i64) of
// its stored elements, the row starts `ptrb` (i64), and its shape.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// Whether `sorted`, and the `n` + 1 row starts never descend.
CLOSURE_AS(604, bool, (int n, I64 ptrb, bool sorted), ascending(sorted, ptrb, int64_t{n} + 1))

/// Whether `sorted`, and each index but the first is within [0, `size`) and greater than the one
/// before it.
CLOSURE(603, bool, (I64 inst, bool sorted, long long size))
{
    for (int64_t i = 1; sorted && i < inst.length(); ++i)
        sorted = inst[i] >= 0 && inst[i] < size && inst[i] > inst[i - 1];
    return sorted;
}

/// `size` times the first `n` extents.
CLOSURE_AS(602, long long, (int n, I32 shape, long long size), product(size, shape, n))

} // namespace fragments
