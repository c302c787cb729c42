"""Conic models: cones over dimensions of expressions, by each back end that is there."""

import itertools
import random
import unittest
from math import inf, nan, sqrt

from host.solvers import csdp, cvxopt_adapter, old_glpk as glpk
from host.model.conic import ConicModel
from host.data.matrices import DenseMatrix, SparseMatrix

FOUND = {}  # objectives that are known or that one road came to, for the next to agree with


class Models:
    @classmethod
    def setUpClass(cls):
        try:
            cls.native().solve(ConicModel(None).problem())
        except glpk.SolverError as missing:
            raise unittest.SkipTest(str(missing))

    def solve(self, model, *key):
        self.assertEqual(model.solve(), "optimal")
        self.assert_close([model.objective()], [FOUND.setdefault(key, model.objective())])

    def assert_close(self, first, second, delta=1e-5):
        self.assertEqual(len(first), len(second))
        for a, b in zip(first, second):
            self.assertAlmostEqual(a, b, delta=delta * max(1.0, abs(b)))

    def test_enclosing_ball(self):
        """min r with |c - p a| <= r for the points a at a distance from a centre on all axes."""
        for order, n in itertools.product((1, -1), (1, 2, 3)):
            radius, *centre = [random.Random(n + k).uniform(0.5, 2) for k in range(n + 1)]
            model = ConicModel(self.native())
            e, p, x = model.evaluator, model.parameter(1.0), model.variable([n + 1])  # x = (r, c)
            # The cone of a point is along the last dimension, or along one before.
            places = sorted(itertools.product(range(2 * n), range(n + 1)), key=lambda k: k[::order])
            shape, size = [1, n + 1, 2 * n] if order < 0 else [2 * n, n + 1], len(places)
            a = [centre[i - 1] + (k % n == i - 1) * (radius if k < n else -radius) if i else 0.0
                 for k, i in places]
            rc = e.push_expression(shape, [0.0] * size, range(size + 1),
                                   [x.nativeidxs[i] for _, i in places], [1.0] * size)
            pa = e.mul_param_scalar(p.index, e.push_expression(shape, a))
            rows = model.constrain_cone(e.weighted_sum([rc, pa], [1, -1]), "quadratic", 1)
            model.minimize(e.push_variable(x.slice([0], [1])))
            for p.value in (1.0, -0.5):
                self.solve(model, order, n, p.value)
                r_and_c = [abs(p.value) * radius, *(p.value * v for v in centre)]
                self.assert_close(model.levels(x), r_and_c, 1e-3)
                members = [r_and_c[i] - p.value * v for (_, i), v in zip(places, a)]
                self.assert_close(model.row_levels(rows), members, 1e-3)

    def test_portfolio(self):
        """max m x with sum(x) = 1, x >= least and |f x| <= risk; f is diagonal."""
        for seed, least in itertools.product(range(4), (-inf, 0.0)):
            rng, model = random.Random(seed), ConicModel(self.native())
            m, f = ([rng.uniform(0.5, 2) for _ in range(4)] for _ in range(2))
            a, b, c = (sum(u ** k / v ** 2 for u, v in zip(m, f)) for k in range(3))
            risk, e, x = rng.uniform(1.1, 2) / sqrt(a), model.evaluator, model.variable([4], least)
            t, px = model.quadratic_variable([5], 0), e.push_variable(x)
            risks = e.push_expression([5], [risk, 0, 0, 0, 0], [0, 0, 1, 2, 3, 4], x.nativeidxs, f)
            shares = model.constrain(e.weighted_sum([risks, e.push_variable(t)], [1, -1]), 0, 0)
            model.constrain(e.mul_left(DenseMatrix(1, 4, [1.0] * 4), px), 1, 1)
            model.maximize(e.mul_left(DenseMatrix(1, 4, m), px))
            FOUND[seed, -inf] = b / a + sqrt((c - b * b / a) * (risk * risk - 1 / a))
            self.solve(model, seed, least)
            self.assert_close(model.row_duals(shares), model.duals(t))

    def test_semidefinite(self):
        """max t with A - t I semidefinite; min <A, X> with trace 1, whose levels are its duals."""
        for seed, d in itertools.product(range(4), (1, 2, 3)):
            rng, I = random.Random(seed), SparseMatrix(d, d, range(d), range(d), [1.0] * d)
            A, model = [rng.gauss(0, 1) for _ in range(d * d)], ConicModel(self.native())
            e, t = model.evaluator, model.variable([1])
            parts = e.push_expression([d, d], A), e.mul_scalar_matrix(I, e.push_variable(t))
            cone = model.constrain_cone(e.weighted_sum(parts, [1, -1]), "semidefinite", 0, 1)
            model.maximize(e.push_variable(t))
            self.solve(model, seed, d)
            other = ConicModel(self.native())
            e, X = other.evaluator, other.semidefinite_variable(d)
            other.constrain(e.dot(I, e.push_variable(X)), 1, 1)
            other.minimize(e.dot(DenseMatrix(d, d, A), e.push_variable(X)))
            self.solve(other, seed, d)
            self.assert_close(other.levels(X), [-v for v in model.row_duals(cone)], 1e-3)
            self.assert_close(other.duals(X), model.row_levels(cone), 1e-3)

    def test_listed_elements_and_refusals(self):
        model = ConicModel(self.native())
        e, x = model.evaluator, model.variable([2, 3], [4, 5, 6], inf, [(1, 2), (0, 1), (1, 0)])
        px, add, cone = e.push_variable(x), model.constrain, model.constrain_cone
        add(px, 7, inf, [(1, 0)])
        model.minimize(e.dot(DenseMatrix(2, 3, [1.0] * 6), px))
        self.solve(model, "listed")
        self.assert_close(model.levels(x), [5, 7, 4])
        foreign, held = e.push_expression([1], [0], [0, 1], [-1], [1]), repr(model.problem())
        for text, call, *arguments in (
            ("outside", model.variable, [2], 0, 1, [(2,)]), ("subscripts", add, px, 0, 1, [(1,)]),
            ("twice", model.variable, [2], 0, 1, [(1,), (1,)]), ("bound", add, px, [1], 2),
            ("NaN", add, px, nan, 1), ("finite", add, e.push_expression([1], [nan]), 0, 1),
            ("not in the model", cone, foreign, "quadratic", 0), ("no cone", cone, px, "round", 0),
            ("no dimension", cone, px, "quadratic", 2), ("equal", cone, px, "semidefinite", 0, 1),
        ):
            self.assertRaisesRegex(ValueError, text, call, *arguments)
            self.assertEqual(repr(model.problem()), held)


class WithCsdp(Models, unittest.TestCase):
    native = csdp.Csdp

    def test_equation_of_fixed_variables(self):
        for value, status in ((0.1 + 0.2, "optimal"), (0.31, "infeasible")):
            model = ConicModel(self.native())
            x = model.evaluator.push_variable(model.variable([1], 0.3, 0.3))
            model.constrain(x, value, value)
            self.assertEqual(model.solve(), status)


class WithCvxopt(Models, unittest.TestCase):
    native = cvxopt_adapter.Cvxopt


if __name__ == "__main__":
    unittest.main()
