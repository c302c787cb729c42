// Order of a domain's elements and its cones' rows.
//
// A native cone is a run of consecutive rows. One cone dimension splits a shape into `pre`
// positions before it, `conesize` and `post` behind; in cone order it is the fastest. Two cone
// dimensions of extent d split it into `pre`, `dim`, `mid`, `dim2`, `post`, with d for `dim` and
// `dim2`; the square of each cone folds to a triangle of `trisize` = d(d + 1)/2 rows, and the
// triangles stand cone by cone. Cone and elements run in row-major order.

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"
#include "triangle_packing.h"

namespace fragments {

namespace {

/// Calls `visit(position)` with the row-major position of each element, in cone order.
template <class Visit>
void for_each_in_cone_order(int pre, int conesize, int post, Visit visit)
{
    if (is_empty(pre, post, conesize)) return;
    for (int64_t a = 0; a < pre; ++a)
        for (int64_t b = 0; b < post; ++b)
            for (int64_t t = 0; t < conesize; ++t) visit((a * conesize + t) * post + b);
}

/// Calls `visit(p, cone)` for each of the first `rows` rows p of the squares, with the first of the
/// `post` cones that share it, in row-major order.
template <class Visit>
void for_each_square_row(int64_t pre, int64_t rows, int64_t mid, int64_t post, Visit visit)
{
    if (is_empty(pre, rows, mid, post)) return;
    for (int64_t a = 0; a < pre; ++a)
        for (int64_t p = 0; p < rows; ++p)
            for (int64_t b = 0; b < mid; ++b) visit(p, (a * mid + b) * post);
}

} // namespace

/// Cone order of an array of shape (`pre`, `conesize`, `post`): perm[i] gets the position in cone
/// order, counted from `pos`, of the element at row-major position i. Then, if `ofs` is given, its
/// first `nofs` values go to cone order: g[perm[i]] = ofs[i]. Returns the position behind the last.
CLOSURE(96, int,
        (int conesize, int pre, int post, int nofs, F64Out g, int pos, F64 ofs, I32Out perm))
{
    for_each_in_cone_order(pre, conesize, post, [&](int64_t position) { perm[position] = pos++; });
    if (ofs.given())
        for (int64_t i = 0; i < nofs; ++i) g[perm[i]] = ofs[i];
    return pos;
}

/// Gathers the list `nativeidxs` of an array of shape (`pre`, `conesize`, `post`) in cone order, to
/// `permidxs` from slot `pos` on. Returns the slot behind the last.
CLOSURE(59, int, (int conesize, int pre, int post, I32 nativeidxs, int pos, I32Out permidxs))
{
    for_each_in_cone_order(pre, conesize, post,
                           [&](int64_t position) { permidxs[pos++] = nativeidxs[position]; });
    return pos;
}

/// Packs triangles, of `trisize` slots each, from a list of an array of shape (`pre`, `dim`, `mid`,
/// `dim2`, `post`) that has only one half of each square, with `upper` the upper one, in row-major
/// order from slot `pos` of `afeidxs` on. In `afetrilperm` the lower half is packed column by
/// column, the upper one row by row of the mirrored entries. Returns the slot behind the last that
/// was read.
CLOSURE(88, int,
        (I32 afeidxs, I32Out afetrilperm, int trisize, long long pre, long long dim, long long mid,
         long long dim2, long long post, int pos, bool upper))
{
    const int64_t rows = upper ? std::min(dim, dim2) : dim2; // the rest has no upper half
    for_each_square_row(pre, rows, mid, post, [&](int64_t p, int64_t cone) {
        const int64_t end = upper ? dim : p + 1;
        for (int64_t q = upper ? p : 0; q < end; ++q) {
            const int64_t slot = upper ? row_packed(q, p) : column_packed(p, q, dim);
            for (int64_t k = 0; k < post; ++k)
                afetrilperm[trisize * (cone + k) + slot] = afeidxs[pos++];
        }
    });
    return pos;
}

/// Unpacks triangles, of `trisize` slots each, column by column, to all elements of an array of
/// shape
/// (`pre`, `dim`, `mid`, `dim2`, `post`), in row-major order from the start of `pafeidxs` on: both
/// halves of a square have the same rows. `upper` makes no difference.
CLOSURE(89, void,
        (I32 afeidxs, int trisize, long long pre, long long dim, long long mid, long long dim2,
         long long post, I32Out pafeidxs, [[maybe_unused]] bool upper))
{
    if (is_empty(dim2)) return;
    int64_t next = 0;
    for_each_square_row(pre, dim, mid, post, [&](int64_t p, int64_t cone) {
        for (int64_t q = 0; q < dim2; ++q) {
            const int64_t slot = column_packed(std::max(p, q), std::min(p, q), dim);
            for (int64_t k = 0; k < post; ++k)
                pafeidxs[next++] = afeidxs[trisize * (cone + k) + slot];
        }
    });
}

/// Sets the scale of the conic rows off the diagonals to `scale`; those on a diagonal keep theirs.
/// `aconidxs` lists the rows of all `pre` * `mid` * `post` triangles from slot `pos` on, each
/// packed column by column: column j has one row on the diagonal and `dim2` - 1 - j below. Returns
/// the slot behind the last.
CLOSURE(87, int,
        (F64Out acon_elm_scale, I32 aconidxs, long long pre, long long dim, long long mid,
         long long dim2, long long post, int pos, double scale))
{
    const int64_t cones = pre * mid * post;
    if (is_empty(cones, dim)) return pos;
    const int64_t columns = dim2 > 1 ? std::min(dim, dim2 - 1) : 0; // with a row below the diagonal
    if (columns == 0) return pos + static_cast<int>(cones * dim);
    for (int64_t cone = 0; cone < cones; ++cone) {
        for (int64_t j = 0; j < columns; ++j) {
            ++pos;
            for (int64_t i = j + 1; i < dim2; ++i) acon_elm_scale[aconidxs[pos++]] = scale;
        }
        pos += static_cast<int>(dim - columns);
    }
    return pos;
}

} // namespace fragments
