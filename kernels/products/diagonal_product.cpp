// mul_diag: the diagonal of a product of an expression E and a sparse constant matrix M, as a
// sparse vector, without the rest of the product.
//
//   mul_diag_left:  R[i] = sum over j of M[i, j] * E[j, i]
//   mul_diag_right: R[j] = sum over i of E[j, i] * M[i, j]
//
// M is the triplet lists `msubi`, `msubj`, `mval`, ordered strictly by row and then column. E is
// read as a matrix with `d1` columns, dense or with `sp`. An element of R holds the terms of each
// element of E that meets an entry of M, scaled by it; none are merged. Places of the diagonal
// where nothing meets have no element.
//
// The chains are test, grouping, sizing and writing: on the left 458, 454, 455 for a dense E and
// 458, 456, 457 for a sparse one, where 456 groups and sizes; on the right 453, 450, 451, 452.

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "matrix_walks.h"
#include "stacked_expression.h"
#include "triplet_matrix.h"

namespace fragments {

namespace {

/// The entries of M by column, as the grouping leaves them.
template <class S>
using Columns = ColumnRuns<Triplets<S>, S>;

/// Right side, sparse E: as walk_right_diagonal, but `element(i)` only where some pair has matched.
/// Rows of E and columns of M from `md1` on are not reached.
template <class S, class Pair, class Element>
void walk_right_sparse(int md1, const LinearEntries<S>& e, const Columns<S>& m, Pair pair,
                       Element element)
{
    Range elements{0, 0};
    Range places{0, 0};
    for (int i = 0; i < md1 && elements.end < e.count && places.end < m.entries.count; ++i) {
        elements.begin = elements.end;
        elements.end = run_end(
            elements.begin, e.count, [&](int64_t a) { return e.row(a); }, i);
        places.begin = places.end;
        places.end = run_end(
            places.begin, m.entries.count, [&](int64_t p) { return m.column(p); }, i);
        if (match_row_and_column<false>(e, i, elements, m, i, places, pair)) element(i);
    }
}

/// Right side: `pair(q, k)` with an element of E and an entry of M.
template <class S, class Pair, class Element>
void walk_right(bool hassp, int md1, const LinearEntries<S>& e, const Columns<S>& m, Pair pair,
                Element element)
{
    if (hassp)
        walk_right_sparse(md1, e, m, pair, element);
    else
        walk_right_diagonal(
            e.columns, m, 0, [&](int64_t k, int64_t q) { pair(q, k); }, element);
}

} // namespace

// Left side.

/// Tests the first `mnnz` entries of a sparse matrix of `md0` rows and `md1` columns: `badidx`
/// becomes true if some row or column is negative or too large, `badorder` if some entry doesn't
/// come strictly behind the one before it, by row and then column. Each test runs whatever the
/// other finds; a flag that comes in true stays true. Returns (`badidx`, `badorder`).
CLOSURE_AS(458, results(bool, bool),
           (bool badidx, bool badorder, int md0, int md1, int mnnz, I32 msubi, I32 msubj),
           test_independently(badidx, badorder, md0, md1, mnnz, msubi, msubj))

/// Sizes the diagonal of the product of a sparse matrix, ordered by row and then column, and a
/// dense expression with `d1` columns, from entry `mpos` of the matrix on: adds what the pairs
/// take, and an element for each row that has an entry. The matrix has as many entries as `msubi`.
/// Returns (`mpos`, `rncodeatom`, `rnelem`, `rnnz`), the first as the entry behind the last row.
CLOSURE(454, results(int, int, int, int),
        (int codeptr_base, int d1, int mpos, I32 msubi, I32 msubj, int ncodeatom, int ptr_base,
         int rncodeatom, int rnelem, int rnnz, I32 wi32))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    mpos = walk_left_diagonal(
        Triplets{msubi.length(), msubi, msubj}, mpos, d1,
        [&](int64_t, int q) { sizes.add_scaled(e, q, ncodeatom > 0); },
        [&](int) { ++sizes.rnelem; });
    return {mpos, sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Writes the diagonal of the product of a sparse matrix, ordered by row and then column, and a
/// dense expression with `d1` columns: the shape (`diaglen`), entry 0 of `ptr` and, if `ncodeatom`
/// is above 0, of `codeptr`, terms, programs if `rncodeatom` is above 0, and `ptr` and `sp` of an
/// element for each row that has an entry, also if it has no terms. The matrix has as many entries
/// as `msubi`.
CLOSURE(455, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, int d1, int diaglen,
         I32 msubi, I32 msubj, F64 mval, int ncodeatom, int nidxs_base, int ptr_base,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base, int rshape_base,
         int rsp_base, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT();
    const Code form = form_of(rncodeatom);
    r.start(ncodeatom > 0);
    ri32[rshape_base] = diaglen;
    walk_left_diagonal(
        Triplets{msubi.length(), msubi, msubj}, 0, d1,
        [&](int64_t m, int q) { r.append_scaled(e, q, mval, m, form); },
        [&](int i) { r.close_element(i); });
}

/// Groups the `nelem` elements of a sparse expression with `d1` columns by column, as positions at
/// `xcperm_base` behind `d1` + 1 pointers at `xcolptr_base`, by a stable counting sort. Then sizes
/// the diagonal of the product of a sparse matrix, ordered by row and then column, and that
/// expression: adds what the pairs take, and an element for each place of the diagonal where an
/// entry meets a stored element, also one without terms. The matrix has as many entries as `msubi`.
/// Returns (`rncodeatom`, `rnelem`, `rnnz`).
CLOSURE(456, results(int, int, int),
        (int codeptr_base, int d1, I32 msubi, I32 msubj, int ncodeatom, int nelem, int ptr_base,
         int rncodeatom, int rnelem, int rnnz, int sp_base, I32 wi32, I64 wi64, int xcolptr_base,
         int xcperm_base, I32Out xi32))
{
    const auto sp = wi64.from(sp_base);
    const auto perm = xi32.from(xcperm_base);
    RunningQuotient row_of(d1);
    group_by(
        nelem, [&](int64_t q) { return row_of.remainder(sp[q]); }, d1, xi32.from(xcolptr_base),
        perm);
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    const Triplets m{msubi.length(), msubi, msubj};
    Range entries{0, m.count};
    Range places{0, nelem};
    walk_diagonal(
        m, entries, ColumnRuns{LinearEntries{nelem, sp, d1}, perm}, places,
        [&](int64_t, int64_t q) { sizes.add_scaled(e, q, ncodeatom > 0); },
        [&](int64_t) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Writes the diagonal of the product of a sparse matrix, ordered by row and then column, and a
/// sparse expression that is grouped by column, from entry `mpos` of the matrix and place `epos` of
/// the grouping on: terms, programs if `ncodeatom` is above 0, and `ptr` and `sp` of an element for
/// each place of the diagonal that gets a term. These are fewer than have been sized if an element
/// without terms meets an entry. The matrix has as many entries as `msubi`. Returns (`codei`,
/// `elmi`, `epos`, `mpos`, `nnzi`), the numbers of what is written so far and the places where one
/// of the operands is used up.
CLOSURE(457, results(int, int, int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d1,
         int elmi, int epos, int mpos, I32 msubi, I32 msubj, F64 mval, int ncodeatom, int nelem,
         int nidxs_base, int nnzi, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rsp_base, int sp_base, F64 wf64, I32 wi32, I64 wi64, int xcperm_base,
         I32 xi32))
{
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(codei, elmi, nnzi);
    const Code form = form_of(ncodeatom);
    const Triplets m{msubi.length(), msubi, msubj};
    const ColumnRuns columns{LinearEntries{nelem, wi64.from(sp_base), d1}, xi32.from(xcperm_base)};
    Range entries{mpos, m.count};
    Range places{epos, nelem};
    int before = r.nnzi;
    walk_diagonal(
        m, entries, columns, places,
        [&](int64_t k, int64_t q) { r.append_scaled(e, q, mval, k, form); },
        [&](int64_t i) {
            if (r.nnzi > before) r.close_element(i);
            before = r.nnzi;
        });
    return {r.codei, r.elmi, static_cast<int>(places.begin), static_cast<int>(entries.begin),
            r.nnzi};
}

// Right side.

/// Tests the first `mnnz` entries of a sparse matrix of `md0` rows and `md1` columns for the other
/// side, in the same way. Returns (`badidx`, `badorder`).
CLOSURE_AS(453, results(bool, bool),
           (bool badidx, bool badorder, int md0, int md1, int mnnz, I32 msubi, I32 msubj),
           test_independently(badidx, badorder, md0, md1, mnnz, msubi, msubj))

/// Groups the `mnnz` entries of a sparse matrix by column, in ascending position, by a stable
/// counting sort: writes `md1` + 1 pointers at `xmcolptr_base`, entry 0 too, and `mnnz` positions
/// at `xmperm_base`.
CLOSURE(450, void, (int md1, int mnnz, I32 msubj, I32Out xi32, int xmcolptr_base, int xmperm_base))
{
    group_by(
        mnnz, [&](int64_t k) { return msubj[k]; }, md1, xi32.from(xmcolptr_base),
        xi32.from(xmperm_base));
}

/// Sizes the diagonal of the product of an expression with `d1` columns and a sparse matrix that is
/// grouped by column: adds what the pairs take, and for a dense expression an element for each
/// column of the matrix that has an entry, for a sparse one (`hassp`) an element for each place of
/// the diagonal below `md1` where an entry meets a stored element. Returns (`rncodeatom`, `rnelem`,
/// `rnnz`).
CLOSURE(451, results(int, int, int),
        (int codeptr_base, int d1, bool hassp, int md1, int mnnz, I32 msubi, I32 msubj,
         int ncodeatom, int nelem, int ptr_base, int rncodeatom, int rnelem, int rnnz, int sp_base,
         I32 wi32, I64 wi64, I32 xi32, int xmperm_base))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_right<Stride>(
        hassp, md1, {nelem, wi64.from(sp_base), d1}, {{mnnz, msubi, msubj}, xi32.from(xmperm_base)},
        [&](int64_t q, int64_t) { sizes.add_scaled(e, q, ncodeatom > 0); },
        [&](int) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, sizes.nnz()};
}

/// Writes the diagonal of the product of an expression with `d1` columns and a sparse matrix that
/// is grouped by column: terms, programs if `ncodeatom` is above 0, and `ptr` and `sp` of the
/// elements. For a dense expression there is one for each column of the matrix that has an entry,
/// for a sparse one (`hassp`) one for each place of the diagonal below `md1` where an entry meets a
/// stored element; either may have no terms. Returns (`codei`, `elmi`, `nnzi`), the numbers of what
/// is written so far.
CLOSURE(452, results(int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d1,
         int elmi, bool hassp, int md1, int mnnz, I32 msubi, I32 msubj, F64 mval, int ncodeatom,
         int nelem, int nidxs_base, int nnzi, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rsp_base, int sp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32,
         int xmperm_base))
{
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(codei, elmi, nnzi);
    const Code form = form_of(ncodeatom);
    walk_right<Stride>(
        hassp, md1, {nelem, wi64.from(sp_base), d1}, {{mnnz, msubi, msubj}, xi32.from(xmperm_base)},
        [&](int64_t q, int64_t k) { r.append_scaled(e, q, mval, k, form); },
        [&](int i) { r.close_element(i); });
    return {r.codei, r.elmi, r.nnzi};
}

} // namespace fragments
