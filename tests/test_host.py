"""The evaluator: its operations by meaning, and what it refuses."""

import unittest
from unittest import mock

from host.evaluator import stacks
from host.evaluator.expressions import Evaluator
from host.index_maps.arrays import IndexArray
from host.data.matrices import DenseMatrix, SparseMatrix
from host.index_maps.variables import Variable
from host_support import Evaluator as GuardedEvaluator
from support import Sampler, evaluate, product, read

def times(rows, values, d1=1):
    """The plain product of a matrix, given by its rows, and row-major values of `d1` columns."""
    return [sum(a * values[j * d1 + c] for j, a in enumerate(row)) for row in rows
            for c in range(d1)]


def matrix_of(rows, columns, sparse):
    if not sparse:
        return DenseMatrix(len(rows), columns, [a for row in rows for a in row])
    entries = [(i, j, a) for i, row in enumerate(rows) for j, a in enumerate(row) if a != 0.0]
    return SparseMatrix(len(rows), columns, *([e[k] for e in entries] for k in range(3)))


class Operations(unittest.TestCase):
    def variable(self, s, shape, sparse):
        """A variable and its values by position."""
        pattern = s.pattern(product(shape)) if sparse else range(product(shape))
        idxs = [s.rng.randrange(1, s.variable_count + 1) for _ in pattern]
        values = [0.0] * product(shape)
        for position, idx in zip(pattern, idxs):
            values[position] = s.variables[idx]
        return Variable(shape, idxs, list(pattern) if sparse else None), values

    def value(self, s, e, h):
        return evaluate(read(e.w, h), s.variables, s.parameters)

    def test_formula(self):
        """M (A x[:k] + 2 B x[k:]) - q (p b + y), stage by stage and finished."""
        for seed in range(150):
            s, e = Sampler(seed), GuardedEvaluator()
            s.variable_count = 4  # so that terms meet
            n, m, d1 = (s.rng.randrange(4) for _ in range(3))
            k, (p, q) = s.rng.randrange(n + 1), (s.rng.randrange(s.parameter_count),) * 2
            sparse_x, sparse_a, sparse_m = (s.rng.random() < 0.5 for _ in range(3))
            x, xs = self.variable(s, [n, d1], sparse_x)
            y, ys = self.variable(s, [m, d1], s.rng.random() < 0.5)
            a, c, outer = ([[s.number() for _ in range(w)] for _ in range(m)]
                           for w in (k, n - k, m))
            b = [s.number() for _ in range(m * d1)]
            with self.subTest(seed=seed):
                parts = [e.mul_left(matrix_of(rows, j - i, sparse_a),
                                    e.push_variable(x.slice([i, 0], [j, d1])))
                         for rows, i, j in ((a, 0, k), (c, k, n))]
                ax = e.weighted_sum(parts, [1.0, 2.0])
                axs = [f + 2.0 * g for f, g in zip(times(a, xs[: k * d1], d1),
                                                   times(c, xs[k * d1 :], d1))]
                self.assertEqual(ax.hassp, all(h.hassp for h in parts))
                self.assertEqual(self.value(s, e, ax), axs)
                max_ = e.mul_left(matrix_of(outer, m, sparse_m), ax)
                pb = e.mul_param_scalar(p, e.push_expression([m, d1], b))
                side = e.mul_param_scalar(q, e.weighted_sum([pb, e.push_variable(y)], [1, 1]))
                result = e.weighted_sum([max_, side], [1.0, -1.0])
                sides = [s.parameters[q] * (s.parameters[p] * f + g) for f, g in zip(b, ys)]
                expected = [f - g for f, g in zip(times(outer, axs, d1), sides)]
                self.assertEqual(self.value(s, e, result), expected)

                finished = e.finish(result)
                self.assertEqual(self.value(s, e, finished), expected)
                for element in read(e.w, finished).elements:
                    idxs = [t.nidx for t in element]
                    self.assertEqual(idxs, sorted(set(idxs)))
                self.assertEqual(self.value(s, e, result), expected)  # operands stay
                self.assertIs(e.finish(finished), finished)
                self.assertTrue(e.w.intact())

    def test_pushed_rows(self):
        e = Evaluator()
        h = e.push_expression([2], [0.5, 0.0], [0, 2, 2], [3, 1], [2.0, -1.0])
        self.assertEqual(evaluate(read(e.w, h), [1.0, 10.0, 0.0, 100.0], []), [190.5, 0.0])

    def test_without_zeros(self):
        e = Evaluator()
        x = e.push_variable(Variable([2], [1, 2]))
        h = e.finish(e.mul_left(DenseMatrix(1, 2, [0.0, 3.0]), x))
        self.assertEqual([(t.nidx, t.cof) for t in read(e.w, h).elements[0]], [(2, 3.0)])
        nothing = e.mul_param_scalar(0, e.push_expression([2], [0.0, 4.0]))
        self.assertEqual(read(e.w, e.finish(nothing)).sp, [1])

    def test_program_that_grows(self):
        """Simplification can't shorten p * 2 x * 3, but appends the number in front of x."""
        s, e = Sampler(0), GuardedEvaluator()
        x = e.weighted_sum([e.push_variable(Variable([1], [1]))], [2.0])
        merged = e.merge_terms(e.weighted_sum([x, e.mul_param_scalar(0, x)], [3.0, 3.0]))
        for h in e.finish(merged), merged:
            self.assertEqual(self.value(s, e, h), [6.0 * s.variables[1] * (1.0 + s.parameters[0])])

    def test_refusals_leave_all_as_it_was(self):
        e = Evaluator()
        x = e.push_variable(Variable([2, 2], [1, 2, 3, 4]))
        done = e.finish(e.mul_param_scalar(0, x))
        wrong = lambda *entries: SparseMatrix(2, 2, *entries)
        cases = [
            ("outside", lambda: e.mul_left(wrong([0, 2], [0, 1], [1, 1]), x)),
            ("outside", lambda: e.mul_left(wrong([0, 1], [0, -1], [1, 1]), x)),
            ("ascend", lambda: e.mul_left(wrong([1, 0], [0, 1], [1, 1]), x)),
            ("ascend", lambda: e.mul_left(wrong([1, 1], [1, 1], [1, 1]), x)),
            ("as many", lambda: wrong([0, 1], [1], [1, 1])),
            ("can't have", lambda: DenseMatrix(2, 2, [1.0])),
            ("multiplied", lambda: e.mul_left(DenseMatrix(1, 3, [1, 1, 1]), x)),
            ("equal shapes", lambda: e.weighted_sum([x, e.push_variable(Variable([1], [1]))],
                                                    [1, 1])),
            ("weight for each", lambda: e.weighted_sum([x], [1, 1])),
            ("no parameter", lambda: e.mul_param_scalar(-1, x)),
            ("convert", lambda: e.mul_const("two", x)),
            ("operand any more", lambda: e.mul_param_scalar(0, done)),
            ("shape", lambda: e.push_expression([3], [1.0, 2.0])),
            ("row starts", lambda: e.push_expression([2], [0, 0], [0, 2, 1], [1, 2], [1, 1])),
            ("row starts", lambda: e.push_expression([1], [0], [0, 2], [1], [1])),
            ("doesn't lie", lambda: Variable([3], [1, 2, 3]).slice([1], [4])),
            ("don't fit", lambda: Variable([3], [1, 2])),
        ]
        e.push_variable(Variable([1], [1]))
        for text, refused in cases:
            with self.subTest(text), e.w.scratch():
                mark, held = e.w.mark(), [list(a) for a in (e.w.i32, e.w.i64, e.w.f64)]
                with self.assertRaisesRegex(ValueError, text):
                    refused()
                if text != "equal shapes":  # that one pushes its own operand
                    self.assertEqual(e.w.mark(), mark)
                    self.assertEqual([list(a) for a in (e.w.i32, e.w.i64, e.w.f64)], held)

    def test_expressions_of_another_stack_and_freed_ones(self):
        e, other, square = Evaluator(name="one"), Evaluator(name="another"), [1.0, 2.0, 3.0, 4.0]
        m, foreign = DenseMatrix(2, 2, square), other.push_expression([2, 2], square)
        with e.w.scratch():
            freed = e.push_expression([2, 2], square)
        here = e.push_expression([2, 2], square)  # stands where the freed one did
        p = IndexArray([2, 2], range(4))
        for x, text in ((foreign, "stands on another, not on one"), (freed, "on one no more")):
            for method, *arguments in (
                    (e.finish, x), (e.merge_terms, x), (e.mul_left, m, x), (e.mul_right, x, m),
                    (e.weighted_sum, [here, x], [1, 1]), (e.weighted_add, 1, here, 1, x),
                    (e.weighted_add, 1, x, 1, here), (e.mul_param_scalar, 0, x), (e.dot, m, x),
                    (e.mul_const, 2.0, x), (e.mul_elm, m, x), (e.mul_diag_left, m, x),
                    (e.mul_diag_right, x, m), (e.mul_scalar_matrix, m, x), (e.sum_axis, x, 0),
                    (e.symmetrize, x, 0, 1), (e.triangle, x, 0, 1), (e.densify, x),
                    (e.scale_offdiag, x, 0, 1, 2.0), (e.stack, [here, x], 0), (e.repeat, x, 2, 0),
                    (e.transpose, x), (e.permute_dims, x, [1, 0]), (e.slice, x, [0, 0], [1, 1]),
                    (e.pick, x, [0]), (e.pick_subscripts, x, [[0, 0]]), (e.mul_param_left, p, x),
                    (e.mul_param_right, x, p), (e.mul_param_elem, p, x), (e.dot_param, p, x),
                    (e.diag_param_left, p, x), (e.diag_param_right, x, p)):
                self.assertRaisesRegex(ValueError, text, method, *arguments)
        with self.assertRaises(KeyError), e.w.undone_on_error():
            undone = e.mul_const(2.0, here)
            e.mul_const(1.0, undone)
            raise KeyError
        self.assertRaisesRegex(ValueError, "no more", e.mul_const, 1.0, undone)

    def test_a_stack_that_is_full(self):
        stack = stacks.Stack()
        mark = stack.mark()
        with mock.patch.object(stacks, "LARGEST", 5):
            for sizes in ((5, 0), (1, 6), (1, 2, 3)):
                self.assertRaises(MemoryError, stack.reserve_expression, [1], *sizes)
                self.assertEqual(stack.mark(), mark)

    def test_slices(self):
        dense = Variable([3, 4], range(10, 22)).slice([1, 1], [3, 3])
        self.assertEqual((list(dense.shape), list(dense.nativeidxs)), ([2, 2], [15, 16, 19, 20]))
        sparse = Variable([3, 4], [7, 8, 9, 6], [1, 5, 6, 11]).slice([1, 1], [3, 3])
        self.assertEqual((list(sparse.nativeidxs), list(sparse.sparsity)), ([8, 9], [0, 1]))



if __name__ == "__main__":
    unittest.main()
