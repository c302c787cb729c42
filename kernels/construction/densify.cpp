// densify: an expression with all its positions stored, the same terms in the same order.

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"

namespace fragments {

/// densify: copies shape, terms and programs, entry 0 of `codeptr` included, and writes `ptr` for
/// `rnelem` elements: of a sparse operand, the positions that it doesn't store get no terms.
CLOSURE(555, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, bool hassp, int ncodeatom,
         int nd, int nelem, int nidxs_base, int nnz, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnelem,
         int rnidxs_base, int rptr_base, int rshape_base, int shape_base, int sp_base, F64 wf64,
         I32 wi32, I64 wi64))
{
    const auto operand = STACKED_OPERAND();
    const auto r = STACKED_RESULT();
    copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base));
    copy_n(operand.nidxs, nnz, r.nidxs);
    copy_n(operand.cof, nnz, r.cof);
    if (ncodeatom > 0) {
        copy_n(operand.codeptr, int64_t{nnz} + 1, r.codeptr);
        copy_n(operand.code, ncodeatom, r.code);
        copy_n(operand.cconst, ncodeatom, r.cconst);
    }
    if (!hassp) {
        copy_n(operand.ptr, int64_t{rnelem} + 1, r.ptr);
        return;
    }
    const auto sp = wi64.from(sp_base);
    fill_n(r.ptr, int64_t{rnelem} + 1, 0);
    for (int e = 0; e < nelem; ++e) r.ptr[sp[e] + 1] = operand.terms(e);
    running_sum(r.ptr, rnelem);
}

} // namespace fragments
