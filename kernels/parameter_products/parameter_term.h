#pragma once

/// The form that all products with parameters give a term: coefficient 0 and a program for the
/// operand's coefficient times the parameter. Whether the operand has code is a constant, which
/// for_code gives.

#include <cstdint>

#include "algorithms.h"
#include "stacked_expression.h"

namespace fragments {

/// Appends the programs of terms of `e`, each times the parameter with index `param`, and closes
/// the terms: (op_const, cof[t]), the program and op_add if the operand has code, (op_param,
/// param), op_mul. Variable index and coefficient are the caller's.
template <bool coded, class S>
void append_parameter_programs(Result<S>& r, const Operand<S>& e, Range terms, int param)
{
    Result<S> to = r; // local, so that its counters stay in registers through all writes
    for (int64_t t = terms.begin; t < terms.end; ++t) {
        to.append_atom(op_const, e.cof[t]);
        if constexpr (coded) {
            to.append_program(e, t);
            to.append_opcode(op_add);
        }
        to.append_atom(op_param, param);
        to.append_opcode(op_mul);
        to.close_coded_term();
    }
    static_cast<Written&>(r) = to;
}

/// Which sections the emission of a term writes beside its program.
enum class Emission {
    variable,   ///< `nidxs`; the host has had `cof` filled with 0
    coefficient ///< `nidxs` and `cof`
};

/// Appends the terms of element q of `e`, each times the parameter params[a], which is not read for
/// an element without terms.
template <bool coded, Emission emission = Emission::coefficient, class S>
void append_parameter_terms(Result<S>& r, const Operand<S>& e, int64_t q, I32<S> params, int64_t a)
{
    const Range terms{e.ptr[q], e.ptr[q + 1]};
    const int64_t n = terms.end - terms.begin;
    if (n <= 0) return;
    copy_n(e.nidxs.from(terms.begin), n, r.nidxs.from(r.nnzi));
    if constexpr (emission == Emission::coefficient) fill_n(r.cof.from(r.nnzi), n, 0.0);
    append_parameter_programs<coded>(r, e, terms, params[a]);
}

/// Counts what append_parameter_terms writes for element q of `e`.
template <class S>
void add_parameter_terms(Sizes& sizes, const Operand<S>& e, int64_t q, bool coded)
{
    const int terms = e.terms(q);
    sizes.rnnz += terms;
    sizes.rncodeatom += coded ? e.atoms(q) + 4 * terms : 3 * terms;
}

} // namespace fragments
