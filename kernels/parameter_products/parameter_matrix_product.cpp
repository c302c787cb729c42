// mul_param_left and mul_param_right: the products P E and E P of a matrix P of parameters and an
// expression E read as a matrix.
//
// P is a list of linear indexes, row-major with `pdim1` columns and strictly ascending, with the
// index of each entry's parameter beside it; a dense P is these parameter indexes alone. E has
// `dim1` columns. An element of the result holds the terms of each element of E that meets an entry
// of P, times that entry's parameter; none are merged. Entry 0 of `ptr` and of `codeptr` is the
// host's.
//
// The walks are those of the products with constants. The chains, with what the host prepares of a
// result behind the sizing: P E goes by 371, 372, 373 for a dense E and by 374, 375, 376, 377, 378
// for a sparse one; E P by 363 to 366, 367 or 368, 369. 370 is one step of P E where both are
// dense.

#include "algorithms.h"
#include "closure_frame.h"
#include "matrix_walks.h"
#include "parameter_term.h"
#include "stacked_expression.h"

namespace fragments {

// P E.

/// Sizes the product of a sparse matrix of parameters with `pdim1` columns and a dense expression
/// with `dim1` columns: adds what the pairs take, and an element for each row of the matrix that
/// has one of its `pnnz` entries and each column. Returns (`rncodeatom`, `rnelem`, `rnnz`).
CLOSURE(371, results(int, int, int),
        (int codeptr_base, int dim1, int ncodeatom, int pdim1, int pnnz, int ptr_base,
         int rncodeatom, int rnelem, int rnnz, I32 wi32, I64 xi64, int xsp_base))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_left_dense(
        LinearEntries{pnnz, xi64.from(xsp_base), pdim1}, 0, dim1,
        [&](int64_t, int64_t q) { add_parameter_terms(sizes, e, q, ncodeatom > 0); },
        [&](int64_t, int) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Sizes the product of a sparse matrix of parameters with `pdim1` columns and a sparse expression
/// with `dim1` columns whose positions are grouped by column: adds what the pairs take, and an
/// element for each row and column where some entry meets a stored element, also one without terms.
/// Returns (`rncodeatom`, `rnelem`, `rnnz`).
CLOSURE(375, results(int, int, int),
        (int codeptr_base, int dim1, int ncodeatom, int nelem, int pdim1, int pnnz, int ptr_base,
         int rncodeatom, int rnelem, int rnnz, int sp_base, I32 wi32, I64 wi64, I32 xi32, I64 xi64,
         int xperm_base, int xsp_base))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_sparse(
        LinearEntries{pnnz, xi64.from(xsp_base), pdim1}, 0,
        ColumnRuns{LinearEntries{nelem, wi64.from(sp_base), dim1}, xi32.from(xperm_base)},
        [&](int64_t, int64_t q) { add_parameter_terms(sizes, e, q, ncodeatom > 0); },
        [&](int64_t, int64_t) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Marks the `rnelem` + 1 entries of a result's `ptr` as not yet written, by -9999.
CLOSURE_AS(376, void, (I32Out ri32, int rnelem, int rptr_base),
           fill_n(ri32.from(rptr_base), int64_t{rnelem} + 1, -9999))

/// Zeroes the `rnnz` coefficients of a result; terms with parameters have no other.
CLOSURE_AS(377, void, (int rcof_base, F64Out rf64, int rnnz),
           fill_n(rf64.from(rcof_base), rnnz, 0.0))
CLOSURE_AS(372, void, (int rcof_base, F64Out rf64, int rnnz),
           fill_n(rf64.from(rcof_base), rnnz, 0.0))

/// Writes the product of a sparse matrix of parameters with `pdim1` columns and a dense expression
/// with `dim1` columns, from entry `ipos` of the matrix on: variable indexes and programs of the
/// terms, whose coefficients have been zeroed, and `ptr` and `sp` of an element for each row of the
/// matrix that has an entry and each column, also one without terms. Returns (`code_pos`,
/// `elem_pos`, `ipos`, `nnz_pos`), the numbers of what is written so far and the entry behind the
/// last row.
CLOSURE(373, results(int, int, int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base, int dim1,
         int elem_pos, int ipos, int ncodeatom, int nidxs_base, int nnz_pos, int pdim1,
         int pidx_base, int pnnz, int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base,
         F64 wf64, I32 wi32, I64 wi64, I32 xi32, I64 xi64, int xsp_base))
{
    const LinearEntries p{pnnz, xi64.from(xsp_base), pdim1};
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    Result<Stride> r(ri32, ri64, rf64, {.ptr = rptr_base, .nidxs = rnidxs_base, .sp = rsp_base},
                     {rcodeptr_base, rcode_base, rcconst_base}, {code_pos, elem_pos, nnz_pos});
    for_code(ncodeatom > 0, [&]<bool coded> {
        ipos = walk_left_dense(
            p, ipos, dim1,
            [&](int64_t a, int64_t q) {
                append_parameter_terms<coded, Emission::variable>(r, e, q, pidx, a);
            },
            [&](int64_t row, int c) { r.close_element(dim1 * row + c); });
    });
    return {r.codei, r.elmi, ipos, r.nnzi};
}

/// Writes the product of a sparse matrix of parameters with `pdim1` columns and a sparse expression
/// with `dim1` columns whose positions are grouped by column, from entry `ppos` of the matrix on:
/// variable indexes and programs of the terms, whose coefficients have been zeroed, and `ptr` and
/// `sp` of an element for each row and column where some entry meets a stored element, also one
/// without terms. Returns (`code_pos`, `elem_pos`, `nnz_pos`, `ppos`), the numbers of what is
/// written so far and the entry behind the last row.
CLOSURE(378, results(int, int, int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base, int dim1,
         int elem_pos, int ncodeatom, int nelem, int nidxs_base, int nnz_pos, int pdim1,
         int pidx_base, int pnnz, int ppos, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base,
         int rsp_base, int sp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32, I64 xi64,
         int xperm_base, int xsp_base))
{
    const LinearEntries p{pnnz, xi64.from(xsp_base), pdim1};
    const auto pidx = xi32.from(pidx_base);
    const auto e = STACKED_OPERAND();
    const ColumnRuns columns{LinearEntries{nelem, wi64.from(sp_base), dim1}, xi32.from(xperm_base)};
    Result<Stride> r(ri32, ri64, rf64, {.ptr = rptr_base, .nidxs = rnidxs_base, .sp = rsp_base},
                     {rcodeptr_base, rcode_base, rcconst_base}, {code_pos, elem_pos, nnz_pos});
    for_code(ncodeatom > 0, [&]<bool coded> {
        ppos = walk_sparse(
            p, ppos, columns,
            [&](int64_t a, int64_t q) {
                append_parameter_terms<coded, Emission::variable>(r, e, q, pidx, a);
            },
            [&](int64_t row, int64_t c) { r.close_element(dim1 * row + c); });
    });
    return {r.codei, r.elmi, r.nnzi, ppos};
}

/// Writes the step (`i`, `j`, `k`) of the product of two dense factors: the terms of the
/// expression's element (`k`, `j`), times the matrix's parameter (`i`, `k`). The host runs the
/// loops and writes `ptr`. Returns (`code_pos`, `nnz_pos`), the numbers of atoms and terms written
/// so far.
CLOSURE(370, results(int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base, int dim1,
         int i, int j, int k, int ncodeatom, int nidxs_base, int nnz_pos, int pdim1, int pidx_base,
         int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, F64 wf64, I32 wi32, I64 wi64,
         I32 xi32))
{
    const auto e = STACKED_OPERAND();
    Result<Stride> r(ri32, ri64, rf64, {.nidxs = rnidxs_base, .cof = rcof_base},
                     {rcodeptr_base, rcode_base, rcconst_base},
                     {.codei = code_pos, .nnzi = nnz_pos});
    for_code(ncodeatom > 0, [&]<bool coded> {
        append_parameter_terms<coded>(r, e, int64_t{k} * dim1 + j, xi32.from(pidx_base),
                                      int64_t{i} * pdim1 + k);
    });
    return {r.codei, r.nnzi};
}

// E P.

/// Sizes the product of a dense expression of `dim0` rows and `dim1` columns and a sparse matrix of
/// parameters with `pdim1` columns whose positions are grouped by column: adds what the pairs take,
/// and an element for each row and each column of the matrix that has an entry. Returns
/// (`rncodeatom`, `rnelem`, `rnnz`).
CLOSURE(367, results(int, int, int),
        (int codeptr_base, int dim0, int dim1, int ncodeatom, int pdim1, int pnnz, int pperm_base,
         int psp_base, int ptr_base, int rncodeatom, int rnelem, int rnnz, I32 wi32, I32 xi32,
         I64 xi64))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_right_dense(
        int64_t{dim0}, dim1,
        ColumnRuns{LinearEntries{pnnz, xi64.from(psp_base), pdim1}, xi32.from(pperm_base)},
        [&](int64_t, int64_t q) { add_parameter_terms(sizes, e, q, ncodeatom > 0); },
        [&](int64_t, int64_t) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Sizes the product of a sparse expression with `dim1` columns and a sparse matrix of parameters
/// with `pdim1` columns whose positions are grouped by column: adds what the pairs take, and an
/// element for each row and column where some entry meets a stored element, also one without terms.
/// Returns (`rncodeatom`, `rnelem`, `rnnz`).
CLOSURE(368, results(int, int, int),
        (int codeptr_base, int dim1, int ncodeatom, int nelem, int pdim1, int pnnz, int pperm_base,
         int psp_base, int ptr_base, int rncodeatom, int rnelem, int rnnz, int sp_base, I32 wi32,
         I64 wi64, I32 xi32, I64 xi64))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_sparse(
        LinearEntries{nelem, wi64.from(sp_base), dim1}, 0,
        ColumnRuns{LinearEntries{pnnz, xi64.from(psp_base), pdim1}, xi32.from(pperm_base)},
        [&](int64_t q, int64_t) { add_parameter_terms(sizes, e, q, ncodeatom > 0); },
        [&](int64_t, int64_t) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Writes the product of an expression with `dim1` columns and a sparse matrix of parameters with
/// `pdim1` columns whose positions are grouped by column: terms with coefficient 0.0, their
/// programs, and `ptr` and `sp` of the elements. For a dense expression of `dim0` rows there is one
/// for each row and each column of the matrix that has an entry, for a sparse one (`hassp`) one for
/// each row and column where some entry meets a stored element; either may have no terms. Returns
/// (`code_pos`, `elem_pos`, `nnz_pos`), the numbers of what is written so far.
CLOSURE(369, results(int, int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base, int dim0,
         int dim1, int elem_pos, bool hassp, int ncodeatom, int nelem, int nidxs_base, int nnz_pos,
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
    const auto close = [&](int64_t row, int64_t c) { r.close_element(pdim1 * row + c); };
    for_code(ncodeatom > 0, [&]<bool coded> {
        if (hassp)
            walk_sparse(
                LinearEntries{nelem, wi64.from(sp_base), dim1}, 0, columns,
                [&](int64_t q, int64_t a) { append_parameter_terms<coded>(r, e, q, pidx, a); },
                close);
        else
            walk_right_dense(
                int64_t{dim0}, dim1, columns,
                [&](int64_t a, int64_t q) { append_parameter_terms<coded>(r, e, q, pidx, a); },
                close);
    });
    return {r.codei, r.elmi, r.nnzi};
}

} // namespace fragments
