// pick: a one-dimensional expression of the elements at a list of linear indexes, in the list's
// order, repeats included.
//
// In a dense operand the index is the element's position; in a sparse one it is looked up first
// (410), and an index that isn't stored gives an element without terms. The result is dense. Lists
// of subscripts are turned into linear indexes before (405, 406).

#include "algorithms.h"
#include "closure_frame.h"
#include "scratch.h"
#include "stacked_expression.h"
#include "subscripts.h"

namespace fragments {

/// Whether `unfit`, or some subscript, in the first `nd` columns, lies outside its dimension.
CLOSURE_AS(405, bool, (I32Matrix idxs, int nd, I32 shape, bool unfit),
           any_out_of_range(unfit, idxs, nd, shape))

/// The linear index of each row of subscripts, of which the first `nd` columns count.
CLOSURE(406, void, (I32Matrix idxs, int nd, I32 shape, I64Out this_idxs))
{
    const Scratch<int64_t> stride(nd);
    all_row_major_strides(shape, nd, stride.data());
    for (int r = 0; r < idxs.rows(); ++r)
        this_idxs[r] = linear_of_row(int64_t{0}, idxs, r, nd, stride.data());
}

/// Whether `unfit`, or some index lies outside a shape of `total` positions.
CLOSURE_AS(407, bool, (I64 idxs, long long total, bool unfit),
           unfit || has_bad_index(total, idxs, idxs.length()))

/// Adds the sizes of the elements of a dense operand. Returns (rncodeatom, rnnz).
CLOSURE(408, results(int, int),
        (int codeptr_base, I64 idxs, int ncodeatom, int ptr_base, int rncodeatom, int rnnz,
         I32 wi32))
{
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    Sizes sizes{rncodeatom, 0, rnnz};
    for (int64_t i = 0; i < idxs.length(); ++i) sizes.add(e, idxs[i], ncodeatom > 0);
    return {sizes.rncodeatom, static_cast<int>(sizes.rnnz)};
}

/// Writes the elements of a dense operand. Terms and atoms go on from `knnz` and `codei`. Returns
/// (codei, knnz).
CLOSURE(409, results(int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, I64 idxs,
         int knnz, int nidxs_base, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom,
         int rnidxs_base, int rptr_base, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    auto r = STACKED_RESULT(codei, 0, knnz);
    for (int64_t i = 0; i < idxs.length(); ++i) {
        r.append(e, idxs[i], rncodeatom > 0);
        r.close_element();
    }
    return {r.codei, r.nnzi};
}

/// Looks the indexes up in `sp`, which has to ascend strictly: `spos` gets the position of each, or
/// -1. Adds the sizes of what is found. Returns (rncodeatom, rnnz).
CLOSURE(410, results(int, int),
        (int codeptr_base, I64 idxs, int ncodeatom, int nelem, int ptr_base, int rncodeatom,
         int rnnz, int sp_base, int spos_base, I32 wi32, I64 wi64, I32Out xi32))
{
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    const auto sp = wi64.from(sp_base);
    const auto spos = xi32.from(spos_base);
    const auto stored = [&](int64_t q) { return sp[q]; };
    Sizes sizes{rncodeatom, 0, rnnz};
    for (int64_t i = 0; i < idxs.length(); ++i) {
        const int64_t index = idxs[i];
        const int64_t q = lower_bound({0, nelem}, stored, index);
        const bool found = q < nelem && sp[q] == index;
        spos[i] = found ? static_cast<int32_t>(q) : -1;
        if (found) sizes.add(e, q, ncodeatom > 0);
    }
    return {sizes.rncodeatom, static_cast<int>(sizes.rnnz)};
}

/// Writes the elements of a sparse operand at the positions that 410 has found; of `idxs` only the
/// length counts. Terms and atoms go on from `knnz` and `codei`. Returns (codei, knnz).
CLOSURE(411, results(int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, I64 idxs,
         int knnz, int nidxs_base, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom,
         int rnidxs_base, int rptr_base, int spos_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32))
{
    const auto e = STACKED_OPERAND();
    auto r = STACKED_RESULT(codei, 0, knnz);
    const auto spos = xi32.from(spos_base);
    for (int64_t i = 0; i < idxs.length(); ++i) {
        const int q = spos[i];
        if (q >= 0) r.append(e, q, rncodeatom > 0);
        r.close_element();
    }
    return {r.codei, r.nnzi};
}

} // namespace fragments
