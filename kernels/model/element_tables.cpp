// Tables that tie the elements of conic constraints and of conic and semidefinite variables to
// their places in the native model, and the index lists that go with them.
//
// By conic row: `acon_elm_accid`, `acon_elm_ofs` (block, and place in it), `acon_elm_afe` (affine
// row), `acon_elm_scale`. By scalar variable: `var_elm_acc_idx` (block or -1), `var_elm_acc_ofs`.
// By entry of the semidefinite variables: `barvar_block_elm_barj`, `_i`, `_j`; matrices stand one
// behind the other, each a lower triangle column by column.

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// The greatest of `maxidx` and a list, of which entry 0 doesn't count.
template <class S>
int highest_index(int maxidx, I32<S> nativeidxs)
{
    return greatest(maxidx, nativeidxs.from(1), nativeidxs.length() - 1);
}

/// `count` plus the scalar variables of a list.
template <class S>
int count_scalars(int count, I64<S> idxs)
{
    for (int64_t i = 0; i < idxs.length(); ++i) count += idxs[i] > 0 ? 1 : 0;
    return count;
}

/// The scalar variables of a list, narrowed, from slot `pos` on. Returns the slot behind the last.
template <class S>
int keep_scalars(I64<S> idxs, int pos, I32Out<S> nativeidxs)
{
    for (int64_t i = 0; i < idxs.length(); ++i) {
        const int64_t index = idxs[i];
        if (index > 0) nativeidxs[pos++] = static_cast<int32_t>(index);
    }
    return pos;
}

} // namespace

/// Native image of a range on `n` rows, 2 `n` slots from `pos` on: the affine rows, from `afe_base`
/// of `afeidxs` on, with their lower bounds, then again with their upper bounds. Rows go to
/// `accafeidxs`, bounds to `accb`.
CLOSURE(1, void,
        (I32Out accafeidxs, F64Out accb, I32 afeidxs, int afe_base, int pos, F64 lb, int n, F64 ub))
{
    const auto rows = afeidxs.from(afe_base);
    const int64_t upper = int64_t{pos} + n;
    for (int64_t i = 0; i < n; ++i) {
        accafeidxs[pos + i] = accafeidxs[upper + i] = rows[i];
        accb[pos + i] = lb[i];
        accb[upper + i] = ub[i];
    }
}

/// Native image of one bound on each of `n` rows, `n` slots from `pos` on: the affine rows, from
/// `afe_base` of `afeidxs` on, to `accafeidxs`, and the bounds to `accb`.
CLOSURE(2, void, (I32Out accafeidxs, F64Out accb, I32 afeidxs, int afe_base, int pos, F64 b, int n))
{
    copy_n(afeidxs.from(afe_base), n, accafeidxs.from(pos));
    copy_n(b, n, accb.from(pos));
}

/// Highest index in use: the greatest of `maxidx` and all entries of `accidxs`.
CLOSURE_AS(3, int, (I32 accidxs, int maxidx), greatest(maxidx, accidxs, accidxs.length()))

/// Highest index in use: the greatest of `maxidx` and the entries of `nativeidxs` from slot 1 on.
CLOSURE_AS(5, int, (int maxidx, I32 nativeidxs), highest_index(maxidx, nativeidxs))
CLOSURE_AS(6, int, (int maxidx, I32 nativeidxs), highest_index(maxidx, nativeidxs))

/// Registers the conic rows of `ncone` blocks of `conesize` rows each. `aconidxs` lists them block
/// by block, `afeidxs` the affine row of each, and block a has the number accidxs[a]. The tables
/// get, at the row's number, block, place in it, affine row and the scale 1.0.
CLOSURE(4, void,
        (I32 accidxs, I32Out acon_elm_accid, I32Out acon_elm_afe, I32Out acon_elm_ofs,
         F64Out acon_elm_scale, I32 aconidxs, I32 afeidxs, int conesize, int ncone))
{
    if (is_empty(ncone, conesize)) return;
    for (int64_t a = 0; a < ncone; ++a)
        for (int64_t i = 0; i < conesize; ++i) {
            const int64_t p = a * conesize + i;
            const int64_t row = aconidxs[p];
            acon_elm_accid[row] = accidxs[a];
            acon_elm_ofs[row] = static_cast<int32_t>(i);
            acon_elm_afe[row] = afeidxs[p];
            acon_elm_scale[row] = 1.0;
        }
}

/// Numbers for `n` semidefinite variables, from `first` on.
CLOSURE(7, void, (I32Out barvaridxs, int first, int n))
{
    for (int i = 0; i < n; ++i) barvaridxs[i] = first + i;
}

/// Registers a block of `nbarvar` semidefinite variables of dimension `dim`, numbered from
/// `firstbarj` on: their entries stand in the tables from barvar_block_elm_ptr[block] on,
/// `nativeidxs` gets the numbers of the entries, and `barvar_dim` the dimension at each variable's
/// number.
CLOSURE(8, void,
        (I32Out barvar_block_elm_barj, I32Out barvar_block_elm_i, I32Out barvar_block_elm_j,
         I32 barvar_block_elm_ptr, I32Out barvar_dim, int block, int dim, int firstbarj,
         I64Out nativeidxs, int nbarvar))
{
    if (!is_empty(nbarvar, dim)) {
        const int64_t start = barvar_block_elm_ptr[block];
        int64_t t = 0;
        for (int b = 0; b < nbarvar; ++b)
            for (int j = 0; j < dim; ++j)
                for (int i = j; i < dim; ++i, ++t) {
                    barvar_block_elm_barj[start + t] = firstbarj + b;
                    barvar_block_elm_i[start + t] = i;
                    barvar_block_elm_j[start + t] = j;
                    nativeidxs[t] = start + t;
                }
    }
    for (int b = 0; b < nbarvar; ++b) barvar_dim[firstbarj + b] = dim;
}

/// Registers the `n` variables of blocks of `conesize` variables each, which `nativeidxs` lists
/// block by block; block a has the number accidxs[a]. The tables get, at the variable's number,
/// block and place in it.
CLOSURE(9, void,
        (I32 accidxs, int conesize, int n, I32 nativeidxs, I32Out var_elm_acc_idx,
         I32Out var_elm_acc_ofs))
{
    for (int t = 0; t < n; ++t) {
        const int variable = nativeidxs[t];
        var_elm_acc_idx[variable] = accidxs[quotient(t, conesize)];
        var_elm_acc_ofs[variable] = remainder(t, conesize);
    }
}

/// Takes the `n` variables of a list out of their blocks: the block of each becomes -1. Their
/// places stay as they are.
CLOSURE(10, void, (int n, I32 nativeidxs, I32Out var_elm_acc_idx))
{
    for (int64_t t = 0; t < n; ++t) var_elm_acc_idx[nativeidxs[t]] = -1;
}

/// `count` plus the scalar variables of an index list, without constants and semidefinite entries.
CLOSURE_AS(11, int, (int count, I64 idxs), count_scalars(count, idxs))
CLOSURE_AS(13, int, (int count, I64 idxs), count_scalars(count, idxs))

/// The scalar variables of an index list, without constants and semidefinite entries, in their
/// order and narrowed to 32 bits, to `nativeidxs` from slot `pos` on. Returns the slot behind the
/// last.
CLOSURE_AS(12, int, (I64 idxs, int pos, I32Out nativeidxs), keep_scalars(idxs, pos, nativeidxs))
CLOSURE_AS(14, int, (I64 idxs, int pos, I32Out nativeidxs), keep_scalars(idxs, pos, nativeidxs))

} // namespace fragments
