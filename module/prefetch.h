#pragma once

/// Loops over places in no order wait for memory at each of them. Asked for some rounds ahead, many
/// places are on their way at a time.

#include <cstdint>
#include <type_traits>

#include "algorithms.h"
#include "array.h"

namespace fragments {

/// How many rounds ahead: the latency of memory, and no more than a cache holds meanwhile.
constexpr int64_t prefetch_distance = 64;

/// Bytes that stay in a core's own cache beside what else a loop goes through.
constexpr int64_t near_bytes = 1 << 19;

/// Calls `loop(far)`, where `far` says at compile time whether it is to ask for places in `target`:
/// that doesn't pay for an array that stays near.
template <class T, class S, class Loop>
void with_prefetch(Array<T, S> target, Loop loop)
{
    if constexpr (is_block<S>)
        if (target.length() * static_cast<int64_t>(sizeof(T)) > near_bytes)
            return loop(std::true_type{});
    loop(std::false_type{});
}

/// Asks for an element, which needn't exist. It comes into the second level of the cache only: more
/// lines can be on their way to that than to the first. Inlined, as a call that does no more would
/// be taken for one without an effect.
template <class T, class S>
[[gnu::always_inline]] inline void prefetch(Array<T, S> array, int64_t i)
{
    __builtin_prefetch(array.from(i).data(), 0, 2);
}

/// Element i as it is now, or 0 if there is none: a place that will likely be needed, from an index
/// that may still be written.
template <class T, class S>
int64_t peek(Array<T, S> array, int64_t i)
{
    return static_cast<uint64_t>(i) < static_cast<uint64_t>(array.length()) ? array[i] : 0;
}

} // namespace fragments
