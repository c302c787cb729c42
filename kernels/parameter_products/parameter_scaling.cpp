// mul_param_scalar, tile_param: an expression times one parameter, and a scalar expression times
// an array of parameters; with the small fills around them.

#include "algorithms.h"
#include "closure_frame.h"
#include "parameter_term.h"
#include "stacked_expression.h"

namespace fragments {

/// mul_param_scalar: all of the result, in the operand's structure, each term times `param`.
CLOSURE(337, void,
        (int cconst_base, int code_base, int cof_base, int hascode, int nidxs_base, int nnz,
         int param, int ptr_base, int ptrcode_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, bool rhassp, I32Out ri32, I64Out ri64,
         int rncodeatom, int rnd, int rnelem, int rnidxs_base, int rnnz, int rptr_base,
         int rshape_base, int rsp_base, int shape_base, int sp_base, F64 wf64, I32 wi32, I64 wi64))
{
    const Operand<Stride> e(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base},
                            {ptrcode_base, code_base, cconst_base});
    auto r = STACKED_RESULT();
    fill_n(r.cof, rnnz, 0.0);
    copy_n(e.ptr, int64_t{rnelem} + 1, r.ptr);
    copy_n(wi32.from(shape_base), rnd, ri32.from(rshape_base));
    copy_n(e.nidxs, nnz, r.nidxs);
    if (rhassp) copy_n(wi64.from(sp_base), rnelem, ri64.from(rsp_base));
    if (rncodeatom > 0) r.codeptr[0] = 0;
    for_code(hascode > 0, [&]<bool coded> {
        append_parameter_programs<coded>(r, e, Range{0, nnz}, param);
    });
}

// tile_param: the single element of E times each of `rnelem` parameters. The terms of the element
// that belongs to parameter i are those from i * nnz on, and each closure writes one section.

/// Code, but for entry 0 of `codeptr`.
CLOSURE(336, void,
        (int cconst_base, int code_base, int cof_base, int hascode, int nnz, int pidx_base,
         int ptrcode_base, int rcconst_base, int rcode_base, int rcodeptr_base, F64Out rf64,
         I32Out ri32, int rnelem, F64 wf64, I32 wi32, I32 xi32))
{
    const Operand<Stride> e(wi32, {}, wf64, {0, 0, cof_base},
                            {ptrcode_base, code_base, cconst_base});
    Result<Stride> r(ri32, {}, rf64, {}, {rcodeptr_base, rcode_base, rcconst_base});
    const auto pidx = xi32.from(pidx_base);
    for_code(hascode != 0, [&]<bool coded> {
        for (int64_t i = 0; nnz > 0 && i < rnelem; ++i)
            append_parameter_programs<coded>(r, e, Range{0, nnz}, pidx[i]);
    });
}

/// `nidxs`.
CLOSURE(335, void, (int nidxs_base, int nnz, I64Out ri64, int rnelem, int rnidxs_base, I64 wi64))
{
    for (int64_t i = 0; i < rnelem; ++i)
        copy_n(wi64.from(nidxs_base), nnz, ri64.from(rnidxs_base + i * nnz));
}

/// Marks `rpos_n` entries as not yet written.
CLOSURE_AS(334, void, (I64Out ri64, int rpos, int rpos_n), fill_n(ri64.from(rpos), rpos_n, -999))

/// `ptr`.
CLOSURE(333, void, (int nnz, I32Out ri32, int rnelem, int rptr_base))
{
    const auto rptr = ri32.from(rptr_base);
    for (int64_t k = 0; k <= rnelem; ++k) rptr[k] = static_cast<int32_t>(nnz * k);
}

/// `cof`.
CLOSURE_AS(332, void, (int rcof_base, F64Out rf64, int rnnz),
           fill_n(rf64.from(rcof_base), rnnz, 0.0))

} // namespace fragments
