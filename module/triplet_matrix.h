#pragma once

/// Matrices as triplets: parallel lists of row, column and value. What is ordered is so strictly by
/// row and then column.

#include <tuple>

#include "array.h"

namespace fragments {

/// Whether some entry lies outside md0 x md1.
template <class S>
bool has_bad_entry(int md0, int md1, int64_t mnnz, I32<S> msubi, I32<S> msubj)
{
    for (int64_t k = 0; k < mnnz; ++k)
        if (msubi[k] < 0 || msubi[k] >= md0 || msubj[k] < 0 || msubj[k] >= md1) return true;
    return false;
}

/// Whether some entry doesn't come strictly behind the one before it.
template <class S>
bool has_bad_order(int64_t mnnz, I32<S> msubi, I32<S> msubj)
{
    for (int64_t k = 0; k < mnnz - 1; ++k)
        if (msubi[k + 1] < msubi[k] || (msubi[k + 1] == msubi[k] && msubj[k + 1] <= msubj[k]))
            return true;
    return false;
}

/// The flags (badidx, badorder) once both tests have run, whatever the other finds. A flag that is
/// set stays set.
template <class S>
std::tuple<bool, bool> test_independently(bool badidx, bool badorder, int md0, int md1,
                                          int64_t mnnz, I32<S> msubi, I32<S> msubj)
{
    return {badidx || has_bad_entry(md0, md1, mnnz, msubi, msubj),
            badorder || has_bad_order(mnnz, msubi, msubj)};
}

/// The entries of a `rows` x `columns` matrix to triplets, row by row, zeros too. Returns how many.
template <class S>
int64_t dense_to_triplets(int rows, int columns, Matrix<double, S> matrix, I32Out<S> subi,
                          I32Out<S> subj, F64Out<S> val)
{
    int64_t k = 0;
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < columns; ++j, ++k) {
            subi[k] = i;
            subj[k] = j;
            val[k] = matrix(i, j);
        }
    }
    return k;
}

/// Triplets into a row-major matrix of `columns` columns: matrix[subi[t] * columns + subj[t]] =
/// val[t] for the first `n`. Of several entries for one place the last stays.
template <class S>
void scatter_triplets(int64_t n, I32<S> subi, I32<S> subj, F64<S> val, int columns,
                      F64Out<S> matrix)
{
    for (int64_t t = 0; t < n; ++t) matrix[int64_t{subi[t]} * columns + subj[t]] = val[t];
}

} // namespace fragments
