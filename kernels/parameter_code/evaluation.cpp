// Relocating (289) and running (290) batches of programs in paired form.
//
// All programs of a batch lie in one list `code`, two words for each atom: the opcode, and the
// parameter index of an op_param or the count of an op_sum. The constant of the atom at word pos is
// consts[pos / 2].

#include "closure_frame.h"
#include "program_run.h"

namespace fragments {

/// Adds `delta` to the word behind each op_const among the first `nword` words.
CLOSURE(289, void, (I32Out code, int delta, int nword))
{
    for (int64_t pos = 0; pos < nword; pos += 2)
        if (code[pos] == op_const) code[pos + 1] += delta;
}

/// Runs one program after the other, with `P` as the table of parameter values: program i is the
/// words of `code` from ptr[i] up to but not including ptr[i + 1], which are even. Adds the top of
/// the value stack, at `stack_base` of `xf64`, to target[dst_base + i]; each program's value stays
/// on the stack, and the stack needs room for them and for the atoms of a program. Returns
/// `stack_n`, the number of values on it.
CLOSURE(290, int,
        (F64 P, I32 code, F64 consts, int dst_base, I32 ptr, int stack_base, int stack_n,
         F64Out target, F64Out xf64))
{
    const auto stack = xf64.from(stack_base);
    const auto sums = target.from(dst_base);
    for (int64_t i = 0; i < ptr.length() - 1; ++i) {
        const int64_t begin = ptr[i];
        const int64_t words = ptr[i + 1] - begin;
        const PairedProgram<Stride> program{code.from(begin), consts.from(begin / 2),
                                            (words + 1) / 2};
        stack_n = run_program(program, P, stack, stack_n);
        sums[i] += stack[stack_n - 1];
    }
    return stack_n;
}

} // namespace fragments
