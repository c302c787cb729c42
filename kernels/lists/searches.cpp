// Searches in lists: a place in a sorted one by bisection, and the range of the values at given
// places.

#include <algorithm>
#include <tuple>

#include "closure_frame.h"

namespace fragments {

namespace {

/// Halves the places between `bot` and `top`: `bot` moves to a place where `below`, `top` to one
/// where not, until they are neighbours.
template <class Below>
std::tuple<int, int> bisect(int bot, int top, Below below)
{
    while (bot < int64_t{top} - 1) {
        const int mid = static_cast<int>((int64_t{bot} + top) / 2);
        (below(mid) ? bot : top) = mid;
    }
    return {bot, top};
}

/// range[0] and range[1] get the least and the greatest of the values at the places idx[ibegin] to
/// idx[iend - 1], of which there is at least one.
template <class T, class S>
void find_range(Array<T, S> values, I64<S> idx, int64_t ibegin, int64_t iend, ArrayOut<T, S> range)
{
    T least = values[idx[ibegin]];
    T greatest = least;
    for (int64_t i = ibegin + 1; i < iend; ++i) {
        const T value = values[idx[i]];
        least = std::min(least, value);
        greatest = std::max(greatest, value);
    }
    range[0] = least;
    range[1] = greatest;
}

/// The same for two lists of values, the second of which may be absent: its range goes to `res`
/// behind the first one's.
template <class T, class S>
void find_ranges(I64<S> idx, int64_t ibegin, int64_t iend, Array<T, S> vals1, Array<T, S> vals2,
                 ArrayOut<T, S> res)
{
    find_range(vals1, idx, ibegin, iend, res);
    if (vals2.given()) find_range(vals2, idx, ibegin, iend, res.from(2));
}

} // namespace

/// Bisection of the ascending `values` between the places `bot` and `top`, neither of which is
/// looked at, down to neighbours: (bot, top). Up to `bot` values are less than `value`,
/// from `top` on they are not, so a `value` that is there has its first place at `top`.
CLOSURE(111, results(int, int), (int bot, int top, long long value, I64 values))
{
    return bisect(bot, top, [&](int mid) { return values[mid] < value; });
}
/// The same with values up to `value` on the left side: one that is there has its last place at
/// `bot`.
CLOSURE(110, results(int, int), (int bot, int top, long long value, I64 values))
{
    return bisect(bot, top, [&](int mid) { return values[mid] <= value; });
}

/// The least and the greatest of `vals1` at the places idx[ibegin] to idx[iend - 1], of which there
/// is at least one, to res[0] and res[1]; of `vals2`, unless that is None, to res[2] and res[3].
CLOSURE_AS(105, void, (long long ibegin, I64 idx, long long iend, I32Out res, I32 vals1, I32 vals2),
           find_ranges(idx, ibegin, iend, vals1, vals2, res))
CLOSURE_AS(104, void, (long long ibegin, I64 idx, long long iend, I64Out res, I64 vals1, I64 vals2),
           find_ranges(idx, ibegin, iend, vals1, vals2, res))

} // namespace fragments
