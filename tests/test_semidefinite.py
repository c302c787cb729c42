"""Entries of semidefinite variables, and the parts of expressions that have them."""

import itertools
import unittest

from support import LAYOUTS, Sampler, Stack, Term, blank, call, evaluate, f64, i32, prefix, push


class Semidefinite(unittest.TestCase):
    def cases(self):
        """Semidefinite variables that are registered, and an expression with ascending terms."""
        for seed, step in itertools.product(range(60), (1, 3)):
            s, self.lay = Sampler(seed), LAYOUTS[step > 1]
            self.blank = lambda kind, n: self.lay(blank(kind, n))
            dims = sorted(s.rng.randrange(4) for _ in range(2))
            self.entries = [(n, i, j) for n, d in enumerate(sorted(2 * dims)) for j in range(d)
                            for i in range(j, d)]
            self.tables = [self.blank("i", len(self.entries)) for _ in range(3)]
            self.dim, ptr = self.blank("i", 4), i32(prefix(d * (d + 1) for d in dims))
            for block, d in [*enumerate(dims)][::-1]:  # what comes behind a block stands already
                native = self.blank("q", d * (d + 1))
                call(8, *self.tables, ptr, self.dim, block, d, 2 * block, native, 2)
                self.assertEqual(list(native), list(range(*ptr[block:block + 2])))
            self.assertEqual(([*zip(*self.tables)], [*self.dim]), (self.entries, sorted(2 * dims)))
            model, stack = s.model([s.rng.randrange(6)]), Stack(step=step)
            for element in model.elements:
                element += [Term(~k, s.number()) for k in s.pattern(len(self.entries), 0.2)]
                element.sort(key=lambda t: t.nidx)
            # By variable index: the constant, scalar variables, and from the end the entries.
            self.x = s.variables + [s.number() for _ in self.entries]
            with self.subTest(seed=seed, step=step):
                yield model, stack, push(stack, model)

    def inner(self, variable, rows, columns, values):
        """The inner product of that variable and the matrix with that lower triangle."""
        return sum((v if i == j else 2 * v) * self.x[~self.entries.index((variable, i, j))]
                   for i, j, v in zip(rows, columns, values))

    def test_parts(self):
        for case in self.cases():
            self.check_rows(*case, 75, 76, 77, "i", 0)
            self.check_rows(*case, 78, 79, 80, "q", -1)
            self.check_single_expression(*case)
        self.assertEqual([call(45, n, i32([9, 4, 3]), 1) for n in (-1, 0, 1, 2)], [-1, 0, 4, 24])

    def check_rows(self, model, r, h, size, scalars, matrices, kind, below):
        """Constant, scalar terms and matrices of a row together have the value of its element."""
        n, new, at = len(model.elements), self.blank, (h.nidxs_base, h.ptr_base, r.i32, r.i64)
        nmat, nlin, nz = call(size, 1, self.tables[0], 2, n, *at, 3)
        fixed, subj, cof = self.lay(f64([2.0] * n)), new("i", nlin - 2), new("d", nlin - 2)
        ptrb, ptr = new(kind, n + 1), new(kind, n + 1)
        ptrb[0], ptr[0] = 0, 1
        call(scalars, *[fixed] * (kind == "i"), cof, h.cof_base, n, *at[:2], ptrb, r.f64,
             *at[2:], subj)
        barsubj, matdim, matnnz = new("i", nmat), new("i", nmat), new("q", nmat)
        subk, subl, val = new("i", nz), new("i", nz), new("d", nz)
        self.assertEqual(call(matrices, 3, 1, barsubj, *self.tables, self.dim, h.cof_base, val,
                              matdim, matnnz, subk, subl, at[0], n, ptr, h.ptr_base, r.f64,
                              *at[2:]), (nz, nmat))
        ends = [3 + k for k in prefix(matnnz[1:])]
        self.assertEqual((ptrb[n], ptr[n], ends[-1]), (nlin - 2, nmat, nz))
        for e, element in enumerate(model.elements):
            terms, own = slice(ptrb[e], ptrb[e + 1]), range(ptr[e], ptr[e + 1])
            value = sum(c * self.x[j] for j, c in zip(subj[terms], cof[terms]))
            for m in own:
                part = slice(ends[m - 1], ends[m])
                self.assertEqual(matdim[m], self.dim[barsubj[m]])
                value += self.inner(barsubj[m], subk[part], subl[part], val[part])
            self.assertEqual(value + fixed[e] - 2.0, evaluate(model, self.x, [])[e])
            self.assertEqual(list(subj[terms]), [t.nidx for t in element if t.nidx > below])
            numbers = {self.tables[0][~t.nidx] for t in element if t.nidx < 0}
            self.assertEqual(sorted(barsubj[m] for m in own), sorted(numbers))

    def check_single_expression(self, model, r, h):
        terms, at = sum(model.elements, []), (h.cof_base, h.nidxs_base)
        scalar = [(t.nidx, t.cof) for t in terms if t.nidx >= 0]
        nlin, nbar = call(46, 5, h.nidxs_base, h.nnz, 7, r.i64)
        self.assertEqual((nlin, nbar), (5 + len(scalar), 7 + len(terms) - len(scalar)))
        subj, cof = self.blank("i", len(scalar)), self.blank("d", len(scalar))
        call(47, cof, *at, h.nnz, r.f64, r.i64, subj)
        self.assertEqual(list(zip(subj, cof)), scalar)
        run = list(itertools.takewhile(lambda t: t.nidx < 0, terms))
        lists = [self.blank(kind, len(run)) for kind in "iiid"]
        call(48, *self.tables, *at, len(run), r.f64, r.i64, *lists)
        self.assertEqual([self.inner(n, [i], [j], [v]) for n, i, j, v in zip(*lists)],
                         [t.cof * self.x[t.nidx] for t in run])


if __name__ == "__main__":
    unittest.main()
