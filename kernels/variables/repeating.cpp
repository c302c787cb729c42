// Repeating a variable along a dimension: its list and pattern (`tnativeidxs`, `tsp`) `copies`
// times in the result (`rnativeidxs`, `rsp`), from place `pos` on. All return the place behind what
// they have written.

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// Along a new first dimension; `span` is the number of positions of the source. The result
/// ascends.
CLOSURE(214, int,
        (long long span, int pos, int copies, int n, I64Out rnativeidxs, I64Out rsp,
         I64 tnativeidxs, I64 tsp))
{
    for (int64_t k = 0; k < copies; ++k) {
        const auto places = rsp.from(pos);
        const auto indexes = rnativeidxs.from(pos);
        for (int64_t i = 0; i < n; ++i) {
            places[i] = span * k + tsp[i];
            indexes[i] = tnativeidxs[i];
        }
        pos += std::max(n, 0);
    }
    return pos;
}

/// Along a new last dimension. The result ascends.
CLOSURE(215, int,
        (int pos, int copies, int n, I64Out rnativeidxs, I64Out rsp, I64 tnativeidxs, I64 tsp))
{
    for (int64_t i = 0; i < n; ++i)
        for (int64_t k = 0; k < copies; ++k) {
            rsp[pos] = tsp[i] * copies + k;
            rnativeidxs[pos] = tnativeidxs[i];
            ++pos;
        }
    return pos;
}

/// Along a dimension that is there, of extent `ext`: the copies follow each other as blocks. An
/// index of the source has the strides `st_q` before the dimension and `st_m` in it, one of the
/// result `rst_q` and `inner`. The result is still to be sorted (dimension_sort.cpp).
CLOSURE(216, int,
        (int ext, int inner, int pos, int copies, int n, int rst_q, I64Out rnativeidxs, I64Out rsp,
         int st_q, int st_m, I64 tnativeidxs, I64 tsp))
{
    for (int64_t i = 0; i < n; ++i)
        for (int64_t k = 0; k < copies; ++k) {
            const int64_t v = tsp[i];
            rsp[pos] = (v / st_m % ext + k * ext) * inner + v / st_q * rst_q + v % inner;
            rnativeidxs[pos] = tnativeidxs[i];
            ++pos;
        }
    return pos;
}

/// The same for a dense variable of shape (nouter, ext, inner), read once in its order from place
/// `pos` on, into a list of strides (rst_outer, rst_b, 1). Returns the place behind what it has
/// read.
CLOSURE(224, int,
        (int nouter, int ext, int inner, int pos, int copies, I64Out rnativeidxs, int rst_outer,
         int rst_b, I64 tnativeidxs))
{
    for (int64_t a = 0; a < nouter; ++a)
        for (int64_t b = 0; b < ext; ++b)
            for (int64_t c = 0; c < inner; ++c) {
                const int64_t v = tnativeidxs[pos++];
                for (int64_t k = 0; k < copies; ++k)
                    rnativeidxs[a * rst_outer + (k * ext + b) * rst_b + c] = v;
            }
    return pos;
}

} // namespace fragments
