#pragma once

/// Operands in a list: their headers arrive as arrays with one entry for each operand, and all
/// their sections lie on the w stack.

#include "array.h"
#include "stacked_expression.h"

namespace fragments {

/// Whether `anycode`, or some operand has code.
template <class S>
bool has_code(bool anycode, int n, I32<S> ncodeatom)
{
    for (int k = 0; !anycode && k < n; ++k) anycode = ncodeatom[k] > 0;
    return anycode;
}

template <class S>
struct OperandList
{
    I32<S> cconst, code, codeptr, cof_base, ncodeatom, nidxs_base, ptr_base;
    F64<S> wf64;
    I32<S> wi32;
    I64<S> wi64;

    /// `ptr` of operand k.
    I32<S> ptr(int k) const { return wi32.from(ptr_base[k]); }

    /// Operand k, which has terms: of others only `ptr_base` may be read.
    Operand<S> operand(int k, bool coded) const
    {
        Operand<S> e(wi32, wi64, wf64, {ptr_base[k], nidxs_base[k], cof_base[k]});
        if (coded) e.set_code(wi32, wf64, {codeptr[k], code[k], cconst[k]});
        return e;
    }
};

/// In the body of a closure whose lists have the usual names.
#define OPERAND_LIST()                                                                             \
    ::fragments::OperandList<Stride>                                                               \
    {                                                                                              \
        cconst, code, codeptr, cof_base, ncodeatom, nidxs_base, ptr_base, wf64, wi32, wi64         \
    }

} // namespace fragments
