// The store of model rows with parameters, and its evaluation to (row, variable, value) triplets.
//
// Row r holds the entries row_param_ptrb[r] up to but not including row_param_ptre[r]. An entry has
// a variable index in `param_varidx` and a program of `param_code_sizes` atoms. The programs of a
// row lie back to back in the pool `code`, `cconst`, from row_code_ptr[r] on, so the place of each
// follows from the sizes before it.
//
// clear_param_rows is 138 or 144, and 139 measures a row. store_param_rows sizes (135), grows the
// pools (140 to 143), places (136) and fills (137), from an expression on the r stack whose element
// i goes to row nativeidxs[i]. eval_param_rows is 134 or 25.

#include <limits>

#include "algorithms.h"
#include "closure_frame.h"
#include "program_run.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// Whether a program of `size` atoms from `begin` on computes nothing: its term gets no entry.
template <class S>
bool is_trivial(I32<S> code, int64_t begin, int size)
{
    return size == 1 && (code[begin] | 8) == op_folded; // op_const or op_folded
}

/// Calls `entry(t, begin, size)` for each term t of element i that gets an entry, with its atoms.
template <class S, class Entry>
void for_each_entry(const Operand<S>& e, int64_t i, Entry entry)
{
    const int64_t end = e.ptr[i + 1];
    for (int64_t t = e.ptr[i]; t < end; ++t) {
        const int begin = e.codeptr[t];
        const int size = e.codeptr[t + 1] - begin;
        if (!is_trivial(e.code, begin, size)) entry(t, begin, size);
    }
}

/// Entries and atoms, of an element or of all.
struct Room
{
    int entries;
    int atoms;

    /// Adds what element i of `e` takes.
    template <class S>
    void add(const Operand<S>& e, int64_t i)
    {
        for_each_entry(e, i, [this](int64_t, int, int size) {
            ++entries;
            atoms += size;
        });
    }
};

template <class S>
Operand<S> coded_operand(I32<S> i32, int ptr_base, int codeptr_base, int code_base)
{
    auto e = Operand<S>::sizes(i32, ptr_base, codeptr_base);
    e.code = i32.from(code_base);
    return e;
}

/// Number of atoms of the entries of row r.
template <class S>
int atoms_of_row(int r, I32<S> sizes, I32<S> ptrb, I32<S> ptre)
{
    int atoms = 0;
    const int64_t end = ptre[r];
    for (int64_t e = ptrb[r]; e < end; ++e) atoms += sizes[e];
    return atoms;
}

/// `cap` doubled until it is at least `need`. A capacity that can't get there, as it isn't positive
/// or would leave the range of int, stops where it is.
int grown(int cap, int64_t need)
{
    while (cap < need && cap > 0 && cap <= std::numeric_limits<int>::max() / 2) cap *= 2;
    return cap;
}

/// The rows of the store, their entries' sizes and the pool of atoms.
template <class S>
struct Programs
{
    I32<S> ptrb, ptre, code_ptr;
    I32<S> sizes;
    I32<S> code;
    F64<S> cconst;
};

/// Calls `emit(r, e, value)` for each entry e of the first `nrow` rows, in order. The value stack
/// is empty again behind each entry; returns the number of values on it.
template <class S, class Emit>
int evaluate_rows(const Programs<S>& p, int64_t nrow, F64<S> parameters, F64Out<S> stack,
                  int stack_n, Emit emit)
{
    for (int64_t r = 0; r < nrow; ++r) {
        const int64_t begin = p.ptrb[r];
        const int64_t end = p.ptre[r];
        if (begin >= end) continue;
        int64_t atom = p.code_ptr[r];
        for (int64_t e = begin; e < end; ++e) {
            const int size = p.sizes[e];
            if (size == 1 && p.code[atom] == op_param) {
                // What most coefficients come down to: the parameter itself.
                stack[stack_n] = parameters[truncate_to_i32(p.cconst[atom++])];
            } else if (size == 3 && p.code[atom] == op_const && p.code[atom + 1] == op_param &&
                       p.code[atom + 2] == op_mul) {
                // And the others: a constant times a parameter.
                const double parameter = parameters[truncate_to_i32(p.cconst[atom + 1])];
                stack[stack_n + 1] = parameter;
                stack[stack_n] = parameter * p.cconst[atom];
                atom += size;
            } else if (size > 0) {
                const SplitProgram<S> program{p.code.from(atom), p.cconst.from(atom), size};
                run_program(program, parameters, stack, stack_n);
                atom += size;
            }
            emit(r, e, stack[0]);
            stack_n = 0;
        }
    }
    return stack_n;
}

} // namespace

// clear_param_rows.

/// Empties the first `nrow` listed rows, whose pointers become 0. Without `row_code_ptr` there is
/// no store, and nothing is done. Returns `entry_used` less their entries.
CLOSURE(144, int,
        (int entry_used, I32 nativeidxs, int nrow, I32 row_code_ptr, I32Out row_param_ptrb,
         I32Out row_param_ptre))
{
    if (!row_code_ptr.given()) return entry_used;
    for (int64_t i = 0; i < nrow; ++i) {
        const int r = nativeidxs[i];
        entry_used += row_param_ptrb[r] - row_param_ptre[r];
        row_param_ptrb[r] = row_param_ptre[r] = 0;
    }
    return entry_used;
}

/// Empties all listed rows, whose pointers become 0. Without `row_param_ptrb` there is no store,
/// and nothing is done. Returns (`code_used`, `varidx_used`), less their atoms and entries.
CLOSURE(138, results(int, int),
        (int code_used, I32 nativeidxs, I32 param_code_sizes, I32Out row_param_ptrb,
         I32Out row_param_ptre, int varidx_used))
{
    if (!row_param_ptrb.given()) return {code_used, varidx_used};
    for (int64_t i = 0; i < nativeidxs.length(); ++i) {
        const int r = nativeidxs[i];
        code_used -= atoms_of_row(r, param_code_sizes, row_param_ptrb, row_param_ptre);
        varidx_used -= row_param_ptre[r] - row_param_ptrb[r];
        row_param_ptrb[r] = row_param_ptre[r] = 0;
    }
    return {code_used, varidx_used};
}

/// `code_used` plus the atoms of the entries of row `nativerow`.
CLOSURE_AS(139, int,
           (int code_used, int nativerow, I32 param_code_sizes, I32 row_param_ptrb,
            I32 row_param_ptre),
           code_used + atoms_of_row(nativerow, param_code_sizes, row_param_ptrb, row_param_ptre))

// store_param_rows.

/// Sizes what `nelem` elements take: adds an entry for each term, but for those whose program is
/// one atom op_const or op_folded and computes nothing, and the atoms of its program. Returns
/// (`nparam`, `nparam_atom`).
CLOSURE(135, results(int, int),
        (int code_base, int codeptr_base, int nelem, int nparam, int nparam_atom, int ptr_base,
         I32 ri32))
{
    const auto e = coded_operand(ri32, ptr_base, codeptr_base, code_base);
    Room room{nparam, nparam_atom};
    for (int64_t i = 0; i < nelem; ++i) room.add(e, i);
    return {room.entries, room.atoms};
}

/// The capacity `cap`, doubled until it leaves room for `add` above the first `base`. One that
/// can't get there, as it isn't positive or would leave the range of int, stops where it is.
CLOSURE_AS(143, int, (int add, int base, int cap), grown(cap, int64_t{base} + add))

/// The capacity `cap`, doubled until it leaves room for `need` above the first `base`, within the
/// same bounds.
CLOSURE_AS(142, int, (int base, int cap, int need), grown(cap, int64_t{base} + need))

/// The capacity `cap`, doubled until it is at least `atleast`, within the same bounds.
CLOSURE_AS(141, int, (int atleast, int cap), grown(cap, atleast))

/// The capacity `cap`, doubled until it is at least `need`, within the same bounds.
CLOSURE_AS(140, int, (int cap, int need), grown(cap, need))

/// Gives the entries of each of `nelem` elements consecutive places, from entry `dst_param` and
/// atom `dst_atom` on: sets the row's pointers. Rows without entries aren't touched; of a row that
/// is listed twice the later place stays. Returns (`dst_atom`, `dst_param`), the places behind.
CLOSURE(136, results(int, int),
        (int code_base, int codeptr_base, int dst_atom, int dst_param, I32 nativeidxs, int nelem,
         int ptr_base, I32 ri32, I32Out row_code_ptr, I32Out row_param_ptrb, I32Out row_param_ptre))
{
    const auto e = coded_operand(ri32, ptr_base, codeptr_base, code_base);
    for (int64_t i = 0; i < nelem; ++i) {
        Room room{0, 0};
        room.add(e, i);
        if (room.entries == 0) continue;
        const int r = nativeidxs[i];
        row_param_ptrb[r] = dst_param;
        row_param_ptre[r] = dst_param + room.entries;
        row_code_ptr[r] = dst_atom;
        dst_param += room.entries;
        dst_atom += room.atoms;
    }
    return {dst_atom, dst_param};
}

/// Copies the entries of `nelem` elements to the places that their rows have been given: the
/// programs to `code` and `cconst`, and their sizes and the variable indexes to `param_code_sizes`
/// and `param_varidx`. Returns whether `nonneg` came in true and no variable index stored is
/// negative, that is, of an element of a semidefinite variable.
CLOSURE(137, bool,
        (F64Out cconst, int cconst_base, I32Out code, int code_base, int codeptr_base,
         I32 nativeidxs, int nelem, int nidxs_base, bool nonneg, I32Out param_code_sizes,
         I64Out param_varidx, int ptr_base, F64 rf64, I32 ri32, I64 ri64, I32 row_code_ptr,
         I32 row_param_ptrb))
{
    const Operand<Stride> e(ri32, ri64, rf64, {.ptr = ptr_base, .nidxs = nidxs_base},
                            {codeptr_base, code_base, cconst_base});
    for (int64_t i = 0; i < nelem; ++i) {
        if (e.terms(i) <= 0) continue;
        const int r = nativeidxs[i];
        int64_t atom = row_code_ptr[r];
        int64_t entry = row_param_ptrb[r];
        for_each_entry(e, i, [&](int64_t t, int begin, int size) {
            copy_n(e.code.from(begin), size, code.from(atom));
            copy_n(e.cconst.from(begin), size, cconst.from(atom));
            atom += size;
            param_code_sizes[entry] = size;
            const int64_t varidx = e.nidxs[t];
            param_varidx[entry] = varidx;
            nonneg = nonneg && varidx >= 0;
            ++entry;
        });
    }
    return nonneg;
}

// eval_param_rows.

/// Evaluates all rows, as many as `row_param_ptrb` has, for the parameter values `param_value`:
/// writes a triplet (row, variable, value) to `subi`, `subj`, `val` for each entry, from `dstpos`
/// on, by row and then entry. The values are computed on a stack at `stack_base` of `xf64`, of
/// which `stack_n` is the number of values, 0 before. Returns (`dstpos`, `stack_n`), the first as
/// the place behind the last triplet.
CLOSURE(134, results(int, int),
        (F64 cconst, I32 code, int dstpos, I32 param_code_sizes, F64 param_value, I64 param_varidx,
         I32 row_code_ptr, I32 row_param_ptrb, I32 row_param_ptre, int stack_base, int stack_n,
         I32Out subi, I32Out subj, F64Out val, F64Out xf64))
{
    const Programs<Stride> programs{row_param_ptrb,   row_param_ptre, row_code_ptr,
                                    param_code_sizes, code,           cconst};
    stack_n = evaluate_rows(programs, row_param_ptrb.length(), param_value, xf64.from(stack_base),
                            stack_n, [&](int64_t r, int64_t e, double value) {
                                subi[dstpos] = static_cast<int32_t>(r);
                                subj[dstpos] = static_cast<int32_t>(param_varidx[e]);
                                val[dstpos] = value;
                                ++dstpos;
                            });
    return {dstpos, stack_n};
}

/// Evaluates the first `nrow` rows in the same way, without `subi`. Returns (`dstpos`, `stack_n`).
CLOSURE(25, results(int, int),
        (F64 cconst, I32 code, I64 codenidx, I32 codeptr, I32 codesizes, int dstpos, int nrow,
         F64 param_value, I32 rowptrb, I32 rowptre, int stack_base, int stack_n, I32Out subj,
         F64Out val, F64Out xf64))
{
    const Programs<Stride> programs{rowptrb, rowptre, codeptr, codesizes, code, cconst};
    stack_n = evaluate_rows(programs, nrow, param_value, xf64.from(stack_base), stack_n,
                            [&](int64_t, int64_t e, double value) {
                                subj[dstpos] = static_cast<int32_t>(codenidx[e]);
                                val[dstpos] = value;
                                ++dstpos;
                            });
    return {dstpos, stack_n};
}

} // namespace fragments
