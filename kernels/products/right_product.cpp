// mul_right: the product R = E M of an expression E read as a matrix and a constant matrix M.
//
// E has `d0` rows and `d1` columns, its element (r, j) the linear index r * d1 + j. A dense M is
// `mval`, row-major, with `md1` columns; a sparse one is the triplet lists `msubi`, `msubj`,
// `mval`, ordered strictly by row and then column. R's element (r, c) holds the terms of each E(r,
// j) that meets an entry of M(:, c), scaled by it, in ascending j; none are merged. Entry 0 of
// `ptr` and of `codeptr` is the host's.
//
// The chains are tests, grouping, sizing and writing for a sparse M: 475 and 474, 466, 469, 470 if
// E is dense, 475 and 474, 466, 467, 468 if it is sparse. With a dense M nothing needs sizing, as
// each term goes once into each of the md1 columns: 473 writes for a dense E, 471 and 472 for a
// sparse one.

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "matrix_walks.h"
#include "stacked_expression.h"
#include "triplet_matrix.h"

namespace fragments {

namespace {

/// A sparse M by column, as the grouping leaves its entries, with the pointers and without.
template <class S>
auto by_column(I32<S> msubi, int md1, I32<S> ptr, I32<S> perm)
{
    return GroupedColumns{Triplets{0, msubi, I32<S>{}}, ColumnGrouping<S>{ptr, perm}, md1};
}
template <class S>
auto by_column(int mnnz, I32<S> msubi, I32<S> msubj, I32<S> perm)
{
    return ColumnRuns{Triplets{mnnz, msubi, msubj}, perm};
}

/// Sparse E, sparse M: a pair is taken only if the entry of M is above 0.0. One of 0.0 or below
/// gives no term and makes no element. The test is part of the walk because the host reserves
/// what is counted and the writer fills it without looking: a pair that only the writer took would
/// overrun the result. A host that wants the product with an M of both signs has to split it, for
/// instance into E M = E M+ - E M-.
template <class S, class Columns, class Pair, class Element>
int walk_above_zero(const LinearEntries<S>& e, int epos, const Columns& m, F64<S> mval, Pair pair,
                    Element element)
{
    bool taken = false;
    return walk_sparse(
        e, epos, m,
        [&](int64_t q, int64_t k) {
            if (!(mval[k] > 0.0)) return;
            pair(k, q);
            taken = true;
        },
        [&](int64_t row, int c) {
            if (taken) element(row, c);
            taken = false;
        });
}

} // namespace

/// Tests the first `mnnz` entries of a sparse matrix: whether some entry doesn't come strictly
/// behind the one before it, by row and then column, or `badorder` came in true.
CLOSURE_AS(475, bool, (bool badorder, int mnnz, I32 msubi, I32 msubj),
           badorder || has_bad_order(mnnz, msubi, msubj))

/// Tests the first `mnnz` entries of a sparse matrix of `md0` rows and `md1` columns: whether some
/// row or column is negative or too large, or `badidx` came in true.
CLOSURE_AS(474, bool, (bool badidx, int md0, int md1, int mnnz, I32 msubi, I32 msubj),
           badidx || has_bad_entry(md0, md1, mnnz, msubi, msubj))

/// Groups the `mnnz` entries of a sparse matrix by column, in ascending position, by a stable
/// counting sort: those of column c are the ones from `mcolptr_base` + c up to the one behind, as
/// positions at `mperm_base`. Writes `md1` + 1 pointers, entry 0 too, and `mnnz` positions to
/// `xi32`, and then zeroes `d0` + 1 entries at `erowptr_base`.
CLOSURE(466, void,
        (int d0, int erowptr_base, int mcolptr_base, int md1, int mnnz, int mperm_base, I32 msubj,
         I32Out xi32))
{
    group_by(
        mnnz, [&](int64_t k) { return msubj[k]; }, md1, xi32.from(mcolptr_base),
        xi32.from(mperm_base));
    fill_n(xi32.from(erowptr_base), int64_t{d0} + 1, 0);
}

/// Sizes the product of a dense expression of `d0` rows and `d1` columns and a sparse matrix that
/// is grouped by column: adds the terms of each element that meets an entry, and the atoms of their
/// scaled programs if `ncodeatom` is above 0. Returns (`rncodeatom`, `rnnz`); there are `d0 * md1`
/// elements.
CLOSURE(469, results(int, int),
        (int codeptr_base, int d0, int d1, int mcolptr_base, int md1, int mperm_base, I32 msubi,
         int ncodeatom, int ptr_base, int rncodeatom, int rnnz, I32 wi32, I32 xi32))
{
    Sizes sizes{rncodeatom, 0, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_right_dense(
        d0, d1, by_column(msubi, md1, xi32.from(mcolptr_base), xi32.from(mperm_base)),
        [&](int64_t, int q) { sizes.add_scaled(e, q, ncodeatom > 0); }, [](int, int) {});
    return {sizes.rncodeatom, sizes.nnz()};
}

/// Writes the product of a dense expression of `d0` rows and `d1` columns and a sparse matrix that
/// is grouped by column: terms, programs unless `rncodeatom` is 0, and `ptr` and `sp` of all
/// `d0 * md1` elements, also of those without terms. Returns (`codei`, `nnzi`, `relmi`), the
/// numbers of what is written so far.
CLOSURE(470, results(int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d0, int d1,
         int mcolptr_base, int md1, int mperm_base, I32 msubi, F64 mval, int nidxs_base, int nnzi,
         int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         int relmi, F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base,
         int rptr_base, int rsp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32))
{
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(codei, relmi, nnzi);
    // Not `> 0` as in the siblings: a count below 0 means code here.
    const Code form = rncodeatom != 0 ? Code::scaled : Code::none;
    walk_right_dense(
        d0, d1, by_column(msubi, md1, xi32.from(mcolptr_base), xi32.from(mperm_base)),
        [&](int64_t k, int q) { r.append_scaled(e, q, mval, k, form); },
        [&](int row, int c) { r.close_element(row * md1 + c); });
    return {r.codei, r.nnzi, r.elmi};
}

/// Sizes the product of a sparse expression with `d1` columns and a sparse matrix that is grouped
/// by column: adds what the pairs take where an entry of the matrix above 0.0 meets a stored
/// element, and an element for each row and column with such a pair, also if it has no terms. An
/// entry of 0.0 or below gives nothing. Returns (`rncodeatom`, `rnelem`, `rnnz`).
CLOSURE(467, results(int, int, long long),
        (int codeptr_base, int d1, int mnnz, int mperm_base, I32 msubi, I32 msubj, F64 mval,
         int ncodeatom, int nelem, int ptr_base, int rncodeatom, int rnelem, long long rnnz,
         int sp_base, I32 wi32, I64 wi64, I32 xi32))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_above_zero(
        LinearEntries{nelem, wi64.from(sp_base), d1}, 0,
        by_column(mnnz, msubi, msubj, xi32.from(mperm_base)), mval,
        [&](int64_t, int64_t q) { sizes.add_scaled(e, q, ncodeatom > 0); },
        [&](int64_t, int) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, sizes.rnnz};
}

/// Writes the product of a sparse expression with `d1` columns and a sparse matrix that is grouped
/// by column, from stored element `epos` on: terms, programs if `ncodeatom` is above 0, and `ptr`
/// and `sp` of an element for each row and column where an entry of the matrix above 0.0 meets a
/// stored element. An entry of 0.0 or below gives no term and makes no element. Returns (`codei`,
/// `elmi`, `epos`, `nnzi`), the numbers of what is written so far and the element behind the last
/// row.
CLOSURE(468, results(int, int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d1,
         int elmi, int epos, int md1, int mnnz, int mperm_base, I32 msubi, I32 msubj, F64 mval,
         int ncodeatom, int nelem, int nidxs_base, int nnzi, int ptr_base, int rcconst_base,
         int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rnidxs_base, int rptr_base, int rsp_base, int sp_base, F64 wf64, I32 wi32, I64 wi64,
         I32 xi32))
{
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(codei, elmi, nnzi);
    const Code form = form_of(ncodeatom);
    epos = walk_above_zero(
        LinearEntries{nelem, wi64.from(sp_base), d1}, epos,
        by_column(mnnz, msubi, msubj, xi32.from(mperm_base)), mval,
        [&](int64_t k, int64_t q) { r.append_scaled(e, q, mval, k, form); },
        [&](int64_t row, int c) { r.close_element(md1 * row + c); });
    return {r.codei, r.elmi, epos, r.nnzi};
}

/// Writes the product of a dense expression of `d0` rows and `d1` columns and a dense matrix with
/// `md1` columns: terms, programs if `ncodeatom` is above 0, and `ptr` of all `d0 * md1` elements,
/// without `sp`. Entries of 0 aren't skipped. Returns (`codei`, `elmi`, `nnzi`), the numbers of
/// what is written so far.
CLOSURE(473, results(int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d0, int d1,
         int elmi, int md1, F64 mval, int ncodeatom, int nidxs_base, int nnzi, int ptr_base,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    auto r = STACKED_RESULT(codei, elmi, nnzi);
    const Code form = form_of(ncodeatom);
    for (int row = 0; md1 > 0 && row < d0; ++row) {
        const int64_t start = int64_t{d1} * row;
        for (int c = 0; c < md1; ++c) {
            const auto column = mval.from(c);
            for (int j = 0; j < d1; ++j)
                r.append_scaled(e, start + j, column, int64_t{md1} * j, form);
            r.close_element();
        }
    }
    return {r.codei, r.elmi, r.nnzi};
}

/// Zeroes the `count` + 1 row pointers at `xrowptr_base` that the product of a sparse expression
/// and a dense matrix counts in.
CLOSURE_AS(471, void, (int count, I32Out xi32, int xrowptr_base),
           fill_n(xi32.from(xrowptr_base), int64_t{count} + 1, 0))

/// Writes the product of a sparse expression of `d0` rows and `d1` columns and a dense matrix with
/// `md1` columns: terms, programs if `ncodeatom` is above 0, and `ptr` of all `d0 * md1` elements,
/// without `sp`, also of those without terms. Builds the row pointers of the expression at
/// `xrowptr_base` first, where `d0` + 1 zeros are expected, and leaves them there. Returns
/// (`codei`, `elmi`, `nnzi`), the numbers of what is written so far.
CLOSURE(472, results(int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d0, int d1,
         int elmi, int md1, F64 mval, int ncodeatom, int nelem, int nidxs_base, int nnzi,
         int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int sp_base,
         F64 wf64, I32 wi32, I64 wi64, I32Out xi32, int xrowptr_base))
{
    const auto e = SPARSE_OPERAND();
    auto r = STACKED_RESULT(codei, elmi, nnzi);
    const Code form = form_of(ncodeatom);
    const auto rowptr = xi32.from(xrowptr_base);
    count_keys(
        nelem, [&](int64_t q) { return quotient(e.sp[q], d1); }, rowptr);
    running_sum(rowptr, d0);
    for (int i = 0; md1 > 0 && i < d0; ++i) {
        const Range row{rowptr[i], rowptr[i + 1]};
        for (int c = 0; c < md1; ++c) {
            const auto column = mval.from(c);
            for (int64_t q = row.begin; q < row.end; ++q)
                if (e.terms(q) > 0)
                    r.append_scaled(e, q, column, md1 * remainder(e.sp[q], d1), form);
            r.close_element();
        }
    }
    return {r.codei, r.elmi, r.nnzi};
}

} // namespace fragments
