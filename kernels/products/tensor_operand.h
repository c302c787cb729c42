#pragma once

/// Sparse constant tensors as operands: a list of row-major linear indexes into an expression's
/// shape, strictly ascending, with the values beside it.

#include "algorithms.h"
#include "array.h"
#include "subscripts.h"

namespace fragments {

/// Calls `meet(k, q)` for each index k of the list that an expression stores, as its element q:
/// all of them if it is dense.
template <class S, class Meet>
void for_each_met_element(I64<S> list, bool hassp, int nelem, I64<S> sp, Meet meet)
{
    const int64_t n = list.length();
    if (!hassp) {
        for (int64_t k = 0; k < n; ++k) meet(k, list[k]);
        return;
    }
    for_each_match(
        {0, n}, [&](int64_t k) { return list[k]; }, {0, nelem}, [&](int64_t q) { return sp[q]; },
        meet);
}

} // namespace fragments
