// Stacking sparse arrays along a dimension `dim`: the shape of the result `rshape` from those of
// the operands, one after the other, and their linear indexes in it. An array of too few dimensions
// has the extent 1 in the others. What the stack then needs is sorted by dimension_sort.cpp.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

/// The first `n` extents of an operand, to start the result's shape from.
CLOSURE_AS(291, void, (int n, I32Out rshape, I32 shapei), copy_n(shapei, n, rshape))

/// Whether `ok`, and the shape of an operand is that of the result in all dimensions that it has
/// but `dim`.
CLOSURE(292, bool, (int dim, bool ok, I32 rshape, I32 shapei))
{
    for (int64_t k = 0; ok && k < shapei.length(); ++k) ok = k == dim || rshape[k] == shapei[k];
    return ok;
}

/// The extent of operand `i` in dimension `dim` goes to dimsizes[i], and is added to `sum`. `ok`
/// falls if the operand has that dimension, and the extent of the result isn't 1 in some dimension
/// that the operand lacks. Returns (ok, sum).
CLOSURE(293, results(bool, int),
        (int dim, bool ok, int sum, I32Out dimsizes, int i, int nd, I32 rshape, I32 shapei))
{
    const bool has_dim = dim < shapei.length();
    const int extent = has_dim ? shapei[dim] : 1;
    dimsizes[i] = extent;
    if (has_dim)
        for (int64_t k = shapei.length(); ok && k < nd; ++k) ok = rshape[k] == 1;
    return {ok, sum + extent};
}

/// The `n` linear indexes of operand `i`, from place `pos` of `sp` on, become those in a stack
/// along dimension `dim`, of extent `dimext`, in which the operand starts at subscript `shift`;
/// `dimblock` is the product of the extents behind `dim`. Along the first dimension the indexes
/// only move, and `shift` counts elements: itemsizes[i] is how many the operand has. Returns the
/// `shift` of the next operand.
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
    for (int64_t k = 0; k < n; ++k)
        indexes[k] = linear_in_longer(indexes[k], extent, dimblock, shift, dimext);
    return shift + extent;
}

} // namespace fragments
