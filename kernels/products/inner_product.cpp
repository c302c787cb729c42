// dot: the affine form sum of vcof[k] E[vsub[k]], for a sparse constant tensor over E's shape.
//
// The result is one element, so only its terms are written: `ptr` is the host's. A tensor that
// arrives by subscripts, one row of them for each nonzero, is turned into linear indexes by 448 and
// 449; 445 tests, 446 sizes, 447 writes.

#include "algorithms.h"
#include "closure_frame.h"
#include "matrix_walks.h"
#include "stacked_expression.h"
#include "subscripts.h"

namespace fragments {

/// Builds the row-major strides of a shape of `nd` dimensions in `s`, but for the last one, which
/// is set to 1 before: s[i] = shape[i + 1] * s[i + 1], from the last dimension but one down to the
/// first.
CLOSURE_AS(448, void, (int nd, I64Out s, I32 shape), row_major_strides(shape, nd, s))

/// Adds to each entry of `res` the linear index of its row of subscripts in `vsub`, of which the
/// first `nd` columns count; `s` are the strides.
CLOSURE_AS(449, void, (int nd, I64Out res, I64 s, I32Matrix vsub),
           add_linear_indexes(vsub.rows(), nd, s, res, vsub))

/// Tests a list of linear indexes, all of `vsub3`: `badidx` becomes true if the first is negative
/// or the last above `maxidx`, `badorder` if some index isn't above the one before it. A flag that
/// comes in true stays true. Returns (`badidx`, `badorder`).
CLOSURE(445, results(bool, bool), (bool badidx, bool badorder, long long maxidx, I64 vsub3))
{
    const int64_t n = vsub3.length();
    if (n > 0 && (vsub3[0] < 0 || vsub3[n - 1] > maxidx)) badidx = true;
    return {badidx, !strictly_ascending(!badorder, vsub3, n)};
}

/// Sizes the inner product of a sparse tensor, the strictly ascending linear indexes `vsub`, and an
/// expression: `rnnz` plus the number of terms of the elements that it meets, all of them in a
/// dense expression, those stored in a sparse one (`hassp`). Atoms aren't counted.
CLOSURE(446, int,
        (bool hassp, int nelem, int ptr_base, int rnnz, int sp_base, I64 vsub, I32 wi32, I64 wi64))
{
    const Operand<Stride> e(wi32, {.ptr = ptr_base});
    walk_elementwise(vsub.length(), vsub, hassp, nelem, wi64.from(sp_base),
                     [&](int64_t, int64_t q) { rnnz += e.terms(q); });
    return rnnz;
}

/// Writes the terms of the inner product of a sparse tensor, strictly ascending linear indexes
/// `vsub` with values `vcof`, and an expression, by ascending index, and their programs if
/// `rncodeatom` is above 0. An index that a sparse expression (`hassp`) doesn't store adds nothing.
/// Returns (`codei`, `iterm`), the numbers of atoms and terms written so far.
CLOSURE(447, results(int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, bool hassp,
         int iterm, int nelem, int nidxs_base, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom,
         int rnidxs_base, int sp_base, F64 vcof, I64 vsub, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = SPARSE_OPERAND();
    Result<Stride> r(ri32, ri64, rf64, {.nidxs = rnidxs_base, .cof = rcof_base},
                     {rcodeptr_base, rcode_base, rcconst_base}, {.codei = codei, .nnzi = iterm});
    const Code form = form_of(rncodeatom);
    walk_elementwise(vsub.length(), vsub, hassp, nelem, e.sp,
                     [&](int64_t k, int64_t q) { r.append_scaled(e, q, vcof, k, form); });
    return {r.codei, r.nnzi};
}

} // namespace fragments
