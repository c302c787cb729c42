// slice: the elements of an expression in a box of subscripts, in dimension d from first[d] up to
// but not including last[d].
//
// The operand's elements are walked in order, so that those in the box are in the box's row-major
// order. `st` and `rst` are the strides of the operand and of the box.

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"
#include "scratch.h"
#include "stacked_expression.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// Calls `run(x, n)` for runs of positions, x to x + n - 1, of a dense array that lie in the box,
/// in ascending order. As a subscript changes only each `st` positions, whole runs outside are left
/// out with one look. Extents and strides that no array has are looked at position by position.
template <class S, class Run>
void for_each_run_in_box(I32<S> first, I32<S> last, int nd, int64_t nelem, I32<S> shape, I64<S> st,
                         Run run)
{
    for (int64_t x = 0; x < nelem;) {
        bool inside = true;
        int64_t same = nelem - x; // positions from x on for which the answer is known
        for (int d = 0; inside && d < nd; ++d) {
            const int64_t extent = shape[d];
            const bool counts_up = extent > 0 && st[d] > 0;
            if (counts_up && first[d] <= 0 && last[d] >= extent) continue;
            const int64_t sub = subscript(x, st[d], extent);
            inside = first[d] <= sub && sub < last[d];
            const int64_t end = sub < first[d] ? first[d] : inside ? last[d] : extent;
            const int64_t steps = counts_up ? std::min(end, extent) - sub - 1 : 0;
            const int64_t known = steps * st[d] + same_subscript(x, st[d]);
            same = inside ? std::min(same, known) : known;
        }
        if (inside) run(x, same);
        x += same;
    }
}

/// The subscripts of a linear index, each computed when it is asked for.
template <class S>
struct Subscripts
{
    int64_t linear;
    I64<S> strides;
    I32<S> shape;

    int64_t operator[](int64_t k) const { return subscript(linear, strides[k], shape[k]); }
};

} // namespace

/// The operand's strides, in 64 bits; the last one is set by the host.
CLOSURE_AS(412, void, (int nd, int shape_base, I64Out st, I32 wi32),
           row_major_strides(wi32.from(shape_base), nd, st))

/// The strides of the box, in 64 bits; the last one is set by the host.
CLOSURE_AS(415, void, (int nd, I32 rshape, I64Out rst), row_major_strides(rshape, nd, rst))

/// Sizes the slice: (rncodeatom, rnelem, rnnz), added to; but for a dense operand, `rnelem` is
/// replaced by the number of positions of the box.
CLOSURE(413, results(int, int, int),
        (int codeptr_base, I32 first, bool hassp, I32 last, int ncodeatom, int nd, int nelem,
         int ptr_base, int rncodeatom, int rnelem, int rnnz, int shape_base, int sp_base, I64 st,
         I32 wi32, I64 wi64))
{
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    const auto shape = wi32.from(shape_base);
    const bool coded = ncodeatom > 0;
    Sizes sizes{rncodeatom, rnelem, rnnz};
    if (hassp) {
        for_each_in_box(
            first, last, nd, nelem,
            [&, sp = wi64.from(sp_base)](int64_t q) {
                return Subscripts<Stride>{sp[q], st, shape};
            },
            [&](int64_t q, const auto&) {
                sizes.add(e, q, coded);
                ++sizes.rnelem;
            });
    } else {
        sizes.rnelem = box_size(1, first, last, nd);
        for_each_run_in_box(first, last, nd, nelem, shape, st,
                            [&](int64_t x, int64_t n) { sizes.add(e, x, coded, n); });
    }
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// Copies the shape of the box.
CLOSURE_AS(414, void, (int nd, I32Out ri32, I32 rshape, int rshape_base),
           copy_n(rshape, nd, ri32.from(rshape_base)))

/// Writes the slice: elements from slot `kelm` on, terms from `knnz` and atoms from `codei`, and
/// `sp` if the operand is sparse. Returns (codei, kelm, knnz).
CLOSURE(416, results(int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, I32 first,
         bool hassp, int kelm, int knnz, I32 last, int nd, int nelem, int nidxs_base, int ptr_base,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base, int rsp_base,
         I64 rst, int shape_base, int sp_base, I64 st, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = SPARSE_OPERAND();
    auto r = SPARSE_RESULT(codei, kelm, knnz);
    const auto shape = wi32.from(shape_base);
    const bool coded = rncodeatom > 0;
    if (hassp) {
        const Scratch<int32_t> sub(nd);
        for_each_in_box(
            first, last, nd, nelem,
            [&](int64_t q) {
                split_linear(e.sp[q], st, shape, nd, sub.data());
                return sub.data();
            },
            [&](int64_t q, const int32_t* subscripts) {
                r.append(e, q, coded);
                r.close_element(linear_in_box(subscripts, first, rst, nd));
            });
    } else {
        for_each_run_in_box(first, last, nd, nelem, shape, st,
                            [&](int64_t x, int64_t n) { r.append_elements(e, x, coded, n); });
    }
    return {r.codei, r.elmi, r.nnzi};
}

} // namespace fragments
