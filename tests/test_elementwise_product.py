"""mul_const, mul_scalar_matrix, mul_elm and dot: closures 459 to 465 and 445 to 449."""

import itertools
import unittest

from support import (MARKER, OP_CONST, OP_MUL, Model, Sampler, Stack, Term,
                     assert_only_sections_written, call, evaluate, f64, i32, i64, product, push,
                     read, reserve, strided)


def scaled(terms, v, coded):
    """The terms times v, as the contract spells them; the product atom has no operand."""
    factor = [(OP_CONST, v), (OP_MUL, MARKER["d"])] if coded else []
    return [Term(t.nidx, t.cof * v, t.program + factor) for t in terms]


def atoms(elements):
    return sum(len(t.program) for e in elements for t in e)


class Products(unittest.TestCase):
    def stacks(self, model, step):
        w, r = Stack(step=step), Stack(step=step)
        return w, push(w, model), r

    def tensor(self, s, size, step):
        """Linear indexes and values, plain and as arrays."""
        sub = s.pattern(size)
        values = [s.number() for _ in sub]
        arrays = i64(sub), f64(values)
        return (sub, values, *(arrays if step == 1 else [strided(a, step) for a in arrays]))

    def each_case(self, check):
        for sparse, coded, step, seed in itertools.product((0, 1), (0, 1), (1, 3), range(40)):
            with self.subTest(sparse=sparse, coded=coded, step=step, seed=seed):
                s = Sampler(seed)
                check(s, s.model(s.shape(s.rng.randrange(4)), sparse, coded), step)

    def check_mul_const(self, s, model, step):
        a = s.number()
        w, e, r = self.stacks(model, step)
        expected = Model(model.shape, [scaled(x, a, model.coded) for x in model.elements],
                         model.sp, model.coded)
        h = reserve(r, e.nd, e.nelem, e.nnz, expected.ncodeatom, e.hassp)
        r.i32[h.ptr_base] = MARKER["i"]
        if model.coded:
            r.i32[h.codeptr_base] = MARKER["i"]
        before = r.snapshot()
        call(463, a, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, e.hassp,
             e.ncodeatom, e.nd, e.nelem, e.nidxs_base, e.nnz, e.ptr_base, h.cconst_base,
             h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.nidxs_base,
             h.ptr_base, h.shape_base, h.sp_base, e.shape_base, e.sp_base, w.f64, w.i32, w.i64)
        assert_only_sections_written(self, r, before, h, shape=True)
        self.assertEqual(read(r, h), expected)
        values = evaluate(model, s.variables, s.parameters)
        self.assertEqual(evaluate(expected, s.variables, s.parameters), [a * v for v in values])

    def test_mul_const(self):
        self.each_case(self.check_mul_const)

    def scalar_matrix(self, model, md1, msubi, msubj, mval, step=1):
        w, e, r = self.stacks(model, step)
        n = len(msubi)
        h = reserve(r, 2, n, n * e.nnz, n * (e.ncodeatom + 2 * e.nnz) if model.coded else 0, True)
        before = r.snapshot()
        counts = call(464, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, md1, n,
                      i32(msubi), i32(msubj), f64(mval), e.ncodeatom, e.nidxs_base, e.nnz, 0,
                      h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64,
                      h.nidxs_base, h.ptr_base, h.sp_base, w.f64, w.i32, w.i64)
        self.assertEqual(counts, (h.ncodeatom, h.nnz))
        if n > 0:  # without entries, entry 0 of codeptr is written all the same
            assert_only_sections_written(self, r, before, h)
        return read(r, h, [1, 1])

    def test_mul_scalar_matrix(self):
        for coded, step, seed in itertools.product((0, 1), (1, 3), range(40)):
            with self.subTest(coded=coded, step=step, seed=seed):
                s = Sampler(seed)
                model = s.model([1], coded=coded)
                rows, columns = s.shape(2)
                places = s.pattern(rows * columns)
                mval = [s.number() for _ in places]
                result = self.scalar_matrix(model, columns, [p // columns for p in places],
                                            [p % columns for p in places], mval, step)
                self.assertEqual(result.sp, places)
                self.assertEqual(result.elements,
                                 [scaled(model.elements[0], v, model.coded) for v in mval])

    def test_mul_scalar_matrix_width_of_linear_indexes(self):
        wide = 2**12, 2**20
        for program, linear in (([], 7), ([(OP_CONST, 0.0)], 2**32 + 7)):
            model = Model([1], [[Term(3, 1.0, program)]], coded=bool(program))
            self.assertEqual(self.scalar_matrix(model, wide[1], [wide[0]], [7], [2.0]).sp, [linear])

    def test_mul_scalar_matrix_without_entries_or_terms(self):
        ri32 = i32([9, 9])
        none = [None] * 3
        self.assertEqual(call(464, 0, 0, 4, 0, 0, 1, 0, *none, 6, 0, 2, 5, 0, 0, 1, 0, None, ri32,
                              None, 0, 0, 0, *none), (4, 5))
        self.assertEqual(ri32, i32([9, 0]))  # codeptr alone
        ri64 = i64([9, 9])
        call(464, 0, 0, 0, 0, 0, 3, 2, i32([0, 1]), i32([2, 0]), None, 0, 0, 0, 0, 0, 0, 0, 0, None,
             i32([0] * 3), ri64, 0, 0, 0, *none)
        self.assertEqual(ri64, i64([2, 3]))

    def check_mul_elm(self, s, model, step):
        w, e, r = self.stacks(model, step)
        sub, mcof, sub_, mcof_ = self.tensor(s, product(model.shape), step)
        at = dict(zip(model.linear(), model.elements))
        sp = [k for k in sub if k in at]
        elements = [scaled(at[k], v, model.coded) for k, v in zip(sub, mcof) if k in at]
        totals = call(460, e.codeptr_base, e.hassp, sub_, e.ncodeatom, e.nelem, e.ptr_base, 100,
                      200, 300, e.sp_base, w.i32, w.i64)
        self.assertEqual(totals, (100 + atoms(elements), len(sp) + (200 if e.hassp else 0),
                                  300 + sum(map(len, elements))))
        h = reserve(r, e.nd, len(sp), totals[2] - 300, totals[0] - 100, True)
        r.i32[h.ptr_base] = MARKER["i"]
        if h.ncodeatom > 0:
            r.i32[h.codeptr_base] = MARKER["i"]
        before = r.snapshot()
        call(462, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, e.hassp, mcof_, sub_,
             e.ncodeatom, e.nelem, e.nidxs_base, e.ptr_base, h.cconst_base, h.code_base,
             h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom, e.nd, h.nidxs_base,
             h.ptr_base, h.shape_base, h.sp_base, e.shape_base, e.sp_base, w.f64, w.i32, w.i64)
        assert_only_sections_written(self, r, before, h, shape=True)
        result = read(r, h)
        self.assertEqual((result.shape, result.sp, result.elements), (model.shape, sp, elements))
        values = evaluate(model, s.variables, s.parameters)
        factors = dict(zip(sub, mcof))
        self.assertEqual(evaluate(result, s.variables, s.parameters),
                         [factors.get(k, 0.0) * v for k, v in enumerate(values)])

    def test_mul_elm(self):
        self.each_case(self.check_mul_elm)

    def test_mul_elm_with_empty_operand(self):
        ri32 = i32([9] * 6)
        call(462, 0, 0, 0, 0, True, None, i64([0, 2]), 5, 0, 0, 0, 0, 0, 2, 0, None, ri32, None, 5,
             2, 0, 0, 4, 0, 0, 0, None, i32([3, 7]), None)
        self.assertEqual(ri32, i32([0, 9, 0, 9, 3, 7]))

    def test_mul_elm_without_code_in_operand(self):
        ri32, rf64 = i32([9] * 4), f64([9])
        call(462, 0, 0, 0, 0, False, f64([3]), i64([0]), 0, 1, 0, 0, 0, 0, 2, 0, rf64, ri32,
             i64([9, 9]), 3, 0, 0, 0, 0, 1, 0, 0, f64([2]), i32([0, 1]), i64([5]))
        self.assertEqual((ri32, rf64), (i32([0, 1, 0, 9]), f64([6])))

    def check_dot(self, s, model, step):
        w, e, r = self.stacks(model, step)
        sub, vcof, sub_, vcof_ = self.tensor(s, product(model.shape), step)
        at = dict(zip(model.linear(), model.elements))
        element = [t for k, v in zip(sub, vcof) for t in scaled(at.get(k, []), v, model.coded)]
        nnz = call(446, e.hassp, e.nelem, e.ptr_base, 40, e.sp_base, sub_, w.i32, w.i64) - 40
        self.assertEqual(nnz, len(element))
        # Twice, to see the second call go on where the first one ended.
        h = reserve(r, 0, 1, 2 * nnz, 2 * atoms([element]))
        before = r.snapshot()
        counts = 0, 0
        for times in (1, 2):
            counts = call(447, e.cconst_base, e.code_base, counts[0], e.codeptr_base, e.cof_base,
                          e.hassp, counts[1], e.nelem, e.nidxs_base, e.ptr_base, h.cconst_base,
                          h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64,
                          h.ncodeatom, h.nidxs_base, e.sp_base, vcof_, sub_, w.f64, w.i32, w.i64)
            self.assertEqual(counts, (times * h.ncodeatom // 2, times * nnz))
        assert_only_sections_written(self, r, before, h)
        self.assertEqual(r.i32[h.ptr_base + 1], MARKER["i"])
        r.i32[h.ptr_base + 1] = 2 * nnz
        result = read(r, h)
        self.assertEqual(result.elements, [element + element])
        values = evaluate(model, s.variables, s.parameters)
        self.assertEqual(evaluate(result, s.variables, s.parameters),
                         [2 * sum(v * values[k] for k, v in zip(sub, vcof))])

    def test_dot(self):
        self.each_case(self.check_dot)

    def test_subscripts_to_linear_indexes(self):
        shape = [70000, 80000, 3]
        subscripts = [(0, 0, 2), (1, 0, 0), (69999, 79999, 1)]
        linear = [(i * shape[1] + j) * shape[2] + k for i, j, k in subscripts]
        s = i64([9, 9, 1])
        call(448, 3, s, i32(shape))
        self.assertEqual(s, i64([240000, 3, 1]))
        self.assertEqual(call(461, 3, 2, 0, i32(shape)), 2 * product(shape))
        flat = i32([k for row in subscripts for k in row])
        table = memoryview(memoryview(flat).cast("B")).cast("i", [3, 3])
        res = i64([0, 0, 5])
        call(449, 3, res, s, table)
        self.assertEqual(list(res), [linear[0], linear[1], linear[2] + 5])
        call(449, 0, res, None, table)
        call(449, 3, None, None, None)

    def test_tests_of_tensors(self):
        for number in (459, 445):  # 459 takes the size, 445 the largest index
            size = 9 if number == 459 else 8
            order = (lambda x: x) if number == 459 else reversed
            flags = lambda sub, badidx=False, badorder=False: call(
                number, badidx, badorder, *order((i64(sub), size)))
            self.assertEqual(flags([0, 3, 8]), (False, False))
            self.assertEqual(flags([0, 9]), (True, False))
            self.assertEqual(flags([-1, 3]), (True, False))
            self.assertEqual(flags([3, 3]), (False, True))
            self.assertEqual(flags([-1, 4, 3]), (True, True))
            self.assertEqual(flags([0, 12, 3]), (number == 459, True))  # 445 looks at the ends
            self.assertEqual(flags([]), (False, False))
            self.assertEqual(flags([1], True, True), (True, True))

    def test_tests_of_matrices_run_both(self):
        flags = lambda msubi, msubj, *given: call(465, *(given or (0, 0)), 2, 3, len(msubi),
                                                  i32(msubi), i32(msubj))
        self.assertEqual(flags([0, 0, 1], [0, 2, 1]), (False, False))
        self.assertEqual(flags([1, 0], [0, 3]), (True, True))
        self.assertEqual(flags([0, 0], [1, 1]), (False, True))
        self.assertEqual(flags([0, 0], [1, 1], True, False), (True, True))
        self.assertEqual(flags([0], [-1], False, True), (True, True))


if __name__ == "__main__":
    unittest.main()
