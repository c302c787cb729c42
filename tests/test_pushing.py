"""Pushing expressions and preparing shapes: closures 570 to 580 and 587 to 601."""

import itertools
import unittest

from support import (MARKER, Model, Sampler, Stack, Term, assert_only_sections_written, blank, call,
                     f64, i32, i64, prefix, read, reserve, strided, written)


def i32_matrix(rows, columns, values):
    """A rank-2 view; `values` in row-major order."""
    return memoryview(i32(values)).cast("B").cast("i", [rows, columns])


class Push(unittest.TestCase):
    def test_expression(self):
        for seed, step in itertools.product(range(30), (1, 3)):
            s = Sampler(seed)
            model = s.model(s.shape(2))
            if seed == 0:
                model.elements[0] += [Term(k, 0.5 * k) for k in range(40)]
            # The rows are those from place 2 of longer lists on.
            terms = [Term(-1, -1.0)] * 2 + [t for e in model.elements for t in e]
            fixed = [s.number() for _ in model.elements]
            make = lambda values: strided(values, step) if step > 1 else values
            stack = Stack(step=step)
            h = reserve(stack, 2, len(fixed), model.nnz + len(fixed))
            before = stack.snapshot()
            call(601, make(f64(fixed)), h.cof_base, make(f64([t.cof for t in terms])), stack.f64,
                 stack.i32, stack.i64, h.nd, h.nelem, h.nidxs_base, h.ptr_base,
                 make(i64([2 + p for p in prefix(map(len, model.elements))])),
                 make(i32(model.shape)), h.shape_base, make(i64([t.nidx for t in terms])))
            with self.subTest(seed=seed, step=step):
                assert_only_sections_written(self, stack, before, h, shape=True)
                self.assertEqual(read(stack, h).elements, [e + [Term(0, b)] for e, b in
                                                           zip(model.elements, fixed)])
                self.assertEqual(read(stack, h).shape, model.shape)

    def test_no_element(self):
        stack = Stack()
        call(601, None, 0, None, None, stack.i32, None, 1, 0, 0, 5, None, i32([0]), 3, None)
        self.assertEqual(list(stack.i32[2:7]), [MARKER["i"], 0, MARKER["i"], 0, MARKER["i"]])

    def test_one_term_in_each_element(self):
        r = Stack()
        h = reserve(r, 1, 3, 3)
        before = r.snapshot()
        call(571, h.cof_base, 3, 3, h.ptr_base, r.f64, r.i32)
        call(570, r.i32, i32([3]), h.shape_base)
        assert_only_sections_written(self, r, before, h, shape=True)
        self.assertEqual(read(r, h), Model([3], [[Term(MARKER["q"], 1.0)]] * 3))
        call(571, 0, 0, 0, 1, None, r.i32)
        self.assertEqual(list(r.i32[:3]), [MARKER["i"], 0, MARKER["i"]])


class RowWiseForm(unittest.TestCase):
    def test_from_pairs(self):
        for seed in range(20):
            rng = Sampler(seed).rng
            rows = rng.randrange(1, 5)
            pairs = [(rng.randrange(rows), k) for k in range(rng.randrange(12))]
            ii, idxs = i64([i for i, _ in pairs]), i64([k for _, k in pairs])
            ptrb, subj = i64([0] * (rows + 1) + [9]), i64([0] * len(pairs))
            call(593, ii, len(pairs), ptrb)
            call(594, ptrb, rows)
            call(595, idxs, ii, len(pairs), ptrb, subj)
            call(596, ptrb, rows)
            ptrb[0] = 0
            self.assertEqual([list(subj[a:b]) for a, b in zip(ptrb, ptrb[1:])],
                             [[k for i, k in pairs if i == row] for row in range(rows)] + [[]])
            self.assertEqual(ptrb[rows + 1], 9)

    def test_consistency(self):
        good = dict(inst=i64([0, 3, 5]), instok=False, n=3, ptrb=i64([0, 2, 2, 4]), ptrbok=True,
                    shapeok=True, size=6, thisshape=i32([2, 0]))

        def flags(**changes):
            return call(572, *{**good, **changes}.values())

        self.assertEqual(flags(), (True, True, True))
        for inst in ([0, 3, 3], [-1, 3, 5], [0, 3, 6], [4, 3, 5]):
            self.assertEqual(flags(inst=i64(inst), instok=True), (False, True, True), inst)
        self.assertEqual(flags(inst=i64([2**40]), n=1, size=2**40 + 1), (True, True, True))
        for instok, none in itertools.product((False, True), (None, i64([]))):
            self.assertEqual(flags(inst=none, instok=instok), (instok, True, True))
        self.assertEqual(flags(ptrb=i64([0, 2, 1, 4])), (True, False, True))
        self.assertEqual(flags(ptrb=i64([0, 2, 3, 2])), (True, False, True))
        self.assertEqual(flags(thisshape=i32([2, -1])), (True, True, False))
        self.assertEqual(flags(ptrbok=False, shapeok=False, ptrb=None), (True, False, False))


class Shapes(unittest.TestCase):
    def test_padding_with_ones(self):
        two, table = i32([7, 8]), i32_matrix(3, 5, [MARKER["i"]] * 15)
        for copy, fill in ((599, 600), (597, 598)):
            shape = blank("i", 6)
            call(copy, 2, i32([7, 8, 9]), shape)
            self.assertEqual(written(shape), [{0: 7, 1: 8}])
            call(fill, 4, 2, shape)
            self.assertEqual(written(shape), [{0: 7, 1: 8, 2: 1, 3: 1}])
        shape = blank("i", 6)
        call(588, two, shape)
        self.assertEqual(written(shape), [{0: 7, 1: 8}])
        call(589, 4, two, shape)
        self.assertEqual(written(shape), [{0: 7, 1: 8, 2: 1, 3: 1}])
        call(590, 1, table, two)
        self.assertEqual(written(table), [{(1, 0): 7, (1, 1): 8}])
        call(591, 1, 4, table, two)
        self.assertEqual(written(table), [{(1, 0): 7, (1, 1): 8, (1, 2): 1, (1, 3): 1}])
        call(589, 2, None, shape)
        self.assertEqual(written(shape), [{0: 1, 1: 1, 2: 1, 3: 1}])

    def test_products_in_32_bits(self):
        self.assertEqual(call(592, 2, i32([2, 3, 9]), 5), 30)
        self.assertEqual(call(573, 5, i32([2, 3, 9])), 270)
        self.assertEqual(call(592, 2, i32([2**16, 2**15]), 1), -(2**31))
        self.assertEqual((call(592, 0, None, 5), call(573, 5, None)), (5, 5))

    def test_extremes_leave_out_the_first(self):
        self.assertEqual(call(587, 2, 2, 3, i32([9, 1, 3, 9])), (3, 1))
        self.assertEqual(call(587, 4, 4, 1, None), (4, 4))

    def test_linear_indexes(self):
        shape, rows = [5, 2**20, 2**20], [[0, 0, 1], [4, 2, 3], [4, 2**20 - 1, 2**20 - 1]]
        for strides, indexes in ((576, 577), (574, 575)):
            s, sp = i64([0, 0, 1]), i64([0, 100, 0, 7])
            call(strides, 3, s, i32(shape))
            self.assertEqual(list(s), [2**40, 2**20, 1])
            call(indexes, 3, 3, s, sp, i32_matrix(3, 3, sum(rows, [])))
            self.assertEqual(list(sp), [1, 100 + 2**42 + 2**21 + 3, 5 * 2**40 - 1, 7])

    def test_dense_matrix_to_triplets(self):
        values = [0.0, 1.5, -2.0, 0.0, 4.0, 9.0]
        for number in (578, 579, 580):
            msubi, msubj, mval = i32([9] * 5), i32([9] * 5), f64([9.0] * 5)
            call(number, 2, 2, msubi, msubj, mval,
                 memoryview(f64(values)).cast("B").cast("d", [2, 3]))
            self.assertEqual((list(msubi), list(msubj), list(mval)),
                             ([0, 0, 1, 1, 9], [0, 1, 0, 1, 9], [0.0, 1.5, 0.0, 4.0, 9.0]))


if __name__ == "__main__":
    unittest.main()
