// Rows of the native model from the elements of a stacked expression.
//
// Element e goes with the row code conidxs[e]: a code of 0 or more is that linear row, one below 0
// the complement of a conic row's number. The closures split a constraint's rows by kind, size the
// two halves, build running term counts for them, and read dense blocks of coefficients. Result
// lists hold plain row numbers, in the order of the elements. Positions and counts run on from the
// values passed, so that constraint after constraint can be appended.

#include <tuple>

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// Calls `conic(e, row)` or `linear(e, row)` for each element, with the plain row number.
template <class S, class Conic, class Linear>
void for_each_row(I32<S> conidxs, int nrow, Conic conic, Linear linear)
{
    for (int64_t e = 0; e < nrow; ++e) {
        const int code = conidxs[e];
        if (code < 0)
            conic(e, ~code);
        else
            linear(e, code);
    }
}

/// An expression of which only the numbers of terms matter.
template <class S>
Operand<S> measured(I32<S> wi32, int ptr_base)
{
    return {wi32, {ptr_base, 0, 0}};
}

template <class S>
int count_linear_rows(I32<S> conidxs, int nrow, int lcount)
{
    for (int64_t e = 0; e < nrow; ++e) lcount += conidxs[e] >= 0 ? 1 : 0;
    return lcount;
}

/// Adds `amount(e)` of each element to the sum of its kind. Returns (conic, linear).
template <class S, class Amount>
std::tuple<int, int> sum_by_kind(int conic, I32<S> conidxs, int linear, int nrow, Amount amount)
{
    for_each_row(
        conidxs, nrow, [&](int64_t e, int) { conic += amount(e); },
        [&](int64_t e, int) { linear += amount(e); });
    return {conic, linear};
}

/// Running term counts for elements `firstrow` up to but not including `lastrow`, in the slots
/// behind `pos`. Returns (nnz, pos).
template <class S>
std::tuple<int, int> extend_row_pointers(const Operand<S>& expression, int firstrow, int lastrow,
                                         int nnz, int pos, I32Out<S> xptr)
{
    for (int64_t e = firstrow; e < lastrow; ++e) {
        nnz += expression.terms(e);
        xptr[++pos] = nnz;
    }
    return {nnz, pos};
}

/// Stores the coefficients of element e at the places that their variables have in the ascending
/// `varidxs`. The terms must ascend too; of repeated ones the first is taken. Other slots stay.
template <class S>
void read_row(const Operand<S>& expression, int64_t e, I32<S> varidxs, F64Out<S> row)
{
    for_each_match(
        {0, varidxs.length()}, [&](int64_t k) { return int64_t{varidxs[k]}; },
        {expression.ptr[e], expression.ptr[e + 1]}, [&](int64_t t) { return expression.nidxs[t]; },
        [&](int64_t k, int64_t t) { row[k] = expression.cof[t]; });
}

/// Reads `nrow` rows of one slot for each variable, from slot `pos` on. Returns the slot behind the
/// block.
template <class S>
int read_row_block(const Operand<S>& expression, int nrow, I32<S> varidxs, F64Out<S> cof, int pos)
{
    const int nvar = static_cast<int>(varidxs.length());
    if (nvar == 0) return pos;
    for (int64_t e = 0; e < nrow; ++e, pos += nvar) read_row(expression, e, varidxs, cof.from(pos));
    return pos;
}

/// One half of a split row list: row numbers, and the running count of their terms. Row p's count
/// is in slot p + 1.
template <class S>
struct RowList
{
    I32Out<S> rowidx;
    I32Out<S> ptr;
    int pos;
    int nnz;

    void append(int row, int terms)
    {
        nnz += terms;
        rowidx[pos] = row;
        ptr[++pos] = nnz;
    }
};

} // namespace

/// `lcount` plus the linear rows among the first `nrow`.
CLOSURE_AS(26, int, (I32 conidxs, int nrow, int lcount), count_linear_rows(conidxs, nrow, lcount))
CLOSURE_AS(31, int, (I32 conidxs, int nrow, int lcount), count_linear_rows(conidxs, nrow, lcount))

/// Terms of the conic and of the linear rows, added to the counts passed: (cnnz, lnnz).
CLOSURE(27, results(int, int), (int cnnz, I32 conidxs, int lnnz, int nrow, int ptr_base, I32 wi32))
{
    const auto expression = measured(wi32, ptr_base);
    return sum_by_kind(cnnz, conidxs, lnnz, nrow, [&](int64_t e) { return expression.terms(e); });
}
CLOSURE(34, results(int, int), (int cnnz, I32 conidxs, int lnnz, int nrow, int ptr_base, I32 wi32))
{
    const auto expression = measured(wi32, ptr_base);
    return sum_by_kind(cnnz, conidxs, lnnz, nrow, [&](int64_t e) { return expression.terms(e); });
}

/// Atoms of the conic and of the linear rows, added to the counts passed: (ccode, lcode).
CLOSURE(28, results(int, int),
        (int ccode, int codeptr_base, I32 conidxs, int lcode, int nrow, int ptr_base, I32 wi32))
{
    const auto expression = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    return sum_by_kind(ccode, conidxs, lcode, nrow, [&](int64_t e) { return expression.atoms(e); });
}
CLOSURE(36, results(int, int),
        (int ccode, int codeptr_base, I32 conidxs, int lcode, int nrow, int ptr_base, I32 wi32))
{
    const auto expression = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    return sum_by_kind(ccode, conidxs, lcode, nrow, [&](int64_t e) { return expression.atoms(e); });
}

/// Running term counts for a run of elements that are all of one kind: xptr[pos + 1] and on.
/// Returns (nnz, pos).
CLOSURE_AS(29, results(int, int),
           (int ptr_base, int nnz, int xptr_base, int pos, int firstrow, int lastrow, I32 wi32,
            I32Out xi32),
           extend_row_pointers(measured(wi32, ptr_base), firstrow, lastrow, nnz, pos,
                               xi32.from(xptr_base)))
CLOSURE_AS(37, results(int, int),
           (int ptr_base, int nnz, int xptr_base, int pos, int firstrow, int lastrow, I32 wi32,
            I32Out xi32),
           extend_row_pointers(measured(wi32, ptr_base), firstrow, lastrow, nnz, pos,
                               xi32.from(xptr_base)))
CLOSURE_AS(30, results(int, int),
           (int nnz, int xptr_base, int pos, int ptr_base, int firstrow, int lastrow, I32 wi32,
            I32Out xi32),
           extend_row_pointers(measured(wi32, ptr_base), firstrow, lastrow, nnz, pos,
                               xi32.from(xptr_base)))
CLOSURE_AS(38, results(int, int),
           (int nnz, int xptr_base, int pos, int ptr_base, int firstrow, int lastrow, I32 wi32,
            I32Out xi32),
           extend_row_pointers(measured(wi32, ptr_base), firstrow, lastrow, nnz, pos,
                               xi32.from(xptr_base)))

/// Dense block of coefficients: `nrow` rows of one slot for each of the strictly ascending
/// `varidxs`, from slot `pos` of `cof` on. Slots without a term stay: the host zeroes the block.
/// The terms of each element must ascend by variable. Returns the slot behind the block.
CLOSURE(32, int,
        (F64Out cof, int cof_base, int nrow, int nidxs_base, int pos, int ptr_base, I32 varidxs,
         F64 wf64, I32 wi32, I64 wi64))
{
    const Operand<Stride> expression(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base});
    return read_row_block(expression, nrow, varidxs, cof, pos);
}
CLOSURE(41, int,
        (F64Out cof, int cof_base, int pos, int nrow, int nidxs_base, int ptr_base, I32 varidxs,
         F64 wf64, I32 wi32, I64 wi64))
{
    const Operand<Stride> expression(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base});
    return read_row_block(expression, nrow, varidxs, cof, pos);
}

/// The same by kind of row. The row numbers go beside the coefficients, to all slots of the row,
/// also to those without a term. Returns (cpos, lpos).
CLOSURE(33, results(int, int),
        (F64Out ccof, int cpos, int cof_base, I32 conidxs, I32Out csubi, F64Out lcof, int lpos,
         I32Out lsubi, int nrow, int nidxs_base, int ptr_base, I32 varidxs, F64 wf64, I32 wi32,
         I64 wi64))
{
    const int nvar = static_cast<int>(varidxs.length());
    if (nvar == 0) return {cpos, lpos};
    const Operand<Stride> expression(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base});
    const auto read = [&](int64_t e, int row, F64Out cof, I32Out subi, int& pos) {
        read_row(expression, e, varidxs, cof.from(pos));
        fill_n(subi.from(pos), nvar, row);
        pos += nvar;
    };
    for_each_row(
        conidxs, nrow, [&](int64_t e, int row) { read(e, row, ccof, csubi, cpos); },
        [&](int64_t e, int row) { read(e, row, lcof, lsubi, lpos); });
    return {cpos, lpos};
}

/// Splits the rows by kind, with the running count of the terms of each half. Slot 0 of a pointer
/// list is the host's. Returns (cpos, cnnz, lpos, lnnz).
CLOSURE(35, results(int, int, int, int),
        (int cpos, int cnnz, I32 conidxs, int cptr_base, I32Out crowidx, int lpos, int lnnz,
         int lptr_base, I32Out lrowidx, int nrow, int ptr_base, I32 wi32, I32Out xi32))
{
    const auto expression = measured(wi32, ptr_base);
    RowList<Stride> conic{crowidx, xi32.from(cptr_base), cpos, cnnz};
    RowList<Stride> linear{lrowidx, xi32.from(lptr_base), lpos, lnnz};
    for_each_row(
        conidxs, nrow, [&](int64_t e, int row) { conic.append(row, expression.terms(e)); },
        [&](int64_t e, int row) { linear.append(row, expression.terms(e)); });
    return {conic.pos, conic.nnz, linear.pos, linear.nnz};
}

/// Splits the rows by kind. Returns (cpos, lpos).
CLOSURE(39, results(int, int),
        (int cpos, I32 conidxs, I32Out crowidx, int lpos, I32Out lrowidx, int nrow))
{
    for_each_row(
        conidxs, nrow, [&](int64_t, int row) { crowidx[cpos++] = row; },
        [&](int64_t, int row) { lrowidx[lpos++] = row; });
    return {cpos, lpos};
}

/// Whether `sorted`, and the first `nvar` entries ascend strictly.
CLOSURE_AS(40, bool, (int nvar, I32 varidxs_, bool sorted),
           strictly_ascending(sorted, varidxs_, nvar))

} // namespace fragments
