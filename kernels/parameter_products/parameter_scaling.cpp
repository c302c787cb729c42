// mul_param_scalar and tile_param: an expression times one parameter, and a scalar expression times
// an array of parameters. 337 writes all of the first, whose result is as large as the operand. Of
// the second, 332, 333, 335 and 336 write a section each: the terms of the one element, times the
// parameter i, are those from i * nnz on. 334 marks indexes as not yet written.

#include "algorithms.h"
#include "closure_frame.h"
#include "parameter_term.h"
#include "stacked_expression.h"

namespace fragments {

/// Writes all of an expression times the parameter with index `param`: coefficients of 0.0 for
/// `rnnz` terms, `ptr` of `rnelem` elements, `rnd` extents of the shape, `nnz` variable indexes,
/// `sp` if `rhassp`, entry 0 of `codeptr` if `rncodeatom` is above 0, and the programs of the `nnz`
/// terms, which take up those of the operand if `hascode` is above 0.
CLOSURE(337, void,
        (int cconst_base, int code_base, int cof_base, int hascode, int nidxs_base, int nnz,
         int param, int ptr_base, int ptrcode_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, bool rhassp, I32Out ri32, I64Out ri64,
         int rncodeatom, int rnd, int rnelem, int rnidxs_base, int rnnz, int rptr_base,
         int rshape_base, int rsp_base, int shape_base, int sp_base, F64 wf64, I32 wi32, I64 wi64))
{
    const Operand<Stride> e(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base, sp_base},
                            {ptrcode_base, code_base, cconst_base});
    auto r = SPARSE_RESULT();
    fill_n(r.cof, rnnz, 0.0);
    copy_n(e.ptr, int64_t{rnelem} + 1, r.ptr);
    copy_n(wi32.from(shape_base), rnd, ri32.from(rshape_base));
    copy_n(e.nidxs, nnz, r.nidxs);
    if (rhassp) copy_n(e.sp, rnelem, r.sp);
    if (rncodeatom > 0) r.codeptr[0] = 0;
    for_code(hascode > 0, [&]<bool coded> {
        append_parameter_programs<coded>(r, e, Range{0, nnz}, param);
    });
}

/// Zeroes the `rnnz` coefficients of a scalar expression times an array of parameters.
CLOSURE_AS(332, void, (int rcof_base, F64Out rf64, int rnnz),
           fill_n(rf64.from(rcof_base), rnnz, 0.0))

/// Writes `ptr` of a scalar expression of `nnz` terms times `rnelem` parameters, entry 0 too.
CLOSURE(333, void, (int nnz, I32Out ri32, int rnelem, int rptr_base))
{
    const auto rptr = ri32.from(rptr_base);
    for (int64_t k = 0; k <= rnelem; ++k) rptr[k] = static_cast<int32_t>(nnz * k);
}

/// Writes the variable indexes of a scalar expression of `nnz` terms times `rnelem` parameters:
/// those of its terms, once for each parameter.
CLOSURE(335, void, (int nidxs_base, int nnz, I64Out ri64, int rnelem, int rnidxs_base, I64 wi64))
{
    for (int64_t i = 0; nnz > 0 && i < rnelem; ++i)
        copy_n(wi64.from(nidxs_base), nnz, ri64.from(rnidxs_base + i * nnz));
}

/// Writes the programs of a scalar expression of `nnz` terms times `rnelem` parameters: those of
/// its terms for one parameter after the other, which take up the operand's unless `hascode` is 0.
/// Writes `codeptr` but for entry 0.
CLOSURE(336, void,
        (int cconst_base, int code_base, int cof_base, int hascode, int nnz, int pidx_base,
         int ptrcode_base, int rcconst_base, int rcode_base, int rcodeptr_base, F64Out rf64,
         I32Out ri32, int rnelem, F64 wf64, I32 wi32, I32 xi32))
{
    const Operand<Stride> e(wi32, {}, wf64, {.cof = cof_base},
                            {ptrcode_base, code_base, cconst_base});
    Result<Stride> r(ri32, {}, rf64, {}, {rcodeptr_base, rcode_base, rcconst_base});
    const auto pidx = xi32.from(pidx_base);
    for_code(hascode != 0, [&]<bool coded> {
        for (int64_t i = 0; nnz > 0 && i < rnelem; ++i)
            append_parameter_programs<coded>(r, e, Range{0, nnz}, pidx[i]);
    });
}

/// Marks `rpos_n` entries of `ri64` as not yet written, by -999.
CLOSURE_AS(334, void, (I64Out ri64, int rpos, int rpos_n), fill_n(ri64.from(rpos), rpos_n, -999))

} // namespace fragments
