// Bounds of a domain's elements: one for all, one for each, or one for each listed element, to the
// dense arrays of the native model. Positions that a list doesn't name stay; of a position that it
// names twice, the last bound holds.

#include "algorithms.h"
#include "closure_frame.h"
#include "scratch.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// Calls `row(i, position)` with the dense position of each of the first `n` rows of subscripts, in
/// 32 bits.
template <class S, class Strides, class Row>
void for_each_listed(Matrix<int32_t, S> table, int64_t n, int nd, Strides strides, Row row)
{
    for (int64_t i = 0; i < n; ++i) row(i, linear_of_row(int32_t{0}, table, i, nd, strides));
}

} // namespace

/// Lower and upper bounds of a range: `n` times the same, `n` different ones, or with `domhassp`
/// the length of `domlb` different ones, at the rows of the table `domsp`. Only for these the
/// shape, of at least one dimension, is read.
CLOSURE(82, void,
        (F64Out bl, F64Out bu, bool domhassp, F64 domlb, bool domscalar, I32Matrix domsp, F64 domub,
         int nd, int n, I32 ri32, int shape_base))
{
    const auto set = [&](int64_t to, int64_t from) {
        bl[to] = domlb[from];
        bu[to] = domub[from];
    };
    if (domscalar) {
        for (int64_t i = 0; i < n; ++i) set(i, 0);
    } else if (!domhassp) {
        for (int64_t i = 0; i < n; ++i) set(i, i);
    } else {
        const Scratch<int32_t> strides(nd);
        all_row_major_strides(ri32.from(shape_base), nd, strides.data());
        for_each_listed(domsp, domlb.length(), nd, strides.data(),
                        [&](int64_t i, int64_t position) { set(position, i); });
    }
}

/// The bounds of the one-sided form, at the rows of the table.
CLOSURE(100, void, (F64Out b, F64 dombnd, I32Matrix domsp, int nd, I32 stride))
{
    for_each_listed(domsp, domsp.rows(), nd, stride,
                    [&](int64_t i, int64_t position) { b[position] = dombnd[i]; });
}

} // namespace fragments
