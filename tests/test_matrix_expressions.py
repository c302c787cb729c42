"""New expressions from matrices and vectors: closures 496 to 501 and 402 to 404."""

import math
import unittest

from support import (MARKER, Stack, Term, assert_only_sections_written, call, f64, i32, i64, read,
                     reserve)


class MatrixExpressions(unittest.TestCase):
    def push_matrix(self, entries, md1, nelem, hassp, varidx, step):
        stack = Stack(step=step)
        h = reserve(stack, 2, nelem, len(entries), hassp=hassp)
        stack.i32[h.ptr_base] = MARKER["i"]
        before = stack.snapshot()
        msubi, msubj, mcof = zip(*entries)
        subscripts = (i32(msubi), i32(msubj)) if hassp else (None, None)
        call(499, h.cof_base, stack.f64, hassp, stack.i32, stack.i64, f64(mcof), md1, *subscripts,
             nelem, h.nidxs_base, len(entries), h.ptr_base, h.sp_base, varidx)
        assert_only_sections_written(self, stack, before, h)
        return read(stack, h, [0, 0])

    def test_push_sparse_matrix(self):
        entries = [(0, 1, 2.0), (2, 0, 0.0), (2, 3, -1.0)]
        for step in (1, 3):
            result = self.push_matrix(entries, 4, 3, True, 2**40, step)
            self.assertEqual(result.sp, [1, 8, 11])
            self.assertEqual(result.elements, [[Term(2**40, v)] for _, _, v in entries])
            result = self.push_matrix(entries, 4, 3, False, 0, step)
            self.assertEqual(result.elements, [[Term(0, v)] for _, _, v in entries])
        self.assertEqual(self.push_matrix([(2**12, 7, 1.0)], 2**20, 1, True, 0, 1).sp, [7])

    def test_push_unit_terms(self):
        for nelem, step in ((0, 1), (3, 1), (3, 3)):
            stack = Stack(step=step)
            h = reserve(stack, 2, nelem, nelem)
            stack.i32[h.ptr_base] = MARKER["i"]
            before = stack.snapshot()
            call(500, h.cof_base, stack.f64, stack.i32, 2, nelem, nelem, h.ptr_base, h.shape_base,
                 i32([nelem, 1]))
            assert_only_sections_written(self, stack, before, h, shape=True)
            result = read(stack, h)
            self.assertEqual(result.shape, [nelem, 1])
            self.assertEqual(result.elements, [[Term(MARKER["q"], 1.0)]] * nelem)
        call(500, 0, None, None, 0, -1, 0, 0, 0, None)

    def test_constant_vector(self):
        values = [0.0, 2.5, -0.0, math.inf, -3.0]
        for step in (1, 3):
            r = Stack(step=step)
            h = reserve(r, 1, 5, 3, hassp=True)
            before = r.snapshot()
            self.assertEqual(call(403, f64(values), 5, 0, h.cof_base, r.f64, r.i32, r.i64,
                                  h.nidxs_base, h.ptr_base), 3)
            call(402, True, 5, r.i64, h.sp_base, i64([1, 3, 4, 7, 2**40]))
            call(501, r.i32, 1, h.shape_base, 1, i32([9, 6]))
            assert_only_sections_written(self, r, before, h, shape=True)
            result = read(r, h)
            self.assertEqual((result.shape, result.sp), ([6], [1, 3, 4, 7, 2**40]))
            self.assertEqual(result.elements, [[Term(0, v)] if v else [] for v in values])
        call(402, False, 5, None, 0, None)

    def test_nan_is_a_term(self):
        rf64, ri32 = f64([0, 0]), i32([4, 9])
        self.assertEqual(call(403, f64([math.nan]), 1, 1, 0, rf64, ri32, i64([9, 9]), 0, 0), 2)
        self.assertTrue(math.isnan(rf64[1]))
        self.assertEqual(ri32, i32([4, 2]))

    def test_tests(self):
        for msubi, msubj, badidx, badorder in [
            ([0, 0, 1], [0, 2, 1], False, False),
            ([0, 0], [1, 1], False, True),
            ([1, 0], [0, 0], False, True),
            ([0, 2], [0, 0], True, False),
            ([0, 1], [3, 0], True, False),
            ([-1, 0], [0, 0], True, False),
            ([1, 0], [0, -1], True, True),
            ([], [], False, False),
        ]:
            arrays = i32(msubi), i32(msubj)
            self.assertEqual(call(497, False, 2, 3, *arrays), badidx)
            self.assertEqual(call(498, False, *arrays), badorder)
            self.assertEqual(call(496, 2, 3, *arrays, True), not (badidx or badorder))
            self.assertIs(call(496, 2, 3, *arrays, False), False)
        self.assertIs(call(497, True, 2, 3, None, None), True)
        self.assertIs(call(498, True, None, None), True)
        for indexes, bad in (([5, 0, 0], False), ([0, 6], True), ([-1], True), ([], False)):
            self.assertEqual(call(404, False, i64(indexes), 6), bad)
        self.assertIs(call(404, True, None, 6), True)


if __name__ == "__main__":
    unittest.main()
