// Doubly linked lists of slots. next[i] and prev[i] are the neighbours of slot i in its list, -1 at
// either end. Several lists live in one pair of arrays, as a slot stands in one list at most.
//
// Walks go by count, so no closure looks for the end of a list. Heads and counts are the host's.

#include <algorithm>

#include "closure_frame.h"

namespace fragments {

namespace {

/// The slot reached by `steps` links from `item`; calls `visit` with each slot that a step reaches.
template <class S, class Visit>
int walk(int item, I32<S> next, int64_t steps, Visit visit)
{
    for (; steps > 0; --steps) visit(item = next[item]);
    return item;
}

template <class S>
int walk(int item, I32<S> next, int64_t steps)
{
    return walk(item, next, steps, [](int) {});
}

/// Links the slots `first` to `last` - 1 to a chain, whose two outer links stay as they are.
template <class S>
void link_chain(int64_t first, int64_t last, I32Out<S> next, I32Out<S> prev)
{
    for (int64_t i = first; i < last - 1; ++i) {
        next[i] = static_cast<int32_t>(i + 1);
        prev[i + 1] = static_cast<int32_t>(i);
    }
}

/// Lists the `nitem` slots from `item` on in `run`. Returns the slot behind them.
template <class S>
int copy_run(int item, I32<S> next, int nitem, I32Out<S> run)
{
    for (int64_t k = 0; k < nitem; ++k) {
        run[k] = item;
        item = next[item];
    }
    return item;
}

} // namespace

/// Links slots to a chain: `first` to `last` - 1, or the first `n`. Only the inner links are
/// written: `prev` of the first slot and `next` of the last are the host's.
CLOSURE_AS(645, void, (int first, int last, I32Out next, I32Out prev),
           link_chain(first, last, next, prev))
CLOSURE_AS(639, void, (int n, I32Out next, I32Out prev), link_chain(0, n, next, prev))

/// Last slot of the run of `nitem` slots that starts at `item`; `item` itself if that are less than
/// two.
CLOSURE_AS(644, int, (int item, I32 next, int nitem), walk(item, next, int64_t{nitem} - 1))

/// The same, and the greatest of `maxitem` and the slots of the run but the first.
CLOSURE(643, results(int, int), (int item, int maxitem, I32 next, int nitem))
{
    const int last =
        walk(item, next, int64_t{nitem} - 1, [&](int slot) { maxitem = std::max(maxitem, slot); });
    return {last, maxitem};
}

/// Lists the run of `nitem` slots from `item` on in `target`, from place `pos` on. The link of the
/// run's last slot is followed too.
CLOSURE(642, void, (int item, I32 next, int nitem, int pos, I32Out target))
{
    copy_run(item, next, nitem, target.from(pos));
}
/// The same; returns the slot behind the run.
CLOSURE_AS(641, int, (int item, I32 next, int nitem, int pos, I32Out target),
           copy_run(item, next, nitem, target.from(pos)))

/// Moves the run of `nwant` slots from `item` on, at least one, from the list that starts at `head`
/// to the front of the one that starts at `dsthead`, in its order. Returns both new heads, and
/// `nused` plus `nwant`. The cost is that of walking the run.
CLOSURE(640, results(int, int, int),
        (int dsthead, int head, int item, I32Out next, int nused, int nwant, I32Out prev))
{
    const int tail = walk(item, next, int64_t{nwant} - 1);
    const int after = next[tail];
    const int before = prev[item];
    if (before >= 0)
        next[before] = after;
    else
        head = after;
    if (after >= 0) prev[after] = before;
    prev[item] = -1;
    next[tail] = dsthead;
    if (dsthead >= 0) prev[dsthead] = tail;
    return {item, head, nused + nwant};
}

} // namespace fragments
