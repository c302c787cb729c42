// Reading a solution back in the host's order of elements.
//
// The native solution is a set of flat arrays: by scalar variable the levels `xx` and the duals
// `slx`, `sux`, `yx` (lower bound, upper bound, combined), by linear row likewise `xc`, `slc`,
// `suc`, `y`; by slot of the conic blocks `accx`, `accy`; by semidefinite element `barx`, `bars`.
// A block's slots begin at accptr[block]. The sign of an element's native index tells where its
// value lies: arrays that no index of the list leads to are not touched.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

namespace {

/// res[pos + i] = value(nativeidxs[i]) for i below `n`.
template <class T, class S, class Value>
void read_values(int n, Array<T, S> nativeidxs, int pos, F64Out<S> res, Value value)
{
    const auto section = res.from(pos);
    for (int64_t i = 0; i < n; ++i) section[i] = value(nativeidxs[i]);
}

/// Where the conic rows lie in the blocks, by row number, and the factor of each.
template <class S>
struct ConicRows
{
    I32<S> accptr, accid, ofs;
    F64<S> scale;

    double value(F64<S> slots, int row) const
    {
        return slots[accptr[accid[row]] + ofs[row]] * scale[row];
    }
};

/// A row's value from `linear`, or from the slots of the blocks.
template <class S>
void read_row_values(const ConicRows<S>& rows, F64<S> slots, int n, I32<S> nativeidxs, int pos,
                     F64Out<S> res, F64<S> linear)
{
    read_values(n, nativeidxs, pos, res,
                [&](int code) { return code >= 0 ? linear[code] : rows.value(slots, ~code); });
}

/// Combined dual: that of the lower bound less that of the upper one.
template <class S>
void combine_duals(int n, F64<S> lower, F64<S> upper, F64Out<S> combined)
{
    for (int64_t i = 0; i < n; ++i) combined[i] = lower[i] - upper[i];
}

/// Zeroes the entries `first` up to but not including `n` of each array. Returns `n`.
template <class... Arrays>
int zero_tail(int first, int n, Arrays... arrays)
{
    (fill_n(arrays.from(first), int64_t{n} - first, 0.0), ...);
    return n;
}

} // namespace

/// Levels of the `n` elements of a constraint, which `nativeidxs` lists by row code, to `res` from
/// slot `pos` on: of linear rows from `xc`, of conic ones that of their slot in `accx` times their
/// scale.
CLOSURE(15, void,
        (I32 accptr, F64 accx, I32 acon_elm_accid, I32 acon_elm_ofs, F64 acon_elm_scale, int n,
         I32 nativeidxs, int pos, F64Out res, F64 xc))
{
    const ConicRows<Stride> rows{accptr, acon_elm_accid, acon_elm_ofs, acon_elm_scale};
    read_row_values(rows, accx, n, nativeidxs, pos, res, xc);
}

/// Duals of the `n` elements of a constraint, which `nativeidxs` lists by row code, to `res` from
/// slot `pos` on: of linear rows from `y`, of conic ones that of their slot in `accy` times their
/// scale.
CLOSURE(16, void,
        (I32 accptr, F64 accy, I32 acon_elm_accid, I32 acon_elm_ofs, F64 acon_elm_scale, int n,
         I32 nativeidxs, int pos, F64Out res, F64 y))
{
    const ConicRows<Stride> rows{accptr, acon_elm_accid, acon_elm_ofs, acon_elm_scale};
    read_row_values(rows, accy, n, nativeidxs, pos, res, y);
}

/// Levels of the `n` elements of a variable, from `xx` to `res` from slot `pos` on. Elements that
/// aren't scalar read as 0.0.
CLOSURE(17, void, (int n, I64 nativeidxs, int pos, F64Out res, F64 xx))
{
    read_values(n, nativeidxs, pos, res, [&](int64_t c) { return c > 0 ? xx[c] : 0.0; });
}

/// Levels of the `n` elements of a variable with their signs flipped, from `xx` to `res` from slot
/// `pos` on. Elements that aren't scalar read as +0.0.
CLOSURE(18, void, (int n, I64 nativeidxs, int pos, F64Out res, F64 xx))
{
    read_values(n, nativeidxs, pos, res, [&](int64_t c) { return c > 0 ? -xx[c] : 0.0; });
}

/// Levels of the `n` elements of a variable, to `res` from slot `pos` on: of scalar ones from `xx`,
/// of semidefinite ones from `barx`, and 0.0 for index 0.
CLOSURE(19, void, (F64 barx, int n, I64 nativeidxs, int pos, F64Out res, F64 xx))
{
    read_values(n, nativeidxs, pos, res, [&](int64_t c) {
        return c > 0 ? xx[c] : c < 0 ? barx[~c] : 0.0;
    });
}

/// Duals of the `n` elements of a variable, to `res` from slot `pos` on: of scalar ones that of
/// their slot in `accy` if they are in a conic block, else from `yx`, of semidefinite ones from
/// `bars`, and 0.0 for index 0.
CLOSURE(20, void,
        (I32 accptr, F64 accy, F64 bars, int n, I64 nativeidxs, int pos, F64Out res,
         I32 var_elm_acc_idx, I32 var_elm_acc_ofs, F64 yx))
{
    read_values(n, nativeidxs, pos, res, [&](int64_t c) {
        if (c <= 0) return c < 0 ? bars[~c] : 0.0;
        const int block = var_elm_acc_idx[c];
        return block >= 0 ? accy[accptr[block] + var_elm_acc_ofs[c]] : yx[c];
    });
}

/// `count` plus the entries of `nativeidxs` that aren't negative.
CLOSURE(21, int, (I64 nativeidxs, int count))
{
    for (int64_t i = 0; i < nativeidxs.length(); ++i) count += nativeidxs[i] >= 0 ? 1 : 0;
    return count;
}

/// Keeps the `values` of the elements whose index isn't negative, in their order, in `val` from
/// slot `pos` on, with the indexes, narrowed to 32 bits, beside them in `subj`. Returns the slot
/// behind the last.
CLOSURE(22, int, (int pos, I64 nativeidxs, I32Out subj, F64Out val, F64 values))
{
    for (int64_t i = 0; i < nativeidxs.length(); ++i) {
        const int64_t index = nativeidxs[i];
        if (index < 0) continue;
        subj[pos] = static_cast<int32_t>(index);
        val[pos++] = values[i];
    }
    return pos;
}

/// Combined duals of the first `n` variables or rows: that of the lower bound less that of the
/// upper.
CLOSURE_AS(23, void, (int n, F64 slx, F64 sux, F64Out yx), combine_duals(n, slx, sux, yx))
CLOSURE_AS(24, void, (int n, F64 slc, F64 suc, F64Out y), combine_duals(n, slc, suc, y))

/// Zeroes the tail of a set of solution arrays, from `first` up to but not including `n`. Returns
/// `n`.
CLOSURE_AS(130, int, (int n, F64Out slx, int first, F64Out sux, F64Out xx, F64Out yx),
           zero_tail(first, n, slx, sux, xx, yx))
CLOSURE_AS(132, int, (int n, F64Out slc, int first, F64Out suc, F64Out xc, F64Out y),
           zero_tail(first, n, slc, suc, xc, y))

/// Zeroes the tail of a set of solution arrays, from `first` up to but not including `n`.
CLOSURE_AS(131, void, (int n, F64Out slx, int first, F64Out sux, F64Out xx),
           static_cast<void>(zero_tail(first, n, slx, sux, xx)))
CLOSURE_AS(133, void, (int n, F64Out slc, int first, F64Out suc, F64Out xc, F64Out y),
           static_cast<void>(zero_tail(first, n, slc, suc, xc, y)))

} // namespace fragments
