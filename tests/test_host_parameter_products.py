"""The host's products with arrays of parameters."""

import unittest
from unittest import mock

from host.data import buffers
from host.evaluator import copies
from host.index_maps.arrays import IndexArray
from host.solvers.old_glpk import Problem
from host.data.matrices import DenseMatrix
from host.model.linear import Model
from host_support import DemoCase, Evaluator
from support import Sampler, product
from test_host import needs_glpk
from test_host_sums import HostCase, cases
from test_parameter_products import meetings, shapes

METHODS = {"left": "mul_param_left", "right": "mul_param_right", "elem": "mul_param_elem",
           "dot": "dot_param", "diag_left": "diag_param_left", "diag_right": "diag_param_right"}


def arguments(operation, p, e):
    """In the order of the formula."""
    return (e, p) if operation.endswith("right") else (p, e)


class ParameterProducts(HostCase):
    def parameters(self, s, shape, sparse):
        """A random array, and its values by place."""
        places = s.pattern(product(shape)) if sparse else range(product(shape))
        indexes = [s.rng.randrange(s.parameter_count) for _ in places]
        return (IndexArray(shape, indexes, list(places) if sparse else None),
                {k: s.parameters[i] for k, i in zip(places, indexes)})

    @cases(200)
    def test_values(self, s, ev, sparse, coded):
        for operation, method in METHODS.items():
            pshape, shape = shapes(s, operation)
            sparse_p, vector = s.rng.random() < 0.5, s.rng.random() < 0.2
            own = list(shape)
            if vector and operation in ("left", "right"):
                # A vector is a matrix of one column, or of one row.
                shape[operation == "left"] = 1
                own = [shape[operation == "right"]]
            p, pvalues = self.parameters(s, pshape, sparse_p)
            e, evalues = self.operand(s, ev, own, sparse, coded)
            evalues = list(evalues.values())
            rshape, places = meetings(operation, pshape, shape)
            if len(own) < len(shape):
                rshape = [rshape[operation == "right"]]
            full = not sparse_p and not sparse and operation in ("left", "right")
            dense = operation == "dot" or full and (pshape[1 - (operation == "right")] > 0
                                                    or product(rshape) == 0)
            self.check(s, ev, getattr(ev, method), *arguments(operation, p, e), shape=rshape,
                       sparse=not dense, values=[sum(pvalues.get(a, 0.0) * evalues[q]
                                                     for a, q in pairs) for pairs in places])

    def test_refuses(self):
        s, ev = Sampler(0), Evaluator()
        for operation, method in METHODS.items():
            run = getattr(ev, method)
            for sparse in (False, True):
                e = ev.push(s.model([2, 3], sparse))
                fitting = {"left": [4, 2], "right": [3, 4]}.get(
                    operation, [3, 2] if "diag" in operation else [2, 3])
                for shape in ([5, 5], [5], [5, 2, 3], []):
                    p = IndexArray(shape, [0] * product(shape))
                    self.refuse(ev, "don't fit the shape", run, *arguments(operation, p, e))
                p = IndexArray(fitting, [0] * (product(fitting) - 1) + [-1])
                self.refuse(ev, "no parameter", run, *arguments(operation, p, e))
                with mock.patch.object(ev, "_param_value", [1.0, 2.0]):
                    p.indexes[-1] = 2
                    self.refuse(ev, "no parameter", run, *arguments(operation, p, e))
                p = IndexArray(fitting, [0] * product(fitting))
                with mock.patch.object(copies, "LARGEST", 5), \
                        mock.patch.object(buffers, "LARGEST", 5):
                    full = ev.push(s.model([2, 3]))
                    self.refuse(ev, "the most is 5", run, *arguments(operation, p, full))
                self.refuse(ev, "ready for a model", run,
                            *arguments(operation, p, ev.finish(e)))

    def test_room_for_a_band_in_a_long_matrix(self):
        # The number of rows times that of terms is beyond 32 bits, the product isn't.
        ev, n = Evaluator(), 10
        e = ev.push_expression([n], [1.0] * n)
        p = IndexArray([n, n], [0] * n, range(0, n * n, n + 1))
        with mock.patch.object(copies, "LARGEST", 3 * n), \
                mock.patch.object(buffers, "LARGEST", 3 * n):
            self.assertEqual(ev.mul_param_left(p, e).nnz, n)
            self.assertEqual(ev.mul_param_right(e, p).nnz, n)


@needs_glpk
class MatrixOfParameters(DemoCase):
    file_name = "model.mps"

    def test_rows_and_objective_follow_the_values(self):
        for seed in range(40):
            s = Sampler(seed)
            shape = rows, columns = s.rng.randrange(1, 4), s.rng.randrange(1, 4)
            model, fixed = Model(Problem()), [s.number() for _ in range(rows * columns)]
            ev, x = model.evaluator, model.variable([columns])
            places = s.pattern(rows * columns)
            p = model.parameter_array(shape, [0.0] * len(places), places)
            costs = model.parameter_array([columns], [0.0] * columns)
            with ev.w.scratch():
                v = ev.push_variable(x)
                model.minimize(ev.dot_param(costs, v))
                parts = [ev.mul_param_left(p, v), ev.mul_left(DenseMatrix(*shape, fixed), v)]
                model.constrain(ev.weighted_sum(parts, [1.0, 1.0]), 0.0, 1.0)
            for _ in range(3):
                costs.values, p.values = ([s.number() for _ in q.indexes] for q in (costs, p))
                model.update()
                expected = dict(enumerate(fixed))
                for place, value in zip(places, p.values):
                    expected[place] += value
                (m,) = model.native.matrices([(0, columns)])
                found = {i * columns + j: v for i, j, v in zip(m.msubi, m.msubj, m.mval)}
                self.assertEqual(found, {k: v for k, v in expected.items() if v != 0.0})
                self.assertEqual(model.native.objective()[1:], costs.values)
            with self.assertRaisesRegex(ValueError, "parameters can't have"):
                p.values = [1.0] * (len(places) + 1)

    def test_demo(self):
        text = "NAME\nROWS\n N C\n G R\nCOLUMNS\n X C 1 R 2\nRHS\n B R 4\nENDATA\n"
        status, output, errors = self.solve(text, "--matrix-parameters")
        self.assertEqual((status, errors), (0, ""))
        for road in ("objective by closures", "objective by GLPK alone"):
            read, changed = map(float, self.row(output, road))
            self.assertEqual(read, 2.0)
            self.assertTrue(2.0 / 1.1 <= changed <= 2.0 / 0.9 and changed != 2.0)
        for expected, answer in (
            ("not allowed", self.solve(text, "--matrix-parameters", "--parameter", "2")),
            ("for MPS files", self.run_host("model.dat-s", "--matrix-parameters")),
            ("not finite", self.solve(text.replace("R 2", "R 1.79e308"), "--matrix-parameters")),
        ):
            self.assert_refused(expected, answer)


if __name__ == "__main__":
    unittest.main()
