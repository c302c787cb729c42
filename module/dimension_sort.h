#pragma once

/// One pass of a radix sort of a sparse array's elements by their subscripts in one dimension. The
/// element k has the linear index sp[k] in an array of this shape and these strides. `ptr`, of one
/// entry more than the dimension's extent, starts at 0; between the two steps stands its running
/// sum.

#include <cstdint>

#include "algorithms.h"
#include "array.h"
#include "subscripts.h"

namespace fragments {

template <class S>
auto subscript_in(int dim, I32<S> shape, I64<S> strides, I64<S> sp)
{
    return [=](int64_t k) { return subscript(sp[k], strides[dim], shape[dim]); };
}

/// ptr[c + 1] gets the number of elements with subscript c added.
template <class S>
void count_subscripts(int64_t n, int dim, I32<S> shape, I64<S> strides, I64<S> sp, I32Out<S> ptr)
{
    count_keys(n, subscript_in(dim, shape, strides, sp), ptr);
}

/// The elements in the order of `perm`, each to the next place of its subscript in `sorted`.
template <class S>
void place_by_subscript(int64_t n, I32<S> perm, int dim, I32<S> shape, I64<S> strides, I64<S> sp,
                        I32Out<S> ptr, I32Out<S> sorted)
{
    place_by_key(
        n, [=](int64_t k) { return perm[k]; }, subscript_in(dim, shape, strides, sp), ptr, sorted);
}

} // namespace fragments
