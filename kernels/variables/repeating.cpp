// Repeating a variable along a dimension: its index list and its pattern of `n` entries
// (`tnativeidxs`, `tsp`) `copies` times in the result (`rnativeidxs`, `rsp`).

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "subscripts.h"

namespace fragments {

/// Repeats a sparse variable along a new first dimension, from slot `pos` on; `span` is the number
/// of positions of the source. The result ascends as the source does. Returns the slot behind the
/// last.
CLOSURE(214, int,
        (long long span, int pos, int copies, int n, I64Out rnativeidxs, I64Out rsp,
         I64 tnativeidxs, I64 tsp))
{
    if (is_empty(n)) return pos;
    for (int64_t k = 0; k < copies; ++k) {
        const auto places = rsp.from(pos);
        const auto indexes = rnativeidxs.from(pos);
        for (int64_t i = 0; i < n; ++i) {
            places[i] = span * k + tsp[i];
            indexes[i] = tnativeidxs[i];
        }
        pos += n;
    }
    return pos;
}

/// Repeats a sparse variable along a new last dimension, from slot `pos` on. The result ascends as
/// the source does. Returns the slot behind the last.
CLOSURE(215, int,
        (int pos, int copies, int n, I64Out rnativeidxs, I64Out rsp, I64 tnativeidxs, I64 tsp))
{
    if (is_empty(copies)) return pos;
    for (int64_t i = 0; i < n; ++i)
        for (int64_t k = 0; k < copies; ++k) {
            rsp[pos] = tsp[i] * copies + k;
            rnativeidxs[pos] = tnativeidxs[i];
            ++pos;
        }
    return pos;
}

/// Repeats a sparse variable as a block along a dimension that it has, of extent `ext`, from slot
/// `pos` on: copy k lies k * `ext` further on. In the source `st_q` is the stride before the
/// dimension and `st_m` that of the dimension, in the result `rst_q` and `inner`; `inner` is the
/// number of positions behind the dimension. The copies of an entry are adjacent, so the result is
/// still to be sorted. Returns the slot behind the last.
CLOSURE(216, int,
        (int ext, int inner, int pos, int copies, int n, int rst_q, I64Out rnativeidxs, I64Out rsp,
         int st_q, int st_m, I64 tnativeidxs, I64 tsp))
{
    if (is_empty(copies)) return pos;
    const int64_t block = int64_t{ext} * inner;
    for (int64_t i = 0; i < n; ++i) {
        const int64_t v = tsp[i];
        const int64_t first =
            subscript(v, st_m, ext) * inner + quotient(v, st_q) * rst_q + remainder(v, inner);
        for (int64_t k = 0; k < copies; ++k) {
            rsp[pos] = first + k * block;
            rnativeidxs[pos] = tnativeidxs[i];
            ++pos;
        }
    }
    return pos;
}

/// Repeats a dense variable of shape (`nouter`, `ext`, `inner`) as a block along its middle
/// dimension. It is read once, in its order, from place `pos` of `tnativeidxs` on; the result has
/// the strides `rst_outer`, `rst_b` and 1. Returns the place behind the last that was read.
CLOSURE(224, int,
        (int nouter, int ext, int inner, int pos, int copies, I64Out rnativeidxs, int rst_outer,
         int rst_b, I64 tnativeidxs))
{
    if (is_empty(nouter, ext, inner)) return pos;
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
