// Odometers: subscripts of several dimensions that step through a box, the last one fastest.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// Steps `ndidx` through the box with first[i] <= ndidx[i] < last[i]. The list has an entry for
/// each dimension; dimension 0 doesn't wrap: behind the last position ndidx[0] is last[0].
CLOSURE(112, void, (I32 first, I32 last, I32Out ndidx))
{
    int64_t i = ndidx.length() - 1;
    ++ndidx[i];
    for (; i > 0 && ndidx[i] >= last[i]; --i) {
        ndidx[i] = first[i];
        ++ndidx[i - 1];
    }
}

/// st[i] = value for i below `n`: the positions of 108 to begin with.
CLOSURE_AS(109, void, (int n, I64Out st, long long value), fill_n(st, n, value))
CLOSURE_AS(107, void, (int n, I64Out st, long long value), fill_n(st, n, value))
CLOSURE_AS(106, void, (int n, I64Out st, long long value), fill_n(st, n, value))

/// Steps the subscripts `ii`, the last dimension first, and the linear positions `st`: st[k] is
/// where level k began its present turn, and st[0] the present position. Level k belongs to
/// dimension `nd` - 1 - k of `dims` and `strides`; a level that carries restarts those below it
/// from its own position. The first dimension doesn't wrap.
CLOSURE(108, void, (I32 dims, I32Out ii, int nd, I64Out st, I64 strides))
{
    const int64_t inner = int64_t{nd} - 1;
    ++ii[0];
    st[0] += strides[inner];
    int64_t k = 0;
    for (; k < inner && ii[k] == dims[inner - k]; ++k) {
        ii[k] = 0;
        ++ii[k + 1];
        st[k + 1] += strides[inner - 1 - k];
    }
    for (int64_t j = 0; j < k; ++j) st[j] = st[k];
}

} // namespace fragments
