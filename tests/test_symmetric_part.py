"""symmetrize: closures 556 to 569."""

import itertools
import unittest

from support import (MARKER, OP_CONST, OP_MUL, Model, Sampler, Stack, Term,
                     assert_only_sections_written, call, evaluate, i32, i64, push, read, reserve,
                     strided)


def symmetric_part(model, d1, d2):
    """The result as it must stand on the stack, and for each position its mirror's."""
    places = list(itertools.product(*map(range, model.shape)))
    mirrored = [p[:d1] + (p[d2],) + p[d1 + 1 : d2] + (p[d1],) + p[d2 + 1 :] for p in places]
    index = {p: k for k, p in enumerate(places)}
    mirror = [index[p] for p in mirrored]
    stored = dict(zip(model.linear(), model.elements))
    factor = [(OP_CONST, 0.5), (OP_MUL, MARKER["d"])] if model.coded else []
    half = lambda k: [Term(t.nidx, t.cof * 0.5, t.program + factor) for t in stored.get(k, [])]
    sp = [k for k, m in enumerate(mirror) if k in stored or m in stored]
    elements = [stored[k] if k == mirror[k] else half(k) + half(mirror[k]) for k in sp]
    return Model(model.shape, elements, model.sp and sp, model.coded), mirror


class SymmetricPart(unittest.TestCase):
    def chain(self, model, d1, d2, step=1):
        w, r, x = (Stack(4096, step) for _ in range(3))
        e = push(w, model)
        array = lambda values: strided(values, step) if step > 1 else values
        shape = model.shape
        nd = len(shape)
        dim = array(i32([1, shape[d1], 1, shape[d2], 1]))
        stride = array(i64([0, 0, 0, 0, 1]))
        call(557, dim, d1, e.shape_base, w.i32)
        call(558, dim, d1, d2, e.shape_base, w.i32)
        call(559, dim, d2, nd, e.shape_base, w.i32)
        call(560, dim, stride)
        if e.hassp:
            # The counters of a pass are those of the view, whose extents are folded.
            counters = x.reserve("i", call(556, 0, 5, 0, dim) + 1)
            perms = x.reserve("i", e.nelem), x.reserve("i", e.nelem)
            mirrors = x.reserve("q", e.nelem)
            call(561, perms[0], e.nelem, x.i32)
            passes = sum(dim[q] > 1 for q in range(4))
            sorted_perm, other = call(562, perms[0], dim, e.nelem, array(i32([1, 2, 3, 0])),
                                      e.sp_base, stride, perms[1], w.i64, x.i32, counters)
            self.assertEqual((sorted_perm, other), perms if passes % 2 == 0 else perms[::-1])
            call(563, dim, e.nelem, e.sp_base, stride, w.i64, x.i64, mirrors)
            ncodeatom, nelem, nnz = call(564, e.codeptr_base, sorted_perm, e.ncodeatom, e.nelem,
                                         e.ptr_base, 0, 0, 0, e.sp_base, w.i32, w.i64, x.i32,
                                         x.i64, mirrors)
        else:
            nelem = e.nelem
            code = 2 * e.ncodeatom + 4 * e.nnz if e.ncodeatom > 0 else 0
            ncodeatom, nnz = call(567, e.codeptr_base, dim, e.ncodeatom, e.ptr_base, code,
                                  2 * e.nnz, stride, w.i32)
        h = reserve(r, nd, nelem, nnz, ncodeatom, e.hassp)
        before = r.snapshot()
        call(565 if e.hassp else 568, nd, r.i32, h.shape_base, e.shape_base, w.i32)
        if e.hassp:
            written = call(566, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base,
                           sorted_perm, 0, 0, 0, e.nelem, e.nidxs_base, 0, e.ptr_base,
                           h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32,
                           r.i64, ncodeatom, h.nidxs_base, h.ptr_base, h.sp_base, e.sp_base, w.f64,
                           w.i32, w.i64, x.i32, x.i64, mirrors)
            self.assertEqual(written, (ncodeatom, nelem, e.nelem, e.nelem, nnz))
        else:
            written = call(569, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, dim, 0,
                           e.nidxs_base, 0, e.ptr_base, h.cconst_base, h.code_base, h.codeptr_base,
                           h.cof_base, 0, r.f64, r.i32, r.i64, ncodeatom, h.nidxs_base, h.ptr_base,
                           stride, w.f64, w.i32, w.i64)
            self.assertEqual(written, (ncodeatom, nelem, nnz, nelem))
        assert_only_sections_written(self, r, before, h, shape=True)
        return read(r, h)

    def test_value_and_terms(self):
        for sparse, coded, step, seed in itertools.product((0, 1), (0, 1), (1, 3), range(40)):
            s = Sampler(seed)
            d1, d2 = sorted(s.rng.sample(range(2 + seed % 3), 2))
            shape = s.shape(2 + seed % 3)
            shape[d2] = shape[d1]
            model = s.model(shape, sparse, coded, density=s.rng.random())
            with self.subTest(sparse=sparse, coded=coded, step=step, seed=seed):
                result = self.chain(model, d1, d2, step)
                expected, mirror = symmetric_part(model, d1, d2)
                old = evaluate(model, s.variables, s.parameters)
                self.assertEqual(evaluate(result, s.variables, s.parameters),
                                 [(v + old[m]) / 2 for v, m in zip(old, mirror)])
                self.assertEqual(result, expected)

    def test_long_elements(self):
        # Long enough for block moves and vectorised loops, on the diagonal and off it.
        model = Model([2, 2], [[Term(n, float(n)) for n in range(40 + k)] for k in range(3)],
                      sp=[0, 1, 2])
        self.assertEqual(self.chain(model, 0, 1), symmetric_part(model, 0, 1)[0])

    def test_counters_go_on_from_where_they_are(self):
        # The 1 x 1 view of two elements, of which the second is left to do.
        w, r = Stack(), Stack()
        e = push(w, Model([1, 1, 2], [[Term(5, 2.0)], [Term(6, 3.0)]]))
        h = reserve(r, 3, 9, 9, 9)
        dim, stride = i32([1, 1, 1, 1, 1]), i64([2, 2, 2, 2, 1])
        written = call(569, 0, 0, 4, 0, e.cof_base, dim, 1, e.nidxs_base, 3, e.ptr_base, 0, 0, 0,
                       h.cof_base, 7, r.f64, r.i32, r.i64, 0, h.nidxs_base, h.ptr_base, stride,
                       w.f64, w.i32, w.i64)
        self.assertEqual(written, (4, 2, 4, 8))
        self.assertEqual((r.i64[h.nidxs_base + 3], r.f64[h.cof_base + 3], r.i32[h.ptr_base + 8]),
                         (6, 3.0, 4))

    def test_strides_in_64_bits(self):
        stride = i64([9, 9, 9, 9, 1])
        call(560, i32([5, 2**17, 2**20, 2**17, 3]), stride)
        self.assertEqual(list(stride), [3 * 2**54, 3 * 2**37, 3 * 2**17, 3, 1])

    def test_nothing_stored(self):
        none = [None] * 3
        self.assertEqual(call(564, 0, 0, 1, 0, 0, 4, 5, 6, 0, None, None, None, None, 0), (4, 5, 6))
        self.assertEqual(call(566, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0, 3, *[0] * 5, *none, 1, 0, 0, 0,
                              0, *none, None, None, 0), (1, 2, 0, 0, 3))
        self.assertEqual(call(562, 7, i32([1] * 5), 4, i32([1, 2, 3, 0]), 0, None, 8, None, None,
                              0), (7, 8))
        self.assertIsNone(call(558, None, 1, 2, 0, None))


if __name__ == "__main__":
    unittest.main()
