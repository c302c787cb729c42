#pragma once

/// The form that all products with parameters give a term: coefficient 0 and a program for the
/// operand's coefficient times the parameter.

#include "stacked_expression.h"

namespace fragments {

/// Appends the programs of terms t of `e` from `begin` up to but not including `end`, each times
/// the parameter with index `param`, and closes the terms: (op_const, cof[t]), the program and
/// op_add if the operand has code, (op_param, param), op_mul. Variable index and coefficient are
/// the caller's.
template <class S>
void append_parameter_programs(Result<S>& r, const Operand<S>& e, int64_t begin, int64_t end,
                               bool coded, int param)
{
    for (int64_t t = begin; t < end; ++t) {
        r.append_atom(op_const, e.cof[t]);
        if (coded) {
            r.append_program(e, t);
            r.append_opcode(op_add);
        }
        r.append_atom(op_param, param);
        r.append_opcode(op_mul);
        r.close_coded_term();
    }
}

} // namespace fragments
