"""weighted_sum: closures 509 to 523."""

import itertools
import unittest

from support import (OP_CONST, OP_MUL, MARKER, Model, Sampler, Stack, Term,
                     assert_only_sections_written, call, evaluate, f64, i32, i64, product, push,
                     read, reserve, strided)


def scaled(term, factor, coded, result_coded):
    if coded:
        program = term.program + [(OP_CONST, factor), (OP_MUL, MARKER["d"])]
    else:
        program = [(OP_CONST, 0.0)] if result_coded else []
    return Term(term.nidx, factor * term.cof, program)


def expected_sum(models, weights, sparse):
    """The sum term by term: operands in their order within each element, none merged."""
    coded = any(m.coded for m in models)
    cells = {} if sparse else {k: [] for k in range(product(models[0].shape))}
    for m, weight in zip(models, weights):
        for linear, element in zip(m.linear(), m.elements):
            cells.setdefault(linear, []).extend(scaled(t, weight, m.coded, coded) for t in element)
    sp = sorted(cells)
    return Model(models[0].shape, [cells[k] for k in sp], sp if sparse else None, coded)


def assert_sum(test, sampler, result, models, weights, sparse):
    test.assertEqual(result, expected_sum(models, weights, sparse))
    values = [evaluate(m, sampler.variables, sampler.parameters) for m in models]
    test.assertEqual(evaluate(result, sampler.variables, sampler.parameters),
                     [sum(w * v for w, v in zip(weights, column)) for column in zip(*values)])


class WeightedSum(unittest.TestCase):
    def chain(self, models, weights, merge, step=1, shared=False):
        """Test, size and write, on one stack if `shared`; the result's sizes must be exact."""
        w, x = Stack(8192, step), Stack(step=step)
        r = w if shared else Stack(8192, step)
        headers = [push(w, m) for m in models]
        lists = {}
        for name in ("nd nelem nnz ncodeatom shape_base ptr_base sp_base nidxs_base cof_base "
                     "codeptr_base code_base cconst_base").split():
            values = i32(getattr(h, name) for h in headers)
            lists[name] = values if step == 1 else strided(values, step)
        nd, nelem, nnz, ncodeatom, shape, ptr, sp, nidxs, cof, *code = lists.values()
        codeptr, code, cconst = code if any(m.coded for m in models) else [None] * 3
        wt = f64(weights) if step == 1 else strided(f64(weights), step)
        n = len(models)

        self.assertIs(call(509, n, nd, True, shape, w.i32), True)
        anycode = call(510, False, n, ncodeatom)
        self.assertIs(anycode, any(m.coded for m in models))
        expected = expected_sum(models, weights, merge)
        if merge:
            sizes = call(512, anycode, n, ncodeatom, nelem, nnz, 0, 0, 0, sp, w.i64)
        else:
            atoms, terms = call(511, anycode, n, ncodeatom, nnz, 0, 0)
            sizes = atoms, product(models[0].shape), terms
        self.assertEqual(sizes, (expected.ncodeatom, len(expected.elements), expected.nnz))
        atoms, rnelem, terms = sizes
        h = reserve(r, len(models[0].shape), rnelem, terms, atoms, hassp=merge)
        before = r.snapshot()
        call(513, nd, r.i32, h.shape_base, shape, w.i32)
        target = (h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64,
                  h.nidxs_base, h.ptr_base)
        if merge:
            call(523, anycode, cconst, code, codeptr, cof, n, ncodeatom, nelem, nidxs, ptr, *target,
                 h.sp_base, sp, wt, w.f64, w.i32, w.i64)
        else:
            xcode = x.reserve("i", rnelem + 1)
            xi32 = x.i32 if anycode else None
            call(514, r.i32, rnelem, h.ptr_base)
            call(515, atoms, rnelem, xcode, xi32)
            for k, m in enumerate(models):
                count = (anycode, codeptr, k, ncodeatom, nelem, ptr, r.i32, h.ptr_base)
                if m.sp is not None:
                    call(516, *count, sp, w.i32, w.i64, xcode, xi32)
                else:
                    call(517, *count, w.i32, xcode, xi32)
            call(518, r.i32, rnelem, h.ptr_base)
            call(519, atoms, rnelem, xcode, xi32)
            for k, m in enumerate(models):
                source = (anycode, cconst, code, codeptr, cof, k, ncodeatom, nelem, nidxs, ptr)
                if m.sp is not None:
                    call(520, *source, *target, sp, wt, w.f64, w.i32, w.i64, xcode, xi32)
                else:
                    call(521, *source, *target, wt, w.f64, w.i32, w.i64, xcode, xi32)
            call(522, r.i32, rnelem, h.ptr_base)
            r.i32[h.ptr_base] = 0
        assert_only_sections_written(self, r, before, h, shape=True)
        return read(r, h)

    def test_sum_on_both_paths(self):
        forms = itertools.product((True, False), ("none", "some", "all"), (1, 3), (False, True))
        for (merge, codes, step, shared), seed in itertools.product(forms, range(25)):
            s = Sampler(seed)
            shape = s.shape(s.rng.randrange(4))
            n = s.rng.randrange(1, 5)
            coded = {"none": [False], "some": [True, False], "all": [True]}[codes]
            models = [s.model(shape, merge or s.rng.random() < 0.5, s.rng.choice(coded))
                      for _ in range(n)]
            weights = [s.number() for _ in range(n)]
            with self.subTest(merge=merge, codes=codes, step=step, shared=shared, seed=seed):
                result = self.chain(models, weights, merge, step, shared)
                assert_sum(self, s, result, models, weights, merge)

    def test_merge_keeps_equal_and_empty_elements(self):
        a = Model([9], [[Term(1, 2.0)], [], [Term(2, 3.0)]], sp=[1, 4, 7])
        b = Model([9], [[Term(3, 5.0)], [Term(1, 1.0)]], sp=[1, 8])
        self.assertEqual(self.chain([a, b], [0.0, -1.0], True),
                         Model([9], [[Term(1, 0.0), Term(3, -5.0)], [], [Term(2, 0.0)],
                                     [Term(1, -1.0)]], sp=[1, 4, 7, 8]))

    def test_shapes_and_code_flags(self):
        stack = i32([2, 3, 2, 4, 2, 3])
        same = lambda nd, base, flag=True: call(509, len(nd), i32(nd), flag, i32(base), stack)
        self.assertIs(same([2, 2, 2], [0, 4, 0]), True)
        self.assertIs(same([2, 2, 2], [0, 4, 2]), False)
        self.assertIs(same([2, 1], [0, 0]), False)
        self.assertIs(same([1, 2], [0, 0]), False)
        self.assertIs(same([1, 1, 1], [0, 2, 4]), True)
        self.assertIs(same([2, 2], [0, 4], False), False)
        self.assertIs(call(509, 1, None, False, None, None), False)
        self.assertIs(call(510, False, 3, i32([0, -1, 1])), True)
        self.assertIs(call(510, False, 2, i32([0, -1, 1])), False)
        self.assertIs(call(510, True, 2, i32([0, 0])), True)

    def test_sizes_add_to_what_comes_in(self):
        operands = i32([0, 4, -1]), i32([5, 3, 2])  # atoms and terms
        self.assertEqual(call(511, True, 3, *operands, 100, 1000), (100 + 5 + 10 + 2, 1010))
        self.assertEqual(call(511, False, 3, None, operands[1], 100, 1000), (100, 1010))
        self.assertEqual(call(512, True, 2, operands[0], i32([2, 1]), operands[1], 100, 10, 1000,
                              i32([0, 2]), i64([3, 6, 6])),
                         (100 + 5 + 10, 12, 1008))

    def test_nothing_to_do(self):
        none = [None] * 9
        self.assertEqual(call(512, True, 0, None, None, None, 1, 2, 3, None, None), (1, 2, 3))
        self.assertIsNone(call(523, True, *none[:4], 0, *none[:4], 0, 0, 0, 0, *none[:3], 0, 0, 0,
                               *none[:5]))
        self.assertIsNone(call(515, 0, 5, 0, None))
        self.assertIsNone(call(519, -1, 5, 0, None))

    def test_fills_and_shift(self):
        for zero in (lambda a: call(514, a, 2, 1), lambda a: call(515, 1, 2, 1, a)):
            zeroed = i32([7] * 5)
            zero(zeroed)
            self.assertEqual(list(zeroed), [7, 0, 0, 0, 7])
        shifted = i32([4, 9, 9, 9])
        call(522, shifted, 0, 1)
        self.assertEqual(list(shifted), [4, 9, 9, 9])
        call(522, shifted, 2, 0)
        self.assertEqual(list(shifted), [4, 4, 9, 9])


if __name__ == "__main__":
    unittest.main()
