// mul_param_elem and dot_param: the elementwise product P .* E of an array P of parameters and an
// expression E of the same shape, and the sum of its elements.
//
// P is a list of linear indexes, strictly ascending, with the index of each entry's parameter
// beside it. E is dense or has such a list of its own, `sp`. No terms are merged. The sum is one
// element, so only its terms are written: `ptr` is the host's.
//
// 358 sizes and 362 or 361 writes the elementwise product, for a dense or a sparse E; 354 sizes and
// 357 or 356 writes the sum. 359 and 355 measure the shape.

#include "algorithms.h"
#include "closure_frame.h"
#include "parameter_term.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// Calls `pair(a, q)` for each entry a of P at an index that a sparse E stores too, as its element
/// q. Moves both cursors; a match moves that of P, and E's follows with the next entry.
template <class S, class Pair>
void walk_sparse(Range& entries, I64<S> psp, Range& elements, I64<S> sp, Pair pair)
{
    merge(
        entries, [&](int64_t a) { return psp[a]; }, elements, [&](int64_t q) { return sp[q]; },
        [&](int64_t) { pair(entries.begin++, elements.begin); });
}

/// Calls `pair(a, q)` for each pair that the writers take, from the start on.
template <class S, class Pair>
void walk_all(int pnnz, I64<S> psp, bool hassp, int nelem, I64<S> sp, Pair pair)
{
    if (!hassp) {
        for (int64_t a = 0; a < pnnz; ++a) pair(a, psp[a]);
        return;
    }
    Range entries{0, pnnz};
    Range elements{0, nelem};
    walk_sparse(entries, psp, elements, sp, pair);
}

} // namespace

/// Number of positions of the shape of `nd` extents at `shape_base`, times `start`, in 64 bits.
CLOSURE_AS(359, long long, (int nd, long long start, int shape_base, I32 wi32),
           product(start, wi32.from(shape_base), nd))
CLOSURE_AS(355, long long, (int nd, long long start, int shape_base, I32 wi32),
           product(start, wi32.from(shape_base), nd))

// The elementwise product.

/// Sizes the elementwise product of a sparse array of `pnnz` parameters and an expression: adds
/// what the pairs take and, for a sparse expression (`hassp`), an element for each index that it
/// stores too; for a dense one `rnelem` becomes `pnnz`. Returns (`rncodeatom`, `rnelem`, `rnnz`).
CLOSURE(358, results(int, int, int),
        (int codeptr_base, bool hassp, int ncodeatom, int nelem, int pnnz, int psp_base,
         int ptr_base, int rncodeatom, int rnelem, int rnnz, int sp_base, I32 wi32, I64 wi64,
         I64 xi64))
{
    Sizes sizes{rncodeatom, hassp ? rnelem : pnnz, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_all(pnnz, xi64.from(psp_base), hassp, nelem, wi64.from(sp_base), [&](int64_t, int64_t q) {
        add_parameter_terms(sizes, e, q, ncodeatom > 0);
        if (hassp) ++sizes.rnelem;
    });
    return {sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Writes the elementwise product of a sparse array of `pnnz` parameters and a dense expression:
/// terms with coefficient 0.0, their programs, and `ptr` and `sp` of an element for each entry of
/// the array, from the first on, also of those without terms. Returns (`code_pos`, `nnz_pos`), the
/// numbers of atoms and terms written so far.
CLOSURE(362, results(int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base,
         int ncodeatom, int nidxs_base, int nnz_pos, int pidx_base, int pnnz, int psp_base,
         int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base,
         F64 wf64, I32 wi32, I64 wi64, I32 xi32, I64 xi64))
{
    const auto psp = xi64.from(psp_base);
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(code_pos, 0, nnz_pos);
    for_code(ncodeatom > 0, [&]<bool coded> {
        for (int64_t a = 0; a < pnnz; ++a) {
            const int64_t q = psp[a];
            append_parameter_terms<coded>(r, e, q, pidx, a);
            r.close_element(q);
        }
    });
    return {r.codei, r.nnzi};
}

/// Writes the elementwise product of a sparse array of `pnnz` parameters and a sparse expression,
/// from entry `p_pos` and element `e_pos` on: terms with coefficient 0.0, their programs, and `ptr`
/// and `sp` of an element for each index that both hold, also one without terms. Returns
/// (`code_pos`, `e_pos`, `elem_pos`, `nnz_pos`, `p_pos`), the numbers of what is written so far and
/// the places where one of the operands is used up: where a match is the last entry of the array,
/// `e_pos` is the place of its element, not the one behind.
CLOSURE(361, results(int, int, int, int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base, int e_pos,
         int elem_pos, int ncodeatom, int nelem, int nidxs_base, int nnz_pos, int p_pos,
         int pidx_base, int pnnz, int psp_base, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rsp_base, int sp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32,
         I64 xi64))
{
    const auto psp = xi64.from(psp_base);
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(code_pos, elem_pos, nnz_pos);
    Range entries{p_pos, pnnz};
    Range elements{e_pos, nelem};
    for_code(ncodeatom > 0, [&]<bool coded> {
        walk_sparse(entries, psp, elements, wi64.from(sp_base), [&](int64_t a, int64_t q) {
            append_parameter_terms<coded>(r, e, q, pidx, a);
            r.close_element(psp[a]);
        });
    });
    return {r.codei, static_cast<int>(elements.begin), r.elmi, r.nnzi,
            static_cast<int>(entries.begin)};
}

// The sum.

/// Sizes the sum of the products of a sparse array of `pnnz` parameters and an expression: adds
/// what the pairs take. Returns (`rncodeatom`, `rnnz`).
CLOSURE(354, results(int, int),
        (int codeptr_base, bool hassp, int ncodeatom, int nelem, int pnnz, int psp_base,
         int ptr_base, int rncodeatom, int rnnz, int sp_base, I32 wi32, I64 wi64, I64 xi64))
{
    Sizes sizes{rncodeatom, 0, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_all(pnnz, xi64.from(psp_base), hassp, nelem, wi64.from(sp_base),
             [&](int64_t, int64_t q) { add_parameter_terms(sizes, e, q, ncodeatom > 0); });
    return {sizes.rncodeatom, sizes.nnz()};
}

/// Writes the terms of the sum of the products of a sparse array of `pnnz` parameters and a dense
/// expression, with coefficient 0.0, and their programs. Returns (`code_pos`, `nnz_pos`), the
/// numbers of atoms and terms written so far.
CLOSURE(357, results(int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base,
         int ncodeatom, int nidxs_base, int nnz_pos, int pidx_base, int pnnz, int psp_base,
         int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, F64 wf64, I32 wi32, I64 wi64,
         I32 xi32, I64 xi64))
{
    const auto psp = xi64.from(psp_base);
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    Result<Stride> r(ri32, ri64, rf64, {.nidxs = rnidxs_base, .cof = rcof_base},
                     {rcodeptr_base, rcode_base, rcconst_base},
                     {.codei = code_pos, .nnzi = nnz_pos});
    for_code(ncodeatom > 0, [&]<bool coded> {
        for (int64_t a = 0; a < pnnz; ++a) append_parameter_terms<coded>(r, e, psp[a], pidx, a);
    });
    return {r.codei, r.nnzi};
}

/// Writes the terms of the sum of the products of a sparse array of `pnnz` parameters and a sparse
/// expression, from entry `p_pos` and element `e_pos` on, with coefficient 0.0, and their programs.
/// Returns (`code_pos`, `e_pos`, `nnz_pos`, `p_pos`), the numbers of atoms and terms written so far
/// and the places where one of the operands is used up: where a match is the last entry of the
/// array, `e_pos` is the place of its element, not the one behind.
CLOSURE(356, results(int, int, int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base, int e_pos,
         int ncodeatom, int nelem, int nidxs_base, int nnz_pos, int p_pos, int pidx_base, int pnnz,
         int psp_base, int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base,
         int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, int sp_base,
         F64 wf64, I32 wi32, I64 wi64, I32 xi32, I64 xi64))
{
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    Result<Stride> r(ri32, ri64, rf64, {.nidxs = rnidxs_base, .cof = rcof_base},
                     {rcodeptr_base, rcode_base, rcconst_base},
                     {.codei = code_pos, .nnzi = nnz_pos});
    Range entries{p_pos, pnnz};
    Range elements{e_pos, nelem};
    for_code(ncodeatom > 0, [&]<bool coded> {
        walk_sparse(entries, xi64.from(psp_base), elements, wi64.from(sp_base),
                    [&](int64_t a, int64_t q) { append_parameter_terms<coded>(r, e, q, pidx, a); });
    });
    return {r.codei, static_cast<int>(elements.begin), r.nnzi, static_cast<int>(entries.begin)};
}

} // namespace fragments
