"""Layouts of cones, patterns and bounds of domains, conic blocks, and lists of scalar variables."""

import itertools
import random
import unittest
from array import array

from support import LAYOUTS, MARKER, blank, call, f64, i32, i64, matrix, product


class Cones(unittest.TestCase):
    def cases(self):
        for seed in range(60):
            with self.subTest(seed=seed):
                yield random.Random(seed)

    def check(self, number, arguments, result, *written):
        """That result, and those contents of the arrays that were blank, in both layouts."""
        for lay in LAYOUTS:
            laid = [lay(a[:]) if isinstance(a, array) else a for a in arguments]
            targets = [new for new, old in zip(laid, arguments)
                       if isinstance(old, array) and set(old) == {MARKER[old.typecode]}]
            self.assertEqual(call(number, *laid), result)
            self.assertEqual([list(a) for a in targets], [w for w in written if w])

    def test_one_dimension(self):
        for rng in self.cases():
            pre, size, post, pos = (rng.randrange(1, 5) for _ in range(4))
            places = list(itertools.product(range(pre), range(size), range(post)))
            n, native = len(places), i32(rng.sample(range(999), len(places)))
            moved = [native[places.index((a, t, b))] for a, b, t in
                     itertools.product(range(pre), range(post), range(size))]
            self.check(59, [size, pre, post, native, pos, blank("i", pos + n)], pos + n,
                       [MARKER["i"]] * pos + moved)
            self.check(96, [size, pre, post, n, blank("d", n), 0, f64(native), blank("i", n)], n,
                       moved, [moved.index(v) for v in native])
            self.check(96, [size, pre, post, n, None, pos, None, i32(native)], pos + n)

    def test_two_dimensions(self):
        for rng in self.cases():
            pre, mid, post, d, pos = (rng.randrange(1, 5) for _ in range(5))
            extents, size = (pre, d, mid, d, post), d * (d + 1) // 2
            elements = [((a, b, k), p, q) for a, p, b, q, k in
                        itertools.product(*map(range, extents))]
            lower = sorted((c, q, p) for c, p, q in elements if p >= q)  # column by column
            row = dict(zip(lower, rng.sample(range(999), len(lower))))
            row.update({(c, p, q): number for (c, q, p), number in row.items()})
            packed, n = [row[e] for e in lower], pos + len(lower)
            for upper, order in ((True, sorted((c, p, q) for c, q, p in lower)), (False, lower)):
                half = [row[c, p, q] for c, p, q in elements if (p <= q if upper else p >= q)]
                self.check(88, [i32([-1] * pos + half), blank("i", len(lower)), size, *extents, pos,
                                upper], n, [row[e] for e in order])
            self.check(89, [i32(packed), size, *extents, blank("i", len(elements)), pos > 2], None,
                       [row[e] for e in elements])
            scale = {row[c, p, q]: 0.25 for c, p, q in elements if p != q}
            self.check(87, [blank("d", 999), i32([-1] * pos + packed), *extents, pos, 0.25], n,
                       [scale.get(k, MARKER["d"]) for k in range(999)])

    def domain(self, rng):
        """Shape, row-major strides, a table of subscripts, and the linear index of each row."""
        shape = [rng.randrange(1, 4) for _ in range(rng.randrange(1, 4))]
        strides = [product(shape[k + 1:]) for k in range(len(shape))]
        every = list(itertools.product(*map(range, shape)))
        rows = rng.choices(every, k=rng.randrange(1, 7))
        return shape, strides, rows, [every.index(r) for r in rows]

    def test_pattern(self):
        for rng in self.cases():
            shape, strides, rows, places = self.domain(rng)
            nd, n, midxs, pattern = len(shape), len(rows), matrix("i", rows), blank("q", len(rows))
            self.check(44, [nd, n, pattern, midxs, i64(strides)], None, places)
            self.check(42, [True, i64(places)], places == sorted(set(places)))
            # A subscript out of range ends the list in front of its row.
            bad, k = rng.randrange(n), rng.randrange(nd)
            rows[bad] = (*rows[bad][:k], rng.choice([-1, shape[k]]), *rows[bad][k + 1:])
            beyond = places[:bad] + list(pattern[bad:])
            for test, sort, write in ((51, 54, 55), (64, 67, 68)):
                for flag, sp, written in ((False, midxs, places), (True, midxs, list(pattern)),
                                          (False, matrix("i", rows), beyond)):
                    self.check(test, [flag, n, i32(shape), sp, pattern, i32(strides)],
                               written != places, written)
                perm = i32(range(n))
                for k in range(nd):
                    order = sorted(perm, key=lambda i: midxs[i, nd - 1 - k])
                    self.check(sort, [perm, k, midxs, n, nd, i32(range(shape[nd - 1 - k] + 1)),
                                      i32(shape), blank("i", n)], None, order)
                    perm = i32(order)
                self.check(write, [perm, midxs, n, nd, pattern, i32(strides)], None, sorted(places))
        # Each product wraps, the sum doesn't.
        self.check(55, [i32([0]), matrix("i", [[3, 3]]), 1, 2, blank("q", 1), i32([2**30] * 2)], None,
                   [-2**31])

    def test_bounds(self):
        for rng in self.cases():
            shape, strides, rows, places = self.domain(rng)
            n, nd, new = product(shape), len(shape), blank("d", product(shape))
            for scalar, listed in ((True, True), (True, False), (False, False), (False, True)):
                at = range(n) if scalar or not listed else places
                sides = [[rng.random() for _ in range(1 if scalar else len(at))] for _ in range(2)]
                held = [dict(zip(at, side * n if scalar else side)) for side in sides]
                expected = [[h.get(k, MARKER["d"]) for k in range(n)] for h in held]
                sp, stack = (matrix("i", rows), i32([9, *shape])) if listed else (None, None)
                self.check(82, [new, new, listed, f64(sides[0]), scalar, sp, f64(sides[1]), nd, n,
                                stack, 1], None, *expected)
            self.check(100, [new, f64(sides[1]), sp, nd, i32(strides)], None, expected[1])

    def test_blocks_and_lists(self):
        rows, bounds, idxs = i32([9, 5, 7]), f64([9, 5, 7]), i64([4, 0, -3, 2**32 + 6, 1])
        variables, block, I, D = i32([5, 1, 2, 4, 3]), i32([8, 3, 6]), blank("i", 6), blank("d", 6)
        gap, no = MARKER["i"], MARKER["d"]
        for case in (
            (1, [I, D, rows, 1, 1, bounds, 2, f64([3, 4])], None, [gap, 5, 7, 5, 7, gap],
             [no, 9, 5, 3, 4, no]),
            (2, [I, D, rows, 1, 4, bounds, 2], None, [gap] * 4 + [5, 7], [no] * 4 + [9, 5]),
            (4, [block, I, I, I, D, i32([4, 0, 3, 1]), rows + rows, 2, 2], None, [8, 3, gap, 3, 8,
             gap], [5, 9, gap, 7, 9, gap], [1, 1, gap, 0, 0, gap], [1, 1, no, 1, 1, no]),
            (7, [I, 40, 5], None, [40, 41, 42, 43, 44, gap]), (3, [None, -4], -4),
            (9, [block, 3, 5, variables, I, I], None, [gap, 8, 8, 3, 3, 8], [gap, 1, 2, 1, 0, 0]),
            (10, [2, variables, I], None, [gap, -1, gap, gap, gap, -1]),
            (3, [rows, 3], 9), (3, [rows, 12], 12), (11, [10, idxs], 13), (13, [10, idxs], 13),
            *((number, [idxs, 1, I], 4, [gap, 4, 6, 1, gap, gap]) for number in (12, 14)),
            *((number, [start, a], highest) for number in (5, 6) for start, a, highest in
              ((3, rows, 7), (8, rows, 8), (-4, i32([9]), -4), (-4, None, -4))),
        ):
            self.check(*case)


if __name__ == "__main__":
    unittest.main()
