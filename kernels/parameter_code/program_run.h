#pragma once

/// Running parameter programs, in both of the forms that the host stores them in.

#include <cstdint>
#include <limits>

#include "array.h"
#include "parameter_program.h"

namespace fragments {

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
int run_program(Program program, F64<S> parameters, F64Out<S> stack, int n)
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
