"""weighted_add: closures 502 to 508."""

import itertools
import unittest
from bisect import bisect_left

from support import (MARKER, Model, Sampler, Stack, Term, assert_only_sections_written, call, i32,
                     i64, product, push, read, reserve)
from test_weighted_sum import assert_sum, expected_sum


class WeightedAdd(unittest.TestCase):
    def chain(self, a, b, mul, step=1, shared=False, cut=0):
        """Sizes and writes; 502 and 504 in two calls, the first of which ends before position
        `cut`, so that all counters come in and go back."""
        w = Stack(4096, step)
        r = w if shared else Stack(4096, step)
        h1, h2 = push(w, a), push(w, b)
        expected = expected_sum([a, b], mul, a.sp is not None)
        size = call(505, len(a.shape), h1.shape_base, 1, w.i32)
        self.assertEqual(size, product(a.shape))
        if a.sp is not None:
            size = call(506, h1.nelem, h2.nelem, 0, h1.sp_base, h2.sp_base, w.i64)
            self.assertEqual(size, len(expected.elements))
        h = reserve(r, len(a.shape), size, h1.nnz + h2.nnz, expected.ncodeatom, a.sp is not None)
        before = r.snapshot()
        call(507, r.i32, h1.nd, h.shape_base, h1.shape_base, w.i32)
        pair = lambda name: (getattr(h1, name), getattr(h2, name))
        codes = (*pair("cconst_base"), *pair("code_base"))
        ncodeatom, ptr, nidxs = pair("ncodeatom"), pair("ptr_base"), pair("nidxs_base")
        target = (h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64)
        stack = w.f64, w.i32, w.i64

        def add_dense(codei, cofi, first, count):
            return call(502, *codes, codei, *pair("codeptr_base"), *pair("cof_base"), cofi, *mul,
                        *ncodeatom, *nidxs, ptr[0] + first, ptr[1] + first, *target, h.ncodeatom,
                        count, h.nidxs_base, h.ptr_base + first, *stack)

        def add_sparse(codei, eli, i1, i2, nnzi, nelem1, nelem2):
            return call(504, *codes, codei, *pair("codeptr_base"), *pair("cof_base"), eli, i1, i2,
                        *mul, *ncodeatom, nelem1, nelem2, *nidxs, nnzi, *ptr, *target, h.ncodeatom,
                        h.nidxs_base, h.ptr_base, h2.sp_base, *stack)

        if a.sp is not None:
            call(508, *codes, *pair("codeptr_base"), *pair("cof_base"), *mul, *ncodeatom,
                 *pair("nelem"), *nidxs, *ptr, *target, h.ncodeatom, h.nidxs_base, h.ptr_base,
                 h.sp_base, *pair("sp_base"), *stack)
        elif b.sp is None:
            counters = add_dense(*add_dense(0, 0, 0, cut), cut, size - cut)
            self.assertEqual(counters, (h.ncodeatom, h.nnz))
        else:
            counters = add_sparse(0, 0, 0, 0, 0, cut, bisect_left(b.sp, cut))
            self.assertEqual(counters[1:4], (cut, cut, bisect_left(b.sp, cut)))
            counters = add_sparse(*counters, h1.nelem, h2.nelem)
            self.assertEqual(counters, (h.ncodeatom, size, h1.nelem, h2.nelem, h.nnz))
        assert_only_sections_written(self, r, before, h, shape=True)
        return read(r, h)

    def test_sum_in_all_forms(self):
        forms = itertools.product([(False, False), (False, True), (True, True)],
                                  itertools.product((False, True), repeat=2), (1, 3), (False, True))
        for (sparse, coded, step, shared), seed in itertools.product(forms, range(25)):
            s = Sampler(seed)
            shape = s.shape(s.rng.randrange(4))
            a, b = (s.model(shape, *form) for form in zip(sparse, coded))
            mul = [s.number(), s.number()]
            cut = s.rng.randrange(product(shape) + 1)
            with self.subTest(sparse=sparse, coded=coded, step=step, shared=shared, seed=seed):
                result = self.chain(a, b, mul, step, shared, cut)
                assert_sum(self, s, result, [a, b], mul, sparse[0])

    def test_program_is_scaled_without_code_in_the_result(self):
        # The operand's own count decides, and entry 0 of `codeptr` is then not written.
        r, w = Stack(), Stack()
        e = push(w, Model([1], [[Term(4, 2.0, [(1, 3.0)])]], sp=[0], coded=True))
        h = reserve(r, 1, 1, 1, 3, hassp=True)
        r.i32[h.codeptr_base] = MARKER["i"]
        call(508, e.cconst_base, 0, e.code_base, 0, e.codeptr_base, 0, e.cof_base, 0, 3.0, 7.0, 1,
             0, 1, 0, e.nidxs_base, 0, e.ptr_base, 0, h.cconst_base, h.code_base, h.codeptr_base,
             h.cof_base, r.f64, r.i32, r.i64, 0, h.nidxs_base, h.ptr_base, h.sp_base, e.sp_base, 0,
             w.f64, w.i32, w.i64)
        self.assertEqual(list(r.i32[h.codeptr_base : h.codeptr_base + 2]), [MARKER["i"], 3])
        self.assertEqual(list(r.i32[h.code_base : h.code_base + 3]), [1, 2, 5])
        self.assertEqual(list(r.f64[h.cconst_base : h.cconst_base + 3]), [3.0, 3.0, MARKER["d"]])

    def test_empty_operands(self):
        # 508 sets entries 0 of `ptr` and `codeptr`, the others leave them to the host.
        self.assertEqual(call(506, 3, 0, 10, 0, 0, None), 13)
        self.assertEqual(call(506, 0, 2, 10, 0, 0, None), 12)
        self.assertEqual(call(506, 3, 3, 10, 0, 3, i64([1, 5, 9, 0, 5, 6])), 15)
        ri32 = i32([7, 7, 7])
        call(508, *[0] * 8, 1.0, 1.0, *[0] * 8, 0, 0, 2, 0, None, ri32, None, 1, 0, 0, *[0] * 3,
             None, None, None)
        self.assertEqual(list(ri32), [0, 7, 0])
        self.assertEqual(call(504, *[0] * 4, 5, *[0] * 4, 6, 2, 3, 1.0, 1.0, 0, 0, 2, 3, 0, 0, 9,
                              *[0] * 6, None, None, None, 1, 0, 0, 0, None, None, None),
                         (5, 6, 2, 3, 9))

    def test_shapes(self):
        self.assertEqual(call(505, 2, 1, 3, i32([0, 2**20, 2**20])), 3 * 2**40)
        for number in (503, 507):
            target = i32([7, 7, 7, 7])
            call(number, target, 2, 1, 1, i32([4, 5, 6]))
            self.assertEqual(list(target), [7, 5, 6, 7])


if __name__ == "__main__":
    unittest.main()
