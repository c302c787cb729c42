// Slices of variables and constraints: the index list of a box or a line of positions.
//
// A view of a variable has an index list, one native index for each stored element, and if it is
// sparse a pattern of strictly ascending row-major linear indexes beside it. Constraints have i32
// lists of row codes and are always dense. A box has, in dimension k, the subscripts first[k] up
// to but not including last[k].

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"
#include "scratch.h"
#include "subscripts.h"

namespace fragments {

namespace {

/// Copies `n` entries of the row-major `list` from the box on, in row-major order of the box: an
/// odometer that moves a run of the innermost dimension at a time and never divides. Dimension 0
/// has no carry, so the walk ends by the count. `nd` is at least 1.
template <class T, class S>
void slice_dense(Array<T, S> list, I32<S> first, I32<S> last, int nd, I32<S> shape,
                 ArrayOut<T, S> slice, int n)
{
    if (n < 1) return;
    const Scratch<int32_t> stride(nd);
    const Scratch<int32_t> at(nd); // linear position of the current run at each level
    const Scratch<int32_t> subscript(nd);
    const int inner = nd - 1;
    all_row_major_strides(shape, nd, stride.data());
    const int32_t start = dot_n(int32_t{0}, first, stride.data(), nd);
    for (int k = 0; k < nd; ++k) {
        at[k] = start;
        subscript[k] = first[k];
    }
    const int run = nd == 1 ? n : std::max(last[inner] - first[inner], 1);
    for (int64_t t = 0; t < n; t += run) {
        copy_n(list.from(at[inner]), std::min<int64_t>(run, n - t), slice.from(t));
        subscript[inner] += run;
        int k = inner;
        for (; k > 0 && subscript[k] >= last[k]; --k) {
            subscript[k] = first[k];
            ++subscript[k - 1];
            at[k - 1] += stride[k - 1];
        }
        for (int m = k + 1; m < nd; ++m) at[m] = at[k];
    }
}

/// What for_each_in_box asks for: the subscripts of entry t of the pattern, in `key`, which isn't
/// touched without dimensions.
template <class S>
auto unravel_into(I32Out<S> key, int nd, I32<S> shape, I64<S> sparsity)
{
    return [=](int64_t t) {
        if (nd > 0) key[0] = static_cast<int32_t>(unravel(sparsity[t], shape, nd, key));
        return key;
    };
}

} // namespace

/// `init` plus the linear index of the subscripts `firstidx`, where a line through a variable
/// begins. The length of `step` says how many dimensions there are.
CLOSURE_AS(181, long long, (I32 firstidx, long long init, I32 step, I64 strides),
           dot_n(init, firstidx, strides, step.length()))

/// `init` plus the linear distance of one step along a line, of `step` subscripts.
CLOSURE_AS(182, long long, (I32 step, long long init, I64 strides),
           dot_n(init, step, strides, step.length()))

/// The `n` native indexes of a line through a dense variable: residxs[i] is that at the linear
/// position `first` + i `step`.
CLOSURE(183, void, (I64 basevar_nativeidxs, int n, I64Out residxs, long long first, long long step))
{
    for (int64_t i = 0; i < n; ++i) residxs[i] = basevar_nativeidxs[first + i * step];
}

/// `init` times the number of positions of a box, in 32 bits.
CLOSURE_AS(184, int, (I32 first, I32 last, int nd, int init), box_size(init, first, last, nd))
CLOSURE_AS(259, int, (I32 firsta, I32 lasta, int nd, int init), box_size(init, firsta, lasta, nd))

/// Sizes the slice of a sparse variable: `count` plus the entries of the pattern `sparsity` that
/// lie in the box. `key` is scratch of `nd` entries.
CLOSURE(185, int, (I32 first, I32Out key, I32 last, int nd, int count, I32 shape, I64 sparsity))
{
    for_each_in_box(first, last, nd, sparsity.length(), unravel_into(key, nd, shape, sparsity),
                    [&](int64_t, I32) { ++count; });
    return count;
}

/// Writes the slice of a sparse variable from slot `pos` on: of each entry of the pattern in the
/// box the native index, and the linear index within the box, of `sliceshape`, in 32 bits. The
/// entries keep their order, so `sp` ascends strictly as `sparsity` does. `key` is scratch of `nd`
/// entries. Returns the slot behind the last.
CLOSURE(186, int,
        (I64 basevar_nativeidxs, I32 first, int pos, I64Out idxs, I32Out key, I32 last, int nd,
         I32 shape, I32 sliceshape, I64Out sp, I64 sparsity))
{
    for_each_in_box(first, last, nd, sparsity.length(), unravel_into(key, nd, shape, sparsity),
                    [&](int64_t t, I32 subscripts) {
                        idxs[pos] = basevar_nativeidxs[t];
                        int32_t linear = 0;
                        for (int k = 0; k < nd; ++k)
                            linear = linear * sliceshape[k] + subscripts[k] - first[k];
                        sp[pos] = linear;
                        ++pos;
                    });
    return pos;
}

/// Writes the slice of a dense variable: the native indexes at the `n` positions of the box, in
/// row-major order, to the start of `sliceidxs`. There is at least one dimension.
CLOSURE_AS(187, void,
           (I64 basevar_nativeidxs, I32 first, I32 last, int nd, I32 shape, I64Out sliceidxs,
            int n),
           slice_dense(basevar_nativeidxs, first, last, nd, shape, sliceidxs, n))

/// `init` plus the linear index of the subscripts `idxa` in a constraint, in 32 bits.
CLOSURE_AS(258, int, (I32 idxa, int init, int nd, I64 strides), dot_n(init, idxa, strides, nd))

/// Writes the slice of a constraint: the row codes at the `n` positions of the box, in row-major
/// order, to the start of `sliceidxs`. There is at least one dimension.
CLOSURE_AS(260, void,
           (I32 con_nativeidxs, I32 firsta, I32 lasta, int nd, I32 shape, I32Out sliceidxs, int n),
           slice_dense(con_nativeidxs, firsta, lasta, nd, shape, sliceidxs, n))

} // namespace fragments
