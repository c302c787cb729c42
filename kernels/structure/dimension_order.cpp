// transpose and permute_dims: the elements of an expression under other subscripts.
//
// The terms stay as they are and go with their elements. A dense result is written in its own
// order; for each position the operand's element is computed. For a sparse one the new linear
// indexes have to ascend: transposing groups the elements by column, and a permutation of any
// dimensions takes the host's order of the new indexes (418, then 419).

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "stacked_expression.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// Positions of a permuted array that follow each other, and the elements of the original that go
/// there: `first` and then on by `step`.
struct Line
{
    int64_t first;
    int64_t step;
    int64_t length;
};

/// The line from position `linear` on, of at most `most` positions. Digit dperm[d] of a position,
/// which changes each `stride` positions, counts steps of dstride[d] in the original.
template <class S>
Line line_from(int64_t linear, int64_t most, I32<S> dperm, I32<S> dstride, int nd, I32<S> shape,
               I64<S> stride)
{
    Line line{0, 0, most};
    for (int d = 0; d < nd; ++d) {
        const int j = dperm[d];
        const int64_t extent = shape[j];
        if (extent == 1) continue;
        const int64_t digit = subscript(linear, stride[j], extent);
        line.first += dstride[d] * digit;
        if (stride[j] == 1 && extent > 0) {
            line.step += dstride[d];
            line.length = std::min(line.length, extent - digit);
        } else {
            line.length = std::min(line.length, same_subscript(linear, stride[j]));
        }
    }
    return line;
}

} // namespace

/// Transposes a dense d0 x d1 operand; entry 0 of `ptr` is written, that of `codeptr` isn't.
CLOSURE(422, void,
        (int cconst_base, int code_base, int codeptr_base, int d0, int d1, int ecof_base,
         int enidxs_base, int eptr_base, int ncodeatom, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, F64 wf64, I32 wi32, I64 wi64))
{
    const Operand<Stride> e(wi32, wi64, wf64, {eptr_base, enidxs_base, ecof_base},
                            {codeptr_base, code_base, cconst_base});
    auto r = STACKED_RESULT();
    r.ptr[0] = 0;
    for (int64_t i = 0; i < d1; ++i) {
        for (int64_t j = 0; j < d0; ++j) {
            r.append(e, d1 * j + i, ncodeatom > 0);
            r.close_element();
        }
    }
}

/// Transposes a sparse d0 x d1 operand by a stable counting sort by column; entry 0 of `ptr` is
/// written, that of `codeptr` isn't. `perm` and `pptr` are scratch of `nelem` and d1 + 1 entries.
CLOSURE(421, void,
        (int cconst_base, int code_base, int codeptr_base, int d0, int d1, int ecof_base,
         int enidxs_base, int eptr_base, int esp_base, int ncodeatom, int nelem, int perm_base,
         int pptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base,
         F64 wf64, I32 wi32, I64 wi64, I32Out xi32))
{
    const Operand<Stride> e(wi32, wi64, wf64, {eptr_base, enidxs_base, ecof_base},
                            {codeptr_base, code_base, cconst_base});
    auto r = SPARSE_RESULT();
    const auto sp = wi64.from(esp_base);
    const auto perm = xi32.from(perm_base);
    counting_sort(
        nelem, each_position, [&](int64_t q) { return remainder(sp[q], d1); }, d1,
        xi32.from(pptr_base), perm);
    r.ptr[0] = 0;
    for (int64_t k = 0; k < nelem; ++k) {
        const int q = perm[k];
        r.append(e, q, ncodeatom > 0);
        r.close_element(d0 * remainder(sp[q], d1) + quotient(sp[q], d1));
    }
}

/// The result's shape: extent i is the operand's extent dperm[i].
CLOSURE_AS(417, void, (I32 dperm, int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           gather_n(wi32.from(shape_base), nd, dperm, ri32.from(rshape_base)))

/// Permutes the dimensions of a dense operand; entries 0 of `ptr` and `codeptr` are written.
/// Position x of the result is element sum of dstride[d] * (x / stride[j] % shape[j]) over d, with
/// j = dperm[d], of the operand.
CLOSURE(420, void,
        (int cconst_base, int code_base, int codeptr_base, I32 dperm, I32 dstride, int ecof_base,
         int enidxs_base, int eptr_base, int ncodeatom, int nd, int nelem, int rcconst_base,
         int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rnidxs_base, int rptr_base, int shape_base, I64 stride, F64 wf64, I32 wi32, I64 wi64))
{
    const Operand<Stride> e(wi32, wi64, wf64, {eptr_base, enidxs_base, ecof_base},
                            {codeptr_base, code_base, cconst_base});
    auto r = STACKED_RESULT();
    const bool coded = ncodeatom > 0;
    r.ptr[0] = 0;
    if (coded) r.codeptr[0] = 0;
    for (int64_t x = 0; x < nelem;) {
        const Line line =
            line_from(x, nelem - x, dperm, dstride, nd, wi32.from(shape_base), stride);
        if (line.step == 1) {
            r.append_elements(e, line.first, coded, line.length);
        } else {
            for (int64_t i = 0; i < line.length; ++i) {
                r.append(e, line.first + i * line.step, coded);
                r.close_element();
            }
        }
        x += line.length;
    }
}

/// The new linear index of each stored element, in the operand's order: the sum over the operand's
/// dimensions of its subscript times dstride[dperm[d]].
CLOSURE(418, void,
        (I32 dperm, I32 dstride, int esp_base, int nd, int nelem, int shape_base, I64Out sp,
         I64 stride, I32 wi32, I64 wi64))
{
    if (nd <= 0) {
        fill_n(sp, nelem, 0);
        return;
    }
    const auto esp = wi64.from(esp_base);
    const auto shape = wi32.from(shape_base);
    for (int64_t i = 0; i < nelem; ++i) {
        const int64_t linear = esp[i];
        int64_t moved = 0;
        for (int d = 0; d < nd; ++d)
            moved += dstride[dperm[d]] * subscript(linear, stride[d], shape[d]);
        sp[i] = moved;
    }
}

/// Permutes the dimensions of a sparse operand: its elements go to the result in the order of
/// `perm`, each with its new linear index in `sp`, from the first slot on; `kelm` only counts them.
/// Terms and atoms go on from `knnz` and `codei`. Returns (codei, kelm, knnz).
CLOSURE(419, results(int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int ecof_base,
         int enidxs_base, int eptr_base, int kelm, int knnz, int ncodeatom, int nelem, I64 perm,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base, I64 sp, F64 wf64,
         I32 wi32, I64 wi64))
{
    const Operand<Stride> e(wi32, wi64, wf64, {eptr_base, enidxs_base, ecof_base},
                            {codeptr_base, code_base, cconst_base});
    auto r = SPARSE_RESULT(codei, 0, knnz);
    for (int64_t k = 0; k < nelem; ++k) {
        const int64_t q = perm[k];
        r.append(e, q, ncodeatom > 0);
        r.close_element(sp[q]);
    }
    return {r.codei, kelm + r.elmi, r.nnzi};
}

} // namespace fragments
