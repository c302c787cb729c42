// Multiplication without a contraction, by constants:
//   mul_const          a E, for a number a (463)
//   mul_scalar_matrix  M e, for a sparse matrix M and an expression e of one element (464)
//   mul_elm            M .* E, for a sparse tensor M, as `msp` and `mcof` (462)
//
// No term is merged or dropped, also not where the factor is 0.

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"
#include "tensor_operand.h"
#include "triplet_matrix.h"

namespace fragments {

/// Tests the matrix of mul_scalar_matrix: (whether an index is out of range, whether the order is
/// broken), each tested whatever the other finds. A flag that comes in set stays set.
CLOSURE_AS(465, results(bool, bool),
           (bool badidx, bool badorder, int md0, int md1, int mnnz, I32 msubi, I32 msubj),
           test_independently(badidx, badorder, md0, md1, mnnz, msubi, msubj))

/// Writes the sparse R = M e: element k, at the place of M's entry k, holds all `nnz` terms of e,
/// scaled. Writes entry 0 of `codeptr` but not of `ptr`. Returns (codei, nnzi).
CLOSURE(464, results(int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int md1,
         int mnnz, I32 msubi, I32 msubj, F64 mval, int ncodeatom, int nidxs_base, int nnz, int nnzi,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base, F64 wf64, I32 wi32,
         I64 wi64))
{
    const Operand<Stride> e(wi32, wi64, wf64, {0, nidxs_base, cof_base},
                            {codeptr_base, code_base, cconst_base});
    auto r = SPARSE_RESULT(codei, 0, nnzi);
    const bool coded = ncodeatom > 0;
    const Code form = coded ? Code::scaled : Code::none;
    if (coded) r.codeptr[0] = 0;
    for (int64_t k = 0; k < mnnz; ++k) {
        if (nnz > 0) r.append_scaled(e, Range{0, nnz}, mval[k], form);
        // The two forms are told apart on purpose: without code the index wraps at 32 bits.
        r.close_element(coded ? int64_t{msubi[k]} * md1 + msubj[k] : msubi[k] * md1 + msubj[k]);
    }
    return {r.codei, r.nnzi};
}

/// Writes all of R = a E: E's layout with scaled coefficients and programs.
CLOSURE(463, void,
        (double a, int cconst_base, int code_base, int codeptr_base, int cof_base, bool hassp,
         int ncodeatom, int nd, int nelem, int nidxs_base, int nnz, int ptr_base, int rcconst_base,
         int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rnidxs_base, int rptr_base, int rshape_base, int rsp_base, int shape_base, int sp_base,
         F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    auto r = STACKED_RESULT();
    copy_n(e.ptr, int64_t{nelem} + 1, r.ptr);
    r.append_scaled(e, Range{0, nnz}, a, Code::none);
    if (hassp) copy_n(wi64.from(sp_base), nelem, ri64.from(rsp_base));
    copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base));
    if (ncodeatom <= 0) return;
    r.codeptr[0] = 0;
    for (int64_t t = 0; t < nnz; ++t) {
        r.append_scaled_program(e, t, a);
        r.codeptr[t + 1] = r.codei;
    }
}

/// Writes all of R = M .* E, shape and entries 0 too: a sparse R with an element for each index of
/// M, or, if E is sparse, for each that E stores as well.
CLOSURE(462, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, bool hassp, F64 mcof,
         I64 msp, int ncodeatom, int nelem, int nidxs_base, int ptr_base, int rcconst_base,
         int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rncodeatom, int rnd, int rnidxs_base, int rptr_base, int rshape_base, int rsp_base,
         int shape_base, int sp_base, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT();
    r.ptr[0] = 0;
    if (rncodeatom > 0) r.codeptr[0] = 0;
    copy_n(wi32.from(shape_base), rnd, ri32.from(rshape_base));
    const Code form = ncodeatom > 0 ? Code::scaled : Code::none;
    for_each_met_element(msp, hassp, nelem, wi64.from(sp_base), [&](int64_t k, int64_t q) {
        r.append_scaled(e, q, mcof, k, form);
        r.close_element(msp[k]);
    });
}

/// Number of positions of a shape, times `prod`.
CLOSURE_AS(461, long long, (int nd, long long prod, int shape_base, I32 wi32),
           product(prod, wi32.from(shape_base), nd))

/// Sizes R = M .* E: (rncodeatom, rnelem, rnnz), added to, but for a dense E `rnelem` replaced.
CLOSURE(460, results(int, int, int),
        (int codeptr_base, bool hassp, I64 msp, int ncodeatom, int nelem, int ptr_base,
         int rncodeatom, int rnelem, int rnnz, int sp_base, I32 wi32, I64 wi64))
{
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    Sizes sizes{rncodeatom, hassp ? rnelem : 0, rnnz};
    for_each_met_element(msp, hassp, nelem, wi64.from(sp_base), [&](int64_t, int64_t q) {
        sizes.add_scaled(e, q, ncodeatom > 0);
        ++sizes.rnelem;
    });
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// Tests the tensor of mul_elm: (whether an index is out of range, whether the order is broken).
/// A flag that comes in set stays set.
CLOSURE(459, results(bool, bool), (bool badidx, bool badorder, I64 msp, long long size))
{
    const int64_t n = msp.length();
    return {badidx || has_bad_index(size, msp, n), !strictly_ascending(!badorder, msp, n)};
}

} // namespace fragments
