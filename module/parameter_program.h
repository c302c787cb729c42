#pragma once

/// Parameter programs: short postfix programs that compute the part of a coefficient that depends
/// on parameters. An atom is an opcode and an operand; a well-formed program pushes one value, and
/// needs at most one slot of the value stack for each of its atoms.

#include <cstdint>
#include <limits>

#include "array.h"

namespace fragments {

enum Opcode : int32_t {
    op_nop = 0,
    op_param = 1,  ///< pushes the parameter with the operand as its index
    op_const = 2,  ///< pushes the operand
    op_add = 3,    ///< pops two values, pushes their sum
    op_neg = 4,    ///< flips the sign bit of the top value
    op_mul = 5,    ///< pops two values, pushes their product
    op_inv = 6,    ///< replaces the top value by its reciprocal
    op_sum = 8,    ///< pops as many values as the operand says, pushes their sum
    op_folded = 10 ///< no effect; the only atom of a term whose program folded to a constant
};

/// Truncates toward zero; what doesn't fit, and a NaN, gives the smallest value.
inline int32_t truncate_to_i32(double value)
{
    constexpr double lowest = std::numeric_limits<int32_t>::min();
    return value > lowest - 1.0 && value < -lowest ? static_cast<int32_t>(value)
                                                   : std::numeric_limits<int32_t>::min();
}

/// A program in split form: opcodes and operands side by side. An integer among the operands is a
/// whole-numbered double.
template <class S>
struct SplitProgram
{
    I32<S> code;
    F64<S> cconst;
    int64_t size;

    int32_t opcode(int64_t a) const { return code[a]; }
    int32_t integer(int64_t a) const { return truncate_to_i32(cconst[a]); }
    double constant(int64_t a) const { return cconst[a]; }
};

/// A program in paired form: two words for each atom, its opcode and its integer operand, and the
/// constants beside them, one slot for each atom.
template <class S>
struct PairedProgram
{
    I32<S> code;
    F64<S> consts;
    int64_t size;

    int32_t opcode(int64_t a) const { return code[2 * a]; }
    int32_t integer(int64_t a) const { return code[2 * a + 1]; }
    double constant(int64_t a) const { return consts[a]; }
};

/// Runs a program on the value stack, which holds `n` values; returns how many it holds then. Atoms
/// without effect are passed over, and nothing is tested.
template <class Program, class S>
int run_program(Program program, F64<S> parameters, F64<S> stack, int n)
{
    for (int64_t a = 0; a < program.size; ++a) {
        switch (program.opcode(a)) {
        case op_param:
            stack[n++] = parameters[program.integer(a)];
            break;
        case op_const:
            stack[n++] = program.constant(a);
            break;
        case op_add:
            stack[n - 2] = stack[n - 1] + stack[n - 2];
            --n;
            break;
        case op_neg:
            stack[n - 1] = -stack[n - 1];
            break;
        case op_mul:
            stack[n - 2] = stack[n - 1] * stack[n - 2];
            --n;
            break;
        case op_inv:
            stack[n - 1] = 1.0 / stack[n - 1];
            break;
        case op_sum: {
            double sum = 0.0;
            for (int32_t left = program.integer(a); left > 0; --left) sum += stack[--n];
            stack[n++] = sum;
            break;
        }
        default:
            break;
        }
    }
    return n;
}

} // namespace fragments
