// Getting expressions onto a stack from the host's row-wise form, building and testing that form,
// and preparing shapes, strides and linear indexes.
//
// The row-wise form has, for each of `nelem` rows, the entries ptrb[i] up to but not including
// ptrb[i + 1] of `subj` (variable indexes) and `cof_v` (coefficients), and a fixed term bfix[i].

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"
#include "triplet_matrix.h"

namespace fragments {

namespace {

/// Sets the extents from `from` up to but not including `end` to 1.
template <class S>
void fill_with_ones(I32Out<S> shape, int64_t from, int64_t end)
{
    fill_n(shape.from(from), end - from, 1);
}

} // namespace

/// Consistency of a row-wise form: whether the first `n` entries of `inst` ascend strictly within
/// [0, size), whether `ptrb` never descends over `n` rows, and whether no extent is negative.
/// Without entries in `inst`, `instok` keeps its value; the other flags can only fall.
CLOSURE(572, results(bool, bool, bool),
        (I64 inst, bool instok, int n, I64 ptrb, bool ptrbok, bool shapeok, long long size,
         I32 thisshape))
{
    for (int64_t i = 0; shapeok && i < thisshape.length(); ++i) shapeok = thisshape[i] >= 0;
    ptrbok = ascending(ptrbok, ptrb, int64_t{n} + 1);
    if (inst.length() > 0) instok = strictly_ascending(inst[0] >= 0 && inst[n - 1] < size, inst, n);
    return {instok, ptrbok, shapeok};
}

/// `size` times all of `vals`, in 32 bits.
CLOSURE_AS(573, int, (int size, I32 vals), product(size, vals, vals.length()))

/// `size` times the first `n` extents, in 32 bits.
CLOSURE_AS(592, int, (int n, I32 shape, int size), product(size, shape, n))

/// Largest and smallest number of dimensions of operands 1 to `n` - 1 and of the values passed.
CLOSURE(587, results(int, int), (int maxnd, int minnd, int n, I32 nds))
{
    for (int k = 1; k < n; ++k) {
        maxnd = std::max(maxnd, nds[k]);
        minnd = std::min(minnd, nds[k]);
    }
    return {maxnd, minnd};
}

/// Copies all extents.
CLOSURE_AS(588, void, (I32 s, I32Out shape), copy_n(s, s.length(), shape))

/// Pads a shape with ones, from the length of `s` up to `n` dimensions.
CLOSURE_AS(589, void, (int n, I32 s, I32Out shape), fill_with_ones(shape, s.length(), n))

/// Copies the first `n` extents.
CLOSURE_AS(597, void, (int n, I32 sh, I32Out shape), copy_n(sh, n, shape))
CLOSURE_AS(599, void, (int n, I32 sh, I32Out shape), copy_n(sh, n, shape))

/// Pads a shape with ones: the extents from `from` up to but not including `end`.
CLOSURE_AS(598, void, (int end, int from, I32Out shape), fill_with_ones(shape, from, end))
CLOSURE_AS(600, void, (int end, int from, I32Out shape), fill_with_ones(shape, from, end))

/// Row `k` of a table of shapes: as many extents as `shp` has. The others stay.
CLOSURE(590, void, (int k, I32MatrixOut shapes, I32 shp))
{
    for (int64_t i = 0; i < shp.length(); ++i) shapes(k, i) = shp[i];
}

/// Pads row `k` of a table of shapes with ones, from the length of `shp` on.
CLOSURE(591, void, (int k, int nd, I32MatrixOut shapes, I32 shp))
{
    for (int64_t i = shp.length(); i < nd; ++i) shapes(k, i) = 1;
}

/// The entries of a dense matrix as triplets, row by row, zeros too.
CLOSURE(578, void, (int dimi, int dimj, I32Out msubi, I32Out msubj, F64Out mval, F64Matrix mx))
{
    dense_to_triplets(dimi, dimj, mx, msubi, msubj, mval);
}

/// The same.
CLOSURE(579, void, (int dimi, int dimj, I32Out msubi, I32Out msubj, F64Out mval, F64Matrix mx))
{
    dense_to_triplets(dimi, dimj, mx, msubi, msubj, mval);
}

/// The same.
CLOSURE(580, void, (int dimi, int dimj, I32Out msubi, I32Out msubj, F64Out mval, F64Matrix mx))
{
    dense_to_triplets(dimi, dimj, mx, msubi, msubj, mval);
}

/// Row-major strides, in 64 bits; the last one is set by the host.
CLOSURE_AS(574, void, (int nd, I64Out s, I32 shp), row_major_strides(shp, nd, s))
CLOSURE_AS(576, void, (int nd, I64Out s, I32 shp), row_major_strides(shp, nd, s))

/// Adds the linear index of each of the first `n` rows of subscripts to its entry of `sp`.
CLOSURE_AS(575, void, (int n, int nd, I64 s, I64Out sp, I32Matrix sparsity),
           add_linear_indexes(n, nd, s, sp, sparsity))
CLOSURE_AS(577, void, (int n, int nd, I64 s, I64Out sp, I32Matrix sparsity),
           add_linear_indexes(n, nd, s, sp, sparsity))

/// Row-wise form from pairs (ii[k], idxs[k]), by a counting sort: pairs of one row keep their
/// order. Counts the pairs of each row, one entry above the row; the host has zeroed `ptrb`.
CLOSURE(593, void, (I64 ii, int n, I64Out ptrb))
{
    count_keys(
        n, [&](int64_t k) { return ii[k]; }, ptrb);
}

/// Counts become row starts.
CLOSURE_AS(594, void, (I64Out ptrb, int n), running_sum(ptrb, n))

/// The variables to their rows, each row start moving to the row's end.
CLOSURE(595, void, (I64 idxs, I64 ii, int n, I64Out ptrb, I64Out subj))
{
    for (int k = 0; k < n; ++k) {
        subj[ptrb[ii[k]]] = idxs[k];
        ++ptrb[ii[k]];
    }
}

/// Ends become row starts again; entry 0 is the host's.
CLOSURE_AS(596, void, (I64Out ptrb, int n), shift_up(ptrb, n))

/// Copies all extents to a stack.
CLOSURE_AS(570, void, (I32Out ri32, I32 shape, int shape_base),
           copy_n(shape, shape.length(), ri32.from(shape_base)))

/// Pointers and coefficients of an expression with one term of coefficient 1.0 in each element.
CLOSURE(571, void, (int cof_base, int nelem, int nnz, int ptr_base, F64Out rf64, I32Out ri32))
{
    iota_n(ri32.from(ptr_base), int64_t{nelem} + 1);
    fill_n(rf64.from(cof_base), nnz, 1.0);
}

/// push_expression: the row-wise form goes onto the stack as a dense expression. Each element gets
/// its terms and then always one with index 0, its fixed term.
CLOSURE(601, void,
        (F64 bfix, int cof_base, F64 cof_v, F64Out f64, I32Out i32, I64Out i64, int nd, int nelem,
         int nidxs_base, int ptr_base, I64 ptrb, I32 shape, int shape_base, I64 subj))
{
    const auto ptr = i32.from(ptr_base);
    const auto nidxs = i64.from(nidxs_base);
    const auto cof = f64.from(cof_base);
    copy_n(shape, nd, i32.from(shape_base));
    ptr[0] = 0;
    int t = 0;
    for (int i = 0; i < nelem; ++i) {
        const int64_t begin = ptrb[i];
        const int64_t n = std::max<int64_t>(ptrb[i + 1] - begin, 0);
        copy_n(subj.from(begin), n, nidxs.from(t));
        copy_n(cof_v.from(begin), n, cof.from(t));
        t += static_cast<int>(n);
        nidxs[t] = 0;
        cof[t] = bfix[i];
        ptr[i + 1] = ++t;
    }
}

} // namespace fragments
