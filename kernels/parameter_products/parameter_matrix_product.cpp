// mul_param_left and mul_param_right: the products P E and E P of a matrix P of parameters and an
// expression E read as a matrix.
//
// P is a list of linear indexes, row-major with `pdim1` columns and strictly ascending, with the
// index of each entry's parameter beside it; a dense P is these parameter indexes alone. E has
// `dim1` columns. An element of the result holds the terms of each element of E that meets an entry
// of P, times that entry's parameter; none are merged. Entry 0 of `ptr` and of `codeptr` is the
// host's.
//
// The walks are those of the products with constants.

#include "algorithms.h"
#include "closure_frame.h"
#include "matrix_walks.h"
#include "parameter_term.h"
#include "stacked_expression.h"

namespace fragments {

/// Writes P E for sparse P, sparse E grouped by 374, from entry `ppos` of P on, but for `cof`
/// (377): a sparse result with an element where some entry of P meets a stored element of E.
/// Returns (code_pos, elem_pos, nnz_pos, ppos).
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
    constexpr int rcof_base = 0; // not written here
    auto r = SPARSE_RESULT(code_pos, elem_pos, nnz_pos);
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

/// Sizes 378: (rncodeatom, rnelem, rnnz), added to.
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
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// Writes P E for sparse P, dense E, from entry `ipos` of P on, but for `cof` (372): a sparse
/// result with an element for each row of P that has an entry and each column.
/// Returns (code_pos, elem_pos, ipos, nnz_pos).
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
    constexpr int rcof_base = 0; // not written here
    auto r = SPARSE_RESULT(code_pos, elem_pos, nnz_pos);
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

/// Sizes 373: (rncodeatom, rnelem, rnnz), added to.
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
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// The step (i, j, k) of P E for dense P, dense E: the terms of E's element (k, j), times P's
/// parameter (i, k). The host runs the loops and writes `ptr`. Returns (code_pos, nnz_pos).
CLOSURE(370, results(int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base, int dim1,
         int i, int j, int k, int ncodeatom, int nidxs_base, int nnz_pos, int pdim1, int pidx_base,
         int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, F64 wf64, I32 wi32, I64 wi64,
         I32 xi32))
{
    constexpr int rptr_base = 0; // not written here
    const auto e = STACKED_OPERAND();
    auto r = STACKED_RESULT(code_pos, 0, nnz_pos);
    for_code(ncodeatom > 0, [&]<bool coded> {
        append_parameter_terms<coded>(r, e, int64_t{k} * dim1 + j, xi32.from(pidx_base),
                                      int64_t{i} * pdim1 + k);
    });
    return {r.codei, r.nnzi};
}

/// Writes E P for sparse P grouped by 363 to 366. A dense E of `dim0` rows gives an element for
/// each row and each column of P that has an entry, a sparse one (`hassp`) where an entry meets a
/// stored element. Returns (code_pos, elem_pos, nnz_pos).
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

/// Sizes 369 for sparse E: (rncodeatom, rnelem, rnnz), added to.
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
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// The same for dense E.
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
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

// What the host prepares of a result.

/// Marks all of `ptr` as not yet written.
CLOSURE_AS(376, void, (I32Out ri32, int rnelem, int rptr_base),
           fill_n(ri32.from(rptr_base), int64_t{rnelem} + 1, -9999))

/// `cof`.
CLOSURE_AS(377, void, (int rcof_base, F64Out rf64, int rnnz),
           fill_n(rf64.from(rcof_base), rnnz, 0.0))
CLOSURE_AS(372, void, (int rcof_base, F64Out rf64, int rnnz),
           fill_n(rf64.from(rcof_base), rnnz, 0.0))

} // namespace fragments
