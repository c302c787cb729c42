// symmetrize: (E + E') / 2, where E' is E with the subscripts of two axes exchanged.
//
// An element on the diagonal comes through as it is. Any other element of the result holds the
// terms of E at that place at half weight and then those of its mirror, also at half weight.
//
// A dense operand is walked in storage order. For a sparse one two ascending streams are merged:
// the elements by linear index, and the elements by mirrored index, in the order of a permutation
// that a radix sort makes (561 to 563). The result of a sparse operand is sparse.

#include <utility>

#include "algorithms.h"
#include "closure_frame.h"
#include "five_dimensional_view.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// A sparse operand's elements in both orders.
template <class S>
struct MirroredOrder
{
    int nelem;
    I64<S> sp;       // linear index of each element
    I64<S> mirrored; // mirrored linear index of each element
    I32<S> perm;     // the elements by ascending mirrored index
};

/// Merges both orders, from places i1 and i2 on. For each index that occurs calls `halve` with each
/// element that comes to lie there, its own one first, or `copy` with the element if it is its own
/// mirror, and then `close(index)`.
template <class S, class Halve, class Copy, class Close>
void merge_with_mirror(const MirroredOrder<S>& order, int& i1, int& i2, Halve halve, Copy copy,
                       Close close)
{
    const I64<S> sp = order.sp;
    const I64<S> mirrored = order.mirrored;
    const I32<S> perm = order.perm;
    Range own{i1, order.nelem};
    Range mirror{i2, order.nelem};
    merge_elements(
        own, [&](int64_t q) { return sp[q]; }, mirror, [&](int64_t k) { return mirrored[perm[k]]; },
        [&](bool in_own, bool in_mirror) {
            const int64_t q = own.begin;
            const int64_t p = in_mirror ? perm[mirror.begin] : -1;
            if (in_own && p == q) {
                copy(p);
            } else {
                if (in_own) halve(q);
                if (in_mirror) halve(p);
            }
            close(in_own ? sp[q] : mirrored[p]);
        });
    i1 = static_cast<int>(own.begin);
    i2 = static_cast<int>(mirror.begin);
}

} // namespace

/// The largest of `maxd` and the extents.
CLOSURE_AS(556, int, (int maxd, int nd, int shape_base, I32 wi32),
           greatest(maxd, wi32.from(shape_base), nd))

/// dim[0], dim[2] and dim[4] of the view around axes `dim1` and `dim2`, each times what it holds.
CLOSURE_AS(557, void, (I32Out dim, int dim1, int shape_base, I32 wi32),
           fold_extents(wi32.from(shape_base), {0, dim1}, dim, 0))
CLOSURE_AS(558, void, (I32Out dim, int dim1, int dim2, int shape_base, I32 wi32),
           fold_extents(wi32.from(shape_base), {int64_t{dim1} + 1, dim2}, dim, 2))
CLOSURE_AS(559, void, (I32Out dim, int dim2, int nd, int shape_base, I32 wi32),
           fold_extents(wi32.from(shape_base), {int64_t{dim2} + 1, nd}, dim, 4))

/// stride[3] down to stride[0] of the view, in 64 bits; stride[4] is the host's.
CLOSURE_AS(560, void, (I32 dim, I64Out stride), row_major_strides(dim, 5, stride))

/// The identity permutation.
CLOSURE_AS(561, void, (int curperm_base, int nelem, I32Out xi32),
           iota_n(xi32.from(curperm_base), nelem))

/// Sorts the permutation at `curperm_base` by the axes sortidx[0] to sortidx[3], least significant
/// first: a stable radix sort with a pass for each of them that has an extent above 1. A pass goes
/// from one permutation to the other; returns the positions of (the sorted one, the other one).
CLOSURE(562, results(int, int),
        (int curperm_base, I32 dim, int nelem, I32 sortidx, int sp_base, I64 stride,
         int tmpperm_base, I64 wi64, I32Out xi32, int xradix_base))
{
    const auto sp = wi64.from(sp_base);
    for (int k = 0; k < 4; ++k) {
        const int q = sortidx[k];
        const int extent = dim[q];
        if (extent < 2) continue;
        radix_pass(
            xi32.from(curperm_base), nelem,
            [&](int64_t t) { return unsigned_subscript(sp[t], stride[q], extent); }, extent,
            xi32.from(xradix_base), xi32.from(tmpperm_base));
        std::swap(curperm_base, tmpperm_base);
    }
    return {curperm_base, tmpperm_base};
}

/// The mirrored linear index of each element.
CLOSURE(563, void,
        (I32 dim, int nelem, int sp_base, I64 stride, I64 wi64, I64Out xi64, int xsp_base))
{
    const auto sp = wi64.from(sp_base);
    const auto mirrored = xi64.from(xsp_base);
    for (int t = 0; t < nelem; ++t) {
        const int64_t v = sp[t];
        const auto x = [&](int q) { return unsigned_subscript(v, stride[q], dim[q]); };
        mirrored[t] = x(0) * stride[0] + x(1) * stride[3] + x(2) * stride[2] + x(3) * stride[1] +
                      x(4) * stride[4];
    }
}

/// Sizes of a sparse result: (rncodeatom, rnelem, rnnz), added to.
CLOSURE(564, results(int, int, int),
        (int codeptr_base, int curperm_base, int ncodeatom, int nelem, int ptr_base, int rncodeatom,
         int rnelem, int rnnz, int sp_base, I32 wi32, I64 wi64, I32 xi32, I64 xi64, int xsp_base))
{
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    const MirroredOrder<Stride> order{nelem, wi64.from(sp_base), xi64.from(xsp_base),
                                      xi32.from(curperm_base)};
    const bool coded = ncodeatom > 0;
    Sizes sizes{rncodeatom, rnelem, rnnz};
    int i1 = 0;
    int i2 = 0;
    merge_with_mirror(
        order, i1, i2, [&](int64_t q) { sizes.add_scaled(e, q, coded); },
        [&](int64_t q) { sizes.add(e, q, coded); }, [&](int64_t) { ++sizes.rnelem; });
    return {sizes.rncodeatom, sizes.rnelem, static_cast<int>(sizes.rnnz)};
}

/// Copies the shape.
CLOSURE_AS(565, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))

/// Writes a sparse result: `ptr`, `sp`, the terms and, if `rncodeatom` is not 0, their programs.
/// Goes on from places i1 and i2 of the two orders; returns (codei, eli, i1, i2, nnzi).
CLOSURE(566, results(int, int, int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base,
         int curperm_base, int eli, int i1, int i2, int nelem, int nidxs_base, int nnzi,
         int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base,
         int rsp_base, int sp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32, I64 xi64, int xsp_base))
{
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(codei, eli, nnzi);
    const MirroredOrder<Stride> order{nelem, wi64.from(sp_base), xi64.from(xsp_base),
                                      xi32.from(curperm_base)};
    for_code(rncodeatom != 0, [&]<bool coded> {
        const Code form = coded ? Code::scaled : Code::none;
        merge_with_mirror(
            order, i1, i2, [&](int64_t q) { r.append_scaled(e, q, 0.5, form); },
            [&](int64_t q) { r.append(e, q, coded); },
            [&](int64_t index) { r.close_element(index); });
    });
    return {r.codei, r.elmi, i1, i2, r.nnzi};
}

/// Sizes of a dense result: takes from (rncodeatom, rnnz), which count each term twice and with two
/// added atoms, what the elements on the diagonal don't need.
CLOSURE(567, results(int, int),
        (int codeptr_base, I32 dim, int ncodeatom, int ptr_base, int rncodeatom, int rnnz,
         I64 stride, I32 wi32))
{
    const auto e = Operand<Stride>::sizes(wi32, ptr_base, codeptr_base);
    for_each_position(
        extents(dim),
        [](int64_t i) {
            return Range{i, i + 1};
        },
        [&](const Position& diagonal) {
            const int64_t q = diagonal.linear(stride);
            rnnz -= e.terms(q);
            if (ncodeatom > 0) rncodeatom -= e.atoms(q) + 4 * e.terms(q);
        });
    return {rncodeatom, rnnz};
}

/// Copies the shape.
CLOSURE_AS(568, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))

/// Writes a dense result: `ptr`, the terms and, if `rncodeatom` is not 0, their programs.
/// Returns (codei, eli, nnzi, relemi).
CLOSURE(569, results(int, int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, I32 dim,
         int eli, int nidxs_base, int nnzi, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, int relemi, F64Out rf64, I32Out ri32, I64Out ri64,
         int rncodeatom, int rnidxs_base, int rptr_base, I64 stride, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    auto r = STACKED_RESULT(codei, relemi, nnzi);
    for_code(rncodeatom != 0, [&]<bool coded> {
        const Code form = coded ? Code::scaled : Code::none;
        for_each_position(extents(dim), [&](const Position& x) {
            if (x.i == x.j) {
                r.append(e, eli, coded);
            } else {
                const int64_t mirror =
                    stride[0] * x.a + stride[3] * x.i + stride[2] * x.m + stride[1] * x.j + x.b;
                r.append_scaled(e, eli, 0.5, form);
                r.append_scaled(e, mirror, 0.5, form);
            }
            r.close_element();
            ++eli;
        });
    });
    return {r.codei, eli, r.nnzi, r.elmi};
}

} // namespace fragments
