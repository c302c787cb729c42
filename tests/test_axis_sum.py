"""sum_axis: closures 524 to 537."""

import itertools
import unittest

from support import (Model, Sampler, Stack, Term, assert_only_sections_written, call, evaluate, i32,
                     i64, product, push, read, reserve)


def split(shape, dim):
    return product(shape[:dim]), shape[dim], product(shape[dim + 1 :])


def expected_sum(model, dim):
    """The terms of each result element in ascending subscript of `dim`, unchanged."""
    d0, d1, d2 = split(model.shape, dim)
    shape = model.shape[:dim] + model.shape[dim + 1 :]
    cells = {} if model.sp is not None else {k: [] for k in range(d0 * d2)}
    for linear, element in zip(model.linear(), model.elements):
        cells.setdefault(linear // (d1 * d2) * d2 + linear % d2, []).extend(element)
    sp = sorted(cells)
    return Model(shape, [cells[k] for k in sp], None if model.sp is None else sp, model.coded)


class AxisSum(unittest.TestCase):
    def sort(self, w, x, e, dim, shape):
        """The position of the sorted permutation; nothing but the three sections is written."""
        maxd = call(524, 0, e.nd, e.shape_base, w.i32)
        self.assertEqual(maxd, max(shape))
        cur, tmp, radix = (x.reserve("i", n) for n in (e.nelem, e.nelem, maxd + 1))
        before = list(x.i32)
        call(525, cur, e.nelem, x.i32)
        result = call(526, cur, dim, e.nd, e.nelem, radix, e.shape_base, e.sp_base, tmp, w.i32,
                      w.i64, x.i32)
        swapped = dim < e.nd - 1 and (e.nd - 1) % 2 == 1
        self.assertEqual(result, (tmp, cur) if swapped else (cur, tmp))
        sections = [(cur, e.nelem), (tmp, e.nelem), (radix, maxd + 1)]
        inside = {p for base, n in sections for p in range(base, base + n)}
        self.assertEqual([p for p, old in enumerate(before) if x.i32[p] != old and p not in inside],
                         [])
        return result[0]

    def chain(self, model, dim, step=1, shared=False, cut=0):
        """Sorts, sizes and writes, the latter in two calls: the first leaves off at slab `cut`."""
        w, x = Stack(2048, step), Stack(step=step)
        r = w if shared else Stack(2048, step)
        e = push(w, model)
        expected = expected_sum(model, dim)
        d0, d1, d2 = split(model.shape, dim)
        for before, behind in ((527, 528), (533, 534)):
            self.assertEqual(call(before, 1, dim, e.shape_base, w.i32), d0)
            self.assertEqual(call(behind, 1, dim, e.nd, e.shape_base, w.i32), d2)
        nelem = d0 * d2
        if e.hassp:
            perm = self.sort(w, x, e, dim, model.shape)
            places = [x.i32[perm + t] for t in range(e.nelem)]
            cut = sum(linear < cut * d1 * d2 for linear in model.sp)
            self.assertEqual(set(places[:cut]), set(range(cut)))
            count = lambda first, n, *previous: call(
                529, perm + first, d0, d2, n, *previous, d1 * d2, e.sp_base, w.i64, x.i32)
            prev0, prev2, nelem = count(cut, e.nelem - cut, *count(0, cut, -1, -1, 0))
            if e.nelem:
                last = model.sp[places[-1]]
                self.assertEqual((prev0, prev2), (last // (d1 * d2), last % d2))
            self.assertEqual(nelem, len(expected.elements))
        h = reserve(r, e.nd - 1, nelem, e.nnz, e.ncodeatom, e.hassp)
        before = r.snapshot()
        head, tail = (530, 531) if e.hassp else (535, 536)
        call(head, dim, r.i32, h.shape_base, e.shape_base, w.i32)
        call(tail, dim, e.nd, r.i32, h.shape_base, e.shape_base, w.i32)
        target = (h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64,
                  e.ncodeatom, h.nidxs_base, h.ptr_base)

        def write_sparse(codei, i, j, m, n):
            return call(532, e.cconst_base, e.code_base, codei, e.codeptr_base, e.cof_base, perm,
                        d0, d2, i, j, m, n, e.nidxs_base, e.ptr_base, *target, h.sp_base, d1 * d2,
                        e.sp_base, w.f64, w.i32, w.i64, x.i32)

        def write_dense(codei, j, m, first, n):
            return call(537, e.cconst_base, e.code_base, codei, e.codeptr_base, e.cof_base, n, d1,
                        d2, j, m, e.nidxs_base, e.ptr_base + first * d1 * d2, *target, d1 * d2, d2,
                        w.f64, w.i32, w.i64)

        if e.hassp:
            counters = write_sparse(*write_sparse(0, 0, 0, 0, cut), e.nelem)
            self.assertEqual(counters, (h.ncodeatom, e.nelem, nelem, h.nnz))
        else:
            counters = write_dense(*write_dense(0, 0, 0, 0, cut), cut, d0 - cut)
            self.assertEqual(counters, (h.ncodeatom, nelem, h.nnz))
        assert_only_sections_written(self, r, before, h, shape=True)
        result = read(r, h)
        self.assertEqual(result, expected)
        return result

    def test_sum_of_dense_and_sparse(self):
        forms = itertools.product((False, True), (False, True), (1, 3), (False, True))
        for (sparse, coded, step, shared), seed in itertools.product(forms, range(50)):
            s = Sampler(seed)
            shape = s.shape(s.rng.randrange(1, 5), most=4 if seed % 2 else 2)
            dim = s.rng.randrange(len(shape))
            model = s.model(shape, sparse, coded, density=s.rng.choice([0.2, 0.7]))
            d0, d1, d2 = split(shape, dim)
            with self.subTest(sparse=sparse, coded=coded, step=step, shared=shared, seed=seed):
                result = self.chain(model, dim, step, shared, cut=s.rng.randrange(d0 + 1))
                values = evaluate(model, s.variables, s.parameters)
                self.assertEqual(
                    evaluate(result, s.variables, s.parameters),
                    [sum(values[(a * d1 + c) * d2 + b] for c in range(d1))
                     for a in range(d0) for b in range(d2)])

    def test_long_blocks(self):
        # Above the length from which neighbours are copied as blocks.
        term = lambda t: Term(t, float(t), [(1, 1.0)] * (t % 3))
        elements = [[term(t) for t in range(e % 7)] for e in range(2 * 30)]
        for sp in (None, list(range(0, 120, 2))):
            shape = [2, 30] if sp is None else [2, 60]
            for dim in (0, 1):
                self.chain(Model(shape, elements, sp, True), dim, cut=1 if dim else 0)

    def test_groups_start_from_a_pair(self):
        perm, sp = i32([0, 2, 1]), i64([1, 3, 5, 13])  # the first three: (0, 1), (1, 1), (0, 1)
        count = lambda a, b: call(529, 0, 2, 2, 3, a, b, 7, 4, 0, sp, perm)
        self.assertEqual(count(-1, -1), (0, 1, 10))
        self.assertEqual(count(0, 1), (0, 1, 9))
        self.assertEqual(count(1, 1), (0, 1, 10))
        self.assertEqual(call(529, 0, 2, 2, 1, -1, -1, 7, 4, 3, sp, perm), (1, 1, 8))
        self.assertEqual(call(529, 0, 2, 2, 0, 2**40, -(2**40), 7, 4, 0, None, None),
                         (2**40, -(2**40), 7))

    def test_last_dimension_needs_no_sort(self):
        for dim in (2, 3):
            self.assertEqual(call(526, 5, dim, 3, 9, 0, 0, 0, 6, None, None, None), (5, 6))

    def test_extents(self):
        shape = i32([9, 2**16, 3, 2**16, 2**15])
        self.assertEqual(call(527, 5, 2, 1, shape), 15 * 2**16)
        self.assertEqual(call(528, -1, 0, 4, 1, shape), -(2**31))  # -3 * 2**31 in 32 bits
        self.assertEqual(call(528, 5, 3, 4, 1, None), 5)
        self.assertEqual(call(524, 7, 3, 2, i32([99, 99, 3, 8, 1, 99])), 8)
        self.assertEqual(call(524, 9, 0, 0, None), 9)


if __name__ == "__main__":
    unittest.main()
