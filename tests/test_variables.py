"""Index lists of variables and constraints: slices, picks, dense lists, the variable as an
expression, sorted lists of variables."""

import itertools
import random
import unittest

from support import (MARKER, Model, Stack, Term, assert_only_sections_written, call, f64, i32, i64,
                     product, read, reserve, strided)

LAYOUTS = (lambda a: a, strided)


def blank(kind, n):
    return {"i": i32, "q": i64, "d": f64}[kind]([MARKER[kind]] * n)


def matrix(rows):
    """A rank-2 i32 array; there is none without elements, which None stands for."""
    flat = i32(itertools.chain(*rows))
    if not flat:
        return None
    return memoryview(flat).cast("B").cast("i", shape=[len(rows), len(rows[0])])


def positions(shape):
    return list(itertools.product(*map(range, shape)))


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

    def test_line(self):
        shape = [4, 5, 6]
        strides = row_major(shape)
        native = list(range(500, 500 + product(shape)))
        start = call(181, i32([3, 1, 4]), 0, i32([-1, 2, 0]), i64(strides))
        step = call(182, i32([-1, 2, 0]), 0, i64(strides))
        target = blank("q", 3)
        call(183, i64(native), 2, target, start, step)
        self.assertEqual(list(target), [native[linear(shape, [3, 1, 4])],
                                        native[linear(shape, [2, 3, 4])], MARKER["q"]])

    def test_linear_positions_in_64_and_32_bits(self):
        big = 2**31
        # The length of `step` counts, not that of the subscripts.
        self.assertEqual(call(181, i32([3, 9]), 5, i32([0]), i64([big, 1])), 3 * big + 5)
        self.assertEqual(call(182, i32([3, -1]), 5, i64([big, 1])), 3 * big + 4)
        self.assertEqual(call(258, i32([2, 3, 9]), 10, 2, i64([7, 1])), 27)
        self.assertEqual(call(258, i32([3]), 1, 1, i64([big])), 1 - big)
        self.assertEqual(call(184, i32([0, 0]), i32([65536, 32768]), 2, 1), -big)
        # A sparse entry far out in a shape beyond 32 bits; its place in the box wraps.
        shape = i32([3, big - 1])
        sp = blank("q", 1)
        call(186, i64([7]), i32([0, 0]), 0, i64([0]), i32([0, 0]), shape, 2, shape, shape, sp,
             i64([2 * (big - 1)]))
        self.assertEqual(sp[0], -2)

    def test_absent_arrays(self):
        self.assertEqual(call(185, None, None, None, 2, 5, None, None), 5)
        self.assertEqual(call(186, None, None, 5, None, None, None, 2, None, None, None, None), 5)
        call(187, None, None, None, 2, None, None, 0)
        # Dimension 0 has no carry: one dimension needs no shape, and the count alone ends the walk.
        target = blank("i", 2)
        call(260, i32([1, 2, 3]), i32([1]), i32([2]), 1, None, target, 2)
        self.assertEqual(list(target), [2, 3])


class Picks(unittest.TestCase):
    def test_subscript_table_and_pick(self):
        for nd, lay, seed in itertools.product((1, 2, 3), LAYOUTS, range(20)):
            rng = random.Random(seed)
            shape = [rng.randrange(1, 5) for _ in range(nd)]
            native = [rng.randrange(1000) for _ in range(product(shape))]
            picked = [[rng.randrange(d) for d in shape] for _ in range(rng.randrange(1, 7))]
            table = matrix([[MARKER["i"]] * nd] * len(picked))
            call({1: 171, 2: 173, 3: 172}[nd], *(lay(i32(c)) for c in zip(*picked)), table)
            self.assertEqual(table.tolist(), picked)
            self.assertIs(call(174, False, table, lay(i32(shape))), False)
            idxs = lay(blank("q", len(picked) + 1))
            call(176, lay(i64(native)), idxs, table, nd, lay(i64(row_major(shape))))
            self.assertEqual(list(idxs), [native[linear(shape, p)] for p in picked]
                             + [MARKER["q"]])

    def test_pick_without_dimensions_takes_first(self):
        idxs = blank("q", 2)
        call(176, i64([8, 9]), idxs, matrix([[1], [1]]), 0, None)
        self.assertEqual(list(idxs), [8, 8])

    def test_range_of_subscripts(self):
        shape = i32([3, 2])
        for subscripts, bad in (([2, 1], False), ([0, 0], False), ([3, 0], True), ([0, 2], True),
                                ([-1, 0], True), ([0, -1], True)):
            self.assertIs(call(174, False, matrix([[1, 1], subscripts, [0, 1]]), shape), bad)
            # Plain indexes are all of dimension 0.
            self.assertIs(call(179, i32([1] + subscripts), False, shape),
                          not all(0 <= s < 3 for s in subscripts))
        for flag in (False, True):
            self.assertIs(call(174, flag, None, None), flag)
            self.assertIs(call(179, None, flag, None), flag)
            self.assertIs(call(174, flag, matrix([[0, 0]]), shape), flag)

    def test_values_and_indexes_to_dense_positions(self):
        # The shorter list stands last: its length counts.
        for lay in LAYOUTS:
            for number in (168, 169):
                res = lay(f64([9.0] * 5))
                call(number, lay(i64([7, 8])), lay(f64([1.5, 2.5, 3.5])), lay(i64([3, 1, 0])), res)
                self.assertEqual(list(res), [9.0, 2.5, 9.0, 1.5, 9.0])
            for number, native, sparsity in ((194, [7, 8], [3, 1, 0]), (195, [7, 8, 6], [3, 1]),
                                             (196, [7, 8, 6], [3, 1])):
                idxs = lay(i64([0] * 5))
                call(number, lay(i64(native)), idxs, lay(i64(sparsity)))
                self.assertEqual(list(idxs), [0, 8, 0, 7, 0])

    def test_dense_list_of_a_stack_of_variables(self):
        for lay in LAYOUTS:
            nindex = lay(blank("q", 9))
            call(189, lay(i64([5, 6])), nindex, 1)
            call(191, 4, nindex, 3)
            call(192, lay(i64([7, 8, 9])), nindex, 3, lay(i64([3, 0])))
            self.assertEqual(list(nindex),
                             [MARKER["q"], 5, 6, 8, 0, 0, 7, MARKER["q"], MARKER["q"]])

    def test_append_dense_part(self):
        for lay in LAYOUTS:
            native, sparsity = lay(blank("q", 6)), lay(blank("q", 6))
            call(188, native, 1, sparsity, 2, lay(i64([7, 0, -3])))
            gap = [MARKER["q"]]
            self.assertEqual(list(native), gap + [7, 0, -3] + gap * 2)
            self.assertEqual(list(sparsity), gap * 2 + [0, 1, 2] + gap)

    def test_widen(self):
        for number, lay in itertools.product((197, 202, 203), LAYOUTS):
            r = lay(blank("q", 4))
            call(number, lay(i32([3, -1, -(2**31)])), r)
            self.assertEqual(list(r), [3, -1, -(2**31), MARKER["q"]])

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
