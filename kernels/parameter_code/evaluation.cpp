// Running and relocating batches of programs in paired form.
//
// All programs of a batch lie in one list `code`, two words for each atom: the opcode, and the
// parameter index of an op_param or the count of an op_sum. The constant of the atom at word pos is
// consts[pos / 2].

#include "closure_frame.h"
#include "program_run.h"

namespace fragments {

/// Runs program i, the words ptr[i] up to but not including ptr[i + 1], for each i in order, and
/// adds the top of the value stack to target[dst_base + i]. Each result stays on the stack. Returns
/// the new number of values on it.
CLOSURE(290, int,
        (F64 P, I32 code, F64 consts, int dst_base, I32 ptr, int stack_base, int stack_n,
         F64Out target, F64Out xf64))
{
    const auto stack = xf64.from(stack_base);
    const auto sums = target.from(dst_base);
    for (int64_t i = 0; i < ptr.length() - 1; ++i) {
        const int64_t begin = ptr[i];
        const int64_t words = ptr[i + 1] - begin;
        const PairedProgram<Stride> program{code.from(begin), consts.from(begin / 2), words / 2};
        stack_n = run_program(program, P, stack, stack_n);
        sums[i] += stack[stack_n - 1];
    }
    return stack_n;
}

/// Adds `delta` to the word behind each op_const among the first `nword` words.
CLOSURE(289, void, (I32Out code, int delta, int nword))
{
    for (int64_t pos = 0; pos < nword; pos += 2)
        if (code[pos] == op_const) code[pos + 1] += delta;
}

} // namespace fragments
