"""triangle, densify and scale_offdiag: closures 538 to 555."""

import itertools
import unittest

from support import (MARKER, OP_CONST, OP_MUL, Model, Sampler, Stack, Term,
                     assert_only_sections_written, call, evaluate, i32, push, read, reserve,
                     strided)


def samples(sparse_forms=(0, 1)):
    """Random models with two axes of equal extent: (case, sampler, model, axes, step)."""
    for sparse, coded, step, seed in itertools.product(sparse_forms, (0, 1), (1, 3), range(20)):
        s = Sampler(seed)
        x, y = sorted(s.rng.sample(range(2 + seed % 3), 2))
        shape = s.shape(2 + seed % 3)
        shape[y] = shape[x]
        model = s.model(shape, sparse, coded, density=s.rng.random())
        yield dict(sparse=sparse, coded=coded, step=step, seed=seed), s, model, (x, y), step


def places(model):
    return list(itertools.product(*map(range, model.shape)))


class Triangle(unittest.TestCase):
    def chain(self, model, x, y, lower, step):
        w, r = Stack(4096, step), Stack(4096, step)
        e = push(w, model)
        nd = e.nd
        array = lambda values: strided(values, step) if step > 1 else values
        dim = array(i32([1, model.shape[x], 1, model.shape[y], 1]))
        stride = array(i32([0, 0, 0, 0, 1]))
        call(545, dim, e.shape_base, w.i32, x)
        call(546, dim, e.shape_base, w.i32, x, y)
        call(547, dim, nd, e.shape_base, w.i32, y)
        call(548, dim, stride)
        ncodeatom, nnz = call(549, e.codeptr_base, dim, e.hassp, e.ncodeatom, e.nelem, e.ptr_base,
                              0, 0, e.sp_base, stride, lower, w.i32, w.i64)
        n = model.shape[x]
        size = n * (n + 1) // 2 * dim[0] * dim[2] * dim[4]
        h = reserve(r, nd, size, nnz, ncodeatom, hassp=True)
        before = r.snapshot()
        call(550, nd, r.i32, h.shape_base, e.shape_base, w.i32)
        self.assertEqual(call(551 if lower else 552, dim, 0, r.i64, h.sp_base, stride), size)
        written = call(553, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, size,
                       e.hassp, e.nelem, e.nidxs_base, 0, e.ptr_base, h.cconst_base, h.code_base,
                       h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, ncodeatom, h.nidxs_base,
                       h.ptr_base, h.sp_base, e.sp_base, w.f64, w.i32, w.i64)
        self.assertEqual(written, (ncodeatom, nnz))
        self.assertEqual(r.i32[h.ptr_base + size], nnz)
        assert_only_sections_written(self, r, before, h, shape=True)
        return read(r, h)

    def test_elements(self):
        for case, _, model, (x, y), step in samples():
            for lower in (False, True):
                with self.subTest(lower=lower, **case):
                    result = self.chain(model, x, y, lower, step)
                    stored = dict(zip(model.linear(), model.elements))
                    sp = [k for k, p in enumerate(places(model))
                          if (p[y] <= p[x] if lower else p[x] <= p[y])]
                    elements = [stored.get(k, []) for k in sp]
                    self.assertEqual(result, Model(model.shape, elements, sp,
                                                   model.coded and any(elements)))

    def test_positions_go_on_and_are_formed_in_32_bits(self):
        r = Stack()
        stride = i32([0, 2**31 - 1, 0, 3, 1])
        self.assertEqual(call(551, i32([1, 2, 1, 2, 1]), 4, r.i64, 10, stride), 7)
        self.assertEqual(list(r.i64[13:18]), [MARKER["q"], 0, 2**31 - 1, 2 - 2**31, MARKER["q"]])
        self.assertEqual(call(552, i32([1, 0, 1, 0, 1]), 4, None, 0, None), 4)

    def test_size_and_flag(self):
        self.assertEqual(call(554, 2, True, 5, 1, i32([9, 2, 3])), (True, 30))
        self.assertEqual(call(554, 2, False, 1, 0, i32([2**16, 2**16 + 1])), (False, 2**16))
        self.assertEqual(call(554, 0, False, 5, 0, None), (False, 5))


class Densify(unittest.TestCase):
    def test_elements(self):
        for case, _, model, _, step in samples():
            w, r = Stack(4096, step), Stack(4096, step)
            e = push(w, model)
            size = len(places(model))
            h = reserve(r, e.nd, size, e.nnz, e.ncodeatom)
            before = r.snapshot()
            call(555, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, e.hassp, e.ncodeatom,
                 e.nd, e.nelem, e.nidxs_base, e.nnz, e.ptr_base, h.cconst_base, h.code_base,
                 h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, size, h.nidxs_base, h.ptr_base,
                 h.shape_base, e.shape_base, e.sp_base, w.f64, w.i32, w.i64)
            with self.subTest(**case):
                assert_only_sections_written(self, r, before, h, shape=True)
                stored = dict(zip(model.linear(), model.elements))
                self.assertEqual(read(r, h), Model(model.shape, [stored.get(k, []) for k in
                                                                 range(size)], None, model.coded))


class ScaleOffDiagonal(unittest.TestCase):
    def test_value_and_terms(self):
        scale = -1.5
        for case, s, model, (x, y), step in samples():
            w, r = Stack(4096, step), Stack(4096, step)
            e = push(w, model)
            h = push(r, Model(model.shape, [[Term(t.nidx, t.cof) for t in element]
                                            for element in model.elements], model.sp))
            if model.coded:
                h.ncodeatom = e.ncodeatom + 2 * e.nnz
                h.codeptr_base = r.reserve("i", e.nnz + 1)
                h.code_base = r.reserve("i", h.ncodeatom)
                h.cconst_base = r.reserve("d", h.ncodeatom)
            shape = model.shape
            d = (call(540, 1, e.shape_base, w.i32, x), shape[x],
                 call(541, 1, e.shape_base, w.i32, x, y), shape[y],
                 call(542, 1, e.nd, e.shape_base, w.i32, y))
            before = r.snapshot()
            call(543, *d, e.hassp, e.nelem, h.cof_base, r.f64, r.i32, h.ptr_base, scale, e.sp_base,
                 w.i64)
            call(544, e.cconst_base, e.code_base, e.codeptr_base, *d, e.hassp, e.ncodeatom,
                 e.nelem, e.ptr_base, h.cconst_base, h.code_base, h.codeptr_base, r.f64, r.i32,
                 scale, e.sp_base, w.f64, w.i32, w.i64)
            with self.subTest(**case):
                assert_only_sections_written(self, r, before, h)
                result = read(r, h)
                factors = [1.0 if p[x] == p[y] else scale for p in places(model)]
                old = evaluate(model, s.variables, s.parameters)
                self.assertEqual(evaluate(result, s.variables, s.parameters),
                                 [f * v for f, v in zip(factors, old)])
                atoms = lambda f: [(OP_CONST, f), (OP_MUL, MARKER["d"])] if model.coded else []
                self.assertEqual(
                    result.elements,
                    [[Term(t.nidx, t.cof * f, t.program + atoms(f)) for t in element]
                     for f, element in zip((factors[k] for k in model.linear()), model.elements)])

    def test_extents_in_64_bits(self):
        wi32 = i32([9, 2**20, 2**20, 7, 2**20, 2**20])
        self.assertEqual(call(540, 3, 1, wi32, 2), 3 * 2**40)
        self.assertEqual(call(541, 3, 0, wi32, 0, 3), 3 * 2**40)
        self.assertEqual(call(542, 3, 5, 1, wi32, 2), 3 * 2**40)
        self.assertEqual(call(541, 3, 0, None, 0, 1), 3)

    def test_shape_without_an_axis(self):
        for n, expected in ((0, [3, 4, 0]), (1, [2, 4, 0]), (2, [2, 3, 0])):
            r = i32([0, 0, 0])
            call(538, n, r, i32([2, 3, 4]))
            call(539, n, r, i32([2, 3, 4]))
            self.assertEqual(list(r), expected)


if __name__ == "__main__":
    unittest.main()
