// A counting sort by the outer and inner subscripts of linear indexes.

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "scratch.h"

namespace fragments {

/// Sorts `perm`, all of it, by the subscripts in dimensions 0 and 2 that the linear index val[p] of
/// an entry p has in a `d0` x `d1` x `d2` array: entries that differ in the middle subscript alone
/// keep their order. `ptrb`, of `d0` * `d2` + 1 entries, is left with the end of each bucket at the
/// bucket's key. Time linear in the entries and the buckets.
CLOSURE(103, void, (int d0, int d1, int d2, I64Out perm, I64Out ptrb, I64 val))
{
    const int64_t n = perm.length();
    const Scratch<int64_t> old(n);
    const auto block = static_cast<uint64_t>(int64_t{d1} * d2);
    const auto inner = static_cast<uint64_t>(d2);
    const auto key = [&](int64_t p) {
        const auto linear = static_cast<uint64_t>(val[p]);
        return static_cast<int64_t>(quotient(linear, block) * inner + remainder(linear, inner));
    };
    const int64_t keys = int64_t{d0} * d2;
    fill_n(ptrb, keys + 1, 0);
    count_keys(
        n, [&](int64_t t) { return key(perm[t]); }, ptrb);
    running_sum(ptrb, keys);
    for (int64_t t = 0; t < n; ++t) old[t] = perm[t];
    place_by_key(
        n, [&](int64_t t) { return old[t]; }, key, ptrb, perm);
}

} // namespace fragments
