// dot: the affine form sum of vcof[k] E[vsub[k]], for a sparse constant tensor over E's shape.
//
// The result is one element, so only its terms are written. A tensor that arrives by subscripts,
// one row of them for each nonzero, is turned into linear indexes first (448, 449).

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"
#include "subscripts.h"
#include "tensor_operand.h"

namespace fragments {

/// Adds the linear index of each row of subscripts to `res`; `s` are the strides.
CLOSURE_AS(449, void, (int nd, I64Out res, I64 s, I32Matrix vsub),
           add_linear_indexes(vsub.rows(), nd, s, res, vsub))

/// Row-major strides of a shape, but for the last one, which the host has set to 1.
CLOSURE_AS(448, void, (int nd, I64Out s, I32 shape), row_major_strides(shape, nd, s))

/// Writes the terms, by ascending index of the tensor, none merged. Returns (codei, iterm).
CLOSURE(447, results(int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, bool hassp,
         int iterm, int nelem, int nidxs_base, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom,
         int rnidxs_base, int sp_base, F64 vcof, I64 vsub, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    Result<Stride> r(ri32, ri64, rf64, {0, rnidxs_base, rcof_base},
                     {rcodeptr_base, rcode_base, rcconst_base}, {codei, 0, iterm});
    const Code form = rncodeatom > 0 ? Code::scaled : Code::none;
    for_each_met_element(vsub, hassp, nelem, wi64.from(sp_base),
                         [&](int64_t k, int64_t q) { r.append_scaled(e, q, vcof, k, form); });
    return {r.codei, r.nnzi};
}

/// Number of terms that 447 writes, plus `rnnz`. Their atoms are not counted.
CLOSURE(446, int,
        (bool hassp, int nelem, int ptr_base, int rnnz, int sp_base, I64 vsub, I32 wi32, I64 wi64))
{
    const Operand<Stride> e(wi32, {ptr_base, 0, 0});
    for_each_met_element(vsub, hassp, nelem, wi64.from(sp_base),
                         [&](int64_t, int64_t q) { rnnz += e.terms(q); });
    return rnnz;
}

/// Tests the tensor: (whether its first or last index lies outside 0 to `maxidx`, whether the order
/// is broken). A flag that comes in set stays set.
CLOSURE(445, results(bool, bool), (bool badidx, bool badorder, long long maxidx, I64 vsub3))
{
    const int64_t n = vsub3.length();
    if (n > 0 && (vsub3[0] < 0 || vsub3[n - 1] > maxidx)) badidx = true;
    return {badidx, !strictly_ascending(!badorder, vsub3, n)};
}

} // namespace fragments
