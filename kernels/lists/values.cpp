// Vectors of values: scaled copies, and the values of parameters, read and set by their indexes.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

namespace {

/// target[i] = scale * source[i] for i below `n`.
template <class S>
void scaled_copy(double scale, F64<S> source, int64_t n, F64Out<S> target)
{
    for (int64_t i = 0; i < n; ++i) target[i] = scale * source[i];
}

} // namespace

/// scale * vval[i], or scale * uval[i], for i below `size`.
CLOSURE_AS(610, void, (F64Out new_vval, double scale, int size, F64 vval),
           scaled_copy(scale, vval, size, new_vval))
CLOSURE_AS(609, void, (F64Out new_uval, double scale, int size, F64 uval),
           scaled_copy(scale, uval, size, new_uval))

/// Sets the values of the parameters `idxs`, whose length counts; of several values for one
/// parameter the last stays.
CLOSURE_AS(102, void, (I32 idxs, F64Out param_value, F64 vals),
           scatter_n(vals, idxs.length(), idxs, param_value))

/// Reads the values of the parameters `idxs`, whose length counts.
CLOSURE_AS(101, void, (I32 idxs, F64 param_value, F64Out res),
           gather_n(param_value, idxs.length(), idxs, res))

} // namespace fragments
