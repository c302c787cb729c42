// Rows of the native model from the elements of a stacked expression.
//
// Element q goes with the row code conidxs[q]: a code of 0 or more is that linear row, one below 0
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

/// Calls `conic(q, row)` or `linear(q, row)` for each element, with the plain row number.
template <class S, class Conic, class Linear>
void for_each_row(I32<S> conidxs, int nrow, Conic conic, Linear linear)
{
    for (int64_t q = 0; q < nrow; ++q) {
        const int code = conidxs[q];
        if (code < 0)
            conic(q, ~code);
        else
            linear(q, code);
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
    for (int64_t q = 0; q < nrow; ++q) lcount += conidxs[q] >= 0 ? 1 : 0;
    return lcount;
}

/// Adds `amount(q)` of each element to the sum of its kind. Returns (conic, linear).
template <class S, class Amount>
std::tuple<int, int> sum_by_kind(int conic, I32<S> conidxs, int linear, int nrow, Amount amount)
{
    for_each_row(
        conidxs, nrow, [&](int64_t q, int) { conic += amount(q); },
        [&](int64_t q, int) { linear += amount(q); });
    return {conic, linear};
}

/// The same with the number of terms of each element as its amount.
template <class S>
std::tuple<int, int> sum_terms(int conic, I32<S> conidxs, int linear, int nrow, const Operand<S>& e)
{
    return sum_by_kind(conic, conidxs, linear, nrow, [&](int64_t q) { return e.terms(q); });
}

/// The same with the number of atoms.
template <class S>
std::tuple<int, int> sum_atoms(int conic, I32<S> conidxs, int linear, int nrow, const Operand<S>& e)
{
    return sum_by_kind(conic, conidxs, linear, nrow, [&](int64_t q) { return e.atoms(q); });
}

/// Running term counts for elements `firstrow` up to but not including `lastrow`, in the slots
/// behind `pos`. Returns (nnz, pos).
template <class S>
std::tuple<int, int> extend_row_pointers(const Operand<S>& e, int firstrow, int lastrow, int nnz,
                                         int pos, I32Out<S> xptr)
{
    for (int64_t q = firstrow; q < lastrow; ++q) {
        nnz += e.terms(q);
        xptr[++pos] = nnz;
    }
    return {nnz, pos};
}

/// Stores the coefficients of element q at the places that their variables have in the ascending
/// `varidxs`. The terms must ascend too; of repeated ones the first is taken. Other slots stay.
template <class S>
void read_row(const Operand<S>& e, int64_t q, I32<S> varidxs, F64Out<S> row)
{
    for_each_match(
        {0, varidxs.length()}, [&](int64_t k) { return int64_t{varidxs[k]}; },
        {e.ptr[q], e.ptr[q + 1]}, [&](int64_t t) { return e.nidxs[t]; },
        [&](int64_t k, int64_t t) { row[k] = e.cof[t]; });
}

/// Reads `nrow` rows of one slot for each variable, from slot `pos` on. Returns the slot behind the
/// block.
template <class S>
int read_row_block(const Operand<S>& e, int nrow, I32<S> varidxs, F64Out<S> cof, int pos)
{
    const int nvar = static_cast<int>(varidxs.length());
    if (nvar == 0) return pos;
    for (int64_t q = 0; q < nrow; ++q, pos += nvar) read_row(e, q, varidxs, cof.from(pos));
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

/// Sizes the split of `nrow` rows: `lcount` plus the linear ones.
CLOSURE_AS(26, int, (I32 conidxs, int nrow, int lcount), count_linear_rows(conidxs, nrow, lcount))
CLOSURE_AS(31, int, (I32 conidxs, int nrow, int lcount), count_linear_rows(conidxs, nrow, lcount))

/// Sizes the split of `nrow` rows: `cnnz` plus the terms of the conic ones, `lnnz` plus those of
/// the linear ones. Returns (cnnz, lnnz).
CLOSURE_AS(27, results(int, int),
           (int cnnz, I32 conidxs, int lnnz, int nrow, int ptr_base, I32 wi32),
           sum_terms(cnnz, conidxs, lnnz, nrow, measured(wi32, ptr_base)))
CLOSURE_AS(34, results(int, int),
           (int cnnz, I32 conidxs, int lnnz, int nrow, int ptr_base, I32 wi32),
           sum_terms(cnnz, conidxs, lnnz, nrow, measured(wi32, ptr_base)))

/// Sizes the split of `nrow` rows with parameter code: `ccode` plus the atoms of the conic ones,
/// `lcode` plus those of the linear ones. Returns (ccode, lcode).
CLOSURE_AS(28, results(int, int),
           (int ccode, int codeptr_base, I32 conidxs, int lcode, int nrow, int ptr_base, I32 wi32),
           sum_atoms(ccode, conidxs, lcode, nrow,
                     Operand<Stride>::sizes(wi32, ptr_base, codeptr_base)))
CLOSURE_AS(36, results(int, int),
           (int ccode, int codeptr_base, I32 conidxs, int lcode, int nrow, int ptr_base, I32 wi32),
           sum_atoms(ccode, conidxs, lcode, nrow,
                     Operand<Stride>::sizes(wi32, ptr_base, codeptr_base)))

/// Splits `nrow` rows by kind, each half with the running count of its terms: row numbers go to
/// `crowidx` from slot `cpos` on and to `lrowidx` from slot `lpos` on, and the count behind the row
/// in slot p to slot p + 1 of the pointer lists on the x stack, at `cptr_base` and `lptr_base`. The
/// counts go on from `cnnz` and `lnnz`; slot 0 of a pointer list must be set before. Returns (cpos,
/// cnnz, lpos, lnnz).
CLOSURE(35, results(int, int, int, int),
        (int cpos, int cnnz, I32 conidxs, int cptr_base, I32Out crowidx, int lpos, int lnnz,
         int lptr_base, I32Out lrowidx, int nrow, int ptr_base, I32 wi32, I32Out xi32))
{
    const auto e = measured(wi32, ptr_base);
    RowList<Stride> conic{crowidx, xi32.from(cptr_base), cpos, cnnz};
    RowList<Stride> linear{lrowidx, xi32.from(lptr_base), lpos, lnnz};
    for_each_row(
        conidxs, nrow, [&](int64_t q, int row) { conic.append(row, e.terms(q)); },
        [&](int64_t q, int row) { linear.append(row, e.terms(q)); });
    return {conic.pos, conic.nnz, linear.pos, linear.nnz};
}

/// Splits `nrow` rows by kind: row numbers go to `crowidx` from slot `cpos` on and to `lrowidx`
/// from slot `lpos` on. Returns (cpos, lpos).
CLOSURE(39, results(int, int),
        (int cpos, I32 conidxs, I32Out crowidx, int lpos, I32Out lrowidx, int nrow))
{
    for_each_row(
        conidxs, nrow, [&](int64_t, int row) { crowidx[cpos++] = row; },
        [&](int64_t, int row) { lrowidx[lpos++] = row; });
    return {cpos, lpos};
}

/// Extends the pointer list at `xptr_base` of the x stack by the rows `firstrow` up to but not
/// including `lastrow`, all of one kind: the count behind each, which goes on from `nnz`, goes to
/// the slots from `pos` + 1 on. Returns (nnz, pos).
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

/// Whether `sorted`, and the first `nvar` entries of `varidxs_` ascend strictly.
CLOSURE_AS(40, bool, (int nvar, I32 varidxs_, bool sorted),
           strictly_ascending(sorted, varidxs_, nvar))

/// Reads a dense block of coefficients: `nrow` rows of one slot for each of the strictly ascending
/// `varidxs`, from slot `pos` of `cof` on. The terms of each element must ascend by variable; of
/// repeated ones the first is taken. Slots without a term stay, so the block must be zeroed before.
/// Returns the slot behind the block.
CLOSURE_AS(32, int,
           (F64Out cof, int cof_base, int nrow, int nidxs_base, int pos, int ptr_base, I32 varidxs,
            F64 wf64, I32 wi32, I64 wi64),
           read_row_block(Operand<Stride>(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base}), nrow,
                          varidxs, cof, pos))
CLOSURE_AS(41, int,
           (F64Out cof, int cof_base, int pos, int nrow, int nidxs_base, int ptr_base, I32 varidxs,
            F64 wf64, I32 wi32, I64 wi64),
           read_row_block(Operand<Stride>(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base}), nrow,
                          varidxs, cof, pos))

/// Reads dense blocks of coefficients by kind of row: `nrow` rows of one slot for each of the
/// strictly ascending `varidxs`, the conic ones to `ccof` from slot `cpos` on, the linear ones to
/// `lcof` from slot `lpos` on. The row's number goes beside them, to `csubi` or `lsubi`, in all
/// slots of the row, also in those without a term, whose coefficients stay. The terms of each
/// element must ascend by variable; of repeated ones the first is taken. Returns (cpos, lpos).
CLOSURE(33, results(int, int),
        (F64Out ccof, int cpos, int cof_base, I32 conidxs, I32Out csubi, F64Out lcof, int lpos,
         I32Out lsubi, int nrow, int nidxs_base, int ptr_base, I32 varidxs, F64 wf64, I32 wi32,
         I64 wi64))
{
    const int nvar = static_cast<int>(varidxs.length());
    if (nvar == 0) return {cpos, lpos};
    const auto e = Operand<Stride>(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base});
    const auto read = [&](int64_t q, int row, F64Out cof, I32Out subi, int& pos) {
        read_row(e, q, varidxs, cof.from(pos));
        fill_n(subi.from(pos), nvar, row);
        pos += nvar;
    };
    for_each_row(
        conidxs, nrow, [&](int64_t q, int row) { read(q, row, ccof, csubi, cpos); },
        [&](int64_t q, int row) { read(q, row, lcof, lsubi, lpos); });
    return {cpos, lpos};
}

} // namespace fragments
