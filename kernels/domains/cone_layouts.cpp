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
#include "triangle_packing.h"

namespace fragments {

namespace {

/// Calls `visit(position)` with the row-major position of each element, in cone order.
template <class Visit>
void for_each_in_cone_order(int pre, int conesize, int post, Visit visit)
{
    for (int64_t a = 0; a < pre; ++a)
        for (int64_t b = 0; b < post; ++b)
            for (int64_t t = 0; t < conesize; ++t) visit((a * conesize + t) * post + b);
}

/// Calls `visit(p, cone)` for each row p of the squares, with the first of the `post` cones that
/// share it, in row-major order.
template <class Visit>
void for_each_square_row(int64_t pre, int64_t dim, int64_t mid, int64_t post, Visit visit)
{
    for (int64_t a = 0; a < pre; ++a)
        for (int64_t p = 0; p < dim; ++p)
            for (int64_t b = 0; b < mid; ++b) visit(p, (a * mid + b) * post);
}

} // namespace

/// perm[position of an element] = its position in cone order, from `pos` on; then, if `ofs` is
/// given, its first `nofs` values go to cone order: g[perm[i]] = ofs[i]. Returns the position
/// behind the last.
CLOSURE(96, int,
        (int conesize, int pre, int post, int nofs, F64Out g, int pos, F64 ofs, I32Out perm))
{
    for_each_in_cone_order(pre, conesize, post, [&](int64_t position) { perm[position] = pos++; });
    if (ofs.given())
        for (int64_t i = 0; i < nofs; ++i) g[perm[i]] = ofs[i];
    return pos;
}

/// Gathers a list in cone order, from slot `pos` on. Returns the slot behind the last.
CLOSURE(59, int, (int conesize, int pre, int post, I32 nativeidxs, int pos, I32Out permidxs))
{
    for_each_in_cone_order(pre, conesize, post,
                           [&](int64_t position) { permidxs[pos++] = nativeidxs[position]; });
    return pos;
}

/// Scale of the rows off the diagonal, those on it keep theirs. `aconidxs` lists the rows from slot
/// `pos` on, each triangle packed column by column. Returns the slot behind the last.
CLOSURE(87, int,
        (F64Out acon_elm_scale, I32 aconidxs, long long pre, long long dim, long long mid,
         long long dim2, long long post, int pos, double scale))
{
    for (int64_t cone = 0; cone < pre * mid * post; ++cone)
        for (int64_t j = 0; j < dim; ++j) {
            ++pos;
            for (int64_t i = j + 1; i < dim2; ++i) acon_elm_scale[aconidxs[pos++]] = scale;
        }
    return pos;
}

/// Triangles from the list of an expression that has only one half of each square, in row-major
/// order from slot `pos` on: the lower half is packed column by column, the upper one row by row of
/// the mirrored entries. Returns the slot behind the last.
CLOSURE(88, int,
        (I32 afeidxs, I32Out afetrilperm, int trisize, long long pre, long long dim, long long mid,
         long long dim2, long long post, int pos, bool upper))
{
    for_each_square_row(pre, dim2, mid, post, [&](int64_t p, int64_t cone) {
        const int64_t end = upper ? dim : p + 1;
        for (int64_t q = upper ? p : 0; q < end; ++q) {
            const int64_t slot = upper ? row_packed(q, p) : column_packed(p, q, dim);
            for (int64_t k = 0; k < post; ++k)
                afetrilperm[trisize * (cone + k) + slot] = afeidxs[pos++];
        }
    });
    return pos;
}

/// The rows of all elements, from triangles packed column by column: both halves of a square have
/// the same rows. `upper` makes no difference.
CLOSURE(89, void,
        (I32 afeidxs, int trisize, long long pre, long long dim, long long mid, long long dim2,
         long long post, I32Out pafeidxs, [[maybe_unused]] bool upper))
{
    int64_t next = 0;
    for_each_square_row(pre, dim, mid, post, [&](int64_t p, int64_t cone) {
        for (int64_t q = 0; q < dim2; ++q) {
            const int64_t slot = column_packed(std::max(p, q), std::min(p, q), dim);
            for (int64_t k = 0; k < post; ++k)
                pafeidxs[next++] = afeidxs[trisize * (cone + k) + slot];
        }
    });
}

} // namespace fragments
