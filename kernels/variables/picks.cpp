// Simple maps of a variable's index list: picks by subscripts, dense lists of sparse variables and
// of stacks, sorted lists of variables, and the variable as an expression.
//
// `basevar_nativeidxs` has one native index for each stored element; `sparsity`, of a sparse
// variable, the linear index of each. A dense list has an entry for each position, and 0, the
// constant's index, where no element is stored. In a table of subscripts each row is one element.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// Calls `value(v)` for each distinct value but the first, in the ascending order of `perm`.
template <class S, class Value>
void for_each_further_value(int n, I64<S> perm, I64<S> varidxs, Value value)
{
    for (int64_t i = 0; i < int64_t{n} - 1; ++i) {
        const int64_t next = varidxs[perm[i + 1]];
        if (varidxs[perm[i]] < next) value(next);
    }
}

} // namespace

/// A list of indexes, as far as it goes, as the first column of a table of subscripts.
CLOSURE(171, void, (I32 index, I32MatrixOut midx))
{
    for (int64_t i = 0; i < index.length(); ++i) midx(i, 0) = index[i];
}

/// Three lists of indexes, as far as the first goes, as the first columns of a table of subscripts.
CLOSURE(172, void, (I32 i0, I32 i1, I32 i2, I32MatrixOut midxs))
{
    for (int64_t i = 0; i < i0.length(); ++i) {
        midxs(i, 0) = i0[i];
        midxs(i, 1) = i1[i];
        midxs(i, 2) = i2[i];
    }
}

/// Two lists of indexes, as far as the first goes, as the first columns of a table of subscripts.
CLOSURE(173, void, (I32 i0, I32 i1, I32MatrixOut midxs))
{
    for (int64_t i = 0; i < i0.length(); ++i) {
        midxs(i, 0) = i0[i];
        midxs(i, 1) = i1[i];
    }
}

/// Picks elements of a dense variable: `idxs` gets the native index at each row of subscripts, of
/// which the first `nd` columns count. The subscripts must be in range.
CLOSURE_AS(176, void, (I64 basevar_nativeidxs, I64Out idxs, I32Matrix midxs, int nd, I64 strides),
           pick_rows(basevar_nativeidxs, midxs, nd, strides, idxs))

/// `init` plus the linear index of row `row` of a table of subscripts, of which the first `nd`
/// columns count, in 64 bits.
CLOSURE_AS(177, long long, (int row, long long init, I32Matrix midxs, int nd, I64 strides),
           linear_of_row(init, midxs, row, nd, strides))
CLOSURE_AS(178, long long, (int row, long long init, I32Matrix midxs, int nd, I64 strides),
           linear_of_row(init, midxs, row, nd, strides))

/// Spreads the values `res` of a sparse variable's elements, in list order, to their positions in
/// the dense `spread_res`; its other positions stay. The length of the index list counts.
CLOSURE_AS(168, void, (I64 basevar_nativeidxs, F64 res, I64 sparsity, F64Out spread_res),
           scatter_n(res, basevar_nativeidxs.length(), sparsity, spread_res))
CLOSURE_AS(169, void, (I64 basevar_nativeidxs, F64 res, I64 sparsity, F64Out spread_res),
           scatter_n(res, basevar_nativeidxs.length(), sparsity, spread_res))

/// Appends a dense part to a list pair: its native indexes `thisnidxs` from slot `pos` on, and the
/// pattern 0, 1, 2 and so on from slot `sppos` on.
CLOSURE(188, void, (I64Out basevar_nativeidxs, int pos, I64Out sparsity, int sppos, I64 thisnidxs))
{
    const auto native = basevar_nativeidxs.from(pos);
    const auto pattern = sparsity.from(sppos);
    for (int64_t i = 0; i < thisnidxs.length(); ++i) {
        native[i] = thisnidxs[i];
        pattern[i] = i;
    }
}

/// The part of a dense variable in the dense list of a stack: its native indexes go to `nindex`,
/// from slot `pos` on.
CLOSURE_AS(189, void, (I64 basevar_nativeidxs, I64Out nindex, int pos),
           copy_n(basevar_nativeidxs, basevar_nativeidxs.length(), nindex.from(pos)))

/// Zero-fills a part of `n` positions in the dense list of a stack, from slot `pos` of `nindex` on.
CLOSURE_AS(191, void, (int n, I64Out nindex, int pos), fill_n(nindex.from(pos), n, 0))

/// The part of a sparse variable in the dense list of a stack: its native indexes go to their
/// positions in `nindex`, counted from slot `pos`; the others stay. The length of the pattern
/// counts.
CLOSURE_AS(192, void, (I64 basevar_nativeidxs, I64Out nindex, int pos, I64 sparsity),
           scatter_n(basevar_nativeidxs, sparsity.length(), sparsity, nindex.from(pos)))

/// The dense list of a sparse variable: its native indexes go to their positions in `idxs`; those
/// without an element stay. The length of the index list counts.
CLOSURE_AS(194, void, (I64 basevar_nativeidxs, I64Out idxs, I64 sparsity),
           scatter_n(basevar_nativeidxs, basevar_nativeidxs.length(), sparsity, idxs))

/// The dense list of a sparse variable: its native indexes go to their positions in `idxs`; those
/// without an element stay. The length of the pattern counts.
CLOSURE_AS(195, void, (I64 basevar_nativeidxs, I64Out idxs, I64 sparsity),
           scatter_n(basevar_nativeidxs, sparsity.length(), sparsity, idxs))
CLOSURE_AS(196, void, (I64 basevar_nativeidxs, I64Out idxs, I64 sparsity),
           scatter_n(basevar_nativeidxs, sparsity.length(), sparsity, idxs))

/// Widens the list `nativeidxs` to 64 bits.
CLOSURE_AS(197, void, (I32 nativeidxs, I64Out r), convert_n(nativeidxs, nativeidxs.length(), r))
CLOSURE_AS(202, void, (I32 nativeidxs, I64Out r), convert_n(nativeidxs, nativeidxs.length(), r))
CLOSURE_AS(203, void, (I32 nativeidxs, I64Out r), convert_n(nativeidxs, nativeidxs.length(), r))

/// Whether `sorted`, and the first `n` entries of `varidxs` ascend strictly.
CLOSURE_AS(245, bool, (bool sorted, int n, I64 varidxs), strictly_ascending(sorted, varidxs, n))

/// The sorted list of variables from one that ascends already: `n` entries, narrowed to 32 bits,
/// from slot 1 of `varidxs32` on.
CLOSURE_AS(246, void, (int n, I64 varidxs, I32Out varidxs32),
           convert_n(varidxs, n, varidxs32.from(1)))

/// Sizes the sorted list of variables: `count` plus the distinct ones but the first among the `n`
/// entries of `varidxs`, which ascend in the order of `perm`.
CLOSURE(247, int, (int n, int count, I64 perm, I64 varidxs))
{
    for_each_further_value(n, perm, varidxs, [&](int64_t) { ++count; });
    return count;
}

/// Writes the sorted list of variables: the distinct ones but the first among the `n` entries of
/// `varidxs`, which ascend in the order of `perm`, narrowed to 32 bits, from slot `pos` of
/// `varidxs32` on. Returns the slot behind the last.
CLOSURE(248, int, (int pos, int n, I64 perm, I64 varidxs, I32Out varidxs32))
{
    for_each_further_value(n, perm, varidxs,
                           [&](int64_t v) { varidxs32[pos++] = static_cast<int32_t>(v); });
    return pos;
}

/// push_variable: the variable goes onto the r stack as an expression, with one term of coefficient
/// 1.0 in each of its `nnz` elements. Entry 0 of `ptr` is written too, `sp` only with `hassp`, the
/// shape not.
CLOSURE(146, void,
        (I64 basevar_nativeidxs, int cof_base, bool hassp, int nidxs_base, int nnz, int ptr_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int sp_base, I64 sparsity))
{
    iota_n(ri32.from(ptr_base), int64_t{nnz} + 1);
    copy_n(basevar_nativeidxs, nnz, ri64.from(nidxs_base));
    fill_n(rf64.from(cof_base), nnz, 1.0);
    if (hassp) copy_n(sparsity, nnz, ri64.from(sp_base));
}

} // namespace fragments
