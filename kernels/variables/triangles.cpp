// Symmetric pairs of dimensions: the lower triangle taken out of a variable, and the full square of
// one that stores the triangle alone.
//
// A triangle is packed row by row. Around the pair a shape is seen as (pre, dim, mid, dim2, post),
// with the extents of the dimensions before, between and behind folded into one each. Index lists
// and patterns are those of slices.cpp.

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"
#include "triangle_packing.h"

namespace fragments {

namespace {

/// Copies a run to the places from `pos` on. Returns the place behind it.
template <class S>
int append_run(I64<S> source, int64_t n, I64Out<S> target, int pos)
{
    copy_n(source, n, target.from(pos));
    return pos + static_cast<int>(std::max<int64_t>(n, 0));
}

} // namespace

/// Full square, of shape (nouter, dim, dim, inner) from place `pos` on, of a variable of shape
/// (nouter, trisize, inner) that holds a triangle in the middle. Returns the place behind it.
CLOSURE(151, int,
        (I64 basevar_nativeidxs, int dim, int nouter, int trisize, int inner, I64Out nidxs,
         int pos))
{
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

/// Lower triangle of a dense variable, of shape (pre, triangle, mid, post) from place `pos` on.
/// Returns the place behind it.
CLOSURE(159, int,
        (I64 basevar_nativeidxs, int pre, int dim, int mid, int dim2, int post, int pos,
         I64Out nidxs))
{
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

// Lower triangle of a sparse variable: counted (163), written in the order of the source (164),
// which is not ascending if `mid` is above 1, and brought in the order of a sorting permutation
// (165, 166).

/// `count` plus the entries of the pattern in the lower triangle.
CLOSURE(163, int, (int dim, int dim2, int count, int stride_i, int stride_j, I64 sparsity))
{
    for (int64_t t = 0; t < sparsity.length(); ++t) {
        const int64_t v = sparsity[t];
        if (subscript(v, stride_j, dim2) <= subscript(v, stride_i, dim)) ++count;
    }
    return count;
}

/// The entries that 163 counts, from place `pos` on, with their linear indexes in the shape
/// (pre, triangle, mid, post); and the identity in the first `n` entries of `perm`. Returns the
/// place behind the last.
CLOSURE(164, int,
        (I64 basevar_nativeidxs, int dim, int mid, int dim2, int post, int pos, int n, I64Out perm,
         I64Out rnidxs, int rst_pre, int rst_tri, int rst_mid, int rst_post, I64Out rsp, int st_pre,
         int st_i, int st_mid, int st_j, int st_post, I64 sparsity))
{
    for (int64_t t = 0; t < sparsity.length(); ++t) {
        const int64_t v = sparsity[t];
        const int64_t i = subscript(v, st_i, dim);
        const int64_t j = subscript(v, st_j, dim2);
        if (j > i) continue;
        rnidxs[pos] = basevar_nativeidxs[t];
        rsp[pos] = v / st_pre * rst_pre + row_packed(i, j) * rst_tri +
                   subscript(v, st_mid, mid) * rst_mid + subscript(v, st_post, post) * rst_post;
        ++pos;
    }
    iota_n(perm, n);
    return pos;
}

CLOSURE_AS(165, void, (int n, I64Out nidxs, I64 perm, I64 rnidxs), gather_n(rnidxs, n, perm, nidxs))
CLOSURE_AS(166, void, (int n, I64 perm, I64 rsp, I64Out sp), gather_n(rsp, n, perm, sp))

/// Full square of a semidefinite variable. `nativeidxs` lists the entries of the element table, the
/// lower triangle column by column for each (a, m); `residxs` gets their native indexes, the
/// complements, at both mirror positions by the strides told, of which the last is 1.
CLOSURE(201, void,
        (int pre, int dim, int mid, int dim2, int post, I64 nativeidxs, I64Out residxs, int st_pre,
         int st_first, int st_mid, int st_second))
{
    int64_t pos = 0;
    for (int64_t a = 0; a < pre; ++a)
        for (int64_t j = 0; j < dim2; ++j)
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
