// sort_dim, sort_pattern: the elements of a sparse array in the order of their subscripts in one
// dimension, by a stable counting sort in four steps: the counters to zero, the count of
// subscripts, their running sum, and the placing. From the last dimension to the first, with the
// two permutations exchanged in between, it sorts by all of them (LSD radix sort); another order of
// the dimensions gives the order of the permuted array. A pass costs the elements plus the extent.
//
// `sp` or `rsp` holds the linear indexes, of a shape `rshape` with the strides `rstrides` or `s`.
// The counters `ptr` are one more than the dimension's extent.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// Subscript in dimension `dim` of element k.
template <class S>
auto subscript_in(int dim, I32<S> rshape, I64<S> strides, I64<S> sp)
{
    return [=](int64_t k) { return subscript(sp[k], strides[dim], rshape[dim]); };
}

/// The elements in the order of `perm`, each to the next place of its subscript in `perm2`.
template <class S, class Subscript>
void place(int64_t n, I32<S> perm, Subscript subscript_of, I32Out<S> ptr, I32Out<S> perm2)
{
    place_by_key(
        n, [=](int64_t k) { return perm[k]; }, subscript_of, ptr, perm2);
}

} // namespace

// The order as it is.
CLOSURE_AS(300, void, (I32Out perm, int n), iota_n(perm, n))
CLOSURE_AS(53, void, (I32Out curperm, int n), iota_n(curperm, n))
CLOSURE_AS(66, void, (I32Out curperm, int n), iota_n(curperm, n))
CLOSURE_AS(219, void, (I32Out curperm, int n), iota_n(curperm, n))
CLOSURE_AS(237, void, (I32Out curperm, int n), iota_n(curperm, n))
CLOSURE_AS(152, void, (int n, I64Out perm), iota_n(perm, n))

// The counters to zero: those of `n` subscripts, or of dimension `k`, and the one above them.
CLOSURE_AS(301, void, (int n, I32Out ptr), fill_n(ptr, int64_t{n} + 1, 0))
CLOSURE_AS(220, void, (int k, I32Out ptr, I32 rshape), fill_n(ptr, int64_t{rshape[k]} + 1, 0))
CLOSURE_AS(241, void, (int k, I32Out ptr, I32 rshape), fill_n(ptr, int64_t{rshape[k]} + 1, 0))

// The count, each subscript one entry up.
CLOSURE_AS(302, void, (int dim, I32Out ptr, int rnelem, I32 rshape, I64 rstrides, I64 sp),
           count_keys(rnelem, subscript_in(dim, rshape, rstrides, sp), ptr))
CLOSURE_AS(221, void, (int k, I32Out ptr, int n, I32 rshape, I64 rsp, I64 s),
           count_keys(n, subscript_in(k, rshape, s, rsp), ptr))
CLOSURE_AS(242, void, (int k, I32Out ptr, int n, I32 rshape, I64 rsp, I64 s),
           count_keys(n, subscript_in(k, rshape, s, rsp), ptr))

// The running sum.
CLOSURE_AS(303, void, (int n, I32Out ptr), running_sum(ptr, n))
CLOSURE_AS(222, void, (int k, I32Out ptr, I32 rshape), running_sum(ptr, rshape[k]))
CLOSURE_AS(243, void, (int k, I32Out ptr, I32 rshape), running_sum(ptr, rshape[k]))

// The placing.
CLOSURE_AS(304, void,
           (int dim, I32 perm, I32Out perm2, I32Out ptr, int n, I32 rshape, I64 rstrides, I64 sp),
           place(n, perm, subscript_in(dim, rshape, rstrides, sp), ptr, perm2))
CLOSURE_AS(223, void,
           (I32 curperm, int k, I32Out ptr, int n, I32 rshape, I64 rsp, I64 s, I32Out tgtperm),
           place(n, curperm, subscript_in(k, rshape, s, rsp), ptr, tgtperm))
CLOSURE_AS(244, void,
           (I32 curperm, int k, I32Out ptr, int n, I32 rshape, I64 rsp, I64 s, I32Out tgtperm),
           place(n, curperm, subscript_in(k, rshape, s, rsp), ptr, tgtperm))

} // namespace fragments
