"""Index lists of variables and constraints: slices, picks, dense lists, the variable as an
expression, sorted lists of variables."""

import itertools
import random
import unittest

from support import (LAYOUTS, MARKER, Model, Stack, Term, assert_only_sections_written,
                     assert_table, blank, call, f64, i32, i64, matrix, positions, product, read,
                     reserve, row_major)

I, Q, D, BIG = MARKER["i"], MARKER["q"], MARKER["d"], 2**31

TABLE = [
    ([181], (i32([3, 9]), 5, i32([0]), i64([BIG, 1])), 3 * BIG + 5),  # the length of `step` counts
    ([182], (i32([3, -1]), 5, i64([BIG, 1])), 3 * BIG + 4),
    ([183], (i64([5, 6, 7, 8]), 2, i64([Q] * 3), 3, -2), None, [8, 6, Q]),
    ([258], (i32([2, 3, 9]), 10, 2, i64([7, 1])), 27),
    ([258], (i32([3]), 1, 1, i64([BIG])), 1 - BIG),
    ([184, 259], (i32([0, 0]), i32([65536, 32768]), 2, 1), -BIG),
    ([185], (None, None, None, 2, 5, None, None), 5),
    ([186], (None, None, 5, None, None, None, 2, None, None, None, None), 5),
    # Without dimensions there are no subscripts, and all entries lie in the box.
    ([185], (None, None, None, 0, 5, None, i64([3, 4])), 7),
    ([186], (i64([7, 8]), None, 1, i64([Q] * 4), None, None, 0, None, None, i64([Q] * 4),
             i64([3, 9])), 3, [Q, 7, 8, Q], [Q, 0, 0, Q]),
    # An entry far out in a shape beyond 32 bits; its place in the box wraps.
    ([186], (i64([7]), i32([0, 0]), 0, i64([Q]), i32([5, 5]), i32([3, BIG - 1]), 2,
             i32([3, BIG - 1]), i32([3, BIG - 1]), i64([Q]), i64([2 * (BIG - 1)])), 1, [7], [-2]),
    ([187], (None, None, None, 2, None, None, 0), None),
    # Dimension 0 has no carry: one dimension needs no shape, and the count alone ends the walk.
    ([260], (i32([1, 2, 3]), i32([1]), i32([2]), 1, None, i32([I] * 3), 2), None, [2, 3, I]),
    # Of lists of different lengths, that of the shorter counts.
    ([168, 169], (i64([7, 8]), f64([1.5, 2.5, 3.5]), i64([3, 1, 0]), f64([D] * 5)), None,
     [D, 2.5, D, 1.5, D]),
    ([194], (i64([7, 8]), i64([Q] * 5), i64([3, 1, 0])), None, [Q, 8, Q, 7, Q]),
    ([195, 196], (i64([7, 8, 6]), i64([Q] * 5), i64([3, 1])), None, [Q, 8, Q, 7, Q]),
    ([188], (i64([Q] * 5), 1, i64([Q] * 6), 2, i64([7, 0, -3])), None, [Q, 7, 0, -3, Q],
     [Q, Q, 0, 1, 2, Q]),
    ([189], (i64([5, 6]), i64([Q] * 4), 1), None, [Q, 5, 6, Q]),
    ([191], (2, i64([Q] * 4), 1), None, [Q, 0, 0, Q]),
    ([192], (i64([7, 8, 9]), i64([Q] * 6), 1, i64([3, 0])), None, [Q, 8, Q, Q, 7, Q]),
    ([197, 202, 203], (i32([3, -1, -BIG]), i64([Q] * 4)), None, [3, -1, -BIG, Q]),
    # Where an extent is empty the others don't count, however large they are.
    ([151], (None, BIG - 1, BIG - 1, 0, 0, None, 3), 3),
    ([159], (None, BIG - 1, BIG - 1, 0, 0, 1, 3, None), 3),
    ([201], (BIG - 1, BIG - 1, 0, BIG - 1, 1, None, None, 0, 0, 0, 0), None),
    ([214], (1, 3, BIG - 1, 0, *[None] * 4), 3),
    ([224], (BIG - 1, BIG - 1, 0, 3, 1, None, 1, 1, None), 3),
    ([59], (0, BIG - 1, BIG - 1, None, 3, None), 3),
    ([87], (None, None, 2**62, 1, 1, 1, 1, 3, 0.5), 3),
    ([88], (None, None, 1, 1, 2, 1, BIG**2, 0, 3, True), 3),
    ([89], (None, 1, 2**62, 1, 1, 0, 1, None, True), None),
    ([267], (i32([BIG - 1, BIG - 1, 0, 1, 1]), 3, None, None, None, False), 3),
    # Without dimensions each row picks the first.
    ([176], (i64([8, 9]), i64([Q] * 3), matrix("i", [[1], [1]]), 0, None), None, [8, 8, Q]),
]


def linear(shape, subscripts):
    return positions(shape).index(tuple(subscripts))


def row_major(shape):
    return [product(shape[k + 1 :]) for k in range(len(shape))]


class Slices(unittest.TestCase):
    def boxes(self, count=150):
        """Random shapes with a box each: (subtest, rng, shape, first, last,
        positions in the box)."""
        for seed in range(count):
            rng = random.Random(seed)
            shape = [rng.randrange(1, 5) for _ in range(rng.randrange(1, 5))]
            first = [rng.randrange(d) for d in shape]
            last = [f + rng.choice([0] + [d - f, rng.randrange(1, d - f + 1)] * 4)
                    for f, d in zip(first, shape)]
            inside = list(itertools.product(*map(range, first, last)))
            yield self.subTest(seed=seed), rng, shape, first, last, inside

    def test_dense_slice(self):
        for case, rng, shape, first, last, inside in self.boxes():
            with case:
                nd = len(shape)
                native = [rng.randrange(1000) for _ in range(product(shape))]
                for size, slice_, make, kind in ((184, 187, i64, "q"), (259, 260, i32, "i")):
                    n = call(size, i32(first), i32(last), nd, 1)
                    self.assertEqual(n, len(inside))
                    for lay in LAYOUTS:
                        target = lay(blank(kind, n + 3))
                        call(slice_, lay(make(native)), lay(i32(first)), lay(i32(last)), nd,
                             lay(i32(shape)), target, n)
                        self.assertEqual(list(target), [native[linear(shape, p)] for p in inside]
                                         + [MARKER[kind]] * 3)

    def test_sparse_slice(self):
        for case, rng, shape, first, last, inside in self.boxes():
            with case:
                nd = len(shape)
                sparsity = [k for k in range(product(shape)) if rng.random() < 0.6]
                native = [rng.randrange(1000) for _ in sparsity]
                at = {linear(shape, p): k for k, p in enumerate(inside)}
                kept = [(native[t], at[v]) for t, v in enumerate(sparsity) if v in at]
                sliceshape = [l - f for f, l in zip(first, last)]
                for lay in LAYOUTS:
                    key = lay(blank("i", nd))
                    box = [lay(i32(v)) for v in (first, last, shape, sliceshape)]
                    first_, last_, shape_, sliceshape_ = box
                    pattern = lay(i64(sparsity))
                    self.assertEqual(call(185, first_, key, last_, nd, 4, shape_, pattern),
                                     4 + len(kept))
                    idxs, sp = lay(blank("q", len(kept) + 3)), lay(blank("q", len(kept) + 3))
                    self.assertEqual(call(186, lay(i64(native)), first_, 2, idxs, key, last_, nd,
                                          shape_, sliceshape_, sp, pattern), 2 + len(kept))
                    edge = [MARKER["q"]]
                    self.assertEqual(list(idxs), edge * 2 + [index for index, _ in kept] + edge)
                    self.assertEqual(list(sp), edge * 2 + [place for _, place in kept] + edge)


class Picks(unittest.TestCase):
    def test_table(self):
        assert_table(self, TABLE)

    def test_shared_targets_are_written_entry_by_entry(self):
        native, bounds = i64([Q] * 5), f64([D] * 6)
        call(188, memoryview(native), 0, memoryview(native)[1:], 0, i64([5, 6, 7]))
        call(286, 2, 2, 0, matrix("d", [[1, 2], [3, 4]]), memoryview(bounds),
             matrix("d", [[5, 6], [7, 8]]), memoryview(bounds)[1:])
        self.assertEqual([[*native], [*bounds]], [[5, 6, 7, 2, Q], [1, 2, 3, 4, 8, D]])

    def test_subscript_table_and_pick(self):
        for nd, lay, seed in itertools.product((1, 2, 3), LAYOUTS, range(20)):
            rng = random.Random(seed)
            shape = [rng.randrange(1, 5) for _ in range(nd)]
            native = [rng.randrange(1000) for _ in range(product(shape))]
            picked = [[rng.randrange(d) for d in shape] for _ in range(rng.randrange(1, 7))]
            table = matrix("i", [[MARKER["i"]] * nd] * len(picked))
            call({1: 171, 2: 173, 3: 172}[nd], *(lay(i32(c)) for c in zip(*picked)), table)
            self.assertEqual(table.tolist(), picked)
            self.assertIs(call(174, False, table, lay(i32(shape))), False)
            idxs = lay(blank("q", len(picked) + 1))
            call(176, lay(i64(native)), idxs, table, nd, lay(i64(row_major(shape))))
            self.assertEqual(list(idxs), [native[linear(shape, p)] for p in picked]
                             + [MARKER["q"]])

    def test_range_of_subscripts(self):
        shape = i32([3, 2])
        for subscripts, bad in (([2, 1], False), ([0, 0], False), ([3, 0], True), ([0, 2], True),
                                ([-1, 0], True), ([0, -1], True)):
            self.assertIs(call(174, False, matrix("i", [[1, 1], subscripts, [0, 1]]), shape), bad)
            # Plain indexes are all of dimension 0.
            self.assertIs(call(179, i32([1] + subscripts), False, shape),
                          not all(0 <= s < 3 for s in subscripts))
        for flag in (False, True):
            self.assertIs(call(174, flag, None, None), flag)
            self.assertIs(call(179, None, flag, None), flag)
            self.assertIs(call(174, flag, matrix("i", [[0, 0]]), shape), flag)

    def test_variable_as_expression(self):
        for sparse, step, n in itertools.product((False, True), (1, 3), (0, 1, 50)):
            native = [(7 * k) % 50 - 3 for k in range(n)]
            sparsity = [2 * k + 1 for k in range(n)] if sparse else None
            r = Stack(step=step)
            h = reserve(r, 1, n, n, hassp=sparse)
            r.i32[h.ptr_base] = MARKER["i"]
            before = r.snapshot()
            call(146, i64(native), h.cof_base, sparse, h.nidxs_base, n, h.ptr_base, r.f64, r.i32,
                 r.i64, h.sp_base, i64(sparsity) if sparse else None)
            assert_only_sections_written(self, r, before, h)
            self.assertEqual(read(r, h, [n]),
                             Model([n], [[Term(index, 1.0)] for index in native], sparsity))
            self.assertEqual(r.i32[h.ptr_base], 0)

    def test_sorted_variable_list(self):
        for seed, lay in itertools.product(range(60), LAYOUTS):
            rng = random.Random(seed)
            n = rng.randrange(1, 7)
            varidxs = [rng.randrange(1, 30) for _ in range(n)]
            distinct = sorted(set(varidxs))
            source = lay(i64(varidxs))
            ascending = call(245, True, n, source)
            self.assertIs(ascending, varidxs == distinct)
            self.assertIs(call(245, False, n, source), False)
            target = lay(blank("i", 9))
            if ascending:
                call(246, n, source, target)
                count = n
            else:
                order = sorted(range(n), key=lambda k: varidxs[k])
                perm = lay(i64(order))
                target[1] = varidxs[order[0]]
                count = call(247, n, 1, perm, source)
                self.assertEqual(call(248, 2, n, perm, source, target), 1 + count)
            self.assertEqual(list(target[: count + 2]), [MARKER["i"]] + distinct + [MARKER["i"]])


if __name__ == "__main__":
    unittest.main()
