// sort_dim: the elements of a sparse array in the order of their subscripts in one dimension, by a
// stable counting sort whose steps are 300 to 304. From the last dimension to the first, with
// `perm` and `perm2` exchanged in between, it sorts by all of them (LSD radix sort); a permutation
// of the dimensions gives the order of the transposed array.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

// The order as it is.
CLOSURE_AS(300, void, (I32 perm, int n), iota_n(perm, n))
CLOSURE_AS(53, void, (I32 curperm, int n), iota_n(curperm, n))
CLOSURE_AS(66, void, (I32 curperm, int n), iota_n(curperm, n))
CLOSURE_AS(219, void, (I32 curperm, int n), iota_n(curperm, n))
CLOSURE_AS(237, void, (I32 curperm, int n), iota_n(curperm, n))
CLOSURE_AS(152, void, (int n, I64 perm), iota_n(perm, n))

/// Clears the counters of `n` subscripts and the one above them.
CLOSURE_AS(301, void, (int n, I32 ptr), fill_n(ptr, int64_t{n} + 1, 0))

/// Counts the subscripts, each one entry up.
CLOSURE(302, void, (int dim, I32 ptr, int rnelem, I32 rshape, I64 rstrides, I64 sp))
{
    count_keys(
        rnelem, [&](int64_t k) { return subscript(sp[k], rstrides[dim], rshape[dim]); }, ptr);
}

CLOSURE_AS(303, void, (int n, I32 ptr), running_sum(ptr, n))

/// Each element, in the order of `perm`, to the next place of its subscript in `perm2`.
CLOSURE(304, void, (int dim, I32 perm, I32 perm2, I32 ptr, int n, I32 rshape, I64 rstrides, I64 sp))
{
    place_by_key(
        n, [&](int64_t k) { return perm[k]; },
        [&](int64_t p) { return subscript(sp[p], rstrides[dim], rshape[dim]); }, ptr, perm2);
}

} // namespace fragments
