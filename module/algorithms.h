#pragma once

/// The loops that recur in the closures. Arguments stand in this order: a value that is carried on;
/// the array that is read, or the only one; the count; what chooses among the elements; the array
/// that is written. In a sort the count comes first, then the functions, then the arrays.
///
/// A count of 0 or less does nothing. Elements are taken in ascending order unless a loop says
/// otherwise, and the outcome is that of the plain loop also where arrays overlap.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <type_traits>

#include "array.h"

namespace fragments {

/// Whether a run of elements is one block of memory that may be moved without looking at each.
template <class S>
constexpr bool is_block = std::is_same_v<S, Contiguous> && !checked;

/// Below this length, as the terms of one element are, a call of the C library doesn't pay.
constexpr int64_t short_run = 32;

/// target[i] = source[i].
template <class T, class S>
void copy_n(Array<T, S> source, int64_t n, ArrayOut<T, S> target)
{
    if constexpr (is_block<S>) {
        // A block move is the ascending copy unless the target starts inside the source.
        const auto bytes = static_cast<uint64_t>(n) * sizeof(T);
        const auto ahead =
            reinterpret_cast<uint64_t>(target.data()) - reinterpret_cast<uint64_t>(source.data());
        if (n >= short_run && ahead >= bytes) {
            std::memmove(target.data(), source.data(), bytes);
            return;
        }
    }
    for (int64_t i = 0; i < n; ++i) target[i] = source[i];
}

/// target[i] = source[i], converted to the target's kind.
template <class From, class To, class S>
void convert_n(Array<From, S> source, int64_t n, ArrayOut<To, S> target)
{
    for (int64_t i = 0; i < n; ++i) target[i] = static_cast<To>(source[i]);
}

/// target[i] = value.
template <class T, class S>
void fill_n(ArrayOut<T, S> target, int64_t n, std::type_identity_t<T> value)
{
    if constexpr (std::is_same_v<T, int32_t> && is_block<S>) {
        // The C library has this fill for 32-bit characters, which it asks to be aligned, and for
        // the machine's vector width.
        static_assert(sizeof(wchar_t) == sizeof(int32_t));
        if (n >= short_run && reinterpret_cast<uint64_t>(target.data()) % alignof(wchar_t) == 0) {
            std::wmemset(reinterpret_cast<wchar_t*>(target.data()), value, static_cast<size_t>(n));
            return;
        }
    }
    for (int64_t i = 0; i < n; ++i) target[i] = value;
}

/// target[i] = source[places[i]].
template <class T, class P, class S>
void gather_n(Array<T, S> source, int64_t n, Array<P, S> places, ArrayOut<T, S> target)
{
    for (int64_t i = 0; i < n; ++i) target[i] = source[places[i]];
}

/// target[places[i]] = source[i]. Of several entries for one place the last stays.
template <class T, class P, class S>
void scatter_n(Array<T, S> source, int64_t n, Array<P, S> places, ArrayOut<T, S> target)
{
    for (int64_t i = 0; i < n; ++i) target[places[i]] = source[i];
}

/// target[i] = i.
template <class T, class S>
void iota_n(ArrayOut<T, S> target, int64_t n)
{
    for (int64_t i = 0; i < n; ++i) target[i] = static_cast<T>(i);
}

/// ptr[i + 1] += ptr[i] for i below `n`: counts, each stored one entry up, become offsets.
template <class T, class S>
void running_sum(ArrayOut<T, S> ptr, int64_t n)
{
    if (n <= 0) return;
    T total = ptr[0];
    for (int64_t i = 1; i <= n; ++i) ptr[i] = total += ptr[i];
}

/// ptr[i] = ptr[i - 1] for i from `n` down to 1: cursors, each left at the end of its group, become
/// the groups' starts again. Entry 0 stays.
template <class T, class S>
void shift_up(ArrayOut<T, S> ptr, int64_t n)
{
    for (int64_t i = n; i > 0; --i) ptr[i] = ptr[i - 1];
}

/// `initial` times the first `n` entries of `extents`, in the type of `initial`.
template <class Product, class T, class S>
Product product(Product initial, Array<T, S> extents, int64_t n)
{
    for (int64_t i = 0; i < n; ++i) initial *= static_cast<Product>(extents[i]);
    return initial;
}

/// `initial` times the extents behind dimension `k`, up to but not including dimension `end`.
template <class Product, class T, class S>
Product product_behind(Product initial, Array<T, S> extents, int64_t k, int64_t end)
{
    return product(initial, extents.from(k + 1), end - 1 - k);
}

/// The extents behind dimension `k`, up to but not including dimension `end`, each moved by `shift`
/// dimensions: target[i + shift] = shape[i].
template <class S>
void copy_behind(int64_t k, int64_t end, I32<S> shape, int64_t shift, I32Out<S> target)
{
    copy_n(shape.from(k + 1), end - 1 - k, target.from(k + 1 + shift));
}

/// `initial` plus the first `n` entries of `list`, in the type of `initial`.
template <class Sum, class T, class S>
Sum sum_n(Sum initial, Array<T, S> list, int64_t n)
{
    for (int64_t i = 0; i < n; ++i) initial += static_cast<Sum>(list[i]);
    return initial;
}

/// The greatest of `initial` and the first `n` entries of `list`.
template <class T, class S>
T greatest(T initial, Array<T, S> list, int64_t n)
{
    for (int64_t i = 0; i < n; ++i) initial = std::max(initial, list[i]);
    return initial;
}

/// Row-major strides but for the last, which the caller has set:
/// strides[i] = extents[i + 1] * strides[i + 1] for i from `nd` - 2 down to 0, in the type of the
/// strides.
template <class T, class S, class Strides>
void row_major_strides(Array<T, S> extents, int64_t nd, Strides strides)
{
    using Stride = decltype(+strides[0]);
    for (int64_t i = nd - 2; i >= 0; --i)
        strides[i] = static_cast<Stride>(extents[i + 1]) * strides[i + 1];
}

/// All row-major strides, the last one 1.
template <class T, class S, class Strides>
void all_row_major_strides(Array<T, S> extents, int64_t nd, Strides strides)
{
    if (nd > 0) strides[nd - 1] = 1;
    row_major_strides(extents, nd, strides);
}

/// `initial` plus the sum of subscripts[k] * strides[k] for k below `n`, in the type of `initial`.
template <class Sum, class Subscripts, class Strides>
Sum dot_n(Sum initial, Subscripts subscripts, Strides strides, int64_t n)
{
    for (int64_t k = 0; k < n; ++k)
        initial += static_cast<Sum>(subscripts[k]) * static_cast<Sum>(strides[k]);
    return initial;
}

/// `flag`, and list[i] < list[i + 1] for all neighbours of the first `n` entries.
template <class T, class S>
bool strictly_ascending(bool flag, Array<T, S> list, int64_t n)
{
    for (int64_t i = 0; flag && i < n - 1; ++i) flag = list[i] < list[i + 1];
    return flag;
}

/// `flag`, and list[i] <= list[i + 1] for all neighbours of the first `n` entries.
template <class T, class S>
bool ascending(bool flag, Array<T, S> list, int64_t n)
{
    for (int64_t i = 0; flag && i < n - 1; ++i) flag = list[i] <= list[i + 1];
    return flag;
}

/// A matrix row by row: target[i * columns + j] = matrix(i, j).
template <class T, class S>
void flatten(Matrix<T, S> matrix, int64_t rows, int64_t columns, ArrayOut<T, S> target)
{
    for (int64_t i = 0; i < rows; ++i)
        for (int64_t j = 0; j < columns; ++j) target[i * columns + j] = matrix(i, j);
}

// Counting sorts, in three steps: count_keys, running_sum, place_by_key. A count stands one entry
// above its key, so that the running sum leaves each group's start at its key; placing advances
// that to the group's end, which is the start of the next group. Where counts stand two entries
// above their keys, the start stands one above, and after placing the array is an ordinary pointer
// array: the steps then take ptr.from(1) for `ptr`.

/// ptr[key(i) + 1] += 1.
template <class P, class S, class Key>
void count_keys(int64_t n, Key key, ArrayOut<P, S> ptr)
{
    for (int64_t i = 0; i < n; ++i) ++ptr[key(i) + 1];
}

/// The items item(0) to item(n - 1), in this order, each to the next free place of its group:
/// target[next[key(item)]] = item, and then that place advances. Stable.
template <class P, class T, class S, class Item, class Key>
void place_by_key(int64_t n, Item item, Key key, ArrayOut<P, S> next, ArrayOut<T, S> target)
{
    for (int64_t i = 0; i < n; ++i) {
        const auto p = item(i);
        const auto group = key(p);
        target[next[group]] = static_cast<T>(p);
        ++next[group];
    }
}

/// The positions themselves as items.
constexpr auto each_position = [](int64_t i) { return i; };

/// All three steps over `ptr`, of `keys` + 1 entries, which it fills with 0 first. The items have
/// to be the positions 0 to n - 1 in some order, as keys are counted by position.
template <class P, class T, class S, class Item, class Key>
void counting_sort(int64_t n, Item item, Key key, int64_t keys, ArrayOut<P, S> ptr,
                   ArrayOut<T, S> target)
{
    fill_n(ptr, keys + 1, 0);
    count_keys(n, key, ptr);
    running_sum(ptr, keys);
    place_by_key(n, item, key, ptr, target);
}

/// Counting sort of 0 to `n` - 1 by `key`, stable: the positions with key c go to `perm` from
/// ptr[c] up to but not including ptr[c + 1]. All `keys` + 1 entries of `ptr` are written.
template <class S, class Key>
void group_by(int64_t n, Key key, int keys, I32Out<S> ptr, I32Out<S> perm)
{
    counting_sort(n, each_position, key, keys, ptr, perm);
    shift_up(ptr, keys);
    ptr[0] = 0;
}

/// One pass of an LSD radix sort, stable: `sorted` gets the positions 0 to `n` - 1 in the order of
/// `perm`, rearranged by ascending digit. `counter` is scratch of `digits` + 1 entries.
template <class S, class Digit>
void radix_pass(I32<S> perm, int64_t n, Digit digit, int64_t digits, I32Out<S> counter,
                I32Out<S> sorted)
{
    counting_sort(
        n, [&](int64_t t) { return perm[t]; }, digit, digits, counter, sorted);
}

/// Places `begin` up to but not including `end` of a list.
struct Range
{
    int64_t begin;
    int64_t end;
};

/// The end of the run of places from `begin` on whose key is `common`.
template <class Key, class Value>
int64_t run_end(int64_t begin, int64_t end, Key key, Value common)
{
    while (begin < end && key(begin) == common) ++begin;
    return begin;
}

/// Calls `run(key, range)` for each maximal range of places with equal key, from `begin` on.
/// Returns `end`, or `begin` if there is no place.
template <class Key, class Run>
int64_t for_each_run(int64_t begin, int64_t end, Key key, Run run)
{
    while (begin < end) {
        const auto common = key(begin);
        const int64_t next = run_end(begin + 1, end, key, common);
        run(common, Range{begin, next});
        begin = next;
    }
    return begin;
}

/// The first of the places, whose keys ascend, with a key that isn't below `bound`; their end if
/// there is none.
template <class Key, class Value>
int64_t lower_bound(Range places, Key key, Value bound)
{
    while (places.begin < places.end) {
        const int64_t middle = places.begin + (places.end - places.begin) / 2;
        if (key(middle) < bound)
            places.begin = middle + 1;
        else
            places.end = middle;
    }
    return places.begin;
}

/// Merges two lists of ascending keys: calls `meet(key)` where the keys at both cursors are equal,
/// which moves the cursors on, and else moves that of the lower key. Reads no key of a list once
/// the other is used up, and leaves the cursors there.
template <class KeyA, class KeyB, class Meet>
void merge(Range& a, KeyA key_a, Range& b, KeyB key_b, Meet meet)
{
    while (a.begin < a.end && b.begin < b.end) {
        const auto left = key_a(a.begin);
        const auto right = key_b(b.begin);
        if (left < right)
            ++a.begin;
        else if (right < left)
            ++b.begin;
        else
            meet(left);
    }
}

/// Merges two lists of strictly ascending keys and calls `match(a, b)` with the places of each key
/// that both hold.
template <class KeyA, class KeyB, class Match>
void for_each_match(Range a, KeyA key_a, Range b, KeyB key_b, Match match)
{
    merge(a, key_a, b, key_b, [&](auto) { match(a.begin++, b.begin++); });
}

/// Merges two lists of elements by their strictly ascending linear indexes, from the places
/// list1.begin and list2.begin on: calls `element(in1, in2)` for each distinct index, with whether
/// it stands in each list, and then steps over it. Reads no index once a list is used up.
template <class Index1, class Index2, class Element>
void merge_elements(Range& list1, Index1 index1, Range& list2, Index2 index2, Element element)
{
    while (list1.begin < list1.end && list2.begin < list2.end) {
        const int64_t linear1 = index1(list1.begin);
        const int64_t linear2 = index2(list2.begin);
        const bool in1 = linear1 <= linear2;
        const bool in2 = linear2 <= linear1;
        element(in1, in2);
        list1.begin += in1;
        list2.begin += in2;
    }
    for (; list1.begin < list1.end; ++list1.begin) element(true, false);
    for (; list2.begin < list2.end; ++list2.begin) element(false, true);
}

} // namespace fragments
