#pragma once

/// The tests of sparse constant matrices: triplet lists `msubi`, `msubj` with the values beside
/// them, ordered strictly by row and then column.

#include <tuple>

#include "algorithms.h"
#include "array.h"

namespace fragments {

/// Whether some entry lies outside md0 x md1.
template <class S>
bool has_bad_index(int md0, int md1, int64_t mnnz, I32<S> msubi, I32<S> msubj)
{
    for (int64_t k = 0; k < mnnz; ++k)
        if (msubi[k] < 0 || msubi[k] >= md0 || msubj[k] < 0 || msubj[k] >= md1) return true;
    return false;
}

/// Whether some entry doesn't come strictly behind the one before it.
template <class S>
bool has_bad_order(int64_t mnnz, I32<S> msubi, I32<S> msubj)
{
    for (int64_t k = 0; k < mnnz - 1; ++k)
        if (msubi[k + 1] < msubi[k] || (msubi[k + 1] == msubi[k] && msubj[k + 1] <= msubj[k]))
            return true;
    return false;
}

/// The flags (badidx, badorder) once both tests have run, whatever the other finds. A flag that is
/// set stays set.
template <class S>
std::tuple<bool, bool> test_independently(bool badidx, bool badorder, int md0, int md1,
                                          int64_t mnnz, I32<S> msubi, I32<S> msubj)
{
    return {badidx || has_bad_index(md0, md1, mnnz, msubi, msubj),
            badorder || has_bad_order(mnnz, msubi, msubj)};
}

} // namespace fragments
