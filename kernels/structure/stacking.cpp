// stack: n expressions joined along a dimension into one.
//
// The operands' headers arrive as arrays with one entry for each operand. Along the dimension,
// operand k has the extent d1s[k] and the result `rd1`; d0 positions lie before it and d2 behind
// it, the same numbers for all. Dense operands are taken in the result's order (435); along the
// first dimension, whatever their form, one behind the other (438). Otherwise the elements are
// listed with their new linear indexes (440), sorted by these (441) and copied in that order (442).

#include <utility>

#include "algorithms.h"
#include "closure_frame.h"
#include "operand_list.h"
#include "scratch.h"
#include "stacked_expression.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// Appends `count` elements of operand k from element e on. A term without code gets the program
/// that pushes 0.0 if the result has code.
template <class S>
void append_from(const OperandList<S>& operands, int k, int64_t e, int64_t count, bool outcode,
                 Result<S>& r)
{
    const auto ptr = operands.ptr(k).from(e);
    const int terms = ptr[count] - ptr[0];
    if (terms > 0) {
        const Code form = form_of(operands.ncodeatom[k], outcode);
        if (form == Code::constant) r.append_constant_programs(terms);
        const bool coded = form == Code::scaled;
        r.append(operands.operand(k, coded), e, coded, count);
    }
    r.close_elements(ptr, count);
}

/// Sets entries 0 of `ptr` and, if there is code, of `codeptr`.
template <class S>
void start(bool outcode, const Result<S>& r)
{
    r.ptr[0] = 0;
    if (outcode) r.codeptr[0] = 0;
}

} // namespace

/// Tests the operands behind the first: (whether `alldense` and all are dense, whether `mismatch`
/// or the rank or some extent but the one along `dim` differs from the first operand's). The rank
/// of the operand whose number is `dim` isn't looked at.
CLOSURE(427, results(bool, bool),
        (bool alldense, int dim, I32 hassp, bool mismatch, int n, int nd, I32 nds, int shape0_base,
         I32 shape_base, I32 wi32))
{
    const auto shape0 = wi32.from(shape0_base);
    for (int k = 1; k < n; ++k) {
        if (!mismatch) mismatch = k != dim && nds[k] != nd;
        const auto differs = [&](int64_t i) { return shape0[i] != wi32[shape_base[k] + i]; };
        for (int i = 0; !mismatch && i < dim; ++i) mismatch = differs(i);
        for (int64_t i = int64_t{dim} + 1; !mismatch && i < nd; ++i) mismatch = differs(i);
        alldense = alldense && hassp[k] == 0;
    }
    return {alldense, mismatch};
}

/// Extent of the stack along the dimension, added to `rdim`; `n` if the dimension is new.
CLOSURE(428, int, (int dim, int n, int nd, int rdim, I32 shape_base, I32 wi32))
{
    if (dim >= nd) return n;
    for (int k = 0; k < n; ++k) rdim += wi32[shape_base[k] + dim];
    return rdim;
}

/// Sizes the stack: (outcode, rncodeatom, rnelem, rnnz), added to. It has code if some operand has.
CLOSURE(429, results(bool, int, int, int),
        (int n, I32 ncodeatom, I32 nelem, I32 nnz, bool outcode, int rncodeatom, int rnelem,
         int rnnz))
{
    outcode = has_code(outcode, n, ncodeatom);
    for (int k = 0; k < n; ++k) {
        rnnz += nnz[k];
        rnelem += nelem[k];
        if (outcode) rncodeatom += ncodeatom[k] > 0 ? ncodeatom[k] : nnz[k];
    }
    return {outcode, rncodeatom, rnelem, rnnz};
}

/// Copies the first `nd` extents.
CLOSURE_AS(426, void, (int nd, I32Out shape, I32 shape_), copy_n(shape_, nd, shape))
CLOSURE_AS(443, void, (int nd, I32Out resshape, I32 shape), copy_n(shape, nd, resshape))

/// Copies the first `nd` extents to the result.
CLOSURE_AS(434, void, (int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), nd, ri32.from(rshape_base)))

/// Extent of a stack: resshape[dim] += shapes[i][dim] for all shapes but the first, whose extents
/// `resshape` holds already.
CLOSURE(444, void, (int dim, I32Out resshape, I32List shapes))
{
    for (int64_t i = 1; i < shapes.length(); ++i) resshape[dim] += shapes[i][dim];
}

/// `d0`, or `prod`, times the extents before dimension `dim`, in 32 bits.
CLOSURE_AS(430, int, (int d0, int dim, int shape_base, I32 wi32),
           product(d0, wi32.from(shape_base), dim))
CLOSURE_AS(436, int, (int dim, int prod, int shape_base, I32 wi32),
           product(prod, wi32.from(shape_base), dim))

/// `d2`, or `prod`, times the extents behind dimension `dim`, in 32 bits.
CLOSURE_AS(433, int, (int d2, int dim, int nd, int shape_base, I32 wi32),
           product_behind(d2, wi32.from(shape_base), dim, nd))
CLOSURE_AS(437, int, (int dim, int nd, int prod, int shape_base, I32 wi32),
           product_behind(prod, wi32.from(shape_base), dim, nd))

/// Writes a stack of dense operands in the result's order, without `sp`, entries 0 of `ptr` and
/// `codeptr` included: for each position before the dimension a block of each operand.
CLOSURE(435, void,
        (I32 cconst, I32 code, I32 codeptr, I32 cof_base, int d0, I32 d1s, int d2, int n,
         I32 ncodeatom, I32 nidxs_base, bool outcode, I32 ptr_base, int rcconst_base,
         int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rnidxs_base, int rptr_base, F64 wf64, I32 wi32, I64 wi64))
{
    const auto operands = OPERAND_LIST();
    auto r = STACKED_RESULT();
    start(outcode, r);
    for (int64_t before = 0; before < d0; ++before) {
        for (int k = 0; k < n; ++k) {
            const int64_t block = int64_t{d1s[k]} * d2;
            if (d2 > 0 && block > 0) append_from(operands, k, before * block, block, outcode, r);
        }
    }
}

/// Writes a stack along the first dimension: the elements of one operand behind those of the other,
/// `sp` and entries 0 of `ptr` and `codeptr` included.
CLOSURE(438, void,
        (I32 cconst, I32 code, I32 codeptr, I32 cof_base, I32 hassp, int n, I32 ncodeatom, int nd,
         I32 nelem, I32 nidxs_base, I32 ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom,
         int rnidxs_base, int rptr_base, int rsp_base, I32 shape_base, I32 sp_base, F64 wf64,
         I32 wi32, I64 wi64))
{
    const auto operands = OPERAND_LIST();
    auto r = SPARSE_RESULT();
    start(rncodeatom > 0, r);
    int64_t base = 0;
    for (int k = 0; k < n; ++k) {
        const int count = nelem[k];
        if (count > 0) {
            const auto rsp = r.sp.from(r.elmi);
            if (hassp[k] != 0) {
                const auto sp = wi64.from(sp_base[k]);
                for (int64_t i = 0; i < count; ++i) rsp[i] = base + sp[i];
            } else {
                for (int64_t i = 0; i < count; ++i) rsp[i] = base + i;
            }
            append_from(operands, k, 0, count, rncodeatom > 0, r);
        }
        base += nd > 0 ? product(int64_t{1}, wi32.from(shape_base[k]), nd) : 1;
    }
}

/// `acc` plus the extents of the operands along the dimension.
CLOSURE_AS(432, int, (int acc, I32 d1s, int n), sum_n(acc, d1s, n))

/// Start of each operand along the dimension; offset[0] is the host's.
CLOSURE(431, void, (I32 d1s, int n, I32Out offset))
{
    for (int64_t i = 1; i < n; ++i) offset[i] = offset[i - 1] + d1s[i - 1];
}

/// Lists the elements of all operands, one operand behind the other: the linear index in the result
/// (`tgtval`), the operand's number (`tgtop`) and the element's position there (`tgtpos`).
CLOSURE(440, void,
        (I32 d1s, int d2, I32 hassp, int n, I32 nelem, I32 offset, int rd1, I32 sp_base,
         int tgtop_base, int tgtpos_base, int tgtval_base, I64 wi64, I32Out xi32, I64Out xi64))
{
    auto tgtop = xi32.from(tgtop_base);
    auto tgtpos = xi32.from(tgtpos_base);
    auto tgtval = xi64.from(tgtval_base);
    for (int k = 0; k < n; ++k) {
        const int count = nelem[k];
        if (count <= 0) continue;
        const auto place = [&, d1 = d1s[k], begin = offset[k]](int64_t linear) {
            return linear_in_longer(linear, d1, d2, begin, rd1);
        };
        if (hassp[k] != 0) {
            const auto sp = wi64.from(sp_base[k]);
            for (int64_t i = 0; i < count; ++i) tgtval[i] = place(sp[i]);
        } else {
            for (int64_t i = 0; i < count; ++i) tgtval[i] = place(i);
        }
        fill_n(tgtop, count, k);
        iota_n(tgtpos, count);
        tgtval = tgtval.from(count);
        tgtop = tgtop.from(count);
        tgtpos = tgtpos.from(count);
    }
}

/// The largest of `maxd` and the extents of the result: the counters of 441 take one entry more.
CLOSURE_AS(439, int, (int maxd, I32 ri32, int rnd, int rshape_base),
           greatest(maxd, ri32.from(rshape_base), rnd))

/// Sorts the list by `tgtval`: an LSD radix sort with a stable counting pass for each dimension of
/// the result, last one first, from one permutation to the other. `xptr` has room for the largest
/// extent and one more; `rnd` is at least 1. Returns the position of the sorted permutation, which
/// is `tgtperm_base` after an odd number of passes, and that of the other.
CLOSURE(441, results(int, int),
        (int perm_base, I32 ri32, int rnd, int rnelem, int rshape_base, int tgtperm_base,
         int tgtval_base, I32Out xi32, I64 xi64, int xptr_base))
{
    const Scratch<int64_t> stride(rnd);
    const auto rshape = ri32.from(rshape_base);
    all_row_major_strides(rshape, rnd, stride.data());
    iota_n(xi32.from(perm_base), rnelem);
    const auto tgtval = xi64.from(tgtval_base);
    for (int d = rnd - 1; d >= 0; --d) {
        const int extent = rshape[d];
        const auto digit = [&, step = stride[d]](int64_t p) {
            return subscript(tgtval[p], step, extent);
        };
        radix_pass(xi32.from(perm_base), rnelem, digit, extent, xi32.from(xptr_base),
                   xi32.from(tgtperm_base));
        std::swap(perm_base, tgtperm_base);
    }
    return {perm_base, tgtperm_base};
}

/// Writes the elements of all operands in the order of the sorted list, `sp` and entries 0 of `ptr`
/// and `codeptr` included.
CLOSURE(442, void,
        (I32 cconst, I32 code, I32 codeptr, I32 cof_base, int lperm_base, I32 ncodeatom,
         I32 nidxs_base, bool outcode, I32 ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         [[maybe_unused]] int rncodeatom, int rnelem, int rnidxs_base, int rptr_base, int rsp_base,
         int tgtop_base, int tgtpos_base, int tgtval_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32,
         I64 xi64))
{
    const auto operands = OPERAND_LIST();
    auto r = SPARSE_RESULT();
    start(outcode, r);
    const auto perm = xi32.from(lperm_base);
    const auto tgtop = xi32.from(tgtop_base);
    const auto tgtpos = xi32.from(tgtpos_base);
    const auto tgtval = xi64.from(tgtval_base);
    for (int64_t i = 0; i < rnelem; ++i) {
        const int p = perm[i];
        r.sp[i] = tgtval[p];
        append_from(operands, tgtop[p], tgtpos[p], 1, outcode, r);
    }
}

} // namespace fragments
