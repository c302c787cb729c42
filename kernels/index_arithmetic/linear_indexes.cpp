// Linear indexes from subscripts and back, range tests, and the linear indexes of stacked arrays.
// In a table of subscripts each row is one element. `lin` is the value to start from.

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

// Subscripts to a linear index, by strides. Only the columns that count are read.
CLOSURE_AS(309, long long, (int i, long long lin, I32Matrix midxs, int nd, I64 strides),
           linear_of_row(lin, midxs, i, nd, strides))
CLOSURE_AS(308, long long, (int i, long long lin, I32Matrix midxs, int nd, I64 strides),
           linear_of_row(lin, midxs, i, nd, strides))
CLOSURE_AS(178, long long, (int row, long long init, I32Matrix midxs, int nd, I64 strides),
           linear_of_row(init, midxs, row, nd, strides))
CLOSURE_AS(177, long long, (int row, long long init, I32Matrix midxs, int nd, I64 strides),
           linear_of_row(init, midxs, row, nd, strides))

/// By Horner's scheme, with the first subscript in `lin`; key[0] is not read.
CLOSURE(269, long long, (I32 key, long long lin, I32 shape))
{
    for (int64_t k = 1; k < key.length(); ++k) lin = key[k] + shape[k] * lin;
    return lin;
}

// By Horner's scheme with the dimensions in descending order, each subscript weighed with the
// extent behind it.
CLOSURE_AS(312, long long, (I32 indexes, long long lin, int n, I32 shape),
           fold_backward(indexes, lin, n, shape))
CLOSURE_AS(311, long long, (I32 indexes, long long lin, int n, I32 shape),
           fold_backward(indexes, lin, n, shape))

// A linear index to subscripts.
CLOSURE_AS(272, void, (long long lin, I32Out res, I32 shape), unravel_all(lin, shape, res))
CLOSURE_AS(270, void, (I32Out dest, long long lin, I32 shape), unravel_all(lin, shape, dest))

/// Returns the first subscript; k[0] stays.
CLOSURE_AS(271, long long, (I32Out k, int n, long long lin, I32 shape), unravel(lin, shape, n, k))

/// The entry of `nidxs` at each row of subscripts.
CLOSURE_AS(307, void, (I32Out idxs, I32Matrix midxs, int nd, I32 nidxs, I64 strides),
           pick_rows(nidxs, midxs, nd, strides, idxs))

/// Whether `bad`, or some subscript of the table is outside its dimension.
CLOSURE_AS(305, bool, (bool bad, I32Matrix midxs, I32 shape),
           any_out_of_range(bad, midxs, midxs.columns(), shape))

/// The same for plain indexes, all of dimension 0.
CLOSURE_AS(310, bool, (I32 idxs, bool bad, I32 shape), any_out_of_range(bad, idxs, shape))

/// The `n` linear indexes of operand `i`, at `pos` of `sp`, become those in a stack along dimension
/// `dim`, of extent `dimext`, in which the operand starts at subscript `shift`; `dimblock` is the
/// product of the extents behind `dim`. Along the first dimension the indexes only move, and
/// `shift` counts elements. Returns the `shift` of the next operand.
CLOSURE(297, long long,
        (int dim, long long dimblock, int dimext, I32 dimsizes, int i, I64 itemsizes, int n,
         int pos, long long shift, I64Out sp))
{
    const auto indexes = sp.from(pos);
    if (dim == 0) {
        for (int64_t k = 0; k < n; ++k) indexes[k] += shift;
        return shift + itemsizes[i];
    }
    const int64_t extent = dimsizes[i];
    for (int64_t k = 0; k < n; ++k) {
        const int64_t outer = indexes[k] / dimblock;
        const int64_t inner = indexes[k] % dimblock;
        indexes[k] = dimblock * (outer / extent * dimext + shift + outer % extent) + inner;
    }
    return shift + extent;
}

} // namespace fragments
