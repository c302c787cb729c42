#pragma once

/// An array seen around two of its axes, which have equal extent, as a five-dimensional one with
/// subscripts (a, i, m, j, b): i and j belong to the two axes, and a, m and b run over the
/// positions of the dimensions before, between and behind them, folded into one each. Its extents
/// are dim[0] to dim[4] and its row-major strides stride[0] to stride[4]. The mirror of (a, i, m,
/// j, b) is (a, j, m, i, b), and the diagonal is i = j.

#include <array>
#include <cstdint>

#include "algorithms.h"
#include "array.h"
#include "division.h"
#include "subscripts.h"

namespace fragments {

/// Folds the extents of `axes` into dim[q], which the host has set to 1.
template <class S>
void fold_extents(I32<S> shape, Range axes, I32Out<S> dim, int q)
{
    for (int64_t k = axes.begin; k < axes.end; ++k) dim[q] *= shape[k];
}

using Extents = std::array<int64_t, 5>;

template <class S>
Extents extents(I32<S> dim)
{
    return {dim[0], dim[1], dim[2], dim[3], dim[4]};
}

struct Position
{
    int64_t a;
    int64_t i;
    int64_t m;
    int64_t j;
    int64_t b;

    template <class Strides>
    int64_t linear(Strides stride) const
    {
        return stride[0] * a + stride[1] * i + stride[2] * m + stride[3] * j + stride[4] * b;
    }
};

/// Calls `visit(position)` for the positions whose j lies in `columns(i)`, in storage order.
template <class Columns, class Visit>
void for_each_position(const Extents& dim, Columns columns, Visit visit)
{
    if (is_empty(dim[0], dim[1], dim[2], dim[4])) return;
    for (int64_t a = 0; a < dim[0]; ++a)
        for (int64_t i = 0; i < dim[1]; ++i)
            for (int64_t m = 0; m < dim[2]; ++m) {
                const Range range = columns(i);
                for (int64_t j = range.begin; j < range.end; ++j)
                    for (int64_t b = 0; b < dim[4]; ++b) visit(Position{a, i, m, j, b});
            }
}

template <class Visit>
void for_each_position(const Extents& dim, Visit visit)
{
    if (is_empty(dim[3])) return;
    for_each_position(
        dim,
        [&](int64_t) {
            return Range{0, dim[3]};
        },
        visit);
}

/// Subscript, on the axis with this stride and extent, of a linear index. All values count as
/// unsigned.
inline int64_t unsigned_subscript(int64_t linear, int64_t stride, int64_t extent)
{
    return static_cast<int64_t>(
        remainder(quotient(static_cast<uint64_t>(linear), static_cast<uint64_t>(stride)),
                  static_cast<uint64_t>(extent)));
}

} // namespace fragments
