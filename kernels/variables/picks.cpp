// Simple maps of a variable's index list: picks by subscripts, the dense list of a sparse variable,
// the variable as an expression, and sorted lists of variables.
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

/// The variable goes onto the stack as an expression: one term of coefficient 1.0 in each of its
/// `nnz` elements. Entry 0 of `ptr` is written too, `sp` only with `hassp`, the shape not.
CLOSURE(146, void,
        (I64 basevar_nativeidxs, int cof_base, bool hassp, int nidxs_base, int nnz, int ptr_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int sp_base, I64 sparsity))
{
    iota_n(ri32.from(ptr_base), int64_t{nnz} + 1);
    copy_n(basevar_nativeidxs, nnz, ri64.from(nidxs_base));
    fill_n(rf64.from(cof_base), nnz, 1.0);
    if (hassp) copy_n(sparsity, nnz, ri64.from(sp_base));
}

/// Values in list order to their dense positions; the other positions stay.
CLOSURE_AS(168, void, (I64 basevar_nativeidxs, F64 res, I64 sparsity, F64Out spread_res),
           scatter_n(res, basevar_nativeidxs.length(), sparsity, spread_res))
CLOSURE_AS(169, void, (I64 basevar_nativeidxs, F64 res, I64 sparsity, F64Out spread_res),
           scatter_n(res, basevar_nativeidxs.length(), sparsity, spread_res))

// A table of subscripts from one list for each dimension; the first list's length counts.

CLOSURE(171, void, (I32 index, I32MatrixOut midx))
{
    for (int64_t i = 0; i < index.length(); ++i) midx(i, 0) = index[i];
}
CLOSURE(172, void, (I32 i0, I32 i1, I32 i2, I32MatrixOut midxs))
{
    for (int64_t i = 0; i < i0.length(); ++i) {
        midxs(i, 0) = i0[i];
        midxs(i, 1) = i1[i];
        midxs(i, 2) = i2[i];
    }
}
CLOSURE(173, void, (I32 i0, I32 i1, I32MatrixOut midxs))
{
    for (int64_t i = 0; i < i0.length(); ++i) {
        midxs(i, 0) = i0[i];
        midxs(i, 1) = i1[i];
    }
}

/// Whether `bad`, or some subscript of the table is outside its dimension.
CLOSURE_AS(174, bool, (bool bad, I32Matrix midxs, I32 shape),
           any_out_of_range(bad, midxs, midxs.columns(), shape))

/// The same for plain indexes, all of dimension 0.
CLOSURE_AS(179, bool, (I32 idxs, bool bad, I32 shape), any_out_of_range(bad, idxs, shape))

/// The native index at each row of subscripts, of which the first `nd` columns count.
CLOSURE_AS(176, void, (I64 basevar_nativeidxs, I64Out idxs, I32Matrix midxs, int nd, I64 strides),
           pick_rows(basevar_nativeidxs, midxs, nd, strides, idxs))

/// Appends a dense part to a list pair: its native indexes from slot `pos` on, and the pattern 0,
/// 1, 2 and so on from `sppos` on.
CLOSURE(188, void, (I64Out basevar_nativeidxs, int pos, I64Out sparsity, int sppos, I64 thisnidxs))
{
    copy_n(thisnidxs, thisnidxs.length(), basevar_nativeidxs.from(pos));
    iota_n(sparsity.from(sppos), thisnidxs.length());
}

// A dense list for a stack of variables, each with its offset `pos`: a dense variable is copied
// (189), a sparse one scattered (192) into its zero-filled part (191).

CLOSURE_AS(189, void, (I64 basevar_nativeidxs, I64Out nindex, int pos),
           copy_n(basevar_nativeidxs, basevar_nativeidxs.length(), nindex.from(pos)))
CLOSURE_AS(191, void, (int n, I64Out nindex, int pos), fill_n(nindex.from(pos), n, 0))
CLOSURE_AS(192, void, (I64 basevar_nativeidxs, I64Out nindex, int pos, I64 sparsity),
           scatter_n(basevar_nativeidxs, sparsity.length(), sparsity, nindex.from(pos)))

/// The dense list of a sparse variable. Positions without an element stay as they are. The length
/// of the index list counts in 194, that of the pattern in 195 and 196.
CLOSURE_AS(194, void, (I64 basevar_nativeidxs, I64Out idxs, I64 sparsity),
           scatter_n(basevar_nativeidxs, basevar_nativeidxs.length(), sparsity, idxs))
CLOSURE_AS(195, void, (I64 basevar_nativeidxs, I64Out idxs, I64 sparsity),
           scatter_n(basevar_nativeidxs, sparsity.length(), sparsity, idxs))
CLOSURE_AS(196, void, (I64 basevar_nativeidxs, I64Out idxs, I64 sparsity),
           scatter_n(basevar_nativeidxs, sparsity.length(), sparsity, idxs))

/// Widens a list.
CLOSURE_AS(197, void, (I32 nativeidxs, I64Out r), convert_n(nativeidxs, nativeidxs.length(), r))
CLOSURE_AS(202, void, (I32 nativeidxs, I64Out r), convert_n(nativeidxs, nativeidxs.length(), r))
CLOSURE_AS(203, void, (I32 nativeidxs, I64Out r), convert_n(nativeidxs, nativeidxs.length(), r))

// Strictly ascending list of the variables in `varidxs`: copied if that ascends already (245, 246),
// otherwise taken in the order of a sorting permutation, without repeats (247, 248).

/// Whether `sorted`, and the first `n` entries ascend strictly.
CLOSURE_AS(245, bool, (bool sorted, int n, I64 varidxs), strictly_ascending(sorted, varidxs, n))

/// Narrows the list; slot 0 of the target stays.
CLOSURE_AS(246, void, (int n, I64 varidxs, I32Out varidxs32),
           convert_n(varidxs, n, varidxs32.from(1)))

/// `count` plus the distinct variables but the first.
CLOSURE(247, int, (int n, int count, I64 perm, I64 varidxs))
{
    for_each_further_value(n, perm, varidxs, [&](int64_t) { ++count; });
    return count;
}

/// Writes what 247 counts, from slot `pos` on. Returns the slot behind the last.
CLOSURE(248, int, (int pos, int n, I64 perm, I64 varidxs, I32Out varidxs32))
{
    for_each_further_value(n, perm, varidxs,
                           [&](int64_t v) { varidxs32[pos++] = static_cast<int32_t>(v); });
    return pos;
}

} // namespace fragments
