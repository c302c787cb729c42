"""mul_plain_left and mul_plain_right: closures 483 to 495."""

import itertools
import unittest

from support import (MARKER, Sampler, Stack, assert_only_sections_written, call, f64, i32, i64,
                     read, reserve, strided)


class Plain:
    """A random plain operand, read as a matrix of `rows` x `columns`: `at` holds the variable index
    of each stored element by row and column."""

    def __init__(self, s, rows, columns, sparse):
        self.sp = s.pattern(rows * columns) if sparse else list(range(rows * columns))
        self.nidxs = [s.rng.randrange(-5, 99) for _ in self.sp]
        self.at = {divmod(k, columns): n for k, n in zip(self.sp, self.nidxs)}


class PlainProduct(unittest.TestCase):
    def matrix(self, s, rows, columns, sparse, step):
        """Entries by place, and the arrays of them."""
        places = itertools.product(range(rows), range(columns))
        m = {p: s.number() for p in places if not sparse or s.rng.random() < 0.5}
        arrays = i32([i for i, _ in m]), i32([j for _, j in m]), f64(m.values())
        return (m, *(arrays if step == 1 else [strided(a, step) for a in arrays]))

    def result(self, nelem, nnz, step, sets_entry_0=True):
        r = Stack(step=step)
        h = reserve(r, 2, nelem, nnz, hassp=True)
        if sets_entry_0:
            r.i32[h.ptr_base] = MARKER["i"]
        return r, h, r.snapshot()

    def check(self, r, h, before, rows, inner, columns, term):
        """An element of R for each place that gets a term; `term(i, j, c)` tells the variable and
        coefficient that j brings to (i, c), or None."""
        expected = {}
        for i, c in itertools.product(range(rows), range(columns)):
            met = [term(i, j, c) for j in range(inner)]
            if any(met):
                expected[i * columns + c] = [t for t in met if t]
        assert_only_sections_written(self, r, before, h)
        result = read(r, h, [rows, columns])
        got = [[(t.nidx, t.cof) for t in e] for e in result.elements]
        self.assertEqual(list(zip(result.sp, got)), sorted(expected.items()))

    def left(self, s, nd, sparse_v, step):
        md0, md1 = s.shape(2)
        vd1 = 1 if nd == 1 else s.rng.randrange(4)  # a vector is one column
        m, msubi, msubj, mcof = self.matrix(s, md0, md1, True, step)
        v = Plain(s, md1, vd1, sparse_v)
        x = Stack(step=step)
        nidxs, sp = x.put("q", v.nidxs), x.put("q", v.sp)
        if sparse_v:
            rowptr, colptr = x.reserve("i", md0 + 1), x.reserve("i", vd1 + 1)
            perm, vi, vj = (x.reserve("i", len(v.sp)) for _ in range(3))
            sizes = call(492, md0, rowptr, msubi, msubj, nd, len(v.sp), perm, colptr, 100, 1000, sp,
                         vd1, x.i32, x.i64, vi, vj)
            r, h, before = self.result(sizes[0] - 100, sizes[1] - 1000, step)
            call(494, mcof, md0, rowptr, msubj, nidxs, perm, colptr, h.cof_base, r.f64, r.i32,
                 r.i64, h.nidxs_base, h.ptr_base, h.sp_base, vd1, x.i32, x.i64, vi)
        else:
            r, h, before = self.result(*call(493, len(m), msubi, 0, 77, vd1), step)
            call(495, mcof, len(m), msubi, msubj, nidxs, h.cof_base, r.f64, r.i32, r.i64,
                 h.nidxs_base, h.ptr_base, h.sp_base, vd1, x.i64)
        self.check(r, h, before, md0, md1, vd1, lambda i, j, c:
                   (v.at[j, c], m[i, j]) if (i, j) in m and (j, c) in v.at else None)

    def right(self, s, nd, sparse_v, sparse_m, step):
        d1, md1 = s.shape(2)
        d0 = 1 if nd == 1 else s.rng.randrange(4)  # a vector is one row
        m, msubi, msubj, mcof = self.matrix(s, d1, md1, sparse_m, step)
        v = Plain(s, d0, d1, sparse_v)
        w = Stack(step=step)
        nidxs, sp = w.put("q", v.nidxs), w.put("q", v.sp)
        colptr, rowptr = w.reserve("i", md1 + 1), w.reserve("i", d0 + 1)
        perm, vi, vj = (w.reserve("i", n) for n in (len(m), len(v.sp), len(v.sp)))
        if sparse_m:
            call(485, md1, md1, colptr, msubj, len(m), perm, w.i32)
        if not sparse_m:
            rows = call(483, len(v.sp), sp, w.i64, 0, nd, d1)
            r, h, before = self.result(rows * md1, len(v.sp) * md1, step)
            call(484, mcof, md1, nidxs, len(v.sp), h.cof_base, r.f64, r.i32, r.i64, h.nidxs_base,
                 h.ptr_base, h.sp_base, sp, w.i64, d1)
        elif sparse_v:
            call(488, rowptr, w.i32, d0)
            xshape = None if nd == 1 else i32([d0, d1])
            call(489, nd, len(v.sp), rowptr, sp, w.i32, w.i64, d0, xshape, vi, vj)
            sizes = call(490, md1, colptr, msubi, 100, 1000, perm, rowptr, w.i32, d0, vj)
            r, h, before = self.result(sizes[0] - 100, sizes[1] - 1000, step)
            call(491, mcof, md1, colptr, msubi, nidxs, perm, rowptr, h.cof_base, r.f64, r.i32,
                 r.i64, h.nidxs_base, h.ptr_base, h.sp_base, w.i32, w.i64, d0, vj)
        else:
            columns = call(486, msubj, 5, len(m), perm, w.i32) - 5
            r, h, before = self.result(columns * d0, len(m) * d0, step, sets_entry_0=False)
            counts = call(487, 0, 0, mcof, md1, msubi, msubj, nidxs, len(m), perm, h.cof_base,
                          r.f64, r.i32, r.i64, h.nidxs_base, h.ptr_base, h.sp_base, w.i32, w.i64,
                          d0, d1)
            self.assertEqual(counts, (h.nelem, h.nnz))
        self.check(r, h, before, d0, d1, md1, lambda i, j, c:
                   (v.at[i, j], m[j, c]) if (j, c) in m and (i, j) in v.at else None)

    def test_left(self):
        for sparse_v, nd, step, seed in itertools.product((0, 1), (1, 2), (1, 3), range(40)):
            with self.subTest(sparse_v=sparse_v, nd=nd, step=step, seed=seed):
                self.left(Sampler(seed), nd, sparse_v, step)

    def test_right(self):
        forms = [(1, 1), (1, 0), (0, 1)]
        for form, nd, step, seed in itertools.product(forms, (1, 2), (1, 3), range(40)):
            with self.subTest(form=form, nd=nd, step=step, seed=seed):
                self.right(Sampler(seed), nd, *form, step)

    def test_nothing_to_multiply_writes_entry_0_alone(self):
        ptr = lambda: i32([9, 9])
        for number, ri32, before, behind in [
            (495, ptr(), [None, 0, None, None, 0, 0, None], [None, 0, 0, 0, 3, None]),
            (494, ptr(), [None, 3, 0, None, 0, 0, 0, 0, None], [None, 0, 0, 0, 0, None, None, 0]),
            (491, ptr(), [None, 0, 0, None, 0, 0, 0, 0, None], [None, 0, 0, 0, None, None, 3, 0]),
            (484, ptr(), [None, 3, 0, 0, 0, None], [None, 0, 0, 0, 0, None, 2]),
        ]:
            call(number, *before, ri32, *behind)
            self.assertEqual(ri32, i32([0, 9]))
        self.assertEqual(call(487, 4, 5, None, 2, None, None, 0, 0, 0, 0, None, None, None, 0, 0, 0,
                              None, None, 3, 2), (4, 5))

    def test_width_of_linear_indexes(self):
        def results(n):
            return f64([0] * n), i32([0] * (n + 1)), i64([0] * 2 * n)

        rf64, ri32, ri64 = results(4)
        call(495, f64([2]), 1, i32([2**30]), i32([0]), 0, 0, rf64, ri32, ri64, 0, 0, 4, 4,
             i64([5, 6, 7, 8]))
        self.assertEqual(ri64, i64([5, 6, 7, 8, 0, 1, 2, 3]))  # 2^32 wraps
        call(487, 0, 0, f64([2]), 2**31 - 1, i32([0]), i32([5]), 0, 1, 0, 0, rf64, ri32, ri64, 0, 0,
             4, i32([0]), i64([6, 7]), 2, 1)
        self.assertEqual(list(ri64[4:6]), [5, 4 - 2**31])
        call(484, f64(range(8)), 4, 0, 1, 0, rf64, ri32, ri64, 0, 0, 4, 1, i64([9, 2**31 + 1]), 2)
        self.assertEqual(list(ri64[4:]), [2**32 + c for c in range(4)])

    def test_totals_and_counts(self):
        self.assertEqual(call(493, 3, i32([1, 1, 4]), 7, 99, 2), ((7 + 2) * 2, 6))
        self.assertEqual(call(483, 0, 0, None, 6, 2, 3), 6)
        self.assertEqual(call(483, 3, 0, None, 6, 1, 1), 1)
        self.assertEqual(call(483, 3, 0, i64([1, 2, 4]), 6, 2, 1), 3)

    def test_one_column_is_not_sorted(self):
        wi32 = i32([9] * 7)
        call(485, 1, 1, 1, None, 3, 4, wi32)
        self.assertEqual(wi32, i32([9, 0, 3, 9, 0, 1, 2]))


if __name__ == "__main__":
    unittest.main()
