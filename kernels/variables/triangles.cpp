// Symmetric pairs of dimensions: the lower triangle taken out of a variable, and the full square of
// one that stores the triangle alone.
//
// A triangle is packed row by row. Around the pair a shape is seen as (pre, dim, mid, dim2, post),
// with the extents of the dimensions before, between and behind folded into one each. Index lists
// and patterns are those of slices.cpp.

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "subscripts.h"
#include "triangle_packing.h"

namespace fragments {

namespace {

/// The subscripts (i, j) of a linear index in the two dimensions of a pair.
struct Pair
{
    int64_t i;
    int64_t j;

    Pair(int64_t linear, int stride_i, int dim_i, int stride_j, int dim_j)
        : i(subscript(linear, stride_i, dim_i)), j(subscript(linear, stride_j, dim_j))
    {
    }

    bool is_lower() const { return j <= i; }
};

/// Copies a run of `n` entries, at least one, to the places from `pos` on. Returns the place behind
/// it.
template <class S>
int append_run(I64<S> source, int64_t n, I64Out<S> target, int pos)
{
    copy_n(source, n, target.from(pos));
    return pos + static_cast<int>(n);
}

} // namespace

/// Full square, of shape (`nouter`, `dim`, `dim`, `inner`), of a dense variable of shape (`nouter`,
/// `trisize`, `inner`) whose middle dimension holds a lower triangle row by row: mirrored positions
/// get the same native index. Written to `nidxs` from slot `pos` on; returns the slot behind it.
CLOSURE(151, int,
        (I64 basevar_nativeidxs, int dim, int nouter, int trisize, int inner, I64Out nidxs,
         int pos))
{
    if (is_empty(nouter, dim, inner)) return pos;
    for (int64_t a = 0; a < nouter; ++a) {
        const auto triangle = basevar_nativeidxs.from(trisize * a * inner);
        for (int64_t i = 0; i < dim; ++i) {
            pos = append_run(triangle.from(row_packed(i, 0) * inner), (i + 1) * inner, nidxs, pos);
            for (int64_t j = i + 1; j < dim; ++j)
                pos = append_run(triangle.from(row_packed(j, i) * inner), inner, nidxs, pos);
        }
    }
    return pos;
}

/// Lower triangle of a dense variable of shape (`pre`, `dim`, `mid`, `dim2`, `post`): that of shape
/// (`pre`, triangle, `mid`, `post`), row by row, to `nidxs` from slot `pos` on. Returns the slot
/// behind it.
CLOSURE(159, int,
        (I64 basevar_nativeidxs, int pre, int dim, int mid, int dim2, int post, int pos,
         I64Out nidxs))
{
    if (is_empty(pre, dim, mid, post)) return pos;
    for (int64_t a = 0; a < pre; ++a)
        for (int64_t i = 0; i < dim; ++i) {
            const auto row = basevar_nativeidxs.from((a * dim + i) * mid * dim2 * post);
            if (mid == 1) {
                pos = append_run(row, (i + 1) * post, nidxs, pos);
                continue;
            }
            for (int64_t j = 0; j <= i; ++j)
                for (int64_t m = 0; m < mid; ++m)
                    pos = append_run(row.from((m * dim2 + j) * post), post, nidxs, pos);
        }
    return pos;
}

/// Sizes the lower triangle of a sparse variable: `count` plus the entries of the pattern
/// `sparsity` with a column subscript, of stride `stride_j` and extent `dim2`, that isn't above the
/// row subscript, of `stride_i` and `dim`.
CLOSURE(163, int, (int dim, int dim2, int count, int stride_i, int stride_j, I64 sparsity))
{
    for (int64_t t = 0; t < sparsity.length(); ++t)
        if (Pair(sparsity[t], stride_i, dim, stride_j, dim2).is_lower()) ++count;
    return count;
}

/// Writes the lower triangle of a sparse variable of shape (pre, `dim`, `mid`, `dim2`, `post`),
/// with the strides `st_pre` to `st_post`, from slot `pos` on: native indexes to `rnidxs`, and to
/// `rsp` the linear indexes in the shape (pre, triangle, `mid`, `post`), with the strides `rst_pre`
/// to `rst_post`. The entries keep their order, so with `mid` above 1 `rsp` needn't ascend; for its
/// sort the first `n` entries of `perm` become the identity. Returns the slot behind the last.
CLOSURE(164, int,
        (I64 basevar_nativeidxs, int dim, int mid, int dim2, int post, int pos, int n, I64Out perm,
         I64Out rnidxs, int rst_pre, int rst_tri, int rst_mid, int rst_post, I64Out rsp, int st_pre,
         int st_i, int st_mid, int st_j, int st_post, I64 sparsity))
{
    for (int64_t t = 0; t < sparsity.length(); ++t) {
        const int64_t v = sparsity[t];
        const Pair pair(v, st_i, dim, st_j, dim2);
        if (!pair.is_lower()) continue;
        rnidxs[pos] = basevar_nativeidxs[t];
        rsp[pos] = quotient(v, st_pre) * rst_pre + row_packed(pair.i, pair.j) * rst_tri +
                   subscript(v, st_mid, mid) * rst_mid + subscript(v, st_post, post) * rst_post;
        ++pos;
    }
    iota_n(perm, n);
    return pos;
}

/// The `n` native indexes of a pattern in the order of the sorting permutation `perm`.
CLOSURE_AS(165, void, (int n, I64Out nidxs, I64 perm, I64 rnidxs), gather_n(rnidxs, n, perm, nidxs))

/// The `n` linear indexes of a pattern in the order of the sorting permutation `perm`.
CLOSURE_AS(166, void, (int n, I64 perm, I64 rsp, I64Out sp), gather_n(rsp, n, perm, sp))

/// Full squares of a semidefinite variable of shape (`pre`, `dim`, `mid`, `dim2`, `post`).
/// `nativeidxs` lists entries of the element table for the lower triangles, from the outermost to
/// the innermost by position before the pair, column, position between, row and position behind.
/// `residxs` gets the complement of each, its native index, at both mirrored positions, by the
/// strides `st_pre`, `st_first`, `st_mid`, `st_second` and 1.
CLOSURE(201, void,
        (int pre, int dim, int mid, int dim2, int post, I64 nativeidxs, I64Out residxs, int st_pre,
         int st_first, int st_mid, int st_second))
{
    const int columns = std::min(dim, dim2);
    if (is_empty(pre, columns, mid, post)) return;
    int64_t pos = 0;
    for (int64_t a = 0; a < pre; ++a)
        for (int64_t j = 0; j < columns; ++j)
            for (int64_t m = 0; m < mid; ++m)
                for (int64_t i = j; i < dim; ++i) {
                    const int64_t base = a * st_pre + m * st_mid;
                    const auto lower = residxs.from(base + i * st_first + j * st_second);
                    const auto upper = residxs.from(base + j * st_first + i * st_second);
                    for (int64_t k = 0; k < post; ++k) {
                        const int64_t v = ~nativeidxs[pos++];
                        lower[k] = v;
                        upper[k] = v;
                    }
                }
}

} // namespace fragments
