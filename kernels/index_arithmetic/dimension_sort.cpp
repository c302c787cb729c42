// sort_dim: the elements of a sparse array in the order of their subscripts in one dimension, by a
// stable counting sort. From the last dimension to the first, with the two permutations exchanged
// in between, it sorts by all of them (LSD radix sort); another order of the dimensions gives the
// order of the permuted array. A pass costs the elements plus the extent.
//
// `sp` holds the linear indexes, of a shape `rshape` with the strides `rstrides`. The counters
// `ptr` are one more than the extent of the dimension `dim`.

#include "dimension_sort.h"
#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// The order as it is, to start from: perm[k] = k for k below `n`.
CLOSURE_AS(300, void, (I32Out perm, int n), iota_n(perm, n))

/// Clears the counters of `n` subscripts, and the one above them.
CLOSURE_AS(301, void, (int n, I32Out ptr), fill_n(ptr, int64_t{n} + 1, 0))

/// Counts the subscripts of the first `rnelem` elements in dimension `dim`, each one entry up:
/// subscript c is counted in ptr[c + 1].
CLOSURE_AS(302, void, (int dim, I32Out ptr, int rnelem, I32 rshape, I64 rstrides, I64 sp),
           count_subscripts(rnelem, dim, rshape, rstrides, sp, ptr))

/// From counts to starts, by a running sum in place: ptr[i + 1] += ptr[i] for i below `n`.
CLOSURE_AS(303, void, (int n, I32Out ptr), running_sum(ptr, n))

/// Places the elements perm[0] to perm[n - 1], in this order, each at the next place of its
/// subscript in dimension `dim`: `perm2` gets the element, and the start of its subscript in `ptr`
/// advances.
CLOSURE_AS(304, void,
           (int dim, I32 perm, I32Out perm2, I32Out ptr, int n, I32 rshape, I64 rstrides, I64 sp),
           place_by_subscript(n, perm, dim, rshape, rstrides, sp, ptr, perm2))

} // namespace fragments
