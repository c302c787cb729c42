// The pattern of a domain with listed elements: from a table of subscripts, one row for each
// element, in any order, to ascending row-major linear indexes. Where the indexes as they come
// aren't ascending, the rows are sorted by an LSD radix sort, a pass for each dimension, the last
// one first, and the indexes written in the order of the rows. Two places of a host need this
// chain, each with closures of its own.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// The linear index of the subscripts subscript(0) to subscript(nd - 1), of products in 32 bits and
/// a sum in 64.
template <class S, class Subscript>
int64_t linear_index(int nd, Subscript subscript, I32<S> strides)
{
    int64_t linear = 0;
    for (int k = 0; k < nd; ++k) linear += subscript(k) * strides[k];
    return linear;
}

/// Linear indexes of the rows up to the first that isn't in the shape. Returns whether there is
/// one; nothing is written if that was known before.
template <class S>
bool read_pattern(bool bad, int n, I32<S> shape, Matrix<int32_t, S> sp, I64Out<S> sparsity,
                  I32<S> strides)
{
    for (int64_t i = 0; !bad && i < n; ++i) {
        bad = row_out_of_range(sp, i, sp.columns(), shape);
        if (bad) break;
        sparsity[i] = linear_index(
            sp.columns(), [&](int k) { return sp(i, k); }, strides);
    }
    return bad;
}

/// One pass of the radix sort of the table's rows, by dimension `nd` - 1 - `pass`.
template <class S>
void sort_pass(I32<S> curperm, int pass, Matrix<int32_t, S> midxs, int n, int nd, I32Out<S> ptr,
               I32<S> shape, I32Out<S> tgtperm)
{
    const int dim = nd - 1 - pass;
    radix_pass(
        curperm, n, [&](int64_t row) { return midxs(row, dim); }, shape[dim], ptr, tgtperm);
}

/// Linear indexes of the rows in the order of `curperm`.
template <class S>
void write_sorted(I32<S> curperm, Matrix<int32_t, S> midxs, int n, int nd, I64Out<S> sparsity,
                  I32<S> strides)
{
    for (int64_t i = 0; i < n; ++i)
        sparsity[i] = linear_index(
            nd, [&](int k) { return midxs(curperm[i], k); }, strides);
}

} // namespace

/// The linear indexes, in 64 bits, of the first `n` rows of the table `sparsity`, whose first `nd`
/// columns count, to `sp`. The subscripts must be in range.
CLOSURE(44, void, (int nd, int n, I64Out sp, I32Matrix sparsity, I64 strides))
{
    for (int64_t i = 0; i < n; ++i) sp[i] = linear_of_row(int64_t{0}, sparsity, i, nd, strides);
}

/// The linear indexes of the first `n` rows of the table `sp`, in all of its columns, to
/// `sparsity`; each product is one of 32 bits. Returns whether `bad`, or a row lies outside of the
/// shape: neither that row nor a later one is written, and none if `bad`.
CLOSURE_AS(51, bool, (bool bad, int n, I32 shape, I32Matrix sp, I64Out sparsity, I32 strides),
           read_pattern(bad, n, shape, sp, sparsity, strides))
CLOSURE_AS(64, bool, (bool bad, int n, I32 shape, I32Matrix sp, I64Out sparsity, I32 strides),
           read_pattern(bad, n, shape, sp, sparsity, strides))

/// Whether `sorted`, and all of the pattern `sp` ascends strictly.
CLOSURE_AS(42, bool, (bool sorted, I64 sp), strictly_ascending(sorted, sp, sp.length()))

/// One pass of a radix sort of the table's rows, stable: `tgtperm` gets the `n` rows of `curperm`
/// by ascending subscript in dimension `nd` - 1 - `pass`. `ptr` is scratch, of one entry more than
/// the extent of that dimension.
CLOSURE_AS(54, void,
           (I32 curperm, int pass, I32Matrix midxs, int n, int nd, I32Out ptr, I32 shape,
            I32Out tgtperm),
           sort_pass(curperm, pass, midxs, n, nd, ptr, shape, tgtperm))
CLOSURE_AS(67, void,
           (I32 curperm, int pass, I32Matrix midxs, int n, int nd, I32Out ptr, I32 shape,
            I32Out tgtperm),
           sort_pass(curperm, pass, midxs, n, nd, ptr, shape, tgtperm))

/// The linear indexes of the `n` rows of the table in the order of `curperm`, of their first `nd`
/// columns, to `sparsity`; each product is one of 32 bits. Repeated rows stay, side by side.
CLOSURE_AS(55, void, (I32 curperm, I32Matrix midxs, int n, int nd, I64Out sparsity, I32 strides),
           write_sorted(curperm, midxs, n, nd, sparsity, strides))
CLOSURE_AS(68, void, (I32 curperm, I32Matrix midxs, int n, int nd, I64Out sparsity, I32 strides),
           write_sorted(curperm, midxs, n, nd, sparsity, strides))

} // namespace fragments
