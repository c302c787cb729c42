#pragma once

/// The lower triangle of a symmetric matrix of dimension d in d(d + 1)/2 slots: the slot of the
/// entry (row, column), row >= column.

#include <cstdint>

namespace fragments {

/// Column by column: (0,0), (1,0), ..., (d-1,0), (1,1), (2,1), ...
inline int64_t column_packed(int64_t row, int64_t column, int64_t dim)
{
    return column * (2 * dim - 1 - column) / 2 + row;
}

/// Row by row: (0,0), (1,0), (1,1), (2,0), ...
inline int64_t row_packed(int64_t row, int64_t column)
{
    return row * (row + 1) / 2 + column;
}

} // namespace fragments
