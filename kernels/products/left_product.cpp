// mul_left: the product R = M E of a constant matrix M and an expression E read as a matrix.
//
// A sparse M is the triplet lists `msubi`, `msubj`, `mval`, ordered strictly by row and then
// column (482 tests this); a dense one is `mval` alone, row-major, md0 x md1. E has `d1` columns:
// its element (j, c) has linear index j * d1 + c. R's element (i, c) holds the terms of each E(j,
// c) that meets an entry of M(i, :), scaled by it, in ascending j; none are merged.

#include "algorithms.h"
#include "closure_frame.h"
#include "matrix_walks.h"
#include "stacked_expression.h"
#include "triplet_matrix.h"

namespace fragments {

namespace {

/// The elements of a sparse E by column, as 476 groups them.
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

/// Tests a sparse M: (whether an index is out of range, whether the order is broken). A flag that
/// comes in set stays set; a matrix with a bad index isn't tested for order.
CLOSURE(482, results(bool, bool),
        (bool badidx, bool badorder, int md0, int md1, int mnnz, I32 msubi, I32 msubj))
{
    if (!badidx) badidx = has_bad_index(md0, md1, mnnz, msubi, msubj);
    if (!badidx && !badorder) badorder = has_bad_order(mnnz, msubi, msubj);
    return {badidx, badorder};
}

/// Writes R for sparse M, dense E, from entry `mpos` of M on: a sparse R with an element for each
/// row of M that has an entry and each column. Returns (codei, elmi, mpos, nnzi).
CLOSURE(481, results(int, int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d1,
         int elmi, int mnnz, int mpos, I32 msubi, I32 msubj, F64 mval, int nidxs_base, int nnzi,
         int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base,
         int rsp_base, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(codei, elmi, nnzi);
    const Code form = rncodeatom > 0 ? Code::scaled : Code::none;
    mpos = walk_left_dense(
        Triplets{mnnz, msubi, msubj}, mpos, d1,
        [&](int64_t m, int q) { r.append_scaled(e, q, mval, m, form); },
        [&](int i, int c) { r.close_element(d1 * i + c); });
    return {r.codei, r.elmi, mpos, r.nnzi};
}

/// Writes R for dense M, sparse E: all md0 * d1 elements, without `sp`.
/// Returns (codei, elmi, nnzi).
CLOSURE(480, results(int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d1,
         int elmi, int eperm_base, int eptr_base, int md0, int md1, F64 mval, int nidxs_base,
         int nnzi, int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base,
         int sp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32))
{
    const auto e = SPARSE_OPERAND();
    auto r = STACKED_RESULT(codei, elmi, nnzi);
    const Code form = rncodeatom > 0 ? Code::scaled : Code::none;
    const auto columns = by_column(e.sp, d1, xi32.from(eptr_base), xi32.from(eperm_base));
    for (int i = 0; i < md0; ++i) {
        const auto row = mval.from(int64_t{md1} * i);
        columns.for_each_column(0, [&](int, Range places) {
            for (int64_t p = places.begin; p < places.end; ++p)
                r.append_scaled(e, columns.entry(p), row, e.sp[columns.entry(p)] / d1, form);
            r.close_element();
        });
    }
    return {r.codei, r.elmi, r.nnzi};
}

/// Writes R for sparse M, sparse E: a sparse R with an element where some entry of M meets a stored
/// element of E.
CLOSURE(479, void,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, int d1, int eperm_base,
         int eptr_base, int mnnz, I32 msubi, I32 msubj, F64 mval, int nidxs_base, int ptr_base,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base, int rsp_base,
         int sp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32))
{
    const auto e = SPARSE_OPERAND();
    auto r = SPARSE_RESULT();
    const Code form = rncodeatom > 0 ? Code::scaled : Code::none;
    walk_sparse(
        Triplets{mnnz, msubi, msubj}, 0,
        by_column(e.sp, d1, xi32.from(eptr_base), xi32.from(eperm_base)),
        [&](int64_t m, int64_t q) { r.append_scaled(e, q, mval, m, form); },
        [&](int i, int c) { r.close_element(d1 * i + c); });
}

/// Sizes R for dense E: (rncodeatom, rnelem, rnnz), replaced for a dense M (`mhassp` false), added
/// to for a sparse one.
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

/// Sizes R for sparse E, grouped by 476: as 478.
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

/// Groups the elements of a sparse E by column, by a stable counting sort.
CLOSURE(476, void,
        (int d1, int eperm_base, int eptr_base, int nelem, int sp_base, I64 wi64, I32Out xi32))
{
    const auto sp = wi64.from(sp_base);
    group_by(
        nelem, [&](int64_t q) { return sp[q] % d1; }, d1, xi32.from(eptr_base),
        xi32.from(eperm_base));
}

} // namespace fragments
