// LSD radix sort of a pattern, a dimension a pass, the last one first, each in four steps: the
// counters to zero, the count of subscripts, their running sum, and the placing. Stable.
//
// `rsp` holds `n` linear indexes in any order, of a shape `rshape` with strides `s`. `curperm` is
// the order before the pass for dimension k, at first the identity, and `tgtperm` the one after it.
// `ptr` has room for the largest extent and one more. A pass costs n plus the extent.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// Subscript in dimension k of entry i.
template <class S>
auto subscript_of(I64<S> rsp, int k, I32<S> rshape, I64<S> s)
{
    return [=](int64_t i) { return subscript(rsp[i], s[k], rshape[k]); };
}

template <class S>
void clear_counters(int k, I32<S> ptr, I32<S> rshape)
{
    fill_n(ptr, int64_t{rshape[k]} + 1, 0);
}

template <class S>
void place_by_subscript(I32<S> curperm, int k, I32<S> ptr, int n, I32<S> rshape, I64<S> rsp,
                        I64<S> s, I32<S> tgtperm)
{
    place_by_key(
        n, [=](int64_t i) { return curperm[i]; }, subscript_of(rsp, k, rshape, s), ptr, tgtperm);
}

} // namespace

CLOSURE_AS(220, void, (int k, I32 ptr, I32 rshape), clear_counters(k, ptr, rshape))
CLOSURE_AS(241, void, (int k, I32 ptr, I32 rshape), clear_counters(k, ptr, rshape))

CLOSURE_AS(221, void, (int k, I32 ptr, int n, I32 rshape, I64 rsp, I64 s),
           count_keys(n, subscript_of(rsp, k, rshape, s), ptr))
CLOSURE_AS(242, void, (int k, I32 ptr, int n, I32 rshape, I64 rsp, I64 s),
           count_keys(n, subscript_of(rsp, k, rshape, s), ptr))

CLOSURE_AS(222, void, (int k, I32 ptr, I32 rshape), running_sum(ptr, rshape[k]))
CLOSURE_AS(243, void, (int k, I32 ptr, I32 rshape), running_sum(ptr, rshape[k]))

CLOSURE_AS(223, void, (I32 curperm, int k, I32 ptr, int n, I32 rshape, I64 rsp, I64 s, I32 tgtperm),
           place_by_subscript(curperm, k, ptr, n, rshape, rsp, s, tgtperm))
CLOSURE_AS(244, void, (I32 curperm, int k, I32 ptr, int n, I32 rshape, I64 rsp, I64 s, I32 tgtperm),
           place_by_subscript(curperm, k, ptr, n, rshape, rsp, s, tgtperm))

} // namespace fragments
