// merge_runs: one step of a merge sort of positions by integer keys.

#include "closure_frame.h"

namespace fragments {

/// The runs of positions in `src` from `lo` up to `mid` and from `mid` up to `hi`, each sorted by
/// its keys in `vals`, merged to the same places of `tgt`. Not stable: of equal keys those of the
/// right run come first.
CLOSURE(129, void, (int lo, int mid, int hi, I32 src, I32Out tgt, I32 vals))
{
    int64_t i = lo;
    int64_t j = mid;
    int64_t t = lo;
    while (i < mid && j < hi) tgt[t++] = vals[src[i]] < vals[src[j]] ? src[i++] : src[j++];
    while (i < mid) tgt[t++] = src[i++];
    while (j < hi) tgt[t++] = src[j++];
}

} // namespace fragments
