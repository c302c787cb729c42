// mul_plain_left and mul_plain_right: the products M V and V M of a constant matrix M and a plain
// operand V, whose every element is one variable with coefficient 1.
//
// M is `msubi`, `msubj`, `mcof`, ordered by row and then column, or, where dense, `mcof` alone,
// row-major. V is a list of variable indexes, one for each stored element, and, if sparse, the
// ascending linear indexes of these. So a term of the result is a variable of V with an entry of M
// as coefficient, also where that is 0. The result is sparse.
//
// A product of two sparse factors merges the rows of the left one with the columns of the right
// one. Its sizing closure takes the walk of its writing one, so that the two agree.

#include "algorithms.h"
#include "closure_frame.h"
#include "matrix_walks.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// A left factor by rows: the entries of row i are those from ptr[i] up to but not including
/// ptr[i + 1], in ascending column.
template <class S>
struct LeftFactor
{
    I32<S> ptr;
    I32<S> column;
};

/// A right factor by columns, with the row of each of its entries.
template <class S>
struct RightFactor : ColumnGrouping<S>
{
    I32<S> row;
};

/// `pair(a, b)` for each entry a of the left factor and b of the right one that meet, `element(i,
/// c)` behind the pairs of each element of the product that has some.
template <class S, class Pair, class Element>
void multiply(int rows, LeftFactor<S> left, int columns, RightFactor<S> right, Pair pair,
              Element element)
{
    for (int i = 0; i < rows; ++i) {
        for (int c = 0; c < columns; ++c) {
            bool found = false;
            for_each_match(
                {left.ptr[i], left.ptr[i + 1]}, [&](int64_t a) { return left.column[a]; },
                right.column(c), [&](int64_t p) { return right.row[right.perm[p]]; },
                [&](int64_t a, int64_t p) {
                    pair(a, right.perm[p]);
                    found = true;
                });
            if (found) element(i, c);
        }
    }
}

/// Row and column of each of `n` elements of a matrix with `columns` columns.
template <class S>
void split(I64<S> sp, int n, int columns, I32Out<S> row, I32Out<S> column)
{
    for (int64_t q = 0; q < n; ++q) {
        row[q] = static_cast<int32_t>(sp[q] / columns);
        column[q] = static_cast<int32_t>(sp[q] % columns);
    }
}

/// Row pointer of `n` entries in row order; `ptr` holds zeros before.
template <class S>
void count_rows(I32<S> row, int64_t n, int rows, I32Out<S> ptr)
{
    count_keys(
        n, [&](int64_t k) { return row[k]; }, ptr);
    running_sum(ptr, rows);
}

/// The grouping by column where there is but one.
template <class S>
void group_as_one(int n, I32Out<S> ptr, I32Out<S> perm)
{
    ptr[0] = 0;
    ptr[1] = n;
    iota_n(perm, n);
}

/// Number of maximal ranges of equal key among places 0 to `n` - 1.
template <class Key>
int count_runs(int n, Key key)
{
    int runs = 0;
    for_each_run(0, n, key, [&](int, Range) { ++runs; });
    return runs;
}

} // namespace

/// Writes M V for sparse M, dense V: an element for each row of M that has an entry and each
/// column. Entry 0 of `ptr` is written too.
CLOSURE(495, void,
        (F64 mcof, int mnnz, I32 msubi, I32 msubj, int nidxs_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base, int vd1, I64 xi64))
{
    const auto v = xi64.from(nidxs_base);
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base}, {});
    r.sp = ri64.from(rsp_base);
    r.ptr[0] = 0;
    const auto row = [&](int64_t k) { return msubi[k]; };
    for_each_run(0, mnnz, row, [&](int i, Range run) {
        for (int c = 0; c < vd1; ++c) {
            for (int64_t k = run.begin; k < run.end; ++k)
                r.append_term(v[int64_t{msubj[k]} * vd1 + c], mcof[k]);
            r.close_element(i * vd1 + c);
        }
    });
}

/// Writes M V for sparse M, sparse V, grouped by 492: an element where some entry of M meets one of
/// V. Entry 0 of `ptr` is written too.
CLOSURE(494, void,
        (F64 mcof, int md0, int mrowptr_base, I32 msubj, int nidxs_base, int pcolperm_base,
         int pcolptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rsp_base, int vd1, I32 xi32, I64 xi64, int xvi_base))
{
    const auto v = xi64.from(nidxs_base);
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base}, {});
    r.sp = ri64.from(rsp_base);
    r.ptr[0] = 0;
    const LeftFactor<Stride> rows{xi32.from(mrowptr_base), msubj};
    const RightFactor<Stride> columns{xi32.from(pcolptr_base), xi32.from(pcolperm_base),
                                      xi32.from(xvi_base)};
    multiply(
        md0, rows, vd1, columns, [&](int64_t k, int q) { r.append_term(v[q], mcof[k]); },
        [&](int i, int c) { r.close_element(int64_t{i} * vd1 + c); });
}

/// Sizes 495: the number of M's rows that have an entry, plus `rnelem`, and that of its entries,
/// both times `vd1`.
CLOSURE(493, results(int, int),
        (int mnnz, I32 msubi, int rnelem, [[maybe_unused]] int rnnz, int vd1))
{
    rnelem += count_runs(mnnz, [&](int64_t k) { return msubi[k]; });
    return {rnelem * vd1, mnnz * vd1};
}

/// Groups M, with as many entries as `msubi` has, by row and a sparse V by column, and sizes 494:
/// (rnelem, rnnz), added to. A V with one dimension is a single column.
CLOSURE(492, results(int, int),
        (int md0, int mrowptr_base, I32 msubi, I32 msubj, int nd, int nelem, int pcolperm_base,
         int pcolptr_base, int rnelem, int rnnz, int sp_base, int vd1, I32Out xi32, I64 xi64,
         int xvi_base, int xvj_base))
{
    const auto rowptr = xi32.from(mrowptr_base);
    fill_n(rowptr, int64_t{md0} + 1, 0);
    count_rows(msubi, msubi.length(), md0, rowptr);

    const auto colptr = xi32.from(pcolptr_base);
    const auto colperm = xi32.from(pcolperm_base);
    const auto sp = xi64.from(sp_base);
    const auto row = xi32.from(xvi_base);
    const auto column = xi32.from(xvj_base);
    if (nd == 1) {
        convert_n(sp, nelem, row);
        fill_n(column, nelem, 0);
    } else {
        split(sp, nelem, vd1, row, column);
    }
    if (nd > 1)
        group_by(
            nelem, [&](int64_t q) { return column[q]; }, vd1, colptr, colperm);
    else
        group_as_one(nelem, colptr, colperm);

    const LeftFactor<Stride> rows{rowptr, msubj};
    const RightFactor<Stride> columns{{colptr, colperm}, row};
    multiply(
        md0, rows, vd1, columns, [&](int64_t, int) { ++rnnz; }, [&](int, int) { ++rnelem; });
    return {rnelem, rnnz};
}

/// Writes V M for sparse V, sparse M, grouped by 489 and 485: an element where some element of V
/// meets an entry of M. Entry 0 of `ptr` is written too.
CLOSURE(491, void,
        (F64 mcof, int md1, int mjptr_base, I32 msubi, int nidxs_base, int pcperm_base,
         int pvrowptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rsp_base, I32 wi32, I64 wi64, int xvd0, int xvj_base))
{
    const auto v = wi64.from(nidxs_base);
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base}, {});
    r.sp = ri64.from(rsp_base);
    r.ptr[0] = 0;
    const LeftFactor<Stride> rows{wi32.from(pvrowptr_base), wi32.from(xvj_base)};
    const RightFactor<Stride> columns{wi32.from(mjptr_base), wi32.from(pcperm_base), msubi};
    multiply(
        xvd0, rows, md1, columns, [&](int64_t q, int k) { r.append_term(v[q], mcof[k]); },
        [&](int i, int c) { r.close_element(int64_t{i} * md1 + c); });
}

/// Sizes 491: (nelemout, nnzout), added to.
CLOSURE(490, results(int, int),
        (int d1, int mjptr_base, I32 msubi, int nelemout, int nnzout, int pcperm_base,
         int pvrowptr_base, I32 wi32, int xvd0, int xvj_base))
{
    const LeftFactor<Stride> rows{wi32.from(pvrowptr_base), wi32.from(xvj_base)};
    const RightFactor<Stride> columns{wi32.from(mjptr_base), wi32.from(pcperm_base), msubi};
    multiply(
        xvd0, rows, d1, columns, [&](int64_t, int) { ++nnzout; }, [&](int, int) { ++nelemout; });
    return {nelemout, nnzout};
}

/// Splits a sparse V into row and column numbers and builds its row pointer, which 488 has zeroed.
/// A V with one dimension is a single row.
CLOSURE(489, void,
        (int nd, int nelem, int rowptr_base, int sp_base, I32Out wi32, I64 wi64, int xd0,
         I32 xshape, int xvi_base, int xvj_base))
{
    const auto ptr = wi32.from(rowptr_base);
    const auto sp = wi64.from(sp_base);
    const auto row = wi32.from(xvi_base);
    const auto column = wi32.from(xvj_base);
    ptr[0] = 0;
    if (nd == 1) {
        fill_n(row, nelem, 0);
        convert_n(sp, nelem, column);
        ptr[1] = nelem;
        return;
    }
    if (nelem > 0) split(sp, nelem, xshape[1], row, column);
    count_rows(row, nelem, xd0, ptr);
}

/// Zeroes the row pointer for 489.
CLOSURE_AS(488, void, (int rowptr_base, I32Out wi32, int xd0),
           fill_n(wi32.from(rowptr_base), int64_t{xd0} + 1, 0))

/// Writes V M for dense V, sparse M, grouped by 485: an element for each row of V and each column
/// of M that has an entry. Returns (elmi, iterm).
CLOSURE(487, results(int, int),
        (int elmi, int iterm, F64 mcof, int md1, I32 msubi, I32 msubj, int nidxs_base, int nnzm,
         int perm_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rsp_base, I32 wi32, I64 wi64, int xd0, int xd1))
{
    const auto perm = wi32.from(perm_base);
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base}, {}, {0, elmi, iterm});
    r.sp = ri64.from(rsp_base);
    const auto column = [&](int64_t p) { return msubj[perm[p]]; };
    for (int i = 0; i < xd0; ++i) {
        const auto row = wi64.from(nidxs_base + int64_t{xd1} * i);
        for_each_run(0, nnzm, column, [&](int c, Range run) {
            for (int64_t p = run.begin; p < run.end; ++p)
                r.append_term(row[msubi[perm[p]]], mcof[perm[p]]);
            r.close_element(md1 * i + c);
        });
    }
    return {r.elmi, r.nnzi};
}

/// Number of M's columns that have an entry, plus `ncols`.
CLOSURE(486, int, (I32 msubj, int ncols, int nnzm, int perm_base, I32 wi32))
{
    const auto perm = wi32.from(perm_base);
    return ncols + count_runs(nnzm, [&](int64_t p) { return msubj[perm[p]]; });
}

/// Groups M by column; `d1` and `md1` are both its number of columns.
CLOSURE(485, void,
        (int d1, int md1, int mjptr_base, I32 msubj, int nnzm, int perm_base, I32Out wi32))
{
    const auto ptr = wi32.from(mjptr_base);
    const auto perm = wi32.from(perm_base);
    if (d1 == 1)
        group_as_one(nnzm, ptr, perm);
    else
        group_by(
            nnzm, [&](int64_t k) { return msubj[k]; }, md1, ptr, perm);
}

/// Writes V M for sparse V, dense M: an element for each row of V that has one and each column of
/// M. Entry 0 of `ptr` is written too.
CLOSURE(484, void,
        (F64 mcof, int md1, int nidxs_base, int nnz, int rcof_base, F64Out rf64, I32Out ri32,
         I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base, int sp_base, I64 wi64, int xd1))
{
    const auto v = wi64.from(nidxs_base);
    const auto sp = wi64.from(sp_base);
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base}, {});
    r.sp = ri64.from(rsp_base);
    r.ptr[0] = 0;
    const auto row = [&](int64_t q) { return sp[q] / xd1; };
    for_each_run(0, nnz, row, [&](int64_t i, Range run) {
        for (int c = 0; c < md1; ++c) {
            for (int64_t q = run.begin; q < run.end; ++q)
                r.append_term(v[q], mcof[(sp[q] - i * xd1) * md1 + c]);
            r.close_element(md1 * i + c);
        }
    });
}

/// Number of rows of a sparse V that have an element; `xcount` if there is none. A V with one
/// dimension is a single row.
CLOSURE(483, int, (int nnz, int sp_base, I64 wi64, int xcount, int xnd, int xsd1))
{
    if (nnz <= 0) return xcount;
    if (xnd <= 1) return 1;
    const auto sp = wi64.from(sp_base);
    int rows = 1;
    for (int64_t q = 1; q < nnz; ++q)
        if (sp[q] / xsd1 > sp[q - 1] / xsd1) ++rows;
    return rows;
}

} // namespace fragments
