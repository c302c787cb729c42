"""The host's products with constant matrices, tensors and numbers."""

import contextlib
import unittest
from unittest import mock

from host.data import buffers
from host.evaluator import copies
from host.data.matrices import DenseMatrix, SparseMatrix
from host.evaluator.products import SparseTensor
from host.index_maps.variables import Variable
from host_support import Evaluator
from product_support import random_matrix, triplets
from support import Sampler, evaluate, product, read


def values(matrix, columns):
    """A matrix as nested lists of numbers; blanks are zeros."""
    return [[matrix[i][j] or 0.0 for j in range(columns)] for i in range(len(matrix))]


def rows_of(flat, rows, columns):
    return [flat[i * columns : (i + 1) * columns] for i in range(rows)]


def times(a, b, columns):
    return [sum(x * row[c] for x, row in zip(line, b)) for line in a for c in range(columns)]


class Products(unittest.TestCase):
    def cases(self, count=150):
        """Seeds, with every pair of sparsities and codes."""
        for seed in range(count):
            s = Sampler(seed)
            with self.subTest(seed=seed):
                yield s, s.shape(3), bool(seed & 1), bool(seed & 2), bool(seed & 4)

    def operand(self, s, rows, columns, sparse):
        """A random matrix as an operand, and its numbers. Some are without negative entries."""
        matrix = random_matrix(s, rows, columns, sparse)
        if s.rng.random() < 0.3:
            matrix = [[v and abs(v) for v in row] for row in matrix]
        numbers = values(matrix, columns)
        if sparse:
            return SparseMatrix(rows, columns, *triplets(matrix)), numbers
        return DenseMatrix(rows, columns, sum(numbers, [])), numbers

    def expression(self, s, shape, sparse, coded):
        """An evaluator, a random expression on it and the values of its positions."""
        ev, model = Evaluator(), s.model(shape, sparse, coded)
        e = ev.push(model)
        return ev, e, evaluate(model, s.variables, s.parameters)

    def variable(self, s, shape, sparse):
        sp = s.pattern(product(shape)) if sparse else None
        count = product(shape) if sp is None else len(sp)
        v = Variable(shape, [s.rng.randrange(1, 10) for _ in range(count)], sp)
        flat = [0.0] * product(shape)
        for k, j in zip(range(count) if sp is None else sp, v.nativeidxs):
            flat[k] = s.variables[j]
        return v, flat

    def check(self, s, ev, run, shape, expected, sparse):
        """`run()` gives that value and form, changes nothing that stood on the stack, writes
        nothing outside of what it reserves, and frees the x stack."""
        before, free = ev.w.reserved(), ev.x.mark()
        h = run()
        model = read(ev.w, h)
        self.assertEqual((model.shape, h.shape, h.hassp), (shape, tuple(shape), sparse))
        self.assertEqual((model.nnz, model.ncodeatom), (h.nnz, h.ncodeatom))
        self.assertEqual(evaluate(model, s.variables, s.parameters), expected)
        linear = model.linear()
        self.assertTrue(all(a < b for a, b in zip(linear, linear[1:])))
        if not sparse:
            self.assertEqual(h.nelem, product(shape))
        after = {kind: kept[: len(before[kind])] for kind, kept in ev.w.reserved().items()}
        self.assertEqual(after, before)
        self.assertEqual(ev.x.mark(), free)
        self.assertTrue(ev.w.intact() and ev.x.intact())
        return model

    def refuse(self, ev, text, method, *arguments):
        before = ev.w.reserved(), ev.x.mark()
        with self.assertRaisesRegex(ValueError, text):
            method(*arguments)
        self.assertEqual((ev.w.reserved(), ev.x.mark()), before)
        self.assertTrue(ev.w.intact())

    def test_right(self):
        for s, (d0, d1, n), sparse, coded, sparse_m in self.cases(300):
            row = s.rng.random() < 0.2
            ev, e, flat = self.expression(s, [d1] if row else [d0, d1], sparse, coded)
            m, numbers = self.operand(s, d1, n, sparse_m)
            expected = times(rows_of(flat, 1 if row else d0, d1), numbers, n)
            self.check(s, ev, lambda: ev.mul_right(e, m), [n] if row else [d0, n], expected,
                       sparse_m)

    def test_zeros_of_a_sparse_matrix_meet_nothing_sparse(self):
        s = Sampler(0)
        for mval, nelem in (([0.0, 2.0], 1), ([0.0, -2.0], 1), ([0.0, 0.0], 0)):
            ev, e, _ = self.expression(s, [1, 1], False, False)
            e = ev.push_variable(Variable([1], [5], [0]))
            h = ev.mul_right(e, SparseMatrix(1, 2, [0, 0], [0, 1], mval))
            self.assertEqual((h.nelem, h.nnz), (nelem, nelem))

    def test_diagonals(self):
        for s, (n, k, _), sparse, coded, sparse_m in self.cases():
            ev, e, flat = self.expression(s, [n, k], sparse, coded)
            m, numbers = self.operand(s, k, n, sparse_m)
            rows = rows_of(flat, n, k)
            square = lambda a, b, order: times(a, b, order)[:: order + 1]
            self.check(s, ev, lambda: ev.mul_diag_left(m, e), [k], square(numbers, rows, k), True)
            self.check(s, ev, lambda: ev.mul_diag_right(e, m), [n], square(rows, numbers, n), True)

    def test_plain(self):
        for s, (d0, d1, n), sparse, vector, sparse_m in self.cases():
            ev = Evaluator()
            v, flat = self.variable(s, [d0] if vector else [d0, d1], sparse)
            m, numbers = self.operand(s, n, d0, sparse_m)
            columns = 1 if vector else d1
            self.check(s, ev, lambda: ev.mul_plain_left(m, v), [n] if vector else [n, d1],
                       times(numbers, rows_of(flat, d0, columns), columns), True)
            m, numbers = self.operand(s, d0 if vector else d1, n, sparse_m)
            rows = [flat] if vector else rows_of(flat, d0, d1)
            self.check(s, ev, lambda: ev.mul_plain_right(v, m), [n] if vector else [d0, n],
                       times(rows, numbers, n), True)

    def test_const(self):
        for s, shape, sparse, coded, _ in self.cases():
            ev, e, flat = self.expression(s, shape, sparse, coded)
            a = s.number()
            model = self.check(s, ev, lambda: ev.mul_const(a, e), shape, [a * v for v in flat],
                               sparse)
            self.assertEqual((model.nnz, len(model.elements)), (e.nnz, e.nelem))

    def test_scalar_matrix(self):
        for s, (rows, columns, _), sparse, coded, sparse_m in self.cases():
            ev, e, (value,) = self.expression(s, [1] * s.rng.randrange(3), sparse, coded)
            m, numbers = self.operand(s, rows, columns, sparse_m)
            self.check(s, ev, lambda: ev.mul_scalar_matrix(m, e), [rows, columns],
                       [value * v for v in sum(numbers, [])], True)

    def tensor(self, s, shape):
        """A random tensor, made of linear indexes or subscripts, and its numbers."""
        msp = s.pattern(product(shape))
        mcof, flat = [s.number() for _ in msp], [0.0] * product(shape)
        for k, v in zip(msp, mcof):
            flat[k] = v
        if s.rng.random() < 0.5:
            return SparseTensor(shape, msp, mcof), flat
        subscripts = []
        for index in msp:
            for k in range(len(shape)):
                subscripts.append(index // product(shape[k + 1 :]) % shape[k])
        return SparseTensor.from_subscripts(shape, subscripts, mcof), flat

    def test_elementwise_and_inner(self):
        for s, shape, sparse, coded, matrix in self.cases(300):
            if matrix:
                shape.pop()
                t, numbers = self.operand(s, *shape, sparse=s.rng.random() < 0.7)
                numbers = sum(numbers, [])
            else:
                del shape[: s.rng.randrange(4)]
                t, numbers = self.tensor(s, shape)
            ev, e, flat = self.expression(s, shape, sparse, coded)
            each = [a * b for a, b in zip(numbers, flat)]
            self.check(s, ev, lambda: ev.mul_elm(t, e), shape, each, True)
            # The room for the atoms of an inner product is an upper bound, and not all written.
            self.check(s, ev, lambda: ev.dot(t, e), [1], [sum(each)], False)

    def methods(self, ev, e, v):
        """What takes a matrix, with an `e` or `v` of shape (2, 2)."""
        return (lambda m: ev.mul_right(e, m), lambda m: ev.mul_diag_left(m, e),
                lambda m: ev.mul_diag_right(e, m), lambda m: ev.mul_plain_left(m, v),
                lambda m: ev.mul_plain_right(v, m), lambda m: ev.mul_elm(m, e),
                lambda m: ev.dot(m, e))

    def test_refuses(self):
        for sparse in (False, True):
            ev = Evaluator()
            v = Variable([2, 2], [1, 2], [0, 3]) if sparse else Variable([2, 2], [1, 2, 3, 4])
            e, scalar = ev.push_variable(v), ev.push_expression([1], [1.0])
            methods = self.methods(ev, e, v)
            for method in methods:
                self.refuse(ev, r"shape", method, SparseMatrix(3, 3, [], [], []))
            for method in (*methods, lambda m: ev.mul_scalar_matrix(m, scalar)):
                for i, j in ((2, 0), (-1, 0), (0, 2), (0, -1)):
                    self.refuse(ev, "outside", method, SparseMatrix(2, 2, [i], [j], [1.0]))
                for i, j in (([1, 0], [0, 0]), ([0, 0], [1, 0]), ([0, 0], [0, 0])):
                    self.refuse(ev, "ascend", method, SparseMatrix(2, 2, i, j, [1.0, 1.0]))
            for method in (ev.mul_elm, ev.dot):
                for indexes, text in (([4], "outside"), ([-1], "outside"), ([1, 1], "ascend")):
                    tensor = SparseTensor([2, 2], indexes, [1.0] * len(indexes))
                    self.refuse(ev, text, method, tensor, e)
            self.refuse(ev, "scalar", ev.mul_scalar_matrix, SparseMatrix(1, 1, [], [], []), e)
            finished = ev.finish(e)
            for method in (*self.methods(ev, finished, v)[:3], *self.methods(ev, finished, v)[5:],
                           lambda m: ev.mul_const(1.0, m and finished),
                           lambda m: ev.mul_scalar_matrix(m, finished)):
                self.refuse(ev, "operand", method, SparseMatrix(2, 2, [0], [0], [1.0]))
        for lists in (([0, 1, 0], [1.0]), ([0, 3], [1.0]), ([-1, 0], [1.0])):
            with self.assertRaises(ValueError):
                SparseTensor.from_subscripts([2, 2], *lists)
        with self.assertRaises(ValueError):
            SparseTensor([2, 2], [0, 1], [1.0])

    @contextlib.contextmanager
    def limited(self, most):
        with mock.patch.object(copies, "LARGEST", most), \
                mock.patch.object(buffers, "LARGEST", most):
            yield

    def test_refuses_what_a_stack_cant_hold(self):
        coded = Sampler(1).model([4, 4], coded=True)
        ev = Evaluator()
        e, one = ev.push(coded), ev.push(Sampler(4).model([1], coded=True))
        listed = ev.push(Sampler(1).model([4, 4], True, True))
        v, spread = Variable([4, 4], range(1, 17)), Variable([4, 4], range(1, 17), range(16))
        full = DenseMatrix(4, 4, [1.0] * 16)
        calls = ((ev.mul_left, full, e), (ev.mul_left, full, listed),
                 (ev.mul_right, e, full), (ev.mul_right, e, full.entries()),
                 (ev.mul_diag_left, full, e), (ev.mul_diag_right, e, full),
                 (ev.mul_plain_left, full, v), (ev.mul_plain_left, full, spread),
                 (ev.mul_plain_right, v, full), (ev.mul_plain_right, spread, full),
                 (ev.mul_plain_right, spread, full.entries()), (ev.mul_const, 2.0, e),
                 (ev.mul_scalar_matrix, full, one), (ev.mul_elm, full, e), (ev.dot, full, e),
                 (ev.weighted_sum, [one] * 17, [1] * 17), (ev.mul_param_scalar, 0, e))
        for limit in (3, 15, 16):
            with self.limited(limit):
                for method, *arguments in calls:
                    self.refuse(ev, "can't have", method, *arguments)
        # Where the crude bound of the terms doesn't fit, the longest row or column of the matrix
        # gives the exact one.
        band = SparseMatrix(4, 4, range(4), range(4), [1.0] * 4)
        sparse = ev.push_variable(spread)
        with self.limited(16):
            for h in (ev.mul_left(band, sparse), ev.mul_right(sparse, band),
                      ev.mul_plain_left(band, spread), ev.mul_plain_right(spread, band)):
                self.assertEqual((h.nelem, h.nnz), (16, 16))
        # No entry meets the longest element.
        e = ev.push_expression([2], [0.0, 1.0], [0, 9, 9], range(1, 10), [1.0] * 9)
        column = SparseMatrix(8, 2, range(8), [1] * 8, [1.0] * 8)
        row = SparseMatrix(2, 8, [1] * 8, range(8), [1.0] * 8)
        with self.limited(16):
            self.assertEqual(ev.mul_left(column, e).nnz, 8)
            self.assertEqual(ev.mul_right(e, row).nnz, 8)


if __name__ == "__main__":
    unittest.main()
