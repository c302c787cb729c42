// sort_pattern: the entries of a pattern in row-major order, by an LSD radix sort over the
// dimensions of the result, from the last to the first: each pass is a stable counting sort by the
// subscripts in one dimension. The permutations `curperm` and `tgtperm` swap roles after each. A
// pass costs the entries plus the extent.
//
// `rsp` holds the linear indexes, of a shape `rshape` with the strides `s`. The counters `ptr` are
// one more than the largest extent.

#include "algorithms.h"
#include "closure_frame.h"
#include "dimension_sort.h"

namespace fragments {

/// The identity permutation, to start from: entry i is i, for i below `n`.
CLOSURE_AS(53, void, (I32Out curperm, int n), iota_n(curperm, n))
CLOSURE_AS(66, void, (I32Out curperm, int n), iota_n(curperm, n))
CLOSURE_AS(219, void, (I32Out curperm, int n), iota_n(curperm, n))
CLOSURE_AS(237, void, (I32Out curperm, int n), iota_n(curperm, n))
CLOSURE_AS(152, void, (int n, I64Out perm), iota_n(perm, n))

/// Clears the counters of the subscripts in dimension `k`, and the one above them.
CLOSURE_AS(220, void, (int k, I32Out ptr, I32 rshape), fill_n(ptr, int64_t{rshape[k]} + 1, 0))
CLOSURE_AS(241, void, (int k, I32Out ptr, I32 rshape), fill_n(ptr, int64_t{rshape[k]} + 1, 0))

/// Counts the subscripts of the `n` entries in dimension `k`, each one entry up: subscript c is
/// counted in ptr[c + 1].
CLOSURE_AS(221, void, (int k, I32Out ptr, int n, I32 rshape, I64 rsp, I64 s),
           count_subscripts(n, k, rshape, s, rsp, ptr))
CLOSURE_AS(242, void, (int k, I32Out ptr, int n, I32 rshape, I64 rsp, I64 s),
           count_subscripts(n, k, rshape, s, rsp, ptr))

/// From counts to starts, by a running sum in place over the extent of dimension `k`.
CLOSURE_AS(222, void, (int k, I32Out ptr, I32 rshape), running_sum(ptr, rshape[k]))
CLOSURE_AS(243, void, (int k, I32Out ptr, I32 rshape), running_sum(ptr, rshape[k]))

/// Places the `n` entries in the order of `curperm`, each at the next place of its subscript in
/// dimension `k`: `tgtperm` gets the entry, and the start of its subscript in `ptr` advances.
CLOSURE_AS(223, void,
           (I32 curperm, int k, I32Out ptr, int n, I32 rshape, I64 rsp, I64 s, I32Out tgtperm),
           place_by_subscript(n, curperm, k, rshape, s, rsp, ptr, tgtperm))
CLOSURE_AS(244, void,
           (I32 curperm, int k, I32Out ptr, int n, I32 rshape, I64 rsp, I64 s, I32Out tgtperm),
           place_by_subscript(n, curperm, k, rshape, s, rsp, ptr, tgtperm))

} // namespace fragments
