// mul_plain_left and mul_plain_right: the products M V and V M of a constant matrix M and a plain
// operand V, whose every element is one variable with coefficient 1.
//
// M is `msubi`, `msubj`, `mcof`, ordered strictly by row and then column, or, where dense, `mcof`
// alone, row-major. V is a list of variable indexes, one for each stored element, and, if sparse,
// the ascending linear indexes of these. So a term of the result is a variable of V with an entry
// of M as coefficient, also where that is 0. The result is sparse.
//
// The chains are grouping, sizing and writing. M V: 493, 495 for a dense V; 492, 494 for a sparse
// one, where 492 groups and sizes. V M: 485, 486, 487 for a dense V; 488, 489, 485, 490, 491 where
// both are sparse; 483, 484 for a dense M.

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "matrix_walks.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// A right factor by columns, of which the rows of the entries alone are known.
template <class S>
auto by_column(I32<S> row, int columns, I32<S> ptr, I32<S> perm)
{
    return GroupedColumns{Triplets{0, row, I32<S>{}}, ColumnGrouping<S>{ptr, perm}, columns};
}

/// The product of two sparse factors by the walk for any such; nothing is read of factors without
/// rows or columns.
template <class S, class Columns, class Pair, class Element>
void multiply(const GroupedRows<S>& rows, const Columns& columns, Pair pair, Element element)
{
    if (!columns.empty()) walk_sparse(rows, 0, columns, pair, element);
}

/// Row and column of each of `n` elements of a matrix with `columns` columns.
template <class S>
void split(I64<S> sp, int n, int columns, I32Out<S> row, I32Out<S> column)
{
    RunningQuotient row_of(columns);
    for (int64_t q = 0; q < n; ++q) {
        row[q] = static_cast<int32_t>(row_of(sp[q]));
        column[q] = static_cast<int32_t>(row_of.remainder(sp[q]));
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

// M V.

/// Sizes the product of a sparse matrix and a dense plain operand with `vd1` columns: (`rnelem`
/// plus the number of runs of equal row among the `mnnz` entries) times `vd1` elements, and `mnnz`
/// times `vd1` terms, whatever `rnnz` was. Returns (`rnelem`, `rnnz`).
CLOSURE(493, results(int, int),
        (int mnnz, I32 msubi, int rnelem, [[maybe_unused]] int rnnz, int vd1))
{
    rnelem += count_runs(mnnz, [&](int64_t k) { return msubi[k]; });
    return {rnelem * vd1, mnnz * vd1};
}

/// Writes the product of a sparse matrix, ordered by row and then column, and a dense plain operand
/// with `vd1` columns: terms, `ptr` with entry 0, and `sp` of an element for each row that has an
/// entry and each column.
CLOSURE(495, void,
        (F64 mcof, int mnnz, I32 msubi, I32 msubj, int nidxs_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base, int vd1, I64 xi64))
{
    const auto v = xi64.from(nidxs_base);
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base, rsp_base});
    r.start(false);
    walk_left_dense(
        Triplets{mnnz, msubi, msubj}, 0, vd1,
        [&](int64_t k, int q) { r.append_term(v[q], mcof[k]); },
        [&](int i, int c) { r.close_element(i * vd1 + c); });
}

/// Groups the factors of a product, and sizes it: a sparse matrix of `md0` rows, with as many
/// entries as `msubi` and ordered by row and then column, and a sparse plain operand with `vd1`
/// columns. Writes `md0` + 1 row pointers of the matrix at `mrowptr_base`, row and column of each
/// of the `nelem` elements at `xvi_base` and `xvj_base`, and their grouping by column, as positions
/// at `pcolperm_base` behind the pointers at `pcolptr_base`. An operand with one dimension (`nd`)
/// is a single column. Adds a term for each entry that meets an element, and an element for each
/// row and column with such a pair. Returns (`rnelem`, `rnnz`).
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

    multiply(
        GroupedRows<Stride>{md0, rowptr, msubj}, by_column<Stride>(row, vd1, colptr, colperm),
        [&](int64_t, int64_t) { ++rnnz; }, [&](int, int) { ++rnelem; });
    return {rnelem, rnnz};
}

/// Writes the product of a sparse matrix of `md0` rows and a sparse plain operand with `vd1`
/// columns from their grouping: terms, `ptr` with entry 0, and `sp` of an element for each row and
/// column where some entry meets an element.
CLOSURE(494, void,
        (F64 mcof, int md0, int mrowptr_base, I32 msubj, int nidxs_base, int pcolperm_base,
         int pcolptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rsp_base, int vd1, I32 xi32, I64 xi64, int xvi_base))
{
    const auto v = xi64.from(nidxs_base);
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base, rsp_base});
    r.start(false);
    multiply(
        GroupedRows<Stride>{md0, xi32.from(mrowptr_base), msubj},
        by_column<Stride>(xi32.from(xvi_base), vd1, xi32.from(pcolptr_base),
                          xi32.from(pcolperm_base)),
        [&](int64_t k, int64_t q) { r.append_term(v[q], mcof[k]); },
        [&](int i, int c) { r.close_element(int64_t{i} * vd1 + c); });
}

// V M.

/// Groups the `nnzm` entries of a sparse matrix by column, in ascending position, by a stable
/// counting sort: writes pointers with entry 0 at `mjptr_base` and positions at `perm_base`. `d1`
/// and `md1` both are the number of columns; of a single one the positions are as they come.
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

/// Sizes the product of a dense plain operand and a sparse matrix that is grouped by column:
/// `ncols` plus the number of the matrix's columns that have an entry. Each row of the operand has
/// as many elements.
CLOSURE(486, int, (I32 msubj, int ncols, int nnzm, int perm_base, I32 wi32))
{
    const auto perm = wi32.from(perm_base);
    return ncols + count_runs(nnzm, [&](int64_t p) { return msubj[perm[p]]; });
}

/// Writes the product of a dense plain operand of `xd0` rows and `xd1` columns and a sparse matrix
/// with `md1` columns that is grouped by column: terms, and `ptr` and `sp` of an element for each
/// row and each column that has an entry. Entry 0 of `ptr` is the host's. Returns (`elmi`,
/// `iterm`), the numbers of elements and terms written so far.
CLOSURE(487, results(int, int),
        (int elmi, int iterm, F64 mcof, int md1, I32 msubi, I32 msubj, int nidxs_base, int nnzm,
         int perm_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rsp_base, I32 wi32, I64 wi64, int xd0, int xd1))
{
    const auto v = wi64.from(nidxs_base);
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base, rsp_base}, {},
                     {.elmi = elmi, .nnzi = iterm});
    walk_right_dense(
        xd0, xd1, ColumnRuns{Triplets{nnzm, msubi, msubj}, I32(wi32.from(perm_base))},
        [&](int64_t k, int q) { r.append_term(v[q], mcof[k]); },
        [&](int i, int c) { r.close_element(md1 * i + c); });
    return {r.elmi, r.nnzi};
}

/// Zeroes the `xd0` + 1 row pointers at `rowptr_base` that the grouping of a sparse plain operand
/// counts in.
CLOSURE_AS(488, void, (int rowptr_base, I32Out wi32, int xd0),
           fill_n(wi32.from(rowptr_base), int64_t{xd0} + 1, 0))

/// Groups a sparse plain operand of `xd0` rows and `xshape[1]` columns by row: writes row and
/// column of each of the `nelem` elements at `xvi_base` and `xvj_base`, and the row pointers at
/// `rowptr_base`, where zeros are expected. An operand with one dimension (`nd`) is a single row.
CLOSURE(489, void,
        (int nd, int nelem, int rowptr_base, int sp_base, I32Out wi32, I64 wi64, int xd0,
         I32 xshape, int xvi_base, int xvj_base))
{
    const auto ptr = wi32.from(rowptr_base);
    const auto sp = wi64.from(sp_base);
    const auto row = wi32.from(xvi_base);
    const auto column = wi32.from(xvj_base);
    if (nd == 1) {
        fill_n(row, nelem, 0);
        convert_n(sp, nelem, column);
        ptr[0] = 0;
        ptr[1] = nelem;
        return;
    }
    if (nelem > 0) split(sp, nelem, xshape[1], row, column);
    ptr[0] = 0;
    count_rows(row, nelem, xd0, ptr);
}

/// Sizes the product of a sparse plain operand of `xvd0` rows and a sparse matrix with `d1` columns
/// from their grouping: adds a term for each element that meets an entry, and an element for each
/// row and column with such a pair. Returns (`nelemout`, `nnzout`).
CLOSURE(490, results(int, int),
        (int d1, int mjptr_base, I32 msubi, int nelemout, int nnzout, int pcperm_base,
         int pvrowptr_base, I32 wi32, int xvd0, int xvj_base))
{
    multiply(
        GroupedRows<Stride>{xvd0, wi32.from(pvrowptr_base), wi32.from(xvj_base)},
        by_column<Stride>(msubi, d1, wi32.from(mjptr_base), wi32.from(pcperm_base)),
        [&](int64_t, int64_t) { ++nnzout; }, [&](int, int) { ++nelemout; });
    return {nelemout, nnzout};
}

/// Writes the product of a sparse plain operand of `xvd0` rows and a sparse matrix with `md1`
/// columns from their grouping: terms, `ptr` with entry 0, and `sp` of an element for each row and
/// column where some element meets an entry.
CLOSURE(491, void,
        (F64 mcof, int md1, int mjptr_base, I32 msubi, int nidxs_base, int pcperm_base,
         int pvrowptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rsp_base, I32 wi32, I64 wi64, int xvd0, int xvj_base))
{
    const auto v = wi64.from(nidxs_base);
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base, rsp_base});
    r.start(false);
    multiply(
        GroupedRows<Stride>{xvd0, wi32.from(pvrowptr_base), wi32.from(xvj_base)},
        by_column<Stride>(msubi, md1, wi32.from(mjptr_base), wi32.from(pcperm_base)),
        [&](int64_t q, int64_t k) { r.append_term(v[q], mcof[k]); },
        [&](int i, int c) { r.close_element(int64_t{i} * md1 + c); });
}

/// Number of rows of a sparse plain operand that have one of its `nnz` elements, for the size of
/// its product with a dense matrix; `xcount` if it has no elements. `xsd1` is its number of
/// columns; an operand with one dimension (`xnd`) is a single row.
CLOSURE(483, int, (int nnz, int sp_base, I64 wi64, int xcount, int xnd, int xsd1))
{
    if (nnz <= 0) return xcount;
    if (xnd <= 1 || nnz == 1) return 1;
    const auto sp = wi64.from(sp_base);
    RunningQuotient row_of(xsd1);
    int rows = 1;
    int64_t before = row_of(sp[0]);
    for (int64_t q = 1; q < nnz; ++q) {
        const int64_t row = row_of(sp[q]);
        rows += row > before;
        before = row;
    }
    return rows;
}

/// Writes the product of a sparse plain operand with `nnz` elements and `xd1` columns and a dense
/// matrix with `md1` columns: terms, `ptr` with entry 0, and `sp` of an element for each row that
/// has one and each column. Entries of 0 aren't skipped.
CLOSURE(484, void,
        (F64 mcof, int md1, int nidxs_base, int nnz, int rcof_base, F64Out rf64, I32Out ri32,
         I64Out ri64, int rnidxs_base, int rptr_base, int rsp_base, int sp_base, I64 wi64, int xd1))
{
    const auto v = wi64.from(nidxs_base);
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base, rsp_base});
    r.start(false);
    const LinearEntries elements{nnz, wi64.from(sp_base), xd1};
    const auto row_of = [&](int64_t q) { return elements.row(q); };
    for_each_run(0, nnz, row_of, [&](int64_t i, Range row) {
        for (int c = 0; c < md1; ++c) {
            for (int64_t q = row.begin; q < row.end; ++q)
                r.append_term(v[q], mcof[elements.column_in_row(q, i) * md1 + c]);
            r.close_element(md1 * i + c);
        }
    });
}

} // namespace fragments
