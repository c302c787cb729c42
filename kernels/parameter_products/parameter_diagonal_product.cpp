// diag_param_left and diag_param_right: the diagonals of the products P E and E P of a matrix P of
// parameters and an expression E read as a matrix, as sparse vectors.
//
// P and E as in the full products. With a dense E there is an element for each row, or column, of P
// that has an entry, with a sparse one where an entry meets a stored element. No terms are merged.
//
// The chains are grouping, sizing and writing. On the left 344, 345 for a dense E and 338 to 341,
// 342, 343 for a sparse one; on the right 346 to 349 and then 352, 353 for a dense E and 350, 351
// for a sparse one.

#include "algorithms.h"
#include "closure_frame.h"
#include "matrix_walks.h"
#include "parameter_term.h"
#include "stacked_expression.h"

namespace fragments {

// The diagonal of P E.

/// Sizes the diagonal of the product of a sparse matrix of parameters with `pdim1` columns and a
/// dense expression with `dim1` columns: adds what the pairs take, and an element for each row of
/// the matrix that has one of its `pnnz` entries. Returns (`rncodeatom`, `rnelem`, `rnnz`).
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
    return {sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Writes the diagonal of the product of a sparse matrix of parameters with `pdim1` columns and a
/// dense expression with `dim1` columns: entry 0 of `ptr` and, if `rncodeatom` is above 0, of
/// `codeptr`, the shape (`nrow`), terms with coefficient 0.0, their programs, and `ptr` and `sp` of
/// an element for each row of the matrix that has an entry, also one without terms.
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
    r.start(rncodeatom > 0);
    ri32[rshape_base] = nrow;
    for_code(ncodeatom > 0, [&]<bool coded> {
        walk_left_diagonal(
            LinearEntries{pnnz, xi64.from(psp_base), pdim1}, 0, dim1,
            [&](int64_t a, int64_t q) { append_parameter_terms<coded>(r, e, q, pidx, a); },
            [&](int64_t row) { r.close_element(row); });
    });
}

/// Sizes the diagonal of the product of a sparse matrix of parameters with `pdim1` columns and a
/// sparse expression with `dim1` columns whose positions are grouped by column: adds what the pairs
/// take, and an element for each place of the diagonal where some entry meets a stored element,
/// also one without terms. Returns (`rncodeatom`, `rnelem`, `rnnz`).
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
        [&](int64_t) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Writes the diagonal of the product of a sparse matrix of parameters with `pdim1` columns and a
/// sparse expression with `dim1` columns whose positions are grouped by column: entry 0 of `ptr`
/// and, if `rnumatom` is above 0, of `codeptr`, the shape (`nrow`), terms with coefficient 0.0,
/// their programs, and `ptr` and `sp` of an element for each place of the diagonal where some entry
/// meets a stored element, also one without terms. Writes nothing unless `rnelem` is above 0.
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
    r.start(rnumatom > 0);
    ri32[rshape_base] = nrow;
    Range entries{0, pnnz};
    Range places{0, nelem};
    for_code(ncodeatom > 0, [&]<bool coded> {
        walk_diagonal(
            p, entries, columns, places,
            [&](int64_t a, int64_t q) { append_parameter_terms<coded>(r, e, q, pidx, a); },
            [&](int64_t i) { r.close_element(i); });
    });
}

// The diagonal of E P.

/// Sizes the diagonal of the product of a dense expression with `dim1` columns and a sparse matrix
/// of parameters with `pdim1` columns whose positions are grouped by column, from place `ipos` of
/// the grouping on: adds what the pairs take, and an element for each column of the matrix that has
/// an entry. Returns (`ipos`, `rncodeatom`, `rnelem`, `rnnz`), the first as the place behind the
/// last column.
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
    return {ipos, sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Writes the diagonal of the product of a dense expression with `dim1` columns and a sparse matrix
/// of parameters with `pdim1` columns whose positions are grouped by column, from place `ipos` of
/// the grouping on: terms with coefficient 0.0, their programs, and `ptr` and `sp` of an element
/// for each column of the matrix that has an entry, also one without terms. Returns (`code_pos`,
/// `elem_pos`, `ipos`, `nnz_pos`), the numbers of what is written so far and the place behind the
/// last column.
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

/// Sizes the diagonal of the product of a sparse expression with `dim1` columns and a sparse matrix
/// of parameters with `pdim1` columns whose positions are grouped by column, from element `epos`
/// and place `ipos` of the grouping on: adds what the pairs take, and an element for each place of
/// the diagonal where some entry meets a stored element, also one without terms. Returns (`epos`,
/// `ipos`, `rncodeatom`, `rnelem`, `rnnz`), the first two as the places where one of the operands
/// is used up.
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
        [&](int64_t) { ++sizes.rnelem; });
    return {static_cast<int>(elements.begin), static_cast<int>(places.begin), sizes.rncodeatom,
            sizes.rnelem, sizes.nnz()};
}

/// Writes the diagonal of the product of a sparse expression with `dim1` columns and a sparse
/// matrix of parameters with `pdim1` columns whose positions are grouped by column, from element
/// `epos` and place `ipos` of the grouping on: terms with coefficient 0.0, their programs, and
/// `ptr` and `sp` of an element for each place of the diagonal where some entry meets a stored
/// element, also one without terms. Returns (`code_pos`, `elem_pos`, `epos`, `ipos`, `nnz_pos`),
/// the numbers of what is written so far and the places where one of the operands is used up.
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
            [&](int64_t i) { r.close_element(i); });
    });
    return {r.codei, r.elmi, static_cast<int>(elements.begin), static_cast<int>(places.begin),
            r.nnzi};
}

} // namespace fragments
