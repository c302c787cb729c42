// push_param_array: an array of parameters as an expression.

#include "algorithms.h"
#include "closure_frame.h"
#include "parameter_program.h"

namespace fragments {

/// Pushes an array of parameters, of `shape`, onto the r stack as an expression of `nelem`
/// elements: element k gets one term, of index 0 and coefficient 0.0, with the program that pushes
/// parameter nidxs[k]. Entry 0 of `ptr` and of `codeptr` is written too; `sp` is written only with
/// `hassp`, `codeptr` only if there are elements.
CLOSURE(315, void,
        (bool hassp, int nd, int nelem, I32 nidxs, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rshape_base, int rsp_base, I32 shape, I64 sp))
{
    ri32[rptr_base] = 0;
    copy_n(shape, nd, ri32.from(rshape_base));
    fill_n(ri64.from(rnidxs_base), nelem, 0);
    fill_n(rf64.from(rcof_base), nelem, 0.0);
    iota_n(ri32.from(rptr_base), int64_t{nelem} + 1);
    if (nelem > 0) iota_n(ri32.from(rcodeptr_base), int64_t{nelem} + 1);
    if (hassp) copy_n(sp, nelem, ri64.from(rsp_base));
    for (int64_t k = 0; k < nelem; ++k) {
        ri32[rcode_base + k] = op_param;
        rf64[rcconst_base + k] = nidxs[k];
    }
}

} // namespace fragments
