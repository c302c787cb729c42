// repeat: `m` copies of an expression stacked along a dimension.
//
// Along the dimension, the operand has the extent `d1` and the result rd1 = m * d1; d0 positions
// lie before it and d2 behind it.

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "stacked_expression.h"
#include "subscripts.h"

namespace fragments {

/// `d0` times the extents before dimension `dim`, in 32 bits.
CLOSURE_AS(423, int, (int d0, int dim, int shape_base, I32 wi32),
           product(d0, wi32.from(shape_base), dim))

/// `d2` times the extents behind dimension `dim`, in 32 bits.
CLOSURE_AS(424, int, (int d2, int dim, int nd, int shape_base, I32 wi32),
           product_behind(d2, wi32.from(shape_base), dim, nd))

/// Writes the result, its shape and entries 0 of `ptr` and `codeptr` included; `sp` for a sparse
/// operand. The elements with the same subscripts before the dimension are one block, which is
/// written `m` times in a row, so that the result is in order.
CLOSURE(425, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, int d0, int d1, int d2,
         int dim, bool hassp, int m, int ncodeatom, int nd, int nelem, int nidxs_base, int ptr_base,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, int rd1, F64Out rf64,
         I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base, int rshape_base,
         int rsp_base, int shape_base, int sp_base, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = SPARSE_OPERAND();
    auto r = SPARSE_RESULT();
    const auto rshape = ri32.from(rshape_base);
    copy_n(wi32.from(shape_base), nd, rshape);
    rshape[dim] = rd1;
    r.ptr[0] = 0;
    if (rncodeatom != 0) r.codeptr[0] = 0;

    const bool coded = ncodeatom > 0;
    const int64_t block = int64_t{d1} * d2;
    if (!hassp) {
        for (int64_t before = 0; before < d0; ++before)
            for (int copy = 0; copy < m; ++copy) r.append_elements(e, before * block, coded, block);
        return;
    }
    for (int64_t begin = 0; begin < nelem;) {
        const int64_t limit = e.sp[begin] - remainder(e.sp[begin], block) + block;
        int64_t end = begin + 1;
        while (end < nelem && e.sp[end] < limit) ++end;
        for (int64_t copy = 0; copy < m; ++copy) {
            const auto rsp = r.sp.from(r.elmi - begin);
            for (int64_t q = begin; q < end; ++q)
                rsp[q] = linear_in_longer(e.sp[q], d1, d2, d1 * copy, rd1);
            r.append_elements(e, begin, coded, end - begin);
        }
        begin = end;
    }
}

} // namespace fragments
