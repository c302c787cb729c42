// triangle: the elements with i <= j (upper) or j <= i (lower) in the view around axes `xdim` and
// `ydim`; the diagonal belongs to both. `tril` chooses the lower triangle.
//
// The result is sparse and lists every position of the triangle, with no terms where the operand
// stores no element. The strides of the view are 32-bit ones here.

#include "algorithms.h"
#include "closure_frame.h"
#include "five_dimensional_view.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// Calls `visit(index)` with the linear index, a 32-bit one, of each position of the triangle, in
/// storage order.
template <class S, class Visit>
void walk_triangle(bool lower, I32<S> dim, I32<S> stride, Visit visit)
{
    const Extents d = extents(dim);
    for_each_position(
        d,
        [&](int64_t i) {
            return lower ? Range{0, i + 1} : Range{i, d[3]};
        },
        [&](const Position& x) { visit(static_cast<int32_t>(x.linear(stride))); });
}

/// Lists the positions of the triangle from entry `n` on. Returns the next n.
template <class S>
int list_positions(bool lower, I32<S> dim, I32<S> stride, int n, I64Out<S> positions)
{
    walk_triangle(lower, dim, stride, [&](int32_t index) { positions[n++] = index; });
    return n;
}

} // namespace

/// dim[0], dim[2] and dim[4] of the view, each times what it holds.
CLOSURE_AS(545, void, (I32Out dim, int shape_base, I32 wi32, int xdim),
           fold_extents(wi32.from(shape_base), {0, xdim}, dim, 0))
CLOSURE_AS(546, void, (I32Out dim, int shape_base, I32 wi32, int xdim, int ydim),
           fold_extents(wi32.from(shape_base), {int64_t{xdim} + 1, ydim}, dim, 2))
CLOSURE_AS(547, void, (I32Out dim, int nd, int shape_base, I32 wi32, int ydim),
           fold_extents(wi32.from(shape_base), {int64_t{ydim} + 1, nd}, dim, 4))

/// stride[3] down to stride[0] of the view, in 32 bits; stride[4] is the host's.
CLOSURE_AS(548, void, (I32 dim, I32Out stride), row_major_strides(dim, 5, stride))

/// (flag as it is, `rnelem` times the first `count` extents).
CLOSURE(554, results(bool, int), (int count, bool flag, int rnelem, int shape_base, I32 wi32))
{
    return {flag, product(rnelem, wi32.from(shape_base), count)};
}

/// Sizes of the result: adds the terms and atoms in the triangle to (rncodeatom, rnnz).
CLOSURE(549, results(int, int),
        (int codeptr_base, I32 dim, bool hassp, int ncodeatom, int nelem, int ptr_base,
         int rncodeatom, int rnnz, int sp_base, I32 stride, bool tril, I32 wi32, I64 wi64))
{
    const auto operand = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    Sizes sizes{rncodeatom, 0, rnnz};
    const auto add = [&](int e) { sizes.add(operand, e, ncodeatom > 0); };
    if (hassp) {
        const auto sp = wi64.from(sp_base);
        for (int e = 0; e < nelem; ++e) {
            const int64_t i = unsigned_subscript(sp[e], stride[1], dim[1]);
            const int64_t j = unsigned_subscript(sp[e], stride[3], dim[3]);
            if (tril ? j <= i : i <= j) add(e);
        }
    } else {
        walk_triangle(tril, dim, stride, add);
    }
    return {sizes.rncodeatom, static_cast<int>(sizes.rnnz)};
}

/// Copies the shape.
CLOSURE_AS(550, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))

/// The result's `sp` for the lower triangle, from entry `n` on, ascending. Returns the next n.
CLOSURE_AS(551, int, (I32 dim, int n, I64Out ri64, int rsp_base, I32 stride),
           list_positions(true, dim, stride, n, ri64.from(rsp_base)))

/// The same for the upper triangle.
CLOSURE_AS(552, int, (I32 dim, int n, I64Out ri64, int rsp_base, I32 stride),
           list_positions(false, dim, stride, n, ri64.from(rsp_base)))

/// Writes the elements at the `count` positions that stand in the result's `sp`: `ptr`, the terms
/// and, if `rncodeatom` > 0, their programs. Returns (codei, nnzi).
CLOSURE(553, results(int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int count,
         bool hassp, int nelem, int nidxs_base, int nnzi, int ptr_base, int rcconst_base,
         int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rncodeatom, int rnidxs_base, int rptr_base, int rsp_base, int sp_base, F64 wf64,
         I32 wi32, I64 wi64))
{
    const auto operand = STACKED_OPERAND();
    auto r = STACKED_RESULT(codei, 0, nnzi);
    const auto positions = ri64.from(rsp_base);
    const bool coded = rncodeatom > 0;
    if (!hassp) {
        for (int e = 0; e < count; ++e) {
            r.append(operand, positions[e], coded);
            r.close_element();
        }
        return {r.codei, r.nnzi};
    }
    const auto sp = wi64.from(sp_base);
    const auto close_up_to = [&](int64_t e) {
        while (r.elmi < e) r.close_element();
    };
    for_each_match(
        {0, count}, [&](int64_t e) { return positions[e]; }, {0, nelem},
        [&](int64_t i) { return sp[i]; },
        [&](int64_t e, int64_t i) {
            close_up_to(e);
            r.append(operand, i, coded);
            r.close_element();
        });
    close_up_to(count);
    return {r.codei, r.nnzi};
}

} // namespace fragments
