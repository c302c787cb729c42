"""mul_left: closures 476 to 482."""

import itertools
import unittest

from product_support import triplets
from support import (MARKER, Model, Sampler, Stack, Term, assert_only_sections_written, call,
                     evaluate, f64, i32, push, read, reserve, strided)


def matrix_times(matrix, values, d1):
    """The plain product; `None` entries of a sparse matrix count as 0."""
    return [
        sum((row[j] or 0.0) * values[j * d1 + c] for j in range(len(row)))
        for row in matrix
        for c in range(d1)
    ]


class LeftProduct(unittest.TestCase):
    def operands(self, sampler, sparse_m, sparse_e, coded):
        md0, md1, d1 = (sampler.rng.randrange(4) for _ in range(3))
        blank = lambda: sparse_m and sampler.rng.random() < 0.5
        matrix = [[None if blank() else sampler.number() for _ in range(md1)] for _ in range(md0)]
        return matrix, md0, md1, d1, sampler.model([md1, d1], sparse_e, coded)

    def chain(self, model, matrix, md0, md1, d1, sparse_m, step):
        """Runs test, group, size and write; returns the result."""
        w, r, x = (Stack(step=step) for _ in range(3))
        e = push(w, model)
        msubi, msubj, mval = triplets(matrix)
        mnnz = len(mval)
        arrays = [i32(msubi), i32(msubj), f64(mval)]
        if step > 1:
            arrays = [strided(a, step) for a in arrays]
        msubi, msubj, mval = arrays
        if sparse_m:
            self.assertEqual(call(482, False, False, md0, md1, mnnz, msubi, msubj), (False, False))
        if e.hassp:
            eptr, eperm = x.reserve("i", d1 + 1), x.reserve("i", e.nelem)
            call(476, d1, eperm, eptr, e.nelem, e.sp_base, w.i64, x.i32)
            sizes = call(477, e.codeptr_base, d1, eperm, eptr, md0, sparse_m, mnnz, msubi, msubj,
                         e.ncodeatom, e.nnz, e.ptr_base, 0, 0, 0, e.sp_base, w.i32, w.i64, x.i32)
        else:
            sizes = call(478, e.codeptr_base, d1, md0, sparse_m, mnnz, msubi, msubj, e.ncodeatom,
                         e.nnz, e.ptr_base, 0, 0, 0, w.i32)
        ncodeatom, nelem, nnz = sizes
        h = reserve(r, 2, nelem, nnz, ncodeatom, hassp=sparse_m)
        before = r.snapshot()
        if sparse_m and not e.hassp:
            written = call(481, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d1, 0,
                           mnnz, 0, msubi, msubj, mval, e.nidxs_base, 0, e.ptr_base, h.cconst_base,
                           h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, ncodeatom,
                           h.nidxs_base, h.ptr_base, h.sp_base, w.f64, w.i32, w.i64)
            self.assertEqual(written, (ncodeatom, nelem, mnnz, nnz))
        elif sparse_m:
            call(479, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, d1, eperm, eptr, mnnz,
                 msubi, msubj, mval, e.nidxs_base, e.ptr_base, h.cconst_base, h.code_base,
                 h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, ncodeatom, h.nidxs_base,
                 h.ptr_base, h.sp_base, e.sp_base, w.f64, w.i32, w.i64, x.i32)
        else:
            written = call(480, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d1, 0,
                           eperm, eptr, md0, md1, mval, e.nidxs_base, 0, e.ptr_base, h.cconst_base,
                           h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, ncodeatom,
                           h.nidxs_base, h.ptr_base, e.sp_base, w.f64, w.i32,
                           w.i64 if e.nnz else None, x.i32)  # only terms ask for their row
            self.assertEqual(written, (ncodeatom, nelem, nnz))
        assert_only_sections_written(self, r, before, h)
        return read(r, h, [md0, d1])

    def test_value_in_all_forms(self):
        forms = [(True, False), (True, True), (False, True)]
        for (sparse_m, sparse_e), coded, step in itertools.product(forms, (0, 1), (1, 3)):
            for seed in range(40):
                s = Sampler(seed)
                matrix, md0, md1, d1, model = self.operands(s, sparse_m, sparse_e, coded)
                with self.subTest(sparse_m=sparse_m, sparse_e=sparse_e, coded=coded, seed=seed):
                    result = self.chain(model, matrix, md0, md1, d1, sparse_m, step)
                    values = evaluate(model, s.variables, s.parameters)
                    self.assertEqual(evaluate(result, s.variables, s.parameters),
                                     matrix_times(matrix, values, d1))
                    if result.sp is not None:
                        self.assertEqual(result.sp, sorted(set(result.sp)))

    def test_worked_example(self):
        model = Model([2, 2], [[Term(n, 1.0)] for n in (5, 6, 7, 8)])
        result = self.chain(model, [[2.0, None], [3.0, 4.0]], 2, 2, 2, True, 1)
        self.assertEqual(result.sp, [0, 1, 2, 3])
        self.assertEqual([[(t.nidx, t.cof) for t in e] for e in result.elements],
                         [[(5, 2.0)], [(6, 2.0)], [(5, 3.0), (7, 4.0)], [(6, 3.0), (8, 4.0)]])

    def test_program_gains_factor_and_product_without_operand(self):
        r = Stack()
        w = Stack()
        e = push(w, Model([1, 1], [[Term(4, 2.0, [(2, 0.0)])]], coded=True))
        h = reserve(r, 2, 1, 1, 3, hassp=True)
        call(481, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, 1, 0, 1, 0, i32([0]),
             i32([0]), f64([0.0]), e.nidxs_base, 0, e.ptr_base, h.cconst_base, h.code_base,
             h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, 3, h.nidxs_base, h.ptr_base,
             h.sp_base, w.f64, w.i32, w.i64)
        self.assertEqual(read(r, h, [1, 1]).elements,
                         [[Term(4, 0.0, [(2, 0.0), (2, 0.0), (5, MARKER["d"])])]])

    def test_empty_elements_and_columns(self):
        # Column 0 of E is empty, column 1 holds one element without terms.
        model = Model([1, 2], [[]], sp=[1])
        self.assertEqual(self.chain(model, [[2.0]], 1, 1, 2, True, 1).sp, [1])
        self.assertEqual(self.chain(model, [[2.0]], 1, 1, 2, False, 1).elements, [[], []])

    def test_no_entry_leaves_counters(self):
        none = [None] * 3
        self.assertEqual(call(481, 0, 0, 4, 0, 0, 2, 5, 0, 6, None, None, None, 0, 7, 0, 0, 0, 0, 0,
                              *none, 0, 0, 0, 0, *none), (4, 5, 6, 7))
        self.assertEqual(call(478, 0, 2, 1, True, 0, None, None, 0, 0, 0, 1, 2, 3, None), (1, 2, 3))

    def test_sizes_of_dense_matrix_replace_what_came_in(self):
        self.assertEqual(call(478, 0, 2, 3, False, 0, None, None, 5, 4, 0, 99, 99, 99, None),
                         (5 * 3 + 2 * 12, 6, 12))
        self.assertEqual(call(478, 0, 2, 3, False, 0, None, None, 0, 2**30, 0, 99, 99, 99, None),
                         (99, 6, 3 * 2**30))

    def test_matrix_tests(self):
        def flags(msubi, msubj, badidx=False, badorder=False):
            return call(482, badidx, badorder, 2, 3, len(msubi), i32(msubi), i32(msubj))

        self.assertEqual(flags([0, 0, 1], [0, 2, 1]), (False, False))
        self.assertEqual(flags([0, 0], [1, 1]), (False, True))
        self.assertEqual(flags([1, 0], [0, 0]), (False, True))
        self.assertEqual(flags([1, 0], [0, 3]), (True, False))  # order isn't looked at then
        self.assertEqual(flags([1, 0], [-1, 0]), (True, False))
        self.assertEqual(flags([0], [0], True, True), (True, True))
        self.assertEqual(call(482, True, False, 2, 3, 5, None, None), (True, False))


if __name__ == "__main__":
    unittest.main()
