"""Products with one parameter and with an array of them: closures 332 to 337, 400 and 401."""

import itertools
import math
import unittest

from support import (MARKER, OP_ADD, OP_CONST, OP_MUL, OP_PARAM, Sampler, Stack,
                     assert_only_sections_written, call, evaluate, f64, i32, i64, push, read,
                     reserve)

PARAMETER = 2


def times_parameter(term, parameter, coded):
    """The program of a term times a parameter, markers where no operand is written."""
    old = term.program + [(OP_ADD, MARKER["d"])] if coded else []
    return [(OP_CONST, term.cof)] + old + [(OP_PARAM, parameter), (OP_MUL, MARKER["d"])]


def result_atoms(e):
    return 3 * e.nnz + (e.ncodeatom + e.nnz if e.ncodeatom > 0 else 0)


class ParameterScaling(unittest.TestCase):
    def assert_terms(self, result, terms):
        """`terms` lists (operand's term, parameter) for each term of the result."""
        got = sum(result.elements, [])
        self.assertEqual([(t.nidx, t.cof) for t in got], [(t.nidx, 0.0) for t, _ in terms])
        for term, (old, parameter) in zip(got, terms):
            self.assertEqual(term.program, times_parameter(old, parameter, bool(old.program)))

    def test_expression_times_parameter(self):
        forms = itertools.product((False, True), (False, True), (1, 3), range(20))
        for sparse, coded, step, seed in forms:
            s = Sampler(seed)
            model = s.model(s.shape(2), sparse, coded)
            w, r = Stack(step=step), Stack(step=step)
            e = push(w, model)
            h = reserve(r, e.nd, e.nelem, e.nnz, result_atoms(e), e.hassp)
            r.i32[h.ptr_base] = r.i32[h.codeptr_base] = MARKER["i"]
            before = r.snapshot()
            call(337, e.cconst_base, e.code_base, e.cof_base, e.ncodeatom, e.nidxs_base, e.nnz,
                 PARAMETER, e.ptr_base, e.codeptr_base, h.cconst_base, h.code_base, h.codeptr_base,
                 h.cof_base, r.f64, h.hassp, r.i32, r.i64, h.ncodeatom, h.nd, h.nelem, h.nidxs_base,
                 h.nnz, h.ptr_base, h.shape_base, h.sp_base, e.shape_base, e.sp_base, w.f64, w.i32,
                 w.i64)
            with self.subTest(sparse=sparse, coded=coded, step=step, seed=seed):
                assert_only_sections_written(self, r, before, h, shape=True)
                result = read(r, h)
                self.assertEqual((result.shape, result.sp), (model.shape, model.sp))
                self.assert_terms(result, [(t, PARAMETER) for t in sum(model.elements, [])])
                factor = s.parameters[PARAMETER]
                self.assertEqual(evaluate(result, s.variables, s.parameters),
                                 [factor * v for v in evaluate(model, s.variables, s.parameters)])

    def test_scalar_times_parameters(self):
        for coded, step, seed in itertools.product((False, True), (1, 3), range(20)):
            s = Sampler(seed)
            model = s.model([1], coded=coded)
            parameters = [s.rng.randrange(4) for _ in range(s.rng.randrange(4))]
            n = len(parameters)
            w, r, x = (Stack(step=step) for _ in range(3))
            e = push(w, model)
            pidx = x.put("i", parameters)
            h = reserve(r, 1, n, n * e.nnz, n * result_atoms(e))
            before = r.snapshot()
            call(332, h.cof_base, r.f64, h.nnz)
            call(333, e.nnz, r.i32, n, h.ptr_base)
            call(335, e.nidxs_base, e.nnz, r.i64, n, h.nidxs_base, w.i64)
            call(336, e.cconst_base, e.code_base, e.cof_base, e.ncodeatom, e.nnz, pidx,
                 e.codeptr_base, h.cconst_base, h.code_base, h.codeptr_base, r.f64, r.i32, n, w.f64,
                 w.i32, x.i32)
            with self.subTest(coded=coded, step=step, seed=seed):
                assert_only_sections_written(self, r, before, h)
                result = read(r, h, [n])
                self.assert_terms(result, [(t, p) for p in parameters for t in model.elements[0]])
                (value,) = evaluate(model, s.variables, s.parameters)
                self.assertEqual(evaluate(result, s.variables, s.parameters),
                                 [s.parameters[p] * value for p in parameters])

    def test_hascode_below_zero(self):
        # Only 336 takes it for code.
        wi32, wf64 = i32([0, 1, 9]), f64([2.5, 7.0])
        ri32, rf64 = i32([0] * 8), f64([8] * 8)
        call(337, 1, 2, 0, -1, 0, 1, 4, 0, 0, 0, 2, 0, 6, rf64, False, ri32, i64([0]), 0, 0, -1, 0,
             2, 0, 0, 0, 0, 0, wf64, wi32, i64([6]))
        self.assertEqual(list(ri32), [0, 3, 2, 1, 5, 0, 0, 0])
        self.assertEqual(list(rf64), [2.5, 4, 8, 8, 8, 8, 0, 0])  # the last two are rnnz zeros
        call(336, 1, 2, 0, -1, 1, 0, 0, 0, 2, 0, rf64, ri32, 1, wf64, wi32, i32([4]))
        self.assertEqual(list(ri32), [0, 5, 2, 9, 3, 1, 5, 0])
        self.assertEqual(list(rf64), [2.5, 7, 8, 4, 8, 8, 0, 0])

    def test_counts_of_the_fills(self):
        def filled(number, kind, n, *arguments):
            target = kind([7] * n)
            call(number, *(target if a is None else a for a in arguments))
            return list(target)

        self.assertEqual(filled(333, i32, 4, 3, None, 2, 1), [7, 0, 3, 6])
        self.assertEqual(filled(333, i32, 2, 3, None, 0, 0), [0, 7])
        self.assertEqual(filled(333, i32, 2, 3, None, -1, 0), [7, 7])
        self.assertEqual(filled(334, i64, 4, None, 1, 2), [7, -999, -999, 7])
        self.assertEqual(filled(332, f64, 4, 1, None, 2), [7, 0, 0, 7])
        self.assertEqual(filled(401, i32, 4, 2, None, 1, i32([8, 9, 10])), [7, 8, 9, 7])
        call(335, 0, 0, None, 3, 0, None)
        call(335, 0, 3, None, 0, 0, None)
        call(336, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, None, None, 2, None, None, None)

    def test_fixed_terms_are_counted_by_length(self):
        self.assertEqual(call(400, f64([0.0, 1.0, -0.0, 2.0]), 1), 3)
        self.assertEqual(call(400, memoryview(f64([math.nan, 9, 0, 9, 1, 9]))[::2], 0), 2)
        self.assertEqual(call(400, None, 5), 5)


if __name__ == "__main__":
    unittest.main()
