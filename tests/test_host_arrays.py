"""The host's arrays of indexes, arrays of parameters as expressions, and bounds of a matrix."""

import itertools
import operator
import unittest
from math import inf
from types import SimpleNamespace

from host.index_maps.arrays import Bounds, IndexArray
from host.data.matrices import DenseMatrix, SparseMatrix
from host.index_maps.variables import Variable
from host_support import Evaluator
from support import positions, product
from test_host_sums import HostCase, cases


class Arrays(HostCase):
    @cases(120)
    def test_elements_boxes_and_ranges(self, s, _, sparse, single):
        shape = s.shape(1 if single else s.rng.randrange(4), 4)
        stored = s.pattern(product(shape), 0.6 if sparse else 1.0)
        a = IndexArray(shape, range(100, 100 + len(stored)), stored if sparse else None)
        elements = {positions(shape)[k]: index for k, index in zip(stored, a.indexes)}
        self.assertEqual({p: a.at(*p) for p in a.subscripts()}, elements)
        start = [s.rng.randrange(extent + 1) for extent in shape]
        stop = [s.rng.randrange(first, extent + 1) for first, extent in zip(start, shape)]
        inside = [p for p in itertools.product(*map(range, start, stop)) if p in elements]
        for box in [a.box(start, stop)] + [a.range(*start, *stop) for _ in range(single)]:
            self.assertEqual(box.subscripts(), [tuple(map(operator.sub, p, start)) for p in inside])
            self.assertEqual(list(box.indexes), [elements[p] for p in inside])

    @cases(40)
    def test_push_parameters(self, s, ev, sparse, single):
        shape = s.shape(1 if single else 3)
        stored, values = s.pattern(product(shape), 0.6 if sparse else 1.0), [0.0] * product(shape)
        indexes = [s.rng.randrange(s.parameter_count) for _ in stored]
        for k, index in zip(stored, indexes):
            values[k] = s.parameters[index]
        arguments = (shape, indexes) + (stored,) * sparse
        self.check(s, ev, ev.push_parameters, *arguments, shape=shape, sparse=sparse, values=values)

    @cases(60)
    def test_bounds(self, s, _, wide, empty):
        shape = (3, 0 if empty else 4 + wide)
        low, up = ({p: s.number() for p in positions(shape) if s.rng.random() < 0.5} for _ in "lu")
        matrix = lambda m: SparseMatrix(*shape, [i for i, _ in m], [j for _, j in m], m.values())
        listed, sparse = (of(matrix(low), matrix(up)) for of in (Bounds.listed, Bounds.sparse))
        dense = Bounds.dense(DenseMatrix(*shape, listed.lower), DenseMatrix(*shape, listed.upper))
        self.assertEqual(list(zip(dense.lower, dense.upper)),
                         [(low.get(p, -inf), up.get(p, inf)) for p in positions(shape)])
        model = SimpleNamespace(variable=lambda shape, *bounds: Variable(shape, range(*shape)))
        self.assertEqual(list(zip(sparse.variable(model).sparsity, sparse.lower, sparse.upper)),
                         [(k, low.get(p, 0.0), up.get(p, 0.0))
                          for k, p in enumerate(positions(shape)) if p in low or p in up])

    def test_refusals(self):
        ev, a, b = Evaluator(), IndexArray([2, 3], range(6)), IndexArray([4], [7], [2])
        order, one = SparseMatrix(2, 1, [1, 0], [0, 0], [1, 1]), DenseMatrix(1, 1, [1])
        row = SparseMatrix(1, 1, [0], [0], [1])
        for message, method, *calls in (
                ("lies outside", a.at, (2, 0), (0, -1), (2**40, 0)), ("no element is", b.at, (3,)),
                ("the box", a.box, ([0, 0], [2, 4]), ([1, 0], [0, 1])), ("box", b.range, (0, 5)),
                ("-1", ev.push_parameters, ([2], [0, -1])), ("equal", Bounds.sparse, (row, order)),
                ("need each", Bounds.dense, (one, row)), ("need each", Bounds.listed, (one, row)),
                ("fit", ev.push_parameters, ([3], [0])), ("ascend", Bounds.sparse, (order, order))):
            for arguments in calls:
                self.refuse(ev, message, method, *arguments)


if __name__ == "__main__":
    unittest.main()
