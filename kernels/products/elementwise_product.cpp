// Multiplication without a contraction, by constants:
//   mul_const          a E, for a number a
//   mul_scalar_matrix  M e, for a sparse matrix M and an expression e of one element
//   mul_elm            M .* E, for a sparse tensor M, as `msp` and `mcof`
//
// No term is merged or dropped, also not where the factor is 0. 463 is all of mul_const, whose
// result is as large as E; 465 tests and 464 writes for mul_scalar_matrix, whose sizes follow from
// those of its operands; mul_elm goes by 461, 459, 460, 462.

#include "algorithms.h"
#include "closure_frame.h"
#include "matrix_walks.h"
#include "stacked_expression.h"
#include "subscripts.h"
#include "triplet_matrix.h"

namespace fragments {

/// Writes all of `a` times an expression: `ptr`, scaled terms, `sp` if `hassp`, the shape and, if
/// `ncodeatom` is above 0, the programs, each times `a`, with entry 0 of `codeptr`. No element or
/// term moves, and a factor of 0 drops none.
CLOSURE(463, void,
        (double a, int cconst_base, int code_base, int codeptr_base, int cof_base, bool hassp,
         int ncodeatom, int nd, int nelem, int nidxs_base, int nnz, int ptr_base, int rcconst_base,
         int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rnidxs_base, int rptr_base, int rshape_base, int rsp_base, int shape_base, int sp_base,
         F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = SPARSE_OPERAND();
    auto r = SPARSE_RESULT();
    copy_n(e.ptr, int64_t{nelem} + 1, r.ptr);
    r.append_scaled(e, Range{0, nnz}, a, Code::none);
    if (hassp) copy_n(e.sp, nelem, r.sp);
    copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base));
    if (ncodeatom <= 0) return;
    r.codeptr[0] = 0;
    for (int64_t t = 0; t < nnz; ++t) {
        r.append_scaled_program(e, t, a);
        r.codeptr[t + 1] = r.codei;
    }
}

/// Tests the first `mnnz` entries of a sparse matrix of `md0` rows and `md1` columns: `badidx`
/// becomes true if some row or column is negative or too large, `badorder` if some entry doesn't
/// come strictly behind the one before it, by row and then column. Each test runs whatever the
/// other finds; a flag that comes in true stays true. Returns (`badidx`, `badorder`).
CLOSURE_AS(465, results(bool, bool),
           (bool badidx, bool badorder, int md0, int md1, int mnnz, I32 msubi, I32 msubj),
           test_independently(badidx, badorder, md0, md1, mnnz, msubi, msubj))

/// Writes the product of a sparse matrix with `mnnz` entries and `md1` columns and an expression of
/// one element: an element for each entry, in the matrix's order and at its place, with all `nnz`
/// terms of the one element, scaled. Writes terms, `sp`, `ptr` but for entry 0 and, if `ncodeatom`
/// is above 0, programs and `codeptr` with entry 0. Returns (`codei`, `nnzi`), the numbers of what
/// is written so far.
CLOSURE(464, results(int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int md1,
         int mnnz, I32 msubi, I32 msubj, F64 mval, int ncodeatom, int nidxs_base, int nnz, int nnzi,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base, F64 wf64, I32 wi32,
         I64 wi64))
{
    const Operand<Stride> e(wi32, wi64, wf64, {.nidxs = nidxs_base, .cof = cof_base},
                            {codeptr_base, code_base, cconst_base});
    auto r = SPARSE_RESULT(codei, 0, nnzi);
    const bool coded = ncodeatom > 0;
    const Code form = form_of(ncodeatom);
    if (coded) r.codeptr[0] = 0;
    for (int64_t k = 0; k < mnnz; ++k) {
        if (nnz > 0) r.append_scaled(e, Range{0, nnz}, mval[k], form);
        // The two forms are told apart on purpose: without code the index wraps at 32 bits.
        r.close_element(coded ? int64_t{msubi[k]} * md1 + msubj[k] : msubi[k] * md1 + msubj[k]);
    }
    return {r.codei, r.nnzi};
}

/// Number of positions of the shape of `nd` extents at `shape_base`, times `prod`, in 64 bits.
CLOSURE_AS(461, long long, (int nd, long long prod, int shape_base, I32 wi32),
           product(prod, wi32.from(shape_base), nd))

/// Tests a list of linear indexes into a shape of `size` positions, all of `msp`: `badidx` becomes
/// true if some index is negative or too large, `badorder` if some index isn't above the one before
/// it. Both tests run; a flag that comes in true stays true. Returns (`badidx`, `badorder`).
CLOSURE(459, results(bool, bool), (bool badidx, bool badorder, I64 msp, long long size))
{
    const int64_t n = msp.length();
    return {badidx || has_bad_index(size, msp, n), !strictly_ascending(!badorder, msp, n)};
}

/// Sizes the elementwise product of a sparse tensor, the strictly ascending linear indexes `msp`,
/// and an expression: adds what the pairs take and, for a sparse expression (`hassp`), an element
/// for each index that it stores too; for a dense one `rnelem` becomes the number of indexes.
/// Returns (`rncodeatom`, `rnelem`, `rnnz`).
CLOSURE(460, results(int, int, int),
        (int codeptr_base, bool hassp, I64 msp, int ncodeatom, int nelem, int ptr_base,
         int rncodeatom, int rnelem, int rnnz, int sp_base, I32 wi32, I64 wi64))
{
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    Sizes sizes{rncodeatom, hassp ? rnelem : 0, rnnz};
    walk_elementwise(msp.length(), msp, hassp, nelem, wi64.from(sp_base), [&](int64_t, int64_t q) {
        sizes.add_scaled(e, q, ncodeatom > 0);
        ++sizes.rnelem;
    });
    return {sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Writes all of the elementwise product of a sparse tensor, strictly ascending linear indexes
/// `msp` with values `mcof`, and an expression: entry 0 of `ptr` and, if `rncodeatom` is above 0,
/// of `codeptr`, `rnd` extents of the shape, terms, programs if `ncodeatom` is above 0, and `ptr`
/// and `sp` of an element for each index, or, for a sparse expression (`hassp`), for each that it
/// stores too. Elements without terms stay.
CLOSURE(462, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, bool hassp, F64 mcof,
         I64 msp, int ncodeatom, int nelem, int nidxs_base, int ptr_base, int rcconst_base,
         int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rncodeatom, int rnd, int rnidxs_base, int rptr_base, int rshape_base, int rsp_base,
         int shape_base, int sp_base, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = SPARSE_OPERAND();
    auto r = SPARSE_RESULT();
    r.start(rncodeatom > 0);
    copy_n(wi32.from(shape_base), rnd, ri32.from(rshape_base));
    const Code form = form_of(ncodeatom);
    walk_elementwise(msp.length(), msp, hassp, nelem, e.sp, [&](int64_t k, int64_t q) {
        r.append_scaled(e, q, mcof, k, form);
        r.close_element(msp[k]);
    });
}

} // namespace fragments
