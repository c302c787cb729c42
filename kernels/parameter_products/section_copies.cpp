// Copies of an expression or of single sections of it from the w to the r stack, for what sorting,
// merging, compaction and the products with parameters leave as it is.

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"

namespace fragments {

/// copy_expression: all sections.
CLOSURE(395, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, bool hassp, int ncodeatom,
         int nd, int nelem, int nidxs_base, int nnz, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rshape_base, int rsp_base, int shape_base, int sp_base, F64 wf64,
         I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    const auto r = STACKED_RESULT();
    copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base));
    copy_n(e.ptr, int64_t{nelem} + 1, r.ptr);
    copy_all_terms(e, nnz, ncodeatom, r);
    if (hassp) copy_n(wi64.from(sp_base), nelem, ri64.from(rsp_base));
}

/// The same without code for an expression whose `ptr` and `sp` stand on the r stack already and
/// move within it. A move to a lower place may overlap its source.
CLOSURE(388, void,
        (int cof_base, bool hassp, int nelem, int nidxs_base, int nnz, int ptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base,
         int sp_base, F64 wf64, I64 wi64))
{
    copy_n(wi64.from(nidxs_base), nnz, ri64.from(rnidxs_base));
    copy_n(wf64.from(cof_base), nnz, rf64.from(rcof_base));
    copy_n(ri32.from(ptr_base), int64_t{nelem} + 1, ri32.from(rptr_base));
    if (hassp) copy_n(ri64.from(sp_base), nelem, ri64.from(rsp_base));
}

/// `shape`.
CLOSURE_AS(397, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))
CLOSURE_AS(387, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))
CLOSURE_AS(381, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))
CLOSURE_AS(360, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))

/// `sp`, of a sparse expression.
CLOSURE(398, void, (bool hassp, int nelem, I64Out ri64, int rsp_base, int sp_base, I64 wi64))
{
    if (hassp) copy_n(wi64.from(sp_base), nelem, ri64.from(rsp_base));
}
CLOSURE(384, void, (bool hassp, int nelem, I64Out ri64, int rsp_base, int sp_base, I64 wi64))
{
    if (hassp) copy_n(wi64.from(sp_base), nelem, ri64.from(rsp_base));
}

/// `cof`.
CLOSURE_AS(383, void, (int cof_base, int nnz, int rcof_base, F64Out rf64, F64 wf64),
           copy_n(wf64.from(cof_base), nnz, rf64.from(rcof_base)))

/// `nidxs`.
CLOSURE_AS(382, void, (int nidxs_base, int nnz, I64Out ri64, int rnidxs_base, I64 wi64),
           copy_n(wi64.from(nidxs_base), nnz, ri64.from(rnidxs_base)))

/// `ptr`.
CLOSURE_AS(380, void, (int nelem, int ptr_base, I32Out ri32, int rptr_base, I32 wi32),
           copy_n(wi32.from(ptr_base), int64_t{nelem} + 1, ri32.from(rptr_base)))

} // namespace fragments
