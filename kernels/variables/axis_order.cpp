// The dimensions of a variable in another order: transposition of a matrix, permutation of axes.
// Index lists and patterns are those of slices.cpp.

#include "algorithms.h"
#include "closure_frame.h"
#include "scratch.h"

namespace fragments {

namespace {

/// Dense matrix of `shape`, row-major, read column by column.
template <class S>
void transpose_dense(I64<S> list, I32<S> shape, I64Out<S> transposed)
{
    int64_t pos = 0;
    const int64_t columns = shape[1];
    for (int64_t j = 0; j < columns; ++j) {
        const int64_t rows = shape[0];
        for (int64_t i = 0; i < rows; ++i) transposed[pos++] = list[i * columns + j];
    }
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
        n, [&](int64_t t) { return sparsity[t] % columns; }, ptr);
    running_sum(ptr, columns);
    for (int64_t t = 0; t < n; ++t) {
        const int64_t v = sparsity[t];
        const int64_t column = v % columns;
        const int32_t q = ptr[column]++;
        transposed[q] = list[t];
        sp[q] = column * rows + v / columns;
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

/// Transposition of a matrix, in as many steps as elements are stored, and for a sparse one as many
/// more as there are columns. `sp` is written only with a pattern, and ascends as `sparsity` does.
CLOSURE(170, void, (I64 basevar_nativeidxs, I64Out idxs, I32 shape, I64Out sp, I64 sparsity))
{
    if (sparsity.given())
        transpose_sparse(basevar_nativeidxs, sparsity, shape, idxs, sp);
    else
        transpose_dense(basevar_nativeidxs, shape, idxs);
}

/// The `n` indexes of a dense variable, each at its place in the permuted shape.
CLOSURE(208, void,
        (I64 nativeidxs, int nd, int n, I32 perm, I64 pstrides, I64Out residxs, I32 shape))
{
    for_each_permuted(nd, n, perm, pstrides, shape,
                      [&](int64_t t, int32_t q) { residxs[q] = nativeidxs[t]; });
}

/// The place of each of the first `n` positions in the permuted shape.
CLOSURE(209, void, (int nd, int n, I32 perm, I64 pstrides, I64Out ressp, I32 shape))
{
    for_each_permuted(nd, n, perm, pstrides, shape, [&](int64_t t, int32_t q) { ressp[t] = q; });
}

} // namespace fragments
