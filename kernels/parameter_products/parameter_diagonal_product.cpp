// diag_param_left and diag_param_right: the diagonals of the products P E and E P of a matrix P of
// parameters and an expression E read as a matrix, as sparse vectors.
//
// P and E as in the full products. With a dense E there is an element for each row, or column, of P
// that has an entry, with a sparse one where an entry meets a stored element. No terms are merged.
// On the left a sparse E is grouped by column (338 to 341), on the right P (346 to 349).

#include "algorithms.h"
#include "closure_frame.h"
#include "matrix_walks.h"
#include "parameter_term.h"
#include "stacked_expression.h"

namespace fragments {

/// Writes the diagonal of E P for dense E, from place `ipos` of P's columns on.
/// Returns (code_pos, elem_pos, ipos, nnz_pos).
CLOSURE(353, results(int, int, int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base, int dim1,
         int elem_pos, int ipos, int ncodeatom, int nidxs_base, int nnz_pos, int pdim1,
         int pidx_base, int pnnz, int pperm_base, int psp_base, int ptr_base, int rcconst_base,
         int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rnidxs_base, int rptr_base, int rsp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32,
         I64 xi64))
{
    const ColumnRuns columns{LinearEntries{pnnz, xi64.from(psp_base), pdim1},
                             xi32.from(pperm_base)};
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(code_pos, elem_pos, nnz_pos);
    for_code(ncodeatom > 0, [&]<bool coded> {
        ipos = walk_right_diagonal(
            dim1, columns, ipos,
            [&](int64_t a, int64_t q) { append_parameter_terms<coded>(r, e, q, pidx, a); },
            [&](int64_t c) { r.close_element(c); });
    });
    return {r.codei, r.elmi, ipos, r.nnzi};
}

/// Sizes 353: (ipos, rncodeatom, rnelem, rnnz), added to.
CLOSURE(352, results(int, int, int, int),
        (int codeptr_base, int dim1, int ipos, int ncodeatom, int pdim1, int pnnz, int pperm_base,
         int psp_base, int ptr_base, int rncodeatom, int rnelem, int rnnz, I32 wi32, I32 xi32,
         I64 xi64))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    const ColumnRuns columns{LinearEntries{pnnz, xi64.from(psp_base), pdim1},
                             xi32.from(pperm_base)};
    ipos = walk_right_diagonal(
        dim1, columns, ipos,
        [&](int64_t, int64_t q) { add_parameter_terms(sizes, e, q, ncodeatom > 0); },
        [&](int64_t) { ++sizes.rnelem; });
    return {ipos, sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// Writes the diagonal of E P for sparse E, from element `epos` of E and place `ipos` of P's
/// columns on. Returns (code_pos, elem_pos, epos, ipos, nnz_pos).
CLOSURE(351, results(int, int, int, int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base, int dim1,
         int elem_pos, int epos, int ipos, int ncodeatom, int nelem, int nidxs_base, int nnz_pos,
         int pdim1, int pidx_base, int pnnz, int pperm_base, int psp_base, int ptr_base,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base, int sp_base,
         F64 wf64, I32 wi32, I64 wi64, I32 xi32, I64 xi64))
{
    const ColumnRuns columns{LinearEntries{pnnz, xi64.from(psp_base), pdim1},
                             xi32.from(pperm_base)};
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(code_pos, elem_pos, nnz_pos);
    Range elements{epos, nelem};
    Range places{ipos, pnnz};
    for_code(ncodeatom > 0, [&]<bool coded> {
        walk_diagonal(
            LinearEntries{nelem, wi64.from(sp_base), dim1}, elements, columns, places,
            [&](int64_t q, int64_t a) { append_parameter_terms<coded>(r, e, q, pidx, a); },
            [&](int64_t i, bool met) {
                if (met) r.close_element(i);
            });
    });
    return {r.codei, r.elmi, static_cast<int>(elements.begin), static_cast<int>(places.begin),
            r.nnzi};
}

/// Sizes 351: (epos, ipos, rncodeatom, rnelem, rnnz), added to.
CLOSURE(350, results(int, int, int, int, int),
        (int codeptr_base, int dim1, int epos, int ipos, int ncodeatom, int nelem, int pdim1,
         int pnnz, int pperm_base, int psp_base, int ptr_base, int rncodeatom, int rnelem, int rnnz,
         int sp_base, I32 wi32, I64 wi64, I32 xi32, I64 xi64))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    const ColumnRuns columns{LinearEntries{pnnz, xi64.from(psp_base), pdim1},
                             xi32.from(pperm_base)};
    Range elements{epos, nelem};
    Range places{ipos, pnnz};
    walk_diagonal(
        LinearEntries{nelem, wi64.from(sp_base), dim1}, elements, columns, places,
        [&](int64_t q, int64_t) { add_parameter_terms(sizes, e, q, ncodeatom > 0); },
        [&](int64_t, bool met) { sizes.rnelem += met ? 1 : 0; });
    return {static_cast<int>(elements.begin), static_cast<int>(places.begin), sizes.rncodeatom,
            sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// Writes all of the diagonal of P E for dense E: the shape (nrow), entry 0 of `ptr` and `codeptr`,
/// and the elements.
CLOSURE(345, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, int dim1, int ncodeatom,
         int nidxs_base, int nrow, int pdim1, int pidx_base, int pnnz, int psp_base, int ptr_base,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base, int rshape_base,
         int rsp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32, I64 xi64))
{
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT();
    ri32[rshape_base] = nrow;
    r.ptr[0] = 0;
    if (rncodeatom > 0) r.codeptr[0] = 0;
    for_code(ncodeatom > 0, [&]<bool coded> {
        walk_left_diagonal(
            LinearEntries{pnnz, xi64.from(psp_base), pdim1}, 0, dim1,
            [&](int64_t a, int64_t q) { append_parameter_terms<coded>(r, e, q, pidx, a); },
            [&](int64_t row) { r.close_element(row); });
    });
}

/// Sizes 345: (rncodeatom, rnelem, rnnz), added to.
CLOSURE(344, results(int, int, int),
        (int codeptr_base, int dim1, int ncodeatom, int pdim1, int pnnz, int psp_base, int ptr_base,
         int rncodeatom, int rnelem, int rnnz, I32 wi32, I64 xi64))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_left_diagonal(
        LinearEntries{pnnz, xi64.from(psp_base), pdim1}, 0, dim1,
        [&](int64_t, int64_t q) { add_parameter_terms(sizes, e, q, ncodeatom > 0); },
        [&](int64_t) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// Writes all of the diagonal of P E for sparse E, as 345; nothing if it has no elements.
CLOSURE(343, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, int dim1, int eperm_base,
         int ncodeatom, int nelem, int nidxs_base, int nrow, int pdim1, int pidx_base, int pnnz,
         int psp_base, int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base,
         int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnelem, int rnidxs_base,
         int rnumatom, int rptr_base, int rshape_base, int rsp_base, int sp_base, F64 wf64,
         I32 wi32, I64 wi64, I32 xi32, I64 xi64))
{
    if (rnelem <= 0) return;
    const LinearEntries p{pnnz, xi64.from(psp_base), pdim1};
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    const ColumnRuns columns{LinearEntries{nelem, wi64.from(sp_base), dim1}, xi32.from(eperm_base)};
    auto r = SPARSE_RESULT();
    ri32[rshape_base] = nrow;
    r.ptr[0] = 0;
    if (rnumatom > 0) r.codeptr[0] = 0;
    Range entries{0, pnnz};
    Range places{0, nelem};
    for_code(ncodeatom > 0, [&]<bool coded> {
        walk_diagonal(
            p, entries, columns, places,
            [&](int64_t a, int64_t q) { append_parameter_terms<coded>(r, e, q, pidx, a); },
            [&](int64_t i, bool met) {
                if (met) r.close_element(i);
            });
    });
}

/// Sizes 343: (rncodeatom, rnelem, rnnz), added to.
CLOSURE(342, results(int, int, int),
        (int codeptr_base, int dim1, int eperm_base, int ncodeatom, int nelem, int pdim1, int pnnz,
         int psp_base, int ptr_base, int rncodeatom, int rnelem, int rnnz, int sp_base, I32 wi32,
         I64 wi64, I32 xi32, I64 xi64))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    const ColumnRuns columns{LinearEntries{nelem, wi64.from(sp_base), dim1}, xi32.from(eperm_base)};
    Range entries{0, pnnz};
    Range places{0, nelem};
    walk_diagonal(
        LinearEntries{pnnz, xi64.from(psp_base), pdim1}, entries, columns, places,
        [&](int64_t, int64_t q) { add_parameter_terms(sizes, e, q, ncodeatom > 0); },
        [&](int64_t, bool met) { sizes.rnelem += met ? 1 : 0; });
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

} // namespace fragments
