// The terms of finished expressions on the r stack, split into what the native model takes: scalar
// terms, constants, and symmetric matrices on semidefinite variables.
//
// The terms of an element ascend by index: negative ones first, then 0, the constant, then scalar
// variables. A negative index is the complement of an entry of the tables `barvar_block_elm_barj`,
// `_i` and `_j`: variable, row and column, row >= column. Entries of one variable are neighbours
// there, so the terms of one matrix are neighbours too. A matrix is given by its lower triangle,
// and its inner product has an entry off the diagonal twice, so such a coefficient is halved.

#include <tuple>

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// The tables of the semidefinite variables' entries.
template <class S>
struct ElementTables
{
    I32<S> barj, i, j;
};

/// Entries of lower triangles.
template <class S>
struct TriangleEntries
{
    I32Out<S> row, column;
    F64Out<S> value;

    /// Slot k gets the place of table entry u and the value that stands for `coefficient` there.
    void set(int64_t k, const ElementTables<S>& tables, int64_t u, double coefficient)
    {
        row[k] = tables.i[u];
        column[k] = tables.j[u];
        value[k] = row[k] != column[k] ? coefficient * 0.5 : coefficient;
    }
};

/// A list of scalar terms, written from slot 0 on.
template <class S>
struct ScalarTerms
{
    I32Out<S> subj;
    F64Out<S> cof;
    int64_t count = 0;

    void append(int64_t variable, double coefficient)
    {
        subj[count] = static_cast<int32_t>(variable);
        cof[count] = coefficient;
        ++count;
    }
};

/// The end of the terms from t on for which `holds(index)`.
template <class S, class Holds>
int64_t skip_terms(const Operand<S>& e, int64_t t, int64_t end, Holds holds)
{
    while (t < end && holds(e.nidxs[t])) ++t;
    return t;
}

/// Adds the sizes of the parts of `nelem` elements: matrices, scalar terms, entries of matrices.
/// The constants are scalar terms or, unless `constants`, left out.
template <class S>
std::tuple<int, int, int> count_row_parts(int nmat, I32<S> barj, int nlin, int nelem,
                                          const Operand<S>& e, int nbarnz, bool constants)
{
    for (int64_t q = 0; q < nelem; ++q) {
        const int64_t begin = e.ptr[q];
        const int64_t end = e.ptr[q + 1];
        int64_t t = skip_terms(e, begin, end, [](int64_t v) { return v < 0; });
        nbarnz += static_cast<int>(t - begin);
        for_each_run(
            begin, t, [&](int64_t p) { return barj[~e.nidxs[p]]; }, [&](int, Range) { ++nmat; });
        if (!constants) t = skip_terms(e, t, end, [](int64_t v) { return v == 0; });
        nlin += static_cast<int>(end - t);
    }
    return {nmat, nlin, nbarnz};
}

/// The scalar terms of `nelem` elements; ptrb[q + 1] - ptrb[q] of them are of element q. Those of
/// index 0 go to `constant(q, coefficient)`, which returns whether it has taken it.
template <class S, class P, class Constant>
void write_row_scalars(const Operand<S>& e, int nelem, ScalarTerms<S> list, ArrayOut<P, S> ptrb,
                       Constant constant)
{
    for (int64_t q = 0; q < nelem; ++q) {
        const int64_t before = list.count;
        const int64_t end = e.ptr[q + 1];
        for (int64_t t = e.ptr[q]; t < end; ++t) {
            const int64_t variable = e.nidxs[t];
            if (variable > 0 || (variable == 0 && !constant(q, e.cof[t])))
                list.append(variable, e.cof[t]);
        }
        ptrb[q + 1] = static_cast<P>(ptrb[q] + list.count - before);
    }
}

/// Lists of matrices, by matrix: variable, dimension, number of entries.
template <class S>
struct Matrices
{
    I32Out<S> barsubj, matdim;
    I64Out<S> matnnz;
};

/// The matrices of `nelem` elements and their entries, from the slots `nmat` and `nz` on; those of
/// element q end at ptr[q + 1]. Returns the slots behind the last: (nz, nmat).
template <class S, class P>
std::tuple<int, int> write_row_matrices(int nz, int nmat, const Operand<S>& e, int nelem,
                                        const ElementTables<S>& tables, I32<S> barvar_dim,
                                        Matrices<S> matrices, TriangleEntries<S> entries,
                                        ArrayOut<P, S> ptr)
{
    for (int64_t q = 0; q < nelem; ++q) {
        int64_t t = e.ptr[q];
        const int64_t end = e.ptr[q + 1];
        while (t < end && e.nidxs[t] < 0) {
            const int barj = tables.barj[~e.nidxs[t]];
            const int64_t first = t;
            for (; t < end && e.nidxs[t] < 0 && tables.barj[~e.nidxs[t]] == barj; ++t)
                entries.set(nz++, tables, ~e.nidxs[t], e.cof[t]);
            matrices.barsubj[nmat] = barj;
            matrices.matdim[nmat] = barvar_dim[barj];
            matrices.matnnz[nmat] = t - first;
            ++nmat;
        }
        ptr[q + 1] = nmat;
    }
    return {nz, nmat};
}

} // namespace

// Parts of a single expression.

/// `n` times the first `n` extents of a shape on the r stack, at `shape_base`.
CLOSURE_AS(45, int, (int n, I32 ri32, int shape_base), product(n, ri32.from(shape_base), n))

/// Sizes the parts of a single expression of `n` terms, in any order: `nlin` plus the terms of
/// scalar variables and constants, `nbar` plus those of semidefinite variables. Returns (nlin,
/// nbar).
CLOSURE(46, results(int, int), (int nlin, int nidxs_base, int n, int nbar, I64 ri64))
{
    const auto nidxs = ri64.from(nidxs_base);
    for (int64_t t = 0; t < n; ++t) ++(nidxs[t] >= 0 ? nlin : nbar);
    return {nlin, nbar};
}

/// Writes the terms of scalar variables and constants of a single expression of `n` terms, in their
/// order: variables to `subj`, coefficients to `cof`, both from slot 0 on. The constant's index is
/// 0.
CLOSURE(47, void,
        (F64Out cof, int cof_base, int nidxs_base, int n, F64 rf64, I64 ri64, I32Out subj))
{
    const auto nidxs = ri64.from(nidxs_base);
    const auto coefficients = rf64.from(cof_base);
    ScalarTerms<Stride> list{subj, cof};
    for (int64_t t = 0; t < n; ++t)
        if (nidxs[t] >= 0) list.append(nidxs[t], coefficients[t]);
}

/// Writes the matrix entries of the `n` terms of a single expression, all of semidefinite
/// variables: the variable's number to `subj`, row and column to `subk` and `subl`, the value to
/// `val`, half the coefficient off the diagonal.
CLOSURE(48, void,
        (I32 barvar_block_elm_barj, I32 barvar_block_elm_i, I32 barvar_block_elm_j, int cof_base,
         int nidxs_base, int n, F64 rf64, I64 ri64, I32Out subj, I32Out subk, I32Out subl,
         F64Out val))
{
    const ElementTables<Stride> tables{barvar_block_elm_barj, barvar_block_elm_i,
                                       barvar_block_elm_j};
    const auto nidxs = ri64.from(nidxs_base);
    const auto coefficients = rf64.from(cof_base);
    TriangleEntries<Stride> entries{subk, subl, val};
    for (int64_t t = 0; t < n; ++t) {
        const int64_t u = ~nidxs[t];
        subj[t] = tables.barj[u];
        entries.set(t, tables, u, coefficients[t]);
    }
}

// Parts of rows, one for each element.

/// Sizes the parts of `nelem` rows without their constants: `nmat` plus the matrices, `nlin` plus
/// the terms of scalar variables, `nbarnz` plus the entries of matrices. Terms must ascend by
/// index; negative ones behind others are not looked at. Returns (nmat, nlin, nbarnz).
CLOSURE(75, results(int, int, int),
        (int nmat, I32 barvar_block_elm_barj, int nlin, int nelem, int nidxs_base, int ptr_base,
         I32 ri32, I64 ri64, int nbarnz))
{
    const Operand<Stride> e(ri32, ri64, {}, {ptr_base, nidxs_base, 0});
    return count_row_parts(nmat, barvar_block_elm_barj, nlin, nelem, e, nbarnz, false);
}

/// Sizes the parts of `nelem` rows with their constants among the scalar terms: `nmat` plus the
/// matrices, `nlin` plus the scalar terms, `nbarnz` plus the entries of matrices. Terms must ascend
/// by index; negative ones behind others are not looked at. Returns (nmat, nlin, nbarnz).
CLOSURE(78, results(int, int, int),
        (int nmat, I32 barvar_block_elm_barj, int nlin, int nelem, int nidxs_base, int ptr_base,
         I32 ri32, I64 ri64, int nbarnz))
{
    const Operand<Stride> e(ri32, ri64, {}, {ptr_base, nidxs_base, 0});
    return count_row_parts(nmat, barvar_block_elm_barj, nlin, nelem, e, nbarnz, true);
}

/// Writes the terms of scalar variables of `nelem` rows in pointer form, variables to `subj` and
/// coefficients to `cof` from slot 0 on: those of row q are counted in ptrb[q + 1] - ptrb[q];
/// ptrb[0] must be set before. The constants of row q are added to bfix[q].
CLOSURE(76, void,
        (F64Out bfix, F64Out cof, int cof_base, int nelem, int nidxs_base, int ptr_base,
         I32Out ptrb, F64 rf64, I32 ri32, I64 ri64, I32Out subj))
{
    const Operand<Stride> e(ri32, ri64, rf64, {ptr_base, nidxs_base, cof_base});
    write_row_scalars(e, nelem, {subj, cof}, ptrb, [&](int64_t q, double coefficient) {
        bfix[q] += coefficient;
        return true;
    });
}

/// Writes the scalar terms of `nelem` rows, constants among them as terms of index 0, in pointer
/// form, variables to `subj` and coefficients to `cof` from slot 0 on: those of row q are counted
/// in ptrb[q + 1] - ptrb[q]; ptrb[0] must be set before.
CLOSURE(79, void,
        (F64Out cof, int cof_base, int nelem, int nidxs_base, int ptr_base, I64Out ptrb, F64 rf64,
         I32 ri32, I64 ri64, I32Out subj))
{
    const Operand<Stride> e(ri32, ri64, rf64, {ptr_base, nidxs_base, cof_base});
    write_row_scalars(e, nelem, {subj, cof}, ptrb, [](int64_t, double) { return false; });
}

/// Writes the matrices of `nelem` rows, whose terms must ascend by index, from slot `nmat` on: the
/// variable's number to `barsubj`, its dimension to `matdim`, the number of entries to `matnnz`;
/// and the entries, from slot `nz` on: row and column to `matsubi` and `matsubj`, the value to
/// `matcof`, half the coefficient off the diagonal. ptr[q + 1] gets the slot behind the matrices of
/// row e. Returns (nz, nmat).
CLOSURE(77, results(int, int),
        (int nz, int nmat, I32Out barsubj, I32 barvar_block_elm_barj, I32 barvar_block_elm_i,
         I32 barvar_block_elm_j, I32 barvar_dim, int cof_base, F64Out matcof, I32Out matdim,
         I64Out matnnz, I32Out matsubi, I32Out matsubj, int nidxs_base, int nelem, I32Out ptr,
         int ptr_base, F64 rf64, I32 ri32, I64 ri64))
{
    const Operand<Stride> e(ri32, ri64, rf64, {ptr_base, nidxs_base, cof_base});
    return write_row_matrices(
        nz, nmat, e, nelem, {barvar_block_elm_barj, barvar_block_elm_i, barvar_block_elm_j},
        barvar_dim, {barsubj, matdim, matnnz}, {matsubi, matsubj, matcof}, ptr);
}
CLOSURE(80, results(int, int),
        (int nz, int nmat, I32Out barsubj, I32 barvar_block_elm_barj, I32 barvar_block_elm_i,
         I32 barvar_block_elm_j, I32 barvar_dim, int cof_base, F64Out matcof, I32Out matdim,
         I64Out matnnz, I32Out matsubi, I32Out matsubj, int nidxs_base, int nelem, I64Out ptr,
         int ptr_base, F64 rf64, I32 ri32, I64 ri64))
{
    const Operand<Stride> e(ri32, ri64, rf64, {ptr_base, nidxs_base, cof_base});
    return write_row_matrices(
        nz, nmat, e, nelem, {barvar_block_elm_barj, barvar_block_elm_i, barvar_block_elm_j},
        barvar_dim, {barsubj, matdim, matnnz}, {matsubi, matsubj, matcof}, ptr);
}

} // namespace fragments
