// Range tests of subscripts, linear indexes from subscripts, and subscripts from linear indexes. In
// a table of subscripts each row is one element. `lin` is the value to start from.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// indexes[k] + shape[k + 1] * lin becomes `lin`, for k from `n` - 2 down to 0.
template <class S>
long long fold_backward(I32<S> indexes, long long lin, int n, I32<S> shape)
{
    for (int64_t k = int64_t{n} - 2; k >= 0; --k) lin = indexes[k] + shape[k + 1] * lin;
    return lin;
}

/// All subscripts of a linear index. What is left for the first dimension is not reduced by its
/// extent.
template <class S>
void unravel_all(long long lin, I32<S> shape, I32Out<S> subscripts)
{
    subscripts[0] = static_cast<int32_t>(unravel(lin, shape, shape.length(), subscripts));
}

} // namespace

/// Whether `bad`, or some subscript of the table is negative or not below the extent of its
/// column's dimension.
CLOSURE_AS(174, bool, (bool bad, I32Matrix midxs, I32 shape),
           any_out_of_range(bad, midxs, midxs.columns(), shape))
CLOSURE_AS(305, bool, (bool bad, I32Matrix midxs, I32 shape),
           any_out_of_range(bad, midxs, midxs.columns(), shape))

/// Whether `bad`, or some index of the list is negative or not below the extent of dimension 0.
CLOSURE_AS(179, bool, (I32 idxs, bool bad, I32 shape), any_out_of_range(bad, idxs, shape))
CLOSURE_AS(310, bool, (I32 idxs, bool bad, I32 shape), any_out_of_range(bad, idxs, shape))

/// The entry of `nidxs` at each row of subscripts, of which the first `nd` columns count, goes to
/// `idxs`.
CLOSURE_AS(307, void, (I32Out idxs, I32Matrix midxs, int nd, I32 nidxs, I64 strides),
           pick_rows(nidxs, midxs, nd, strides, idxs))

/// `lin` plus the linear index of row `i` of the table, by strides; the first `nd` columns count.
CLOSURE_AS(308, long long, (int i, long long lin, I32Matrix midxs, int nd, I64 strides),
           linear_of_row(lin, midxs, i, nd, strides))
CLOSURE_AS(309, long long, (int i, long long lin, I32Matrix midxs, int nd, I64 strides),
           linear_of_row(lin, midxs, i, nd, strides))

/// The linear index of the subscripts `key` by Horner's scheme, with the first of them in `lin`:
/// key[0] is not read. The length of `key` counts.
CLOSURE(269, long long, (I32 key, long long lin, I32 shape))
{
    for (int64_t k = 1; k < key.length(); ++k) lin = key[k] + shape[k] * lin;
    return lin;
}

/// Horner's scheme with the dimensions in descending order: from the last but one of the `n` down
/// to the first, `lin` becomes indexes[k] + shape[k + 1] * lin. Returns the last `lin`.
CLOSURE_AS(311, long long, (I32 indexes, long long lin, int n, I32 shape),
           fold_backward(indexes, lin, n, shape))
CLOSURE_AS(312, long long, (I32 indexes, long long lin, int n, I32 shape),
           fold_backward(indexes, lin, n, shape))

/// The subscripts of the linear index `lin`, one for each entry of `shape`. The first one is what
/// is left, not reduced by its extent.
CLOSURE_AS(270, void, (I32Out dest, long long lin, I32 shape), unravel_all(lin, shape, dest))
CLOSURE_AS(272, void, (long long lin, I32Out res, I32 shape), unravel_all(lin, shape, res))

/// The subscripts of the linear index `lin` in dimensions 1 to `n` - 1. Returns what is left, the
/// first subscript; k[0] stays.
CLOSURE_AS(271, long long, (I32Out k, int n, long long lin, I32 shape), unravel(lin, shape, n, k))

} // namespace fragments
