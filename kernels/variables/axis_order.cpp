// The dimensions of a variable in another order: transposition of a matrix, permutation of axes.
// Index lists and patterns are those of slices.cpp.

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "scratch.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// Dense matrix of `shape`, row-major, read column by column.
template <class S>
void transpose_dense(I64<S> list, I32<S> shape, I64Out<S> transposed)
{
    const int64_t rows = shape[0];
    const int64_t columns = shape[1];
    if (is_empty(rows, columns)) return;
    int64_t pos = 0;
    for (int64_t j = 0; j < columns; ++j)
        for (int64_t i = 0; i < rows; ++i) transposed[pos++] = list[i * columns + j];
}

/// Counting sort of the pattern by column, stable, so that rows ascend within a column.
template <class S>
void transpose_sparse(I64<S> list, I64<S> sparsity, I32<S> shape, I64Out<S> transposed,
                      I64Out<S> sp)
{
    const int64_t rows = shape[0];
    const int64_t columns = shape[1];
    const int64_t n = sparsity.length();
    const Scratch<int32_t> counts(columns + 1);
    const I32Out<Contiguous> ptr(counts.data(), {}, counts.length(), "scratch");
    count_keys(
        n, [&](int64_t t) { return remainder(sparsity[t], columns); }, ptr);
    running_sum(ptr, columns);
    for (int64_t t = 0; t < n; ++t) {
        const int64_t v = sparsity[t];
        const int64_t column = remainder(v, columns);
        const int32_t q = ptr[column]++;
        transposed[q] = list[t];
        sp[q] = column * rows + quotient(v, columns);
    }
}

/// Calls `place(t, q)` for the positions t below `n` of a shape, with q the linear index of t when
/// dimension perm[k] becomes dimension k, of stride pstrides[k], in 32 bits. An odometer steps
/// through the subscripts.
template <class S, class Place>
void for_each_permuted(int nd, int n, I32<S> perm, I64<S> pstrides, I32<S> shape, Place place)
{
    const Scratch<int32_t> subscripts(nd);
    for (int64_t t = 0; t < n; ++t) {
        int32_t q = 0;
        for (int64_t k = 0; k < nd; ++k)
            q += subscripts[perm[k]] * static_cast<int32_t>(pstrides[k]);
        place(t, q);
        for (int64_t k = nd - 1; k >= 0 && ++subscripts[k] >= shape[k]; --k) subscripts[k] = 0;
    }
}

} // namespace

/// Transposes a matrix of `shape`: its native indexes go to `idxs`, and for a sparse one, which has
/// a pattern `sparsity`, the linear indexes in the transposed shape to `sp`. That ascends strictly
/// if `sparsity` does; for a dense matrix it isn't touched. Takes as many steps as elements are
/// stored, and for a sparse matrix as many more as there are columns.
CLOSURE(170, void, (I64 basevar_nativeidxs, I64Out idxs, I32 shape, I64Out sp, I64 sparsity))
{
    if (sparsity.given())
        transpose_sparse(basevar_nativeidxs, sparsity, shape, idxs, sp);
    else
        transpose_dense(basevar_nativeidxs, shape, idxs);
}

/// Permutes the dimensions of a dense variable of `n` positions and `nd` dimensions, of which
/// perm[k] becomes dimension k: each native index goes to its place, in 32 bits, by the strides
/// `pstrides` of the result.
CLOSURE(208, void,
        (I64 nativeidxs, int nd, int n, I32 perm, I64 pstrides, I64Out residxs, I32 shape))
{
    for_each_permuted(nd, n, perm, pstrides, shape,
                      [&](int64_t t, int32_t q) { residxs[q] = nativeidxs[t]; });
}

/// The places, in 32 bits, that the first `n` positions of a shape of `nd` dimensions get when
/// dimension perm[k] becomes dimension k, of stride pstrides[k]: ressp[t] is that of position t.
CLOSURE(209, void, (int nd, int n, I32 perm, I64 pstrides, I64Out ressp, I32 shape))
{
    for_each_permuted(nd, n, perm, pstrides, shape, [&](int64_t t, int32_t q) { ressp[t] = q; });
}

} // namespace fragments
