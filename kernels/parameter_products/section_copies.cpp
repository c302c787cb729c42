// Copies of an expression or of single sections of it from the w to the r stack, for what sorting,
// merging, compaction and the products with parameters leave as it is: 395 and 388 for all of an
// expression, the others for one section.

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"

namespace fragments {

/// Copies an expression: `nd` extents of the shape, `ptr` of `nelem` elements, the `nnz` terms,
/// `sp` if `hassp`, and, if `ncodeatom` is above 0, the programs with all of `codeptr`.
CLOSURE(395, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, bool hassp, int ncodeatom,
         int nd, int nelem, int nidxs_base, int nnz, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rshape_base, int rsp_base, int shape_base, int sp_base, F64 wf64,
         I32 wi32, I64 wi64))
{
    const auto e = SPARSE_OPERAND();
    const auto r = SPARSE_RESULT();
    copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base));
    copy_n(e.ptr, int64_t{nelem} + 1, r.ptr);
    copy_all_terms(e, nnz, ncodeatom, r);
    if (hassp) copy_n(e.sp, nelem, r.sp);
}

/// Copies an expression without code whose `ptr` and `sp` stand on the r stack already: `nnz` terms
/// from the w stack, and within the r stack `ptr` of `nelem` elements and, if `hassp`, `sp`.
/// Entries move in ascending order, so that a move to a lower position may overlap its source.
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

/// Copies the `nd` extents of a shape.
CLOSURE_AS(397, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))
CLOSURE_AS(387, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))
CLOSURE_AS(381, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))
CLOSURE_AS(360, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))

/// Copies the linear indexes of the `nelem` elements of a sparse expression (`hassp`).
CLOSURE(398, void, (bool hassp, int nelem, I64Out ri64, int rsp_base, int sp_base, I64 wi64))
{
    if (hassp) copy_n(wi64.from(sp_base), nelem, ri64.from(rsp_base));
}
CLOSURE(384, void, (bool hassp, int nelem, I64Out ri64, int rsp_base, int sp_base, I64 wi64))
{
    if (hassp) copy_n(wi64.from(sp_base), nelem, ri64.from(rsp_base));
}

/// Copies `nnz` coefficients.
CLOSURE_AS(383, void, (int cof_base, int nnz, int rcof_base, F64Out rf64, F64 wf64),
           copy_n(wf64.from(cof_base), nnz, rf64.from(rcof_base)))

/// Copies `nnz` variable indexes.
CLOSURE_AS(382, void, (int nidxs_base, int nnz, I64Out ri64, int rnidxs_base, I64 wi64),
           copy_n(wi64.from(nidxs_base), nnz, ri64.from(rnidxs_base)))

/// Copies `ptr` of `nelem` elements, entry 0 too.
CLOSURE_AS(380, void, (int nelem, int ptr_base, I32Out ri32, int rptr_base, I32 wi32),
           copy_n(wi32.from(ptr_base), int64_t{nelem} + 1, ri32.from(rptr_base)))

} // namespace fragments
