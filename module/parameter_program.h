#pragma once

/// Parameter programs: short postfix programs that compute the part of a coefficient that depends
/// on parameters. An atom is an opcode and an operand; a well-formed program pushes one value, and
/// needs at most one slot of the value stack for each of its atoms.

#include <cstdint>

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

} // namespace fragments
