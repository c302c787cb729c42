"""The host's sums of expressions and of their elements, and what it makes of its own data."""

import unittest
from unittest import mock

from host.closures import Closures
from host.evaluator.construction import RowWise
from host.data.matrices import DenseMatrix, SparseMatrix
from host.index_maps.variables import Variable
from host_support import Evaluator, call_spread
from support import OP_CONST, Model, Sampler, Term, evaluate, positions, product, read


def cases(count):
    """Runs a test for that many seeds on fresh evaluators, with and without sparsity and code, and
    with strided arrays in every third run."""
    def decorate(test):
        def run(self):
            for seed in range(count):
                call = Closures.__call__ if seed % 3 else call_spread
                with self.subTest(seed=seed), mock.patch.object(Closures, "__call__", call):
                    test(self, Sampler(seed), Evaluator(), bool(seed & 1), bool(seed & 2))
        return run
    return decorate


class HostCase(unittest.TestCase):
    def operand(self, s, ev, shape, sparse, coded):
        """An expression and the values of its positions by their subscripts."""
        model = s.model(shape, sparse, coded)
        values = evaluate(model, s.variables, s.parameters)
        return ev.push(model), dict(zip(positions(shape), values))

    def check(self, s, ev, method, *arguments, shape, sparse, values):
        """The result of the call is well-formed and has these values by position, or by subscripts,
        and all that stood on the stacks still does. Returns the model of the result."""
        before, scratch = ev.w.reserved(), ev.x.mark()
        h = method(*arguments)
        self.assertTrue(ev.w.intact())
        for kind, content in ev.w.reserved().items():
            self.assertEqual(content[: len(before[kind])], before[kind])
        self.assertEqual(ev.x.mark(), scratch)
        m = read(ev.w, h)
        self.assertEqual((m.shape, list(h.shape), h.hassp), (list(shape), list(shape), sparse))
        self.assertEqual((m.nnz, m.ncodeatom), (h.nnz, h.ncodeatom))
        self.assertEqual(ev.w.i32[h.ptr_base], 0)
        linear = list(m.linear())
        self.assertEqual(linear, sorted(set(linear)) if sparse else list(range(product(shape))))
        if isinstance(values, dict):
            values = [values[x] for x in positions(shape)]
        self.assertEqual(evaluate(m, s.variables, s.parameters), values)
        return m

    def refuse(self, ev, message, method, *arguments):
        before, scratch = ev.w.reserved(), ev.x.mark()
        with self.subTest(message=message, arguments=arguments):
            self.assertRaisesRegex(ValueError, message, method, *arguments)
            self.assertEqual((ev.w.reserved(), ev.x.mark()), (before, scratch))


class Sum(HostCase):
    @cases(120)
    def test_weighted_add(self, s, ev, sparse1, coded1):
        shape, sparse2, coded2 = s.shape(2), s.rng.random() < 0.5, s.rng.random() < 0.5
        a, avalues = self.operand(s, ev, shape, sparse1, coded1)
        b, bvalues = self.operand(s, ev, shape, sparse2, coded2)
        p, q = s.number(), s.number()
        m = self.check(s, ev, ev.weighted_add, p, a, q, b, shape=shape,
                       sparse=sparse1 and sparse2,
                       values={x: p * avalues[x] + q * bvalues[x] for x in avalues})
        self.assertEqual(m.nnz, a.nnz + b.nnz)

    @cases(200)
    def test_sum_axis(self, s, ev, sparse, coded):
        shape = s.shape(s.rng.randrange(1, 5))
        e, values = self.operand(s, ev, shape, sparse, coded)
        dim = s.rng.randrange(len(shape))
        rest = shape[:dim] + shape[dim + 1 :]
        expected = dict.fromkeys(positions(rest), 0.0)
        for x, v in values.items():
            expected[x[:dim] + x[dim + 1 :]] += v
        self.check(s, ev, ev.sum_axis, e, dim, shape=rest, sparse=sparse, values=expected)

    @cases(40)
    def test_densify(self, s, ev, sparse, coded):
        e, values = self.operand(s, ev, s.shape(2), sparse, coded)
        self.check(s, ev, ev.densify, e, shape=e.shape, sparse=False, values=values)

    def test_refusals(self):
        ev, s = Evaluator(), Sampler(1)
        e, f = ev.push(s.model([2, 3])), ev.push(s.model([3, 2], True))
        self.refuse(ev, "equal shapes", ev.weighted_add, 1.0, e, 1.0, f)
        for dim in (-1, 2):
            self.refuse(ev, "no axis", ev.sum_axis, e, dim)
        done = ev.finish(e)
        self.refuse(ev, "ready for a model", ev.weighted_add, 1.0, e, 1.0, done)
        for method, arguments in ((ev.sum_axis, (0,)), (ev.densify, ()), (ev.triangle, (0, 1)),
                                  (ev.symmetrize, (0, 1)), (ev.scale_offdiag, (0, 1, 1.0))):
            self.refuse(ev, "ready for a model", method, done, *arguments)


class AxisPair(HostCase):
    def operand_with_pair(self, s, ev, sparse, coded):
        shape = s.shape(s.rng.randrange(2, 5))
        i, j = sorted(s.rng.sample(range(len(shape)), 2))
        shape[j] = shape[i]
        return (i, j, *self.operand(s, ev, shape, sparse, coded))

    @cases(200)
    def test_symmetrize(self, s, ev, sparse, coded):
        i, j, e, values = self.operand_with_pair(s, ev, sparse, coded)

        def mirror(x):
            return x[:i] + x[j : j + 1] + x[i + 1 : j] + x[i : i + 1] + x[j + 1 :]

        self.check(s, ev, ev.symmetrize, e, i, j, shape=e.shape, sparse=sparse,
                   values={x: (values[x] + values[mirror(x)]) / 2 for x in values})

    @cases(120)
    def test_triangle(self, s, ev, sparse, coded):
        i, j, e, values = self.operand_with_pair(s, ev, sparse, coded)
        for lower in (False, True):
            inside = {x: x[j] <= x[i] if lower else x[i] <= x[j] for x in values}
            m = self.check(s, ev, ev.triangle, e, i, j, lower, shape=e.shape, sparse=True,
                           values={x: values[x] if inside[x] else 0.0 for x in values})
            self.assertEqual(m.sp, [k for k, x in enumerate(values) if inside[x]])

    @cases(120)
    def test_scale_offdiag(self, s, ev, sparse, coded):
        i, j, e, values = self.operand_with_pair(s, ev, sparse, coded)
        scale = s.number()
        m = self.check(s, ev, ev.scale_offdiag, e, i, j, scale, shape=e.shape, sparse=sparse,
                       values={x: values[x] * (1.0 if x[i] == x[j] else scale) for x in values})
        self.assertEqual(m.linear(), read(ev.w, e).linear())

    def test_refusals(self):
        ev, s = Evaluator(), Sampler(1)
        e = ev.push(s.model([2, 3, 2]))
        for method, more in ((ev.symmetrize, ()), (ev.triangle, ()), (ev.scale_offdiag, (2.0,))):
            for pair in ((0, 1), (2, 0), (0, 0), (-1, 2), (0, 3)):
                self.refuse(ev, "ascending axes of equal extent", method, e, *pair, *more)

    def test_more_than_32_bits_of_positions(self):
        n = 70000
        ev, program = Evaluator(), [(OP_CONST, 0.5)]
        elements = [[Term(1, 2.0, program)], [Term(2, 4.0, program)]]
        e = ev.push(Model([n, n], elements, [n - 1, n * n - 1], True))
        sym = read(ev.w, ev.symmetrize(e, 0, 1))
        self.assertEqual(sym.sp, [n - 1, n * (n - 1), n * n - 1])
        self.assertEqual([t.cof for (t,) in sym.elements], [1.0, 1.0, 4.0])
        scaled = read(ev.w, ev.scale_offdiag(e, 0, 1, 3.0))
        self.assertEqual([t.cof for (t,) in scaled.elements], [6.0, 4.0])
        self.assertEqual(read(ev.w, ev.sum_axis(e, 1)).sp, [0, n - 1])
        self.refuse(ev, "can't have 4900000000 positions", ev.sum_axis, e, 0)
        self.refuse(ev, "can't have 4900000000 positions", ev.triangle, e, 0, 1)
        self.refuse(ev, "can't have 4900000000 positions", ev.densify, e)
        wide = ev.push(Model([2, 2, n, n], [], []))
        self.refuse(ev, "can't have 4900000000 positions", ev.symmetrize, wide, 0, 1)
        for shape, sp in (([n, 0, n], None), ([2, 0, n, n], [])):
            empty = ev.push(Model(shape, [], sp))
            self.refuse(ev, "can't have 4900000000 positions", ev.sum_axis, empty, 1)


class Data(HostCase):
    def places(self, s, shape, sparse):
        """Stored places, and what a sparse form takes for them."""
        sp = s.pattern(product(shape)) if sparse else None
        return (range(product(shape)), None) if sp is None else (sp, sp)

    @cases(120)
    def test_pushes(self, s, ev, sparse, constant):
        shape = s.shape(2)
        places, sp = self.places(s, shape, sparse)
        numbers, nidxs = [s.number() for _ in places], [s.rng.randrange(10) for _ in places]
        dense = lambda values: [dict(zip(places, values)).get(k, 0.0)
                                for k in range(product(shape))]
        self.check(s, ev, ev.push_unit_terms, shape, nidxs, sp, shape=shape, sparse=sparse,
                   values=dense([s.variables[k] for k in nidxs]))
        m = self.check(s, ev, ev.push_constant_vector, shape, numbers, sp, shape=shape,
                       sparse=sparse, values=dense(numbers))
        self.assertEqual(list(map(len, m.elements)), [v != 0.0 for v in numbers])
        rows, columns = ([divmod(k, shape[1])[x] for k in places] for x in (0, 1))
        matrix = SparseMatrix(*shape, rows, columns, numbers) if sparse else DenseMatrix(
            *shape, numbers)
        varidx = 0 if constant else 3
        self.check(s, ev, ev.push_sparse_matrix, matrix, varidx, shape=shape, sparse=sparse,
                   values=[v * s.variables[varidx] for v in dense(numbers)])

    def forms(self, s, sparse, rowwise):
        """A vector of affine forms, as a variable or by rows, and their values."""
        shape = s.rng.choice([[1, 1], [3, 1], [1, 4], [2], [0], [5], [], [1, 0]])
        places, sp = self.places(s, shape, sparse)
        values = [0.0] * product(shape)
        if not rowwise:
            nidxs = [s.rng.randrange(1, 10) for _ in places]
            for k, v in zip(places, nidxs):
                values[k] = s.variables[v]
            return Variable(shape, nidxs, sp), values
        ptrb, subj, cof, bfix = [2], [77, 77], [77.0, 77.0], []
        for k in places:
            terms = s.terms(False)
            subj += [t.nidx for t in terms]
            cof += [t.cof for t in terms]
            ptrb.append(len(subj))
            bfix.append(s.number())
            values[k] = bfix[-1] + sum(t.cof * s.variables[t.nidx] for t in terms)
        return RowWise(shape, bfix, ptrb, subj + [77], cof + [77.0], sp), values

    @cases(400)
    def test_outer_product(self, s, ev, sparse, rowwise):
        forms, values = self.forms(s, sparse, rowwise)
        dim, transposed = s.rng.randrange(5), s.rng.random() < 0.5
        sub = s.pattern(dim) if s.rng.random() < 0.6 else list(range(dim))
        a = [0.0] * dim
        for k in sub:
            a[k] = s.number()
        full = len(sub) == dim
        vector = SparseMatrix(1, dim, [0] * len(sub), sub, [a[k] for k in sub])
        if full and s.rng.random() < 0.5:
            vector = DenseMatrix(1, dim, a)
        shape = [dim, len(values)] if transposed else [len(values), dim]
        self.check(s, ev, ev.outer_product, vector, forms, transposed, shape=shape,
                   sparse=sparse or not full,
                   values=[p * q for p in a for q in values] if transposed else
                   [p * q for q in values for p in a])

    def test_refusals(self):
        ev = Evaluator()
        ev.push_unit_terms([1], [1])
        for method, values in ((ev.push_unit_terms, [1, 2]), (ev.push_constant_vector, [1.0, 0.0])):
            self.refuse(ev, "no shape", method, [-1, -2], values)
            self.refuse(ev, "don't fit", method, [3], values)
            self.refuse(ev, "don't fit", method, [3], values, [0])
            for sp in ([0, 3], [-1, 0]):
                self.refuse(ev, "outside of the shape", method, [3], values, sp)
            for sp in ([1, 0], [1, 1]):
                self.refuse(ev, "must ascend", method, [3], values, sp)
        for subs in (([0, 2], [0, 0]), ([0, 1], [0, -1])):
            self.refuse(ev, "outside of the shape", ev.push_sparse_matrix,
                        SparseMatrix(2, 3, *subs, [1.0, 1.0]))
        for subs in (([1, 0], [0, 0]), ([0, 0], [1, 1])):
            self.refuse(ev, "must ascend", ev.push_sparse_matrix,
                        SparseMatrix(2, 3, *subs, [1.0, 1.0]))
        n = 70000
        self.refuse(ev, "4900000000", ev.push_sparse_matrix, SparseMatrix(n, n, [], [], []))

    def test_outer_refusals(self):
        ev, one = Evaluator(), DenseMatrix(1, 1, [1.0])
        ev.push_unit_terms([1], [1])
        row = lambda **other: RowWise(**{**dict(shape=[2], bfix=[1.0, 1.0], ptrb=[0, 1, 1],
                                                subj=[1], cof=[1.0]), **other})
        outer = ev.outer_product
        self.refuse(ev, "one row", outer, DenseMatrix(2, 1, [1.0, 1.0]), row())
        self.refuse(ev, "outside of the shape", outer, SparseMatrix(1, 3, [0], [3], [1.0]), row())
        self.refuse(ev, "ascend", outer, SparseMatrix(1, 3, [0, 0], [1, 0], [1.0, 1.0]), row())
        self.refuse(ev, "not the shape", outer, one, Variable([2, 2], [1, 2, 3, 4]))
        self.refuse(ev, "4900000000", outer, SparseMatrix(1, 70000, [], [], []),
                    RowWise([70000], [], [0], [], [], []))
        for wrong, message in ((dict(ptrb=[0, 1]), "fit together"), (dict(cof=[]), "fit together"),
                               (dict(inst=[0]), "fit together"), (dict(shape=[3]), "fit together"),
                               (dict(shape=[-1, -2]), "no shape"), (dict(inst=[1, 2]), "ascend"),
                               (dict(inst=[1, 0]), "ascend"), (dict(ptrb=[0, 1, 0]), "starts"),
                               (dict(ptrb=[-1, 0, 1]), "starts"), (dict(ptrb=[0, 1, 2]), "starts")):
            self.refuse(ev, message, outer, one, row(**wrong))


if __name__ == "__main__":
    unittest.main()
