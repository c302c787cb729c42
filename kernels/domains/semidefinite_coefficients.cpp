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
    for (int64_t element = 0; element < nelem; ++element) {
        const int64_t begin = e.ptr[element];
        const int64_t end = e.ptr[element + 1];
        int64_t t = skip_terms(e, begin, end, [](int64_t v) { return v < 0; });
        nbarnz += static_cast<int>(t - begin);
        for_each_run(
            begin, t, [&](int64_t p) { return barj[~e.nidxs[p]]; }, [&](int, Range) { ++nmat; });
        if (!constants) t = skip_terms(e, t, end, [](int64_t v) { return v == 0; });
        nlin += static_cast<int>(end - t);
    }
    return {nmat, nlin, nbarnz};
}

/// The scalar terms of `nelem` elements; ptrb[e + 1] - ptrb[e] of them are of element e. Those of
/// index 0 go to `constant(e, coefficient)`, which returns whether it has taken it.
template <class S, class P, class Constant>
void write_row_scalars(const Operand<S>& e, int nelem, ScalarTerms<S> list, ArrayOut<P, S> ptrb,
                       Constant constant)
{
    for (int64_t element = 0; element < nelem; ++element) {
        const int64_t before = list.count;
        const int64_t end = e.ptr[element + 1];
        for (int64_t t = e.ptr[element]; t < end; ++t) {
            const int64_t variable = e.nidxs[t];
            if (variable > 0 || (variable == 0 && !constant(element, e.cof[t])))
                list.append(variable, e.cof[t]);
        }
        ptrb[element + 1] = static_cast<P>(ptrb[element] + list.count - before);
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
/// element e end at ptr[e + 1]. Returns the slots behind the last: (nz, nmat).
template <class S, class P>
std::tuple<int, int> write_row_matrices(int nz, int nmat, const Operand<S>& e, int nelem,
                                        const ElementTables<S>& tables, I32<S> barvar_dim,
                                        Matrices<S> matrices, TriangleEntries<S> entries,
                                        ArrayOut<P, S> ptr)
{
    for (int64_t element = 0; element < nelem; ++element) {
        int64_t t = e.ptr[element];
        const int64_t end = e.ptr[element + 1];
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
        ptr[element + 1] = nmat;
    }
    return {nz, nmat};
}

} // namespace

// A single expression.

/// `n` times the first `n` extents of the shape.
CLOSURE_AS(45, int, (int n, I32 ri32, int shape_base), product(n, ri32.from(shape_base), n))

/// Counts the terms of scalar variables and constants, and of semidefinite variables, in any order:
/// (nlin, nbar).
CLOSURE(46, results(int, int), (int nlin, int nidxs_base, int n, int nbar, I64 ri64))
{
    const auto nidxs = ri64.from(nidxs_base);
    for (int64_t t = 0; t < n; ++t) ++(nidxs[t] >= 0 ? nlin : nbar);
    return {nlin, nbar};
}

/// The terms of scalar variables and constants, in any order.
CLOSURE(47, void,
        (F64Out cof, int cof_base, int nidxs_base, int n, F64 rf64, I64 ri64, I32Out subj))
{
    const auto nidxs = ri64.from(nidxs_base);
    const auto coefficients = rf64.from(cof_base);
    ScalarTerms<Stride> list{subj, cof};
    for (int64_t t = 0; t < n; ++t)
        if (nidxs[t] >= 0) list.append(nidxs[t], coefficients[t]);
}

/// The matrix entries of `n` terms, all of semidefinite variables: variable `subj`, row `subk`,
/// column `subl` and value.
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

// Rows, one for each element. Those up to 77 keep the constants apart, those from 78 on take them
// as scalar terms of index 0.

/// Sizes of matrices, scalar terms and entries of matrices, added to the counts passed:
/// (nmat, nlin, nbarnz). Negative indexes behind others are not looked at.
CLOSURE(75, results(int, int, int),
        (int nmat, I32 barvar_block_elm_barj, int nlin, int nelem, int nidxs_base, int ptr_base,
         I32 ri32, I64 ri64, int nbarnz))
{
    const Operand<Stride> e(ri32, ri64, {}, {ptr_base, nidxs_base, 0});
    return count_row_parts(nmat, barvar_block_elm_barj, nlin, nelem, e, nbarnz, false);
}
CLOSURE(78, results(int, int, int),
        (int nmat, I32 barvar_block_elm_barj, int nlin, int nelem, int nidxs_base, int ptr_base,
         I32 ri32, I64 ri64, int nbarnz))
{
    const Operand<Stride> e(ri32, ri64, {}, {ptr_base, nidxs_base, 0});
    return count_row_parts(nmat, barvar_block_elm_barj, nlin, nelem, e, nbarnz, true);
}

/// The scalar terms of all elements, in pointer form: ptrb[0] is the host's. In 76 the constants of
/// element e are added to bfix[e].
CLOSURE(76, void,
        (F64Out bfix, F64Out cof, int cof_base, int nelem, int nidxs_base, int ptr_base,
         I32Out ptrb, F64 rf64, I32 ri32, I64 ri64, I32Out subj))
{
    const Operand<Stride> e(ri32, ri64, rf64, {ptr_base, nidxs_base, cof_base});
    write_row_scalars(e, nelem, {subj, cof}, ptrb, [&](int64_t element, double coefficient) {
        bfix[element] += coefficient;
        return true;
    });
}
CLOSURE(79, void,
        (F64Out cof, int cof_base, int nelem, int nidxs_base, int ptr_base, I64Out ptrb, F64 rf64,
         I32 ri32, I64 ri64, I32Out subj))
{
    const Operand<Stride> e(ri32, ri64, rf64, {ptr_base, nidxs_base, cof_base});
    write_row_scalars(e, nelem, {subj, cof}, ptrb, [](int64_t, double) { return false; });
}

/// The matrices of all elements, from `nmat` on, and their entries, from `nz` on: (nz, nmat). `ptr`
/// gets the running number of matrices, above its entry 0.
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
