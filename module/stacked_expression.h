#pragma once

/// Expressions on the work stacks: an array of affine forms, stored element by element.
///
/// Sections of an expression with `nelem` stored elements, `nnz` terms and `ncodeatom` atoms:
///   ptr      i32, nelem + 1  terms of element e are ptr[e] up to but not including ptr[e + 1]
///   sp       i64, nelem      row-major linear index of each element, ascending; sparse ones only
///   nidxs    i64, nnz        variable index of each term
///   cof      f64, nnz        coefficient of each term
///   codeptr  i32, nnz + 1    atoms of term t are codeptr[t] up to but not including codeptr[t + 1]
///   code     i32, ncodeatom  opcode of each atom
///   cconst   f64, ncodeatom  operand of each atom
/// The last three exist only if ncodeatom > 0. All of ptr and codeptr counts from the start of the
/// expression, whatever the section's place on the stack.

#include <cstdint>

#include "algorithms.h"
#include "array.h"
#include "parameter_program.h"

namespace fragments {

/// Positions of an expression's sections on a work stack. A closure names those that it has.
struct TermSections
{
    int ptr = 0;
    int nidxs = 0;
    int cof = 0;
    int sp = 0;
};
struct CodeSections
{
    int codeptr = 0;
    int code = 0;
    int cconst = 0;
};

/// The sections of an expression, as arrays that are read (Array) or written (ArrayOut). Those that
/// a closure doesn't have are not touched, and neither are those of the code without code.
template <template <class, class> class View, class S>
struct Sections
{
    using I32 = View<int32_t, S>;
    using I64 = View<int64_t, S>;
    using F64 = View<double, S>;

    Sections() = default;
    Sections(I32 i32, TermSections terms) : ptr(i32.from(terms.ptr)) {}
    Sections(I32 i32, I64 i64, F64 f64, TermSections terms)
        : ptr(i32.from(terms.ptr)),
          sp(i64.from(terms.sp)),
          nidxs(i64.from(terms.nidxs)),
          cof(f64.from(terms.cof))
    {
    }
    Sections(I32 i32, I64 i64, F64 f64, TermSections terms, CodeSections atoms)
        : Sections(i32, i64, f64, terms)
    {
        set_code(i32, f64, atoms);
    }

    void set_code(I32 i32, F64 f64, CodeSections atoms)
    {
        codeptr = i32.from(atoms.codeptr);
        code = i32.from(atoms.code);
        cconst = f64.from(atoms.cconst);
    }

    I32 ptr{};
    I64 sp{};
    I64 nidxs{};
    F64 cof{};
    I32 codeptr{};
    I32 code{};
    F64 cconst{};
};

/// An expression that is read.
template <class S>
struct Operand : Sections<Array, S>
{
    using Base = Sections<Array, S>;
    using Base::Base;
    using Base::codeptr;
    using Base::ptr;

    /// Of an operand that is only measured: `ptr` and `codeptr` alone.
    static Operand sizes(fragments::I32<S> i32, int ptr_base, int codeptr_base)
    {
        Operand e(i32, {.ptr = ptr_base});
        e.codeptr = i32.from(codeptr_base);
        return e;
    }

    /// Number of terms of `count` elements from element e on.
    int terms(int64_t e, int64_t count = 1) const { return ptr[e + count] - ptr[e]; }
    /// Number of atoms of all their terms.
    int atoms(int64_t e, int64_t count = 1) const
    {
        return codeptr[ptr[e + count]] - codeptr[ptr[e]];
    }
};

/// What becomes of a term's program when the term is scaled.
enum class Code {
    none,     ///< the result has no code
    constant, ///< the operand has none, the result has: the program that pushes 0.0
    scaled    ///< the operand's program, times the factor
};

/// The same for an operand with `ncodeatom` atoms, of a result that has code if the operand has,
/// or by itself.
inline Code form_of(int ncodeatom, bool outcode = false)
{
    if (ncodeatom > 0) return Code::scaled;
    return outcode ? Code::constant : Code::none;
}

/// Atoms that a result gains from `terms` terms whose programs have `atoms` atoms together.
inline int scaled_atoms(Code code, int terms, int atoms)
{
    return code == Code::none ? 0 : code == Code::constant ? terms : atoms + 2 * terms;
}

/// Runs `body<true>()` if there is code, else `body<false>()`: no loop over terms tests it then.
template <class Body>
void for_code(bool coded, Body body)
{
    if (coded) {
        body.template operator()<true>();
    } else {
        body.template operator()<false>();
    }
}

/// Running sizes of a result. Most closures give back `rnnz` as an int.
struct Sizes
{
    int rncodeatom;
    int rnelem;
    long long rnnz;

    int nnz() const { return static_cast<int>(rnnz); }

    /// Counts what Result::append writes for `count` elements of `e` from element q on.
    template <class S>
    void add(const Operand<S>& e, int64_t q, bool coded, int64_t count = 1)
    {
        rnnz += e.terms(q, count);
        if (coded) rncodeatom += e.atoms(q, count);
    }

    /// Counts what Result::append_scaled writes for element q of `e`.
    template <class S>
    void add_scaled(const Operand<S>& e, int64_t q, bool coded)
    {
        const int terms = e.terms(q);
        rnnz += terms;
        if (coded) rncodeatom += scaled_atoms(Code::scaled, terms, e.atoms(q));
    }
};

/// Numbers of atoms, elements and terms of a result that have been written so far.
struct Written
{
    int codei = 0;
    int elmi = 0;
    int nnzi = 0;
};

/// An expression that is written. Entry 0 of `ptr` and of `codeptr` is the host's.
template <class S>
struct Result : Sections<ArrayOut, S>, Written
{
    using Base = Sections<ArrayOut, S>;
    using Base::cconst;
    using Base::code;
    using Base::codeptr;
    using Base::cof;
    using Base::nidxs;
    using Base::ptr;
    using Base::sp;

    Result() = default;
    Result(I32Out<S> i32, I64Out<S> i64, F64Out<S> f64, TermSections terms, CodeSections atoms = {},
           Written written = {})
        : Base(i32, i64, f64, terms, atoms), Written(written)
    {
    }

    /// For an atom whose operand means nothing: its operand slot keeps what it holds.
    void append_opcode(Opcode opcode) { code[codei++] = opcode; }

    void append_atom(int32_t opcode, double operand)
    {
        code[codei] = opcode;
        cconst[codei++] = operand;
    }

    /// The program of term t of `e`, as it is.
    void append_program(const Operand<S>& e, int64_t t)
    {
        const int64_t end = e.codeptr[t + 1];
        for (int64_t a = e.codeptr[t]; a < end; ++a) append_atom(e.code[a], e.cconst[a]);
    }

    /// Ends the program of the term that is being written, and the term.
    void close_coded_term() { codeptr[++nnzi] = codei; }

    /// The program of term t of `e`, times v.
    void append_scaled_program(const Operand<S>& e, int64_t t, double v)
    {
        append_program(e, t);
        append_atom(op_const, v);
        append_opcode(op_mul);
    }

    /// One term without a program.
    void append_term(int64_t nidx, double coefficient)
    {
        nidxs[nnzi] = nidx;
        cof[nnzi++] = coefficient;
    }

    /// Terms from which on the copy of an element repays the set-up of a vectorised loop.
    static constexpr int64_t vector_run = 8;

    /// Scaled term copy: the terms of element q of `e`, each times v.
    void append_scaled(const Operand<S>& e, int64_t q, double v, Code form)
    {
        append_scaled(e, Range{e.ptr[q], e.ptr[q + 1]}, v, form);
    }

    /// The same, each times factors[k], which is not read for an element without terms.
    void append_scaled(const Operand<S>& e, int64_t q, fragments::F64<S> factors, int64_t k,
                       Code form)
    {
        const Range terms{e.ptr[q], e.ptr[q + 1]};
        if (terms.begin < terms.end) append_scaled(e, terms, factors[k], form);
    }

    /// The same for a range of terms; `ptr` of `e` is not read.
    void append_scaled(const Operand<S>& e, Range terms, double v, Code form)
    {
        const int64_t n = terms.end - terms.begin;
        if (form == Code::none && n < vector_run) {
            for (int64_t t = terms.begin; t < terms.end; ++t) append_term(e.nidxs[t], e.cof[t] * v);
            return;
        }
        if (form == Code::constant) append_constant_programs(n);
        if (form != Code::scaled) {
            const auto to_nidxs = nidxs.from(nnzi);
            const auto to_cof = cof.from(nnzi);
            const auto from_nidxs = e.nidxs.from(terms.begin);
            const auto from_cof = e.cof.from(terms.begin);
            for (int64_t t = 0; t < n; ++t) {
                to_nidxs[t] = from_nidxs[t];
                to_cof[t] = from_cof[t] * v;
            }
            nnzi += static_cast<int>(n);
            return;
        }
        for (int64_t t = terms.begin; t < terms.end; ++t) {
            nidxs[nnzi] = e.nidxs[t];
            cof[nnzi] = e.cof[t] * v;
            append_scaled_program(e, t, v);
            close_coded_term();
        }
    }

    /// Plain term copy: the terms of `count` elements of `e` from element q on, with their programs
    /// if there is code. Neighbours' terms and atoms follow each other, so each list is one block.
    void append(const Operand<S>& e, int64_t q, bool coded, int64_t count = 1)
    {
        const Range terms{e.ptr[q], e.ptr[q + count]};
        const int64_t n = terms.end - terms.begin;
        if (n <= 0) return;
        if (coded) append_programs(e, terms);
        if (n < vector_run) {
            for (int64_t t = terms.begin; t < terms.end; ++t) append_term(e.nidxs[t], e.cof[t]);
            return;
        }
        copy_n(e.nidxs.from(terms.begin), n, nidxs.from(nnzi));
        copy_n(e.cof.from(terms.begin), n, cof.from(nnzi));
        nnzi += static_cast<int>(n);
    }

    /// The same, and ends each of the elements.
    void append_elements(const Operand<S>& e, int64_t q, bool coded, int64_t count)
    {
        if (count <= 0) return;
        append(e, q, coded, count);
        close_elements(e.ptr.from(q), count);
    }

    /// The programs of `n` terms without code that are still to be appended: each pushes 0.0.
    void append_constant_programs(int64_t n)
    {
        const auto ends = codeptr.from(nnzi);
        for (int64_t t = 1; t <= n; ++t) {
            append_atom(op_const, 0.0);
            ends[t] = codei;
        }
    }

    /// The programs of terms of `e` that are still to be appended.
    void append_programs(const Operand<S>& e, Range terms)
    {
        const Range atoms{e.codeptr[terms.begin], e.codeptr[terms.end]};
        const int moved = codei - static_cast<int>(atoms.begin);
        const auto ends = codeptr.from(nnzi - terms.begin);
        for (int64_t t = terms.begin; t < terms.end; ++t) ends[t + 1] = e.codeptr[t + 1] + moved;
        const int64_t n = atoms.end - atoms.begin;
        if (n < vector_run) {
            for (int64_t a = atoms.begin; a < atoms.end; ++a) append_atom(e.code[a], e.cconst[a]);
            return;
        }
        copy_n(e.code.from(atoms.begin), n, code.from(codei));
        copy_n(e.cconst.from(atoms.begin), n, cconst.from(codei));
        codei += static_cast<int>(n);
    }

    /// Ends `count` elements whose terms have been copied as one block; `from` is the copied
    /// expression's `ptr`, from the first of them on.
    void close_elements(fragments::I32<S> from, int64_t count)
    {
        const int moved = nnzi - from[count];
        for (int64_t i = 1; i <= count; ++i) ptr[elmi + i] = from[i] + moved;
        elmi += static_cast<int>(count);
    }

    /// Sets entry 0 of `ptr` and, if there is code, of `codeptr`.
    void start(bool coded)
    {
        ptr[0] = 0;
        if (coded) codeptr[0] = 0;
    }

    /// Ends the element that is being written.
    void close_element() { ptr[++elmi] = nnzi; }

    /// The same for a sparse result, with the element's linear index.
    void close_element(int64_t linear)
    {
        sp[elmi] = linear;
        close_element();
    }
};

/// In the body of a closure whose positions have the usual names: the operand on the w stack, the
/// result on the r stack, and both with `sp`. A result starts from the numbers of atoms, elements
/// and terms that are told, or from 0. A closure without some of the sections, or with other names,
/// names those that it has.
#define STACKED_OPERAND()                                                                          \
    ::fragments::Operand<Stride>(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base},               \
                                 {codeptr_base, code_base, cconst_base})
#define STACKED_RESULT(...)                                                                        \
    ::fragments::Result<Stride>(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base},             \
                                {rcodeptr_base, rcode_base, rcconst_base}, {__VA_ARGS__})
#define SPARSE_OPERAND()                                                                           \
    ::fragments::Operand<Stride>(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base, sp_base},      \
                                 {codeptr_base, code_base, cconst_base})
#define SPARSE_RESULT(...)                                                                         \
    ::fragments::Result<Stride>(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base, rsp_base},   \
                                {rcodeptr_base, rcode_base, rcconst_base}, {__VA_ARGS__})

/// Copies all `nnz` terms and, if there are atoms, all programs, entry 0 of `codeptr` included.
template <class S>
void copy_all_terms(const Operand<S>& e, int nnz, int ncodeatom, const Result<S>& r)
{
    copy_n(e.nidxs, nnz, r.nidxs);
    copy_n(e.cof, nnz, r.cof);
    if (ncodeatom <= 0) return;
    copy_n(e.codeptr, int64_t{nnz} + 1, r.codeptr);
    copy_n(e.code, ncodeatom, r.code);
    copy_n(e.cconst, ncodeatom, r.cconst);
}

} // namespace fragments
