// mul_diag: the diagonal of a product of an expression E and a sparse constant matrix M, as a
// sparse vector, without the rest of the product.
//
//   mul_diag_left:  R[i] = sum over j of M[i, j] * E[j, i]
//   mul_diag_right: R[j] = sum over i of E[j, i] * M[i, j]
//
// M is the triplet lists `msubi`, `msubj`, `mval`, ordered strictly by row and then column (453 and
// 458 test this). E is read as a matrix with `d1` columns, dense or with `sp`. An element of R
// holds the terms of each element of E that meets an entry of M, scaled by it; none are merged.
// Places of the diagonal where nothing meets have no element.

#include "algorithms.h"
#include "closure_frame.h"
#include "matrix_walks.h"
#include "stacked_expression.h"
#include "triplet_matrix.h"

namespace fragments {

namespace {

/// The entries of M by column, as 450 groups them.
template <class S>
using Columns = ColumnRuns<Triplets<S>, S>;

/// Right side, sparse E: as walk_right_diagonal, but `element(i)` only where some pair has
/// matched. Rows of E and columns of M from `md1` on are not reached.
template <class S, class Pair, class Element>
void walk_right_sparse(int d1, int md1, int nelem, I64<S> sp, const Columns<S>& m, Pair pair,
                       Element element)
{
    const auto row_of_element = [&](int64_t a) { return sp[a] / d1; };
    const auto column_of_entry = [&](int64_t p) { return m.column(p); };
    Range elements{0, 0};
    Range entries{0, 0};
    for (int i = 0; i < md1; ++i) {
        elements = {elements.end, run_end(elements.end, nelem, row_of_element, i)};
        entries = {entries.end, run_end(entries.end, m.entries.count, column_of_entry, i)};
        bool matched = false;
        for_each_match(
            elements, [&](int64_t a) { return sp[a] % d1; }, entries,
            [&](int64_t p) { return m.entries.key(m.entry(p)); },
            [&](int64_t a, int64_t p) {
                pair(m.entry(p), a);
                matched = true;
            });
        if (matched) element(i);
    }
}

template <class S, class Pair, class Element>
void walk_right(bool hassp, int d1, int md1, int nelem, I64<S> sp, const Columns<S>& m, Pair pair,
                Element element)
{
    if (hassp)
        walk_right_sparse(d1, md1, nelem, sp, m, pair, element);
    else
        walk_right_diagonal(d1, m, 0, pair, element);
}

} // namespace

/// Tests M for mul_diag_left: (whether an index is out of range, whether the order is broken). Each
/// test runs whatever the other finds; a flag that comes in set stays set.
CLOSURE_AS(458, results(bool, bool),
           (bool badidx, bool badorder, int md0, int md1, int mnnz, I32 msubi, I32 msubj),
           test_independently(badidx, badorder, md0, md1, mnnz, msubi, msubj))

/// Writes R of mul_diag_left for sparse E grouped by 456, from the cursors `mpos` and `epos` on. An
/// element is written where some term is copied: fewer than 456 counts if an element of E without
/// terms meets an entry. Returns (codei, elmi, epos, mpos, nnzi).
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
    const Code form = ncodeatom > 0 ? Code::scaled : Code::none;
    const Triplets m{msubi.length(), msubi, msubj};
    const ColumnRuns columns{LinearEntries{nelem, wi64.from(sp_base), d1}, xi32.from(xcperm_base)};
    Range entries{mpos, m.count};
    Range places{epos, nelem};
    bool copied = false;
    walk_diagonal(
        m, entries, columns, places,
        [&](int64_t k, int64_t q) {
            if (e.terms(q) <= 0) return;
            r.append_scaled(e, q, mval[k], form);
            copied = true;
        },
        [&](int64_t i, bool) {
            if (copied) r.close_element(i);
            copied = false;
        });
    return {r.codei, r.elmi, static_cast<int>(places.begin), static_cast<int>(entries.begin),
            r.nnzi};
}

/// Groups the elements of a sparse E by column, by a stable counting sort, and then sizes R of
/// mul_diag_left: (rncodeatom, rnelem, rnnz), added to. An element is counted where some entry
/// meets an element of E, also one without terms.
CLOSURE(456, results(int, int, int),
        (int codeptr_base, int d1, I32 msubi, I32 msubj, int ncodeatom, int nelem, int ptr_base,
         int rncodeatom, int rnelem, int rnnz, int sp_base, I32 wi32, I64 wi64, int xcolptr_base,
         int xcperm_base, I32Out xi32))
{
    const auto sp = wi64.from(sp_base);
    const auto perm = xi32.from(xcperm_base);
    group_by(
        nelem, [&](int64_t q) { return sp[q] % d1; }, d1, xi32.from(xcolptr_base), perm);
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    const Triplets m{msubi.length(), msubi, msubj};
    Range entries{0, m.count};
    Range places{0, nelem};
    walk_diagonal(
        m, entries, ColumnRuns{LinearEntries{nelem, sp, d1}, perm}, places,
        [&](int64_t, int64_t q) { sizes.add_scaled(e, q, ncodeatom > 0); },
        [&](int64_t, bool matched) { sizes.rnelem += matched ? 1 : 0; });
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// Writes R of mul_diag_left for dense E: its shape (diaglen), entry 0 of `ptr` and of `codeptr`,
/// and an element for each row of M that has an entry.
CLOSURE(455, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, int d1, int diaglen,
         I32 msubi, I32 msubj, F64 mval, int ncodeatom, int nidxs_base, int ptr_base,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base, int rshape_base,
         int rsp_base, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT();
    const Code form = rncodeatom > 0 ? Code::scaled : Code::none;
    ri32[rshape_base] = diaglen;
    r.ptr[0] = 0;
    if (ncodeatom > 0) r.codeptr[0] = 0;
    walk_left_diagonal(
        Triplets{msubi.length(), msubi, msubj}, 0, d1,
        [&](int64_t m, int q) { r.append_scaled(e, q, mval, m, form); },
        [&](int i) { r.close_element(i); });
}

/// Sizes R of mul_diag_left for dense E, from entry `mpos` of M on: (mpos, rncodeatom, rnelem,
/// rnnz), added to.
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
    return {mpos, sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// As 458, for mul_diag_right.
CLOSURE_AS(453, results(bool, bool),
           (bool badidx, bool badorder, int md0, int md1, int mnnz, I32 msubi, I32 msubj),
           test_independently(badidx, badorder, md0, md1, mnnz, msubi, msubj))

/// Writes R of mul_diag_right with M grouped by 450. A dense E gives an element for each column of
/// M that has an entry, a sparse one (`hassp`) where an entry meets a stored element.
/// Returns (codei, elmi, nnzi).
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
    const Code form = ncodeatom > 0 ? Code::scaled : Code::none;
    walk_right<Stride>(
        hassp, d1, md1, nelem, wi64.from(sp_base), {{mnnz, msubi, msubj}, xi32.from(xmperm_base)},
        [&](int64_t k, int64_t q) { r.append_scaled(e, q, mval, k, form); },
        [&](int i) { r.close_element(i); });
    return {r.codei, r.elmi, r.nnzi};
}

/// Sizes R of mul_diag_right: (rncodeatom, rnelem, rnnz), added to.
CLOSURE(451, results(int, int, int),
        (int codeptr_base, int d1, bool hassp, int md1, int mnnz, I32 msubi, I32 msubj,
         int ncodeatom, int nelem, int ptr_base, int rncodeatom, int rnelem, int rnnz, int sp_base,
         I32 wi32, I64 wi64, I32 xi32, int xmperm_base))
{
    Sizes sizes{rncodeatom, rnelem, rnnz};
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    walk_right<Stride>(
        hassp, d1, md1, nelem, wi64.from(sp_base), {{mnnz, msubi, msubj}, xi32.from(xmperm_base)},
        [&](int64_t, int64_t q) { sizes.add_scaled(e, q, ncodeatom > 0); },
        [&](int) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// Groups the entries of M by column, by a stable counting sort.
CLOSURE(450, void, (int md1, int mnnz, I32 msubj, I32Out xi32, int xmcolptr_base, int xmperm_base))
{
    group_by(
        mnnz, [&](int64_t k) { return msubj[k]; }, md1, xi32.from(xmcolptr_base),
        xi32.from(xmperm_base));
}

} // namespace fragments
