"""Closures on plain arrays: linked lists, triplets, sorted lists, fills, searches, odometers."""

import bisect
import itertools
import random
import unittest

from support import LAYOUTS, MARKER, assert_table, call, f64, i32, i64, matrix

I, Q, D = MARKER["i"], MARKER["q"], MARKER["d"]
BIG = 2**31 - 1

TABLE = [
    ([645], (1, 3, i32([I] * 4), i32([I] * 4)), None, [I, 2, I, I], [I, I, 1, I]),
    ([638], (2, f64([D] * 4), i32([1, 0, 1]), i32([0, 1, 0]), f64([1, 2, 3])), None, [D, 2, 3, D]),
    ([644], (3, i32([1, 2, 5, 4, 0, 7]), 3), 0), ([641], (5, None, 0, 0, None), 5),
    ([643], (3, 1, i32([1, 2, 5, 4, 0, 7]), 3), (0, 4)), ([643], (5, 2, None, 1), (5, 2)),
    ([642], (3, i32([1, 2, 5, 4, 0, 7]), 3, 1, i32([I] * 5)), None, [I, 3, 4, 0, I]),
    ([641], (3, i32([1, 2, 5, 4, 0, 7]), 3, 1, i32([I] * 5)), 1, [I, 3, 4, 0, I]),
    ([636], (1, i32([I] * 4), i32([5, 6, 7]), i32([I] * 4), i32([2, 3, 4]), f64([D] * 4),
             f64([0.5, -0.0, 3.0])), 3, [I, 5, 7, I], [I, 2, 4, I], [D, 0.5, 3.0, D]),
    ([637], (3, 2**40, 1, i64([Q] * 4), i32([0, 0, 7, 2])), 2, [1, 2, 2, Q]),  # 7 is in no row
    ([635], (3, f64([0.0, -0.0, float("nan"), 1.0])), 5),
    ([633], (2, 2, 1, i32([I] * 5), i32([I] * 5)), 5, [I, 0, 0, 1, 1], [I, 0, 1, 0, 1]),
    ([632], (f64([9, 1, 2, 3, 4]), 2, 2, f64([D] * 5), 1, 3), 5, [1, 3, D, 2, 4]),
    ([631, 630], (4, 9, 2, i32([7, -1, 50]), i32([3, 8, 50])), (7, 9)),
    ([629], (matrix("d", [[3.0], [0.0]]), 2, 1, 1, i32([I] * 3), i32([I] * 3), f64([D] * 3)), 3,
     [I, 0, 1], [I, 0, 0], [D, 3, 0]),
    ([628, 627], (5, i32([BIG, 2, 9]), 2), 6 - 2**31), ([602], (1, i32([BIG, 2]), 5), 5 * BIG),
    ([626], (2, 1, i32([4, 0]), 10, -1, i32([I] * 3), i32([I] * 3)), None, [I, 14, 10], [I, 3, -1]),
    ([619, 611], (i32([BIG, 2, 3]), -5), -30 * BIG), ([620], (True, None, 3, 0), True),
    ([610, 609], (f64([D] * 3), -2.0, 2, f64([1.5, 4.0, 1.0])), None, [-3.0, -8.0, D]),
    ([608], (i32([I] * 3), 1, 1), None, [I, 99999, I]), ([608, 607, 606, 605], (None, 0, 1), None),
    ([607], (i64([Q] * 3), 1, 1), None, [Q, 99998, Q]), ([605], (i64([Q, Q]), 7, 1), None, [Q, 6]),
    ([606], (f64([D] * 3), 1, 1), None, [D, 99997, D]),
    ([109, 107, 106], (2, i64([Q] * 3), 2**40), None, [2**40, 2**40, Q]),
    ([105], (1, i64([9, 2, 0, 2]), 4, i32([I] * 5), i32([4, 9, -3]), i32([1, 9, 1])), None,
     [-3, 4, 1, 1, I]),
    ([104], (1, i64([9, 2, 0, 1]), 3, i64([Q] * 3), i64([4, 9, 2**40]), None), None, [4, 2**40, Q]),
    ([102], (i32([3, 0, 3]), f64([D] * 5), f64([1, 2, 4])), None, [2, D, D, 4, D]),
    ([101], (i32([3, 0, 3]), f64([2, 1, 1, 4]), f64([D] * 4)), None, [4, 2, 4, D]),
]


def cases(count=60):
    """A source of random numbers and a layout, in turn contiguous and strided."""
    return ((random.Random(seed), LAYOUTS[seed % 2]) for seed in range(count))


class Lists(unittest.TestCase):
    def test_table(self):
        assert_table(self, TABLE)

    def test_flags(self):
        for rng, lay in cases(200):
            flag, n = rng.random() < 0.5, rng.randrange(5)
            a, b = (rng.choices([-1, 0, 0, 1, 1, 2, 3], k=n) for _ in "ab")
            ai, bi, aq = lay(i32(a)), lay(i32(b)), lay(i64(a))
            ab = matrix("i", list(zip(a, b)))
            found = [call(604, n - 1, aq, flag), call(614, aq, flag), call(621, aq, flag),
                     call(634, 3, 2, n, flag, ai, bi), call(612, i32([3, 2]), flag, ab),
                     call(620, flag, aq, n, 3), call(603, aq, flag, 3)]
            outside = flag or any(not (0 <= i < 3 and 0 <= j < 2) for i, j in zip(a, b))
            self.assertEqual(found, [flag and a == sorted(a)] * 3 + [outside] * 2 + [
                flag or any(not 0 <= i < 3 for i in a),
                flag and all(i < j and 0 <= j < 3 for i, j in zip(a, a[1:]))])

    def test_moves_between_linked_lists(self):
        for rng, lay in cases():
            lists, heads = [list(range(7)), []], [0, -1]
            follow, before = lay(i32([-1] * 7)), lay(i32([-1] * 7))
            call(639, 7, follow, before)
            for step in range(12):
                a = rng.choice([a for a in (0, 1) if lists[a]])
                first = rng.randrange(len(lists[a]))
                moved = lists[a][first : rng.randint(first + 1, len(lists[a]))]
                nwant = rng.randrange(2) if len(moved) == 1 else len(moved)
                heads[1 - a], heads[a], used = call(640, heads[1 - a], heads[a], moved[0], follow,
                                                    step, nwant, before)
                del lists[a][first : first + len(moved)]
                lists[1 - a][:0] = moved
                self.assertEqual([used, *heads], [step + nwant, *((s + [-1])[0] for s in lists)])
                for slots in lists:
                    self.assertEqual([follow[s] for s in slots], (slots + [-1])[1:])
                    self.assertEqual([before[s] for s in slots], ([-1] + slots)[: len(slots)])

    def test_sorted_lists(self):
        for rng, lay in cases():
            shape = [rng.randrange(1, 4) for _ in range(rng.randrange(1, 4))]
            positions = list(itertools.product(*map(range, shape)))
            sub = rng.choices(positions, k=rng.randrange(1, 9))
            cof_, inst_, sums = rng.choices([1.0, -1.0, 0.5], k=len(sub)), i64([Q] * len(sub)), {}
            call(613, lay(i32(shape)), inst_, matrix("i", sub))
            self.assertEqual(list(inst_), [*map(positions.index, sub)])
            order = sorted(range(len(sub)), key=inst_.__getitem__)
            for t in order:
                sums[inst_[t]] = sums.get(inst_[t], 0.0) + cof_[t]
            for count, merge in ((617, 618), (624, 625), (615, 616), (622, 623)):
                tail = [lay(i64(order))] if merge in (618, 625) else []
                take = sorted(order) if tail else order
                listed, values = lay(i64(inst_[t] for t in take)), lay(f64(cof_[t] for t in take))
                first = inst_[order[0]], cof_[order[0]]
                inst, cof = lay(i64(first[:1] * 9)), lay(f64(first[1:] * 9))
                self.assertEqual(call(count, listed, 1, *tail), len(sums))
                last = call(merge, cof, values, inst, listed, 0, *tail)
                self.assertEqual(list(zip(inst, cof)), [*sums.items()] + [first] * (8 - last))

    def test_odometers(self):
        for rng, lay in cases():
            shape = [rng.randrange(1, 4) for _ in range(rng.randrange(1, 5))]
            first, nd = [rng.randrange(-2, 3) for _ in shape], len(shape)
            last, strides = [f + d for f, d in zip(first, shape)], rng.sample(range(-9, 9), nd)
            box, ndidx = (lay(i32(first)), lay(i32(last))), lay(i32(first))
            ii, st = lay(i32([0] * nd)), lay(i64([2**40] * nd))
            for place in itertools.product(*map(range, first, last)):
                at = [p - f for p, f in zip(place, first)]
                self.assertEqual((*ndidx, *ii, st[0] - 2**40),
                                 (*place, *at[::-1], sum(map(int.__mul__, at, strides))))
                call(112, *box, ndidx)
                call(108, lay(i32(shape)), ii, nd, st, lay(i64(strides)))
            self.assertEqual((list(ndidx), ii[nd - 1]), ([last[0], *first[1:]], shape[0]))

    def test_search_and_sort(self):
        for rng, lay in cases():
            *values, v = (2**33 + rng.randrange(9) for _ in range(9))
            values.sort()
            for number, find in ((111, bisect.bisect_left), (110, bisect.bisect_right)):
                top = find(values, v)
                self.assertEqual(call(number, -1, 8, v, lay(i64(values))), (top - 1, top))
            d0, d1, d2 = rng.choice([1, 3]), rng.choice([1, 3, BIG]), rng.choice([1, 2, 3])
            val, order = rng.choices(range(d0 * d1 * d2), k=9), rng.choices(range(9), k=11)
            keys = [v // (d1 * d2) * d2 + v % d2 for v in val]
            perm, ptrb = lay(i64(order)), lay(i64([Q] * (d0 * d2 + 2)))
            call(103, d0, d1, d2, perm, ptrb, lay(i64(val)))
            self.assertEqual(list(perm), sorted(order, key=keys.__getitem__))
            ends = [sum(keys[p] <= k for p in order) for k in range(d0 * d2)]
            self.assertEqual(list(ptrb), ends + [11, Q])


if __name__ == "__main__":
    unittest.main()
