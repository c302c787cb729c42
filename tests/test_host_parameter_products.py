"""The host's products with arrays of parameters."""

import unittest
from unittest import mock

from host.data import buffers
from host.evaluator import copies
from host.index_maps.arrays import IndexArray
from host.data.matrices import DenseMatrix
from host_support import Evaluator
from support import Sampler, product
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

    @cases(40)
    def test_push_parameters(self, s, ev, sparse, single):
        shape = s.shape(1 if single else 3)
        stored, values = s.pattern(product(shape), 0.6 if sparse else 1.0), [0.0] * product(shape)
        indexes = [s.rng.randrange(s.parameter_count) for _ in stored]
        for k, index in zip(stored, indexes):
            values[k] = s.parameters[index]
        arguments = (shape, indexes) + (stored,) * sparse
        self.check(s, ev, ev.push_parameters, *arguments, shape=shape, sparse=sparse, values=values)


if __name__ == "__main__":
    unittest.main()
