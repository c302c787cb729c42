// mul_param_elem and dot_param: the elementwise product P .* E of an array P of parameters and an
// expression E of the same shape, and the sum of its elements.
//
// P is a list of linear indexes, strictly ascending, with the index of each entry's parameter
// beside it. E is dense or has such a list of its own, `sp`. No terms are merged. The sum is one
// element, so only its terms are written: `ptr` is the host's.

#include "algorithms.h"
#include "closure_frame.h"
#include "parameter_term.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// Calls `meet(a, q)` for each entry a of P at an index that a sparse E stores too, as its element
/// q. Moves both cursors; a match moves that of P, and E's follows with the next entry.
template <class S, class Meet>
void for_each_met_element(Range& entries, I64<S> psp, Range& elements, I64<S> sp, Meet meet)
{
    while (elements.begin < elements.end && entries.begin < entries.end) {
        const int64_t element = sp[elements.begin];
        const int64_t entry = psp[entries.begin];
        if (element < entry) {
            ++elements.begin;
        } else {
            if (element == entry) meet(entries.begin, elements.begin);
            ++entries.begin;
        }
    }
}

/// Calls `meet(q)` for each element q of E that an entry of P meets, as the writers take them.
template <class S, class Meet>
void for_each_met_element(int pnnz, I64<S> psp, bool hassp, int nelem, I64<S> sp, Meet meet)
{
    if (!hassp) {
        for (int64_t a = 0; a < pnnz; ++a) meet(psp[a]);
        return;
    }
    Range entries{0, pnnz};
    Range elements{0, nelem};
    for_each_met_element(entries, psp, elements, sp, [&](int64_t, int64_t q) { meet(q); });
}

} // namespace

/// Writes P .* E for dense E: a sparse result with an element for each entry of P.
/// Returns (code_pos, nnz_pos).
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

/// Writes P .* E for sparse E, from the cursors `e_pos` and `p_pos` on: a sparse result with an
/// element for each index that both hold. Where a match is the last entry of P, `e_pos` comes back
/// as the place of its element, not the one behind.
/// Returns (code_pos, e_pos, elem_pos, nnz_pos, p_pos).
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
        for_each_met_element(entries, psp, elements, wi64.from(sp_base), [&](int64_t a, int64_t q) {
            append_parameter_terms<coded>(r, e, q, pidx, a);
            r.close_element(psp[a]);
        });
    });
    return {r.codei, static_cast<int>(elements.begin), r.elmi, r.nnzi,
            static_cast<int>(entries.begin)};
}

/// Sizes P .* E: (rncodeatom, rnelem, rnnz), added to, but for a dense E `rnelem` replaced.
CLOSURE(358, results(int, int, int),
        (int codeptr_base, bool hassp, int ncodeatom, int nelem, int pnnz, int psp_base,
         int ptr_base, int rncodeatom, int rnelem, int rnnz, int sp_base, I32 wi32, I64 wi64,
         I64 xi64))
{
    Sizes sizes{rncodeatom, hassp ? rnelem : pnnz, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    for_each_met_element(pnnz, xi64.from(psp_base), hassp, nelem, wi64.from(sp_base),
                         [&](int64_t q) {
                             add_parameter_terms(sizes, e, q, ncodeatom > 0);
                             if (hassp) ++sizes.rnelem;
                         });
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// Writes the sum's terms for dense E. Returns (code_pos, nnz_pos).
CLOSURE(357, results(int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base,
         int ncodeatom, int nidxs_base, int nnz_pos, int pidx_base, int pnnz, int psp_base,
         int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, F64 wf64, I32 wi32, I64 wi64,
         I32 xi32, I64 xi64))
{
    constexpr int rptr_base = 0; // not written here
    const auto psp = xi64.from(psp_base);
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    auto r = STACKED_RESULT(code_pos, 0, nnz_pos);
    for_code(ncodeatom > 0, [&]<bool coded> {
        for (int64_t a = 0; a < pnnz; ++a) append_parameter_terms<coded>(r, e, psp[a], pidx, a);
    });
    return {r.codei, r.nnzi};
}

/// The same for sparse E, with the cursors of 361. Returns (code_pos, e_pos, nnz_pos, p_pos).
CLOSURE(356, results(int, int, int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base, int e_pos,
         int ncodeatom, int nelem, int nidxs_base, int nnz_pos, int p_pos, int pidx_base, int pnnz,
         int psp_base, int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base,
         int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, int sp_base,
         F64 wf64, I32 wi32, I64 wi64, I32 xi32, I64 xi64))
{
    constexpr int rptr_base = 0; // not written here
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    auto r = STACKED_RESULT(code_pos, 0, nnz_pos);
    Range entries{p_pos, pnnz};
    Range elements{e_pos, nelem};
    for_code(ncodeatom > 0, [&]<bool coded> {
        for_each_met_element(
            entries, xi64.from(psp_base), elements, wi64.from(sp_base),
            [&](int64_t a, int64_t q) { append_parameter_terms<coded>(r, e, q, pidx, a); });
    });
    return {r.codei, static_cast<int>(elements.begin), r.nnzi, static_cast<int>(entries.begin)};
}

/// Sizes the sum: (rncodeatom, rnnz), added to.
CLOSURE(354, results(int, int),
        (int codeptr_base, bool hassp, int ncodeatom, int nelem, int pnnz, int psp_base,
         int ptr_base, int rncodeatom, int rnnz, int sp_base, I32 wi32, I64 wi64, I64 xi64))
{
    Sizes sizes{rncodeatom, 0, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    for_each_met_element(pnnz, xi64.from(psp_base), hassp, nelem, wi64.from(sp_base),
                         [&](int64_t q) { add_parameter_terms(sizes, e, q, ncodeatom > 0); });
    return {sizes.rncodeatom, static_cast<int>(sizes.rnnz)};
}

/// Number of positions of a shape, times `start`.
CLOSURE_AS(359, long long, (int nd, long long start, int shape_base, I32 wi32),
           product(start, wi32.from(shape_base), nd))
CLOSURE_AS(355, long long, (int nd, long long start, int shape_base, I32 wi32),
           product(start, wi32.from(shape_base), nd))

} // namespace fragments
