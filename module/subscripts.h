#pragma once

/// Linear indexes and subscripts of row-major arrays, and boxes of subscripts. The last dimension
/// is the fastest. Divisions are signed and in 64 bits.

#include <cstdint>

#include "algorithms.h"
#include "array.h"
#include "division.h"

namespace fragments {

/// Whether an array of these extents has no position. Nested loops over one end there first: else
/// outer loops that a wrong count makes long would run without ever reaching an element.
template <class... Extents>
bool is_empty(Extents... extents)
{
    return ((extents <= 0) || ...);
}

/// The subscript, in a dimension of this stride and extent, of a linear index.
inline int64_t subscript(int64_t linear, int64_t stride, int64_t extent)
{
    // Most arrays have less than 2^32 positions, and the machine divides 32-bit numbers faster.
    if (static_cast<uint64_t>(linear | stride | extent) >> 32 == 0)
        return remainder(quotient(static_cast<uint32_t>(linear), static_cast<uint32_t>(stride)),
                         static_cast<uint32_t>(extent));
    return remainder(quotient(linear, stride), extent);
}

/// How many positions from `linear` on, at least one, have the same subscript in a dimension of
/// this stride. Of a stride that no array has, that is one.
inline int64_t same_subscript(int64_t linear, int64_t stride)
{
    return stride > 0 ? stride - linear % stride : 1;
}

/// The subscripts of a linear index in all `nd` dimensions, each by its own stride and extent.
template <class S, class Subscripts>
void split_linear(int64_t linear, I64<S> strides, I32<S> shape, int64_t nd, Subscripts subscripts)
{
    for (int64_t k = 0; k < nd; ++k)
        subscripts[k] = static_cast<int32_t>(subscript(linear, strides[k], shape[k]));
}

/// The subscripts of a linear index in dimensions `n` - 1 down to 1, by dividing by one extent
/// after the other. Returns what is left, the subscript in dimension 0.
template <class S, class Subscripts>
int64_t unravel(int64_t linear, I32<S> shape, int64_t n, Subscripts subscripts)
{
    for (int64_t k = n - 1; k > 0; --k) {
        subscripts[k] = static_cast<int32_t>(remainder(linear, shape[k]));
        linear = quotient(linear, shape[k]);
    }
    return linear;
}

/// Whether a subscript lies outside dimension k; a negative one does in any shape.
template <class S>
bool out_of_range(int subscript, I32<S> shape, int64_t k)
{
    return subscript < 0 || subscript >= shape[k];
}

/// Whether some subscript of row `i` of the table is out of range; the first `nd` columns count.
template <class S>
bool row_out_of_range(Matrix<int32_t, S> table, int64_t i, int nd, I32<S> shape)
{
    for (int k = 0; k < nd; ++k)
        if (out_of_range(table(i, k), shape, k)) return true;
    return false;
}

/// `flag`, or whether that holds for some row of the table.
template <class S>
bool any_out_of_range(bool flag, Matrix<int32_t, S> table, int nd, I32<S> shape)
{
    for (int i = 0; !flag && i < table.rows(); ++i) flag = row_out_of_range(table, i, nd, shape);
    return flag;
}

/// The same for plain indexes, all of dimension 0.
template <class S>
bool any_out_of_range(bool flag, I32<S> indexes, I32<S> shape)
{
    for (int64_t i = 0; !flag && i < indexes.length(); ++i)
        flag = out_of_range(indexes[i], shape, 0);
    return flag;
}

/// A row of a table of subscripts as a list.
template <class S>
struct TableRow
{
    Matrix<int32_t, S> table;
    int64_t row;

    int32_t operator[](int64_t k) const { return table(row, k); }
};

/// `initial` plus the linear index of row `i` of the table, in the type of `initial`; the first
/// `nd` columns count.
template <class Sum, class S, class Strides>
Sum linear_of_row(Sum initial, Matrix<int32_t, S> table, int64_t i, int nd, Strides strides)
{
    return dot_n(initial, TableRow<S>{table, i}, strides, nd);
}

/// Adds the linear index of each of the first `n` rows of the table to its entry of `sp`.
template <class S>
void add_linear_indexes(int n, int nd, I64<S> strides, I64Out<S> sp, Matrix<int32_t, S> table)
{
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < nd; ++k) sp[i] += table(i, k) * strides[k];
}

/// The entry of `list` at each row of the table.
template <class T, class S>
void pick_rows(Array<T, S> list, Matrix<int32_t, S> table, int nd, I64<S> strides,
               ArrayOut<T, S> target)
{
    for (int i = 0; i < table.rows(); ++i)
        target[i] = list[linear_of_row(int64_t{0}, table, i, nd, strides)];
}

/// Whether first[k] <= subscripts[k] < last[k] in all `nd` dimensions, in ascending order up to the
/// first that says no.
template <class S, class Subscripts>
bool in_box(Subscripts subscripts, I32<S> first, I32<S> last, int64_t nd)
{
    for (int64_t k = 0; k < nd; ++k)
        if (subscripts[k] < first[k] || subscripts[k] >= last[k]) return false;
    return true;
}

/// Calls `element(k, subscripts)` for each of `n` elements that lies in the box, in ascending
/// order; subscripts_of(k) gives the element's subscripts. Without dimensions all lie in it, and
/// subscripts_of has none to look at.
template <class S, class SubscriptsOf, class Element>
void for_each_in_box(I32<S> first, I32<S> last, int64_t nd, int64_t n, SubscriptsOf subscripts_of,
                     Element element)
{
    for (int64_t k = 0; k < n; ++k) {
        const auto subscripts = subscripts_of(k);
        if (in_box(subscripts, first, last, nd)) element(k, subscripts);
    }
}

/// `initial` times the extents of the box, in 32 bits.
template <class S>
int box_size(int initial, I32<S> first, I32<S> last, int64_t nd)
{
    for (int64_t k = 0; k < nd; ++k) initial *= last[k] - first[k];
    return initial;
}

/// The linear index, by the strides of a box, of a position in it: counted from `first`.
template <class S, class Subscripts>
int64_t linear_in_box(Subscripts subscripts, I32<S> first, I64<S> strides, int64_t nd)
{
    int64_t linear = 0;
    for (int64_t k = 0; k < nd; ++k) linear += (int64_t{subscripts[k]} - first[k]) * strides[k];
    return linear;
}

/// The linear index that a position of an array gets where the array is part of a longer one: from
/// `offset` on along a dimension that has extent `d1` here and `rd1` there, with `d2` positions
/// behind it.
inline int64_t linear_in_longer(int64_t linear, int64_t d1, int64_t d2, int64_t offset, int64_t rd1)
{
    return linear + (offset + quotient(linear, d1 * d2) * (rd1 - d1)) * d2;
}

/// Whether some of the first `n` linear indexes lies outside a shape of `size` positions.
template <class S>
bool has_bad_index(int64_t size, I64<S> list, int64_t n)
{
    for (int64_t k = 0; k < n; ++k)
        if (list[k] < 0 || list[k] >= size) return true;
    return false;
}

} // namespace fragments
