"""The host's stacks, repeats, transposes, permuted dimensions, slices and picks."""

import unittest
from unittest import mock

from host.evaluator import structure
from host_support import Evaluator
from support import Model, Sampler, Term, positions, product
from test_host_sums import HostCase, cases


class Structure(HostCase):
    @cases(300)
    def test_stack(self, s, ev, sparse, coded):
        shape, operands, values, extent = s.shape(s.rng.randrange(4)), [], {}, 0
        dim = s.rng.randrange(len(shape) + 1)
        for _ in range(s.rng.randrange(1, 5)):
            own = shape[:dim] + [s.rng.randrange(4)] * (dim < len(shape)) + shape[dim + 1 :]
            e, elements = self.operand(s, ev, own, sparse and s.rng.random() < 0.6,
                                       coded and s.rng.random() < 0.6)
            operands.append(e)
            for x, v in elements.items():
                at = x[dim] if dim < len(shape) else 0
                values[x[:dim] + (extent + at,) + x[dim + 1 :]] = v
            extent += own[dim] if dim < len(shape) else 1
        self.check(s, ev, ev.stack, operands, dim, shape=shape[:dim] + [extent] + shape[dim + 1 :],
                   sparse=any(e.hassp for e in operands), values=values)

    @cases(150)
    def test_repeat(self, s, ev, sparse, coded):
        shape, copies = s.shape(s.rng.randrange(1, 4)), s.rng.randrange(4)
        dim = s.rng.randrange(len(shape))
        e, values = self.operand(s, ev, shape, sparse, coded)
        rshape = shape[:dim] + [copies * shape[dim]] + shape[dim + 1 :]
        self.check(s, ev, ev.repeat, e, copies, dim, shape=rshape, sparse=sparse,
                   values={x: values[x[:dim] + (x[dim] % shape[dim],) + x[dim + 1 :]]
                           for x in positions(rshape)})

    @cases(150)
    def test_order_of_dimensions(self, s, ev, sparse, coded):
        shape = s.shape(s.rng.randrange(5))
        perm = s.rng.sample(range(len(shape)), len(shape))
        e, values = self.operand(s, ev, shape, sparse, coded)
        self.check(s, ev, ev.permute_dims, e, perm, shape=[shape[k] for k in perm], sparse=sparse,
                   values={tuple(x[k] for k in perm): v for x, v in values.items()})
        e, values = self.operand(s, ev, s.shape(2), sparse, coded)
        self.check(s, ev, ev.transpose, e, shape=e.shape[::-1], sparse=sparse,
                   values={x[::-1]: v for x, v in values.items()})

    @cases(60)
    def test_other_shapes(self, s, ev, sparse, coded):
        shape = s.shape(3)
        e, values = self.operand(s, ev, shape, sparse, coded)
        for other in ([product(shape)], [1, *shape[::-1]]):
            self.check(s, ev, ev.reshape, e, other, shape=other, sparse=sparse,
                       values=list(values.values()))
        e, values = self.operand(s, ev, shape[:1], sparse, coded)
        self.check(s, ev, ev.diagonal_matrix, e, shape=shape[:1] * 2, sparse=True,
                   values={(i, j): values[i,] if i == j else 0.0
                           for i in range(shape[0]) for j in range(shape[0])})
        e, values = self.operand(s, ev, [1] * len(shape), sparse, coded)
        self.check(s, ev, ev.spread, e, shape, shape=shape, sparse=sparse,
                   values=[*values.values()] * product(shape))

    @cases(150)
    def test_parts(self, s, ev, sparse, coded):
        shape = s.shape(s.rng.randrange(4))
        e, values = self.operand(s, ev, shape, sparse, coded)
        first = [s.rng.randrange(d + 1) for d in shape]
        last = [s.rng.randrange(a, d + 1) for a, d in zip(first, shape)]
        box = [b - a for a, b in zip(first, last)]
        self.check(s, ev, ev.slice, e, first, last, shape=box, sparse=sparse,
                   values={x: values[tuple(map(sum, zip(first, x)))] for x in positions(box)})
        rows = s.rng.choices(list(values), k=s.rng.randrange(9)) if values else []
        expected = [values[x] for x in rows]
        idxs = [list(values).index(x) for x in rows]
        for method, places in ((ev.pick, idxs), (ev.pick_subscripts, rows)):
            self.check(s, ev, method, e, places, shape=[len(rows)], sparse=False, values=expected)
        with mock.patch.object(structure, "LARGEST", 3 * max(e.nnz, e.ncodeatom)):  # in portions
            self.check(s, ev, ev.pick, e, idxs, shape=[len(rows)], sparse=False, values=expected)

    def test_refusals(self):
        ev, s = Evaluator(), Sampler(1)
        for sparse in (False, True):
            e, f, g = (ev.push(s.model(shape, sparse)) for shape in ([2, 3], [2, 2], [2, 3, 1]))
            for operands, dim, message in (
                    ([], 0, "needs an operand"), ([e], -1, "no dimension -1"),
                    ([e], 3, "no dimension 3"), ([e, f], 0, r"\[2, 3\], \[2, 2\]"),
                    ([e, f], 2, "differ in no other"), ([e, e, f], 0, "differ in no other"),
                    ([e, g], 1, "differ in no other"), ([e, e, g], 2, "differ in no other")):
                self.refuse(ev, message, ev.stack, operands, dim)
            for copies, dim in ((1, -1), (1, 2), (-1, 0), (0.5, 0), (1, None)):
                self.refuse(ev, "can't be repeated", ev.repeat, e, copies, dim)
            self.refuse(ev, "not two dimensions", ev.transpose, g)
            self.refuse(ev, "can't become", ev.reshape, e, [5])
            self.refuse(ev, "one element is needed", ev.spread, e, [2, 3])
            self.refuse(ev, "a vector is needed", ev.diagonal_matrix, e)
            for perm in ([0], [0, 0], [1, 2], [-1, 0], [0, 1, 2]):
                self.refuse(ev, "no permutation", ev.permute_dims, e, perm)
            for first, last in (([0], [1]), ([0, 0], [1]), ([-1, 0], [1, 1]), ([0, 0], [2, 4]),
                                ([1, 0], [0, 3])):
                self.refuse(ev, "the box", ev.slice, e, first, last)
            for index in (-1, 6, 2**80, 0.5):
                self.refuse(ev, "entry 1, at", ev.pick, e, [0, index])
            for row in ([2, 0], [0, -1], [0, 3], [0, 2**40], [0, 1.0]):
                self.refuse(ev, "entry 1, at", ev.pick_subscripts, e, [[0, 0], row])
            self.refuse(ev, "has 2 subscripts", ev.pick_subscripts, e, [[0, 0], [0]])
            done = ev.finish(e)
            for method, arguments in ((ev.repeat, (1, 0)), (ev.transpose, ()), (ev.pick, ([],)),
                                      (ev.permute_dims, ([0, 1],)), (ev.pick_subscripts, ([],)),
                                      (ev.slice, ([0, 0], [1, 1]))):
                self.refuse(ev, "ready for a model", method, done, *arguments)
            self.refuse(ev, "ready for a model", ev.stack, [e, done], 0)

    def test_more_than_32_bits_of_positions(self):
        n, ev = 70000, Evaluator()
        e = ev.push(Model([n, n], [[Term(1, 2.0)], [Term(2, 4.0)]], [n - 1, n * n - 1]))
        wide = ev.push(Model([2, n, n], [[Term(1, 2.0)]], [n * n + 5]))
        for method, arguments, sp in (
                (ev.stack, ([e, e], 0), [n - 1, n * n - 1, n * n + n - 1, 2 * n * n - 1]),
                (ev.stack, ([e, e], 1), [n - 1, 2 * n - 1, 2 * n * n - n - 1, 2 * n * n - 1]),
                (ev.stack, ([wide, wide], 1), [2 * n * n + 5, 3 * n * n + 5]),
                (ev.repeat, (wide, 2, 1), [2 * n * n + 5, 3 * n * n + 5]),
                (ev.repeat, (e, 2, 1), [n - 1, 2 * n - 1, 2 * n * n - n - 1, 2 * n * n - 1]),
                (ev.transpose, (e,), [n * n - n, n * n - 1]),
                (ev.permute_dims, (e, [1, 0]), [n * n - n, n * n - 1]),
                (ev.slice, (e, [1, 1], [n, n]), [(n - 1) * (n - 1) - 1])):
            h = method(*arguments)
            with ev.w.section("i64", h.sp_base, h.nelem) as section:
                self.assertEqual(list(section), sp)
        self.assertEqual(ev.pick(e, [n * n - 1, 0]).nnz, 1)
        self.refuse(ev, "can't have 2147530000 positions", ev.repeat, e, 30679, 0)
        self.refuse(ev, "can't have 4900000000 positions", ev.stack, [wide, wide], 0)
        self.refuse(ev, "can't have 4900000000 positions", ev.permute_dims, wide, [0, 2, 1])
        self.refuse(ev, "is no shape", ev.repeat, ev.push(Model([n, n, n, 20000], [], [])), 5, 3)
        empty = ev.push(Model([n, n, 0], []))
        self.refuse(ev, "can't have 4900000000 positions", ev.stack, [empty, empty], 2)


if __name__ == "__main__":
    unittest.main()
