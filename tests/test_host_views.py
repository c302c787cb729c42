"""The host's views of variables: each lists the array as it was moved, and as an
expression has the values of the moved array."""

import operator
import unittest
from itertools import accumulate

from host.index_maps.variables import Variable
from support import positions, product, read
from test_host_sums import HostCase, cases


class Views(HostCase):
    def variable(self, s, shape, sparse):
        """A variable, and the native index of each stored element by its subscripts."""
        sp = s.pattern(product(shape)) if sparse else None
        stored = {x: s.rng.randrange(1, 1 + s.variable_count)
                  for k, x in enumerate(positions(shape)) if not sparse or k in sp}
        return Variable(shape, list(stored.values()), sp), stored

    def expect(self, s, ev, view, shape, sparse, stored, twin=None):
        """`twin` is what the operation has made of the variable as an expression."""
        at = positions(shape)
        places = at if view.sparsity is None else map(at.__getitem__, view.sparsity)
        self.assertEqual(dict(zip(places, view.nativeidxs)), stored)
        self.check(s, ev, ev.push_variable, view, shape=shape, sparse=sparse,
                   values={x: s.variables[stored[x]] if x in stored else 0.0 for x in at})
        if twin is not None:
            self.assertEqual(read(ev.w, ev.push_variable(view)), read(ev.w, twin))

    @cases(200)
    def test_parts(self, s, ev, sparse, _):
        shape = s.shape(s.rng.randrange(4))
        (x, stored), at = self.variable(s, shape, sparse), positions(shape)
        first = [s.rng.randrange(d + 1) for d in shape]
        last = [s.rng.randrange(a, d + 1) for a, d in zip(first, shape)]
        box = [b - a for a, b in zip(first, last)]
        inside = [tuple(map(operator.add, first, y)) for y in positions(box)]
        self.expect(s, ev, x.slice(first, last), box, sparse,
                    {z: stored[y] for z, y in zip(positions(box), inside) if y in stored},
                    ev.slice(ev.push_variable(x), first, last))
        rows = s.rng.choices(at, k=s.rng.randrange(6)) if at else []
        self.expect(s, ev, x.take(map(at.index, rows)), [len(rows)], sparse,
                    {(k,): stored[y] for k, y in enumerate(rows) if y in stored},
                    None if sparse else ev.pick_subscripts(ev.push_variable(x), rows))
        one, held = self.variable(s, [1], sparse)
        self.expect(s, ev, one.spread(shape), shape, sparse and not held,
                    {y: k for y in at for k in held.values()})

    @cases(200)
    def test_order_of_dimensions(self, s, ev, sparse, _):
        shape = s.shape(s.rng.randrange(5))
        x, stored = self.variable(s, shape, sparse)
        perm = s.rng.sample(range(len(shape)), len(shape))
        move = lambda y: tuple(y[k] for k in perm)
        self.expect(s, ev, x.permute_dims(perm), move(shape), sparse,
                    {move(y): k for y, k in stored.items()},
                    ev.permute_dims(ev.push_variable(x), perm))
        at, flat = positions(shape), [product(shape)]
        self.expect(s, ev, x.reshape(flat), flat, sparse,
                    {(at.index(y),): k for y, k in stored.items()},
                    ev.reshape(ev.push_variable(x), flat))

    @cases(200)
    def test_stack(self, s, ev, sparse, mixed):
        shape = s.shape(s.rng.randrange(4))
        dim = s.rng.randrange(len(shape) + 1)
        extents = [s.rng.randrange(4) if dim < len(shape) else 1 for _ in range(3)]
        kinds = [sparse or mixed and s.rng.random() < 0.5 for _ in extents]
        around = lambda n: shape[:dim] + [n] + shape[dim + 1 :]
        parts = [self.variable(s, around(n)[: len(shape)], k) for n, k in zip(extents, kinds)]
        moved = {(*y[:dim], sum(y[dim : dim + 1]) + first, *y[dim + 1 :]): k
                 for (_, stored), first in zip(parts, [0, *accumulate(extents)])
                 for y, k in stored.items()}
        self.expect(s, ev, Variable.stack([x for x, _ in parts], dim), around(sum(extents)),
                    any(kinds), moved, ev.stack([ev.push_variable(x) for x, _ in parts], dim))

    @cases(200)
    def test_repeat(self, s, ev, sparse, _):
        shape, copies = s.shape(s.rng.randrange(1, 4)), s.rng.randrange(4)
        dim = s.rng.randrange(len(shape))
        x, stored = self.variable(s, shape, sparse)
        n, twin = shape[dim], ev.repeat(ev.push_variable(x), copies, dim)
        shape[dim] *= copies
        self.expect(s, ev, x.repeat(copies, dim), shape, sparse, {
            (*y[:dim], y[dim] + c * n, *y[dim + 1 :]): k
            for y, k in stored.items() for c in range(copies)}, twin)

    def test_beyond_32_bits(self):
        n = 2 ** 20
        x = Variable([n, 2, n], [5, 6], [3 * n + 7, (2 * n - 1) * n])  # at (1, 1, 7), (n - 1, 1, 0)
        for view, native, pattern in (
                (x.permute_dims([2, 0, 1]), [6, 5], [2 * n - 1, (7 * n + 1) * 2 + 1]),
                (Variable.stack([x, x], 1), [5, 5, 6, 6],
                 [(4 + b) * n + 7 for b in (1, 3)] + [((n - 1) * 4 + b) * n for b in (1, 3)])):
            self.assertEqual((list(view.nativeidxs), list(view.sparsity)), (native, pattern))

    def test_a_stack_of_a_vector_and_a_matrix(self):
        vector, matrix = Variable([2], [1, 2]), Variable([2, 2], [3, 4, 5, 6])
        view = Variable.stack([vector, matrix], 1)
        self.assertEqual((list(view.shape), list(view.nativeidxs)), ([2, 3], [1, 3, 4, 2, 5, 6]))

    def test_refusals(self):
        x, big = Variable([2, 3], range(1, 7)), 2 ** 31 - 1
        tall, flat = (Variable(shape, [1], [5]) for shape in ([big, big, 2], [2 ** 29, 1, big, 5]))
        for message, method, *arguments in (
                ("no order of 2", x.permute_dims, [0, 0]), ("no order of 2", x.permute_dims, [0]),
                ("doesn't lie", x.slice, [0, 0], [2, 3.5]), ("entry 1, at", x.take, [0, 6]),
                ("most is", tall.slice, [0] * 3, tall.shape), ("no dimension 2", x.repeat, 1, 2),
                ("-1 times", x.repeat, -1, 0), ("0.5 times", x.repeat, 0.5, 0),
                ("can't become", x.reshape, [5]), ("one element", x.spread, [2]),
                ("no dimension None", x.repeat, 1, None), ("the most is", tall.repeat, 2, 0),
                ("most is", Variable.stack, [tall] * 2, 0), ("most is", Variable.stack, [flat], 1),
                ("no shape", Variable.stack, [flat] * 3, 0),
                ("needs equal shapes", Variable.stack, [x, x.permute_dims([1, 0])], 0),
                ("a stack needs", Variable.stack, [], 0), ("a stack needs", Variable.stack, [x], 3),
                ("no shape", Variable, [-1], [], []), ("are integers", Variable, [0.5], []),
                ("outside", Variable, [2], [1], [2]), ("ascend", Variable, [2], [1, 1], [0, 0])):
            with self.subTest(message=message):
                self.assertRaisesRegex(ValueError, message, method, *arguments)


if __name__ == "__main__":
    unittest.main()
