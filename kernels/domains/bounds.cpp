// Bounds of a domain's elements, to the dense arrays of the native model: one for all, which wins
// over a list, one for each, or one for each listed element. Positions that a list doesn't name
// stay; of a position that it names twice, the last bound holds.

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

/// Scatters the lower and upper bounds of a range over the dense `bl` and `bu`: with `domscalar`
/// the first entries of `domlb` and `domub` to the first `n` positions; else without `domhassp` the
/// first `n` entries to the same positions; else all entries, as many as `domlb` has, to the
/// positions that the rows of the table `domsp` give as subscripts. These alone need the shape, of
/// `nd` dimensions, at least one, on the r stack at `shape_base`. Other positions stay.
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

/// Scatters one-sided bounds over the dense `b`: an entry of `dombnd` for each row of the table
/// `domsp`, whose first `nd` columns are the subscripts, with the strides `stride`, of its
/// position. Other positions stay.
CLOSURE(100, void, (F64Out b, F64 dombnd, I32Matrix domsp, int nd, I32 stride))
{
    for_each_listed(domsp, domsp.rows(), nd, stride,
                    [&](int64_t i, int64_t position) { b[position] = dombnd[i]; });
}

} // namespace fragments
