// mul_left: the product R = M E of a constant matrix M and an expression E read as a matrix.
//
// A sparse M is the triplet lists `msubi`, `msubj`, `mval`, ordered strictly by row and then
// column; a dense one is `mval` alone, row-major, md0 x md1. E has `d1` columns: its element (j, c)
// has linear index j * d1 + c. R's element (i, c) holds the terms of each E(j, c) that meets an
// entry of M(i, :), scaled by it, in ascending j; none are merged. Entry 0 of `ptr` and of
// `codeptr` is the host's.
//
// The chains are test, grouping, sizing and writing: 482, 478, 481 for sparse M and dense E; 476,
// 477, 480 for dense M and sparse E; 482, 476, 477, 479 where both are sparse. 478 sizes the
// product of two dense factors, too, which the host writes.

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "matrix_walks.h"
#include "stacked_expression.h"
#include "triplet_matrix.h"

namespace fragments {

namespace {

/// The elements of a sparse E by column, as the grouping leaves them.
template <class S>
auto by_column(I64<S> sp, int d1, I32<S> ptr, I32<S> perm)
{
    return GroupedColumns{LinearEntries{0, sp, d1}, ColumnGrouping<S>{ptr, perm}, d1};
}

/// Replaces the sizes by those for a dense M, each of whose `md0` rows takes all of E.
void set_dense(Sizes& sizes, int d1, int md0, int ncodeatom, int nnz)
{
    sizes.rnnz = static_cast<long long>(nnz) * md0;
    sizes.rnelem = d1 * md0;
    if (ncodeatom > 0)
        sizes.rncodeatom = static_cast<int>(int64_t{ncodeatom} * md0 + 2 * sizes.rnnz);
}

} // namespace

/// Tests a sparse matrix of `md0` rows and `md1` columns, the first `mnnz` entries of `msubi` and
/// `msubj`: `badidx` becomes true if some row or column is negative or too large, `badorder` if
/// some entry doesn't come strictly behind the one before it, by row and then column. A flag that
/// comes in true stays true, and a matrix with a bad index isn't tested for order. Returns
/// (`badidx`, `badorder`).
CLOSURE(482, results(bool, bool),
        (bool badidx, bool badorder, int md0, int md1, int mnnz, I32 msubi, I32 msubj))
{
    if (!badidx) badidx = has_bad_entry(md0, md1, mnnz, msubi, msubj);
    if (!badidx && !badorder) badorder = has_bad_order(mnnz, msubi, msubj);
    return {badidx, badorder};
}

/// Groups the `nelem` elements of a sparse expression with `d1` columns by column, in ascending
/// position, by a stable counting sort: those of column c are the entries from `eptr_base` + c up
/// to the one behind, as positions at `eperm_base`. Writes `d1` + 1 pointers, entry 0 too, and
/// `nelem` positions to `xi32`.
CLOSURE(476, void,
        (int d1, int eperm_base, int eptr_base, int nelem, int sp_base, I64 wi64, I32Out xi32))
{
    const auto sp = wi64.from(sp_base);
    RunningQuotient row(d1);
    group_by(
        nelem, [&](int64_t q) { return row.remainder(sp[q]); }, d1, xi32.from(eptr_base),
        xi32.from(eperm_base));
}

/// Sizes the product of a matrix and a dense expression with `d1` columns, `nnz` terms and
/// `ncodeatom` atoms. For a sparse matrix (`mhassp`), ordered by row and then column, the sizes are
/// added to: an element for each row that has an entry and each column. For a dense one of `md0`
/// rows they are replaced, but `rncodeatom` only if the expression has code. Returns (`rncodeatom`,
/// `rnelem`, `rnnz`).
CLOSURE(478, results(int, int, long long),
        (int codeptr_base, int d1, int md0, bool mhassp, int mnnz, I32 msubi, I32 msubj,
         int ncodeatom, int nnz, int ptr_base, int rncodeatom, int rnelem, long long rnnz,
         I32 wi32))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    if (!mhassp) {
        set_dense(sizes, d1, md0, ncodeatom, nnz);
        return {sizes.rncodeatom, sizes.rnelem, sizes.rnnz};
    }
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_left_dense(
        Triplets{mnnz, msubi, msubj}, 0, d1,
        [&](int64_t, int q) { sizes.add_scaled(e, q, ncodeatom > 0); },
        [&](int, int) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, sizes.rnnz};
}

/// Sizes the product of a matrix and a sparse expression that is grouped by column. For a sparse
/// matrix (`mhassp`), ordered by row and then column, the sizes are added to: an element for each
/// row and column where some entry meets a stored element, also one without terms. For a dense one
/// of `md0` rows they are replaced, but `rncodeatom` only if the expression has code. Returns
/// (`rncodeatom`, `rnelem`, `rnnz`).
CLOSURE(477, results(int, int, long long),
        (int codeptr_base, int d1, int eperm_base, int eptr_base, int md0, bool mhassp, int mnnz,
         I32 msubi, I32 msubj, int ncodeatom, int nnz, int ptr_base, int rncodeatom, int rnelem,
         long long rnnz, int sp_base, I32 wi32, I64 wi64, I32 xi32))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    if (!mhassp) {
        set_dense(sizes, d1, md0, ncodeatom, nnz);
        return {sizes.rncodeatom, sizes.rnelem, sizes.rnnz};
    }
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_sparse(
        Triplets{mnnz, msubi, msubj}, 0,
        by_column(wi64.from(sp_base), d1, xi32.from(eptr_base), xi32.from(eperm_base)),
        [&](int64_t, int64_t q) { sizes.add_scaled(e, q, ncodeatom > 0); },
        [&](int, int) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, sizes.rnnz};
}

/// Writes the product of a sparse matrix, ordered by row and then column, and a dense expression,
/// from entry `mpos` of the matrix on: terms, programs if `rncodeatom` is above 0, and `ptr` and
/// `sp` of an element for each row that has an entry and each of the `d1` columns, also one without
/// terms. Returns (`codei`, `elmi`, `mpos`, `nnzi`), the numbers of what is written so far and the
/// entry behind the last row.
CLOSURE(481, results(int, int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d1,
         int elmi, int mnnz, int mpos, I32 msubi, I32 msubj, F64 mval, int nidxs_base, int nnzi,
         int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base,
         int rsp_base, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(codei, elmi, nnzi);
    const Code form = form_of(rncodeatom);
    mpos = walk_left_dense(
        Triplets{mnnz, msubi, msubj}, mpos, d1,
        [&](int64_t m, int q) { r.append_scaled(e, q, mval, m, form); },
        [&](int i, int c) { r.close_element(d1 * i + c); });
    return {r.codei, r.elmi, mpos, r.nnzi};
}

/// Writes the product of a dense matrix of `md0` rows and `md1` columns and a sparse expression
/// that is grouped by column: its terms, programs if `rncodeatom` is above 0, and `ptr` of all
/// `md0 * d1` elements, without `sp`. Entries of 0 aren't skipped. Returns (`codei`, `elmi`,
/// `nnzi`), the numbers of what is written so far.
CLOSURE(480, results(int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d1,
         int elmi, int eperm_base, int eptr_base, int md0, int md1, F64 mval, int nidxs_base,
         int nnzi, int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base,
         int sp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32))
{
    const auto e = SPARSE_OPERAND();
    auto r = STACKED_RESULT(codei, elmi, nnzi);
    const Code form = form_of(rncodeatom);
    const auto columns = by_column(e.sp, d1, xi32.from(eptr_base), xi32.from(eperm_base));
    for (int i = 0; d1 > 0 && i < md0; ++i) {
        const auto row = mval.from(int64_t{md1} * i);
        columns.for_each_column(0, [&](int, Range places) {
            for (int64_t p = places.begin; p < places.end; ++p) {
                const int64_t q = columns.entry(p);
                if (e.terms(q) > 0) r.append_scaled(e, q, row, columns.entries.row(q), form);
            }
            r.close_element();
        });
    }
    return {r.codei, r.elmi, r.nnzi};
}

/// Writes the product of a sparse matrix, ordered by row and then column, and a sparse expression
/// that is grouped by column: its terms, programs if `rncodeatom` is above 0, and `ptr` and `sp` of
/// an element for each row and column where some entry meets a stored element, also one without
/// terms.
CLOSURE(479, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, int d1, int eperm_base,
         int eptr_base, int mnnz, I32 msubi, I32 msubj, F64 mval, int nidxs_base, int ptr_base,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base, int rsp_base,
         int sp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32))
{
    const auto e = SPARSE_OPERAND();
    auto r = SPARSE_RESULT();
    const Code form = form_of(rncodeatom);
    walk_sparse(
        Triplets{mnnz, msubi, msubj}, 0,
        by_column(e.sp, d1, xi32.from(eptr_base), xi32.from(eperm_base)),
        [&](int64_t m, int64_t q) { r.append_scaled(e, q, mval, m, form); },
        [&](int i, int c) { r.close_element(d1 * i + c); });
}

} // namespace fragments
