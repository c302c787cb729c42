"""Formulas: random ones against a plain evaluation on dense arrays, and what they refuse."""

import fractions
import itertools
import math
import operator
import random
import unittest
import unittest.mock
from array import array

import host
from host import Model
from host.solvers import SOLVERS, Adapter, Solution

try:
    import numpy
except ImportError:
    numpy = None


class Dense:
    """An array as a function of its subscripts, for the plain evaluation."""

    def __init__(self, shape, at):
        self.shape = tuple(shape)
        self.values = {k: at(*k) for k in itertools.product(*map(range, self.shape))}

    def __getitem__(self, k):
        return self.values[k]

    def nested(self, head=()):
        if len(head) == len(self.shape):
            return self.values[head]
        return [self.nested(head + (k,)) for k in range(self.shape[len(head)])]

    def flat(self):
        return [self.values[k] for k in itertools.product(*map(range, self.shape))]

    def each(self, of):
        return Dense(self.shape, lambda *k: of(k, self[k]))

    def reshape(self, shape):
        values = iter(self.flat())
        return Dense(shape, lambda *k: next(values))

    def meet(self, other, of):
        shape = self.shape or other.shape
        pick = lambda a, k: a[k] if a.shape else a[()]
        return Dense(shape, lambda *k: of(pick(self, k), pick(other, k)))

    def swapped(self, order):
        back = [order.index(a) for a in range(len(order))]
        return Dense([self.shape[a] for a in order], lambda *k: self[tuple(k[b] for b in back)])

    def matmul(self, other):
        a = self.reshape((1,) * (2 - len(self.shape)) + self.shape)
        b = other.reshape(other.shape + (1,) * (2 - len(other.shape)))
        c = Dense((a.shape[0], b.shape[1]),
                  lambda i, j: sum(a[i, k] * b[k, j] for k in range(a.shape[1])))
        return c.reshape(self.shape[:-1] + other.shape[1:])

    def joined(self, others, axis):
        parts = [self, *others]
        owners = [(p, k) for p in parts for k in range(p.shape[axis])]
        shape = self.shape[:axis] + (len(owners),) + self.shape[axis + 1:]

        def at(*k):
            part, place = owners[k[axis]]
            return part[k[:axis] + (place,) + k[axis + 1:]]
        return Dense(shape, at)

    def indexed(self, axes):
        """With an int, or a list of ints, for each axis."""
        lists = [a for a in axes if isinstance(a, list)]

        def at(*k):
            k = iter(k)
            return self[tuple(a[next(k)] if isinstance(a, list) else a for a in axes)]
        return Dense([len(a) for a in lists], at)


class Sampler:
    """Random pairs of a formula and what it is worth."""

    def __init__(self, seed):
        self.rng = rng = random.Random(seed)
        self.model = m = Model()
        self.levels = [0.0] + [float(rng.randint(-4, 4)) for _ in range(30)]
        shapes = [(), (3,), (2, 3), (3, 2), (2, 2, 2)]
        self.variables = [self.variable(m, shape) for shape in shapes]
        self.parameters = []
        for shape in ((), (3,), (2, 3), (3, 3)):
            values = self.numbers(shape)
            self.parameters.append((m.parameter(value=values.nested()), values))

    def variable(self, m, shape):
        places = list(itertools.product(*map(range, shape)))
        at = sorted(self.rng.sample(places, len(places) // 2)) if self.rng.random() < 0.4 else None
        x = m.variable(shape=shape, at=at if shape else None)
        columns = dict(zip(places if at is None or not shape else at, x.map.nativeidxs))
        return x, Dense(shape, lambda *k: self.levels[columns[k]] if k in columns else 0.0)

    def numbers(self, shape):
        return Dense(shape, lambda *k: float(self.rng.choice((-2, -1, 0, 1, 3))))

    def fitting(self, shape):
        """A formula of that shape, made of a variable or parameter."""
        f, d = self.rng.choice(self.variables + self.parameters)
        if f.shape == shape:
            return f, d
        count = math.prod(shape)
        (f, d), flat = self.variables[1], []
        places = [self.rng.randrange(3) for _ in range(count)]
        return f[places].reshape(shape), d.indexed([places]).reshape(shape)

    def formula(self, depth):
        f, d = self.rng.choice(self.variables)
        for _ in range(depth):
            f, d = self.step(f, d)
            if not 0 < math.prod(f.shape) <= 60:  # nested lists of nothing have no shape
                break
        return f, d

    def step(self, f, d):
        rng, nd = self.rng, len(f.shape)
        names = ["add", "scale", "elements", "reshape", "index", "sum", "parameter"]
        names += ["matmul", "transpose", "join", "tile", "repeat", "dot"] if nd else ["spread"]
        if nd == 2:
            names += ["rmatmul", "diagonal"] + ["square"] * 3 * (f.shape[0] == f.shape[1])
        if nd == 1:
            names += ["diag", "rmatmul", "outer"]
        return getattr(self, rng.choice(names))(f, d)

    def add(self, f, d):
        g, e = self.fitting(f.shape) if self.rng.random() < 0.8 else self.variables[0]
        c = self.numbers(f.shape)
        f, d = self.rng.choice([
            lambda: (f + g, d.meet(e, operator.add)), lambda: (2 - f, d.each(lambda k, v: 2 - v)),
            lambda: (g - f, d.meet(e, lambda a, b: b - a)),
            lambda: (c.nested() + f, d.meet(c, operator.add))])()
        return f, d

    def scale(self, f, d):
        a = self.rng.choice((2, -1.0, 0, fractions.Fraction(1, 2), True))
        f = -f if a == -1.0 else a * f if self.rng.random() < 0.5 else f * a
        return (f / 4, d.each(lambda k, v: float(a) * v / 4))

    def elements(self, f, d):
        c = self.numbers(f.shape)
        return c.nested() * f, d.meet(c, operator.mul)

    def spread(self, f, d):
        c = self.numbers((2, 3))
        return f * c.nested(), c.each(lambda k, v: v * d[()])

    def parameter(self, f, d):
        p, q = self.parameters[0]
        a, b = next(((p, q) for p, q in self.parameters if p.shape == f.shape), (p, q))
        return self.rng.choice([
            lambda: (a * f, d.meet(b, operator.mul)),
            lambda: (f * (2 * a - p), d.meet(b.each(lambda k, v: 2 * v - q[()]), operator.mul))])()

    def matmul(self, f, d):
        n = f.shape[0]
        if len(f.shape) > 2:
            return self.sum(f, d)
        p, q = self.parameters[self.rng.choice((1, 2, 3))]
        if n == 3 and self.rng.random() < 0.6:
            c = self.numbers((2, len(p.shape) and p.shape[0]))
            if self.rng.random() < 0.5 and len(p.shape) == 2:
                return (c.nested() @ p) @ f, c.matmul(q).matmul(d)
            return p @ f, q.matmul(d)
        c = self.numbers((2, n) if self.rng.random() < 0.7 else (n,))
        return c.nested() @ f, c.matmul(d)

    def rmatmul(self, f, d):
        n = f.shape[-1]
        p, q = self.parameters[self.rng.choice((1, 3))]
        if n == 3 and self.rng.random() < 0.5:
            return f @ p, d.matmul(q)
        c = self.numbers((n, 2) if self.rng.random() < 0.7 else (n,))
        return f @ c.nested(), d.matmul(c)

    def dot(self, f, d):
        c, (p, q) = self.numbers(f.shape), self.parameters[2]
        if f.shape == p.shape and self.rng.random() < 0.5:
            return host.dot(p, f), Dense((), lambda: sum(d.meet(q, operator.mul).flat()))
        return f.dot(c.nested()), Dense((), lambda: sum(d.meet(c, operator.mul).flat()))

    def reshape(self, f, d):
        n, divisors = math.prod(f.shape), [k for k in range(1, 61) if math.prod(f.shape) % k == 0]
        k = self.rng.choice(divisors) if n else 1
        return (f.reshape(k, -1) if n else f.ravel(), d.reshape((k, n // k) if n else (0,)))

    def index(self, f, d):
        key, axes, listed = [], [], False
        for extent in f.shape[:self.rng.randint(0, len(f.shape))]:
            kind = self.rng.randrange(4)
            if extent == 0 or kind == 0:
                item = slice(*(self.rng.choice((None, -2, -1, 0, 1, 2)) for _ in range(2)),
                             self.rng.choice((None, 1, 2, -1)))
                axes.append(list(range(extent))[item])
            elif kind == 1 and not listed:
                item = [self.rng.randrange(-extent, extent) for _ in range(self.rng.randint(1, 3))]
                axes.append([k % extent for k in item])
                listed = True
            else:
                item = self.rng.randrange(-extent, extent)
                axes.append(item % extent)
            key.append(item)
        axes += [list(range(extent)) for extent in f.shape[len(axes):]]
        return f[tuple(key)], d.indexed(axes)

    def sum(self, f, d):
        axis = self.rng.randrange(-1, len(f.shape)) if f.shape else -1
        if axis < 0:
            return f.sum(), Dense((), lambda: sum(d.flat()))
        shape, extent = f.shape[:axis] + f.shape[axis + 1:], f.shape[axis]
        return f.sum(axis), Dense(shape, lambda *k: sum(
            d[k[:axis] + (i,) + k[axis:]] for i in range(extent)))

    def transpose(self, f, d):
        order = self.rng.sample(range(len(f.shape)), len(f.shape))
        return self.rng.choice([lambda: (f.T, d.swapped(list(range(len(f.shape)))[::-1])),
                                lambda: (f.transpose(*order), d.swapped(order))])()

    def join(self, f, d):
        axis, c = self.rng.randrange(len(f.shape)), self.numbers(f.shape)
        g, e = self.fitting(f.shape)
        if self.rng.random() < 0.5:
            return (host.concatenate([f, c.nested(), g], axis), d.joined([c, e], axis))
        wide = lambda a: a.reshape(a.shape[:axis] + (1,) + a.shape[axis:])
        return host.stack([f, g], axis), wide(d).joined([wide(e)], axis)

    def tile(self, f, d):
        axis = self.rng.randrange(len(f.shape))
        return host.tile(f, 2, axis), d.joined([d], axis)

    def repeat(self, f, d):
        axis, extent = self.rng.randrange(len(f.shape)), 0
        twice = [k // 2 for k in range(2 * f.shape[axis])]
        axes = [twice if a == axis else list(range(e)) for a, e in enumerate(f.shape)]
        return f.repeat(2, axis), d.indexed(axes)

    def diagonal(self, f, d):
        n, m = f.shape
        c, (p, q) = self.numbers((m, n)), self.parameters[3]
        f, d = self.rng.choice([lambda: (f, d), lambda: (c.nested() @ f, c.matmul(d)),
                                lambda: (f @ c.nested(), d.matmul(c)),
                                lambda: (p @ f, q.matmul(d)) if n == 3 else (f, d),
                                lambda: (f @ p, d.matmul(q)) if m == 3 else (f, d)])()
        return f.diagonal(), Dense((min(f.shape),), lambda k: d[k, k])

    def diag(self, f, d):
        n = f.shape[0]
        return host.diag(f), Dense((n, n), lambda i, j: d[i,] if i == j else 0.0)

    def outer(self, f, d):
        c = self.numbers((2,))
        return self.rng.choice([
            lambda: (host.outer(f, c.nested()), Dense(f.shape + (2,), lambda i, j: d[i,] * c[j,])),
            lambda: (host.outer(c.nested(), f), Dense((2,) + f.shape, lambda i, j: c[i,] * d[j,]))
        ])()

    def square(self, f, d):
        return self.rng.choice([
            lambda: (host.tril(f), d.each(lambda k, v: v if k[0] >= k[1] else 0.0)),
            lambda: (host.triu(f), d.each(lambda k, v: v if k[0] <= k[1] else 0.0)),
            lambda: (host.symmetric_part(f), d.each(lambda k, v: (v + d[k[::-1]]) / 2)),
            lambda: (f.trace(), Dense((), lambda: sum(d[k, k] for k in range(d.shape[0]))))])()


class Given(Adapter):
    """Finds that each column has the level that a sampler has for it."""

    name, takes, levels = "given", frozenset({"linear"}), ()
    missing = staticmethod(lambda: None)

    def load(self, problem):
        self.count = problem.columns + 1

    def solve(self, options):
        return Solution("optimal", xx=array("d", self.levels[:self.count]))


class Values(unittest.TestCase):
    def test_random_formulas(self):
        patch = unittest.mock.patch.dict(SOLVERS, given=Given)
        for seed in range(250):
            s = Sampler(seed)
            with self.subTest(seed=seed), patch:
                Given.levels = s.levels
                s.model.solve("given")
                f, d = s.formula(seed % 7)
                self.assertEqual((f.shape, f.value), (d.shape, d.nested()))
                repr(f)

    @unittest.skipIf(numpy is None, "there is no NumPy")
    def test_arrays_on_the_left(self):
        m, a = Model(), numpy.arange(6.0).reshape(2, 3)
        x, other = m.variable("x", 3), m.variable("y", (2, 3))
        for f, text in ((a @ x, "array(2x3) @ x"), (a * other, "array(2x3) * y"),
                        (numpy.float32(2) * x, "2 x"), (numpy.int8(3) - x[0], "-x[0] + 3"),
                        (a[0] - x, "-x + [0, 1, 2]"), (a[1] <= x, "x >= [3, 4, 5]"),
                        (numpy.array(2.0) * x, "2 x"), (x[numpy.int64(1)], "x[1]"),
                        (x[numpy.array([2, 0])], "[x[2], x[0]]"), ([1, 0, 1] @ x, "dot([1, 0, 1], x)"),
                        (m.constrain("c", x <= a.max(axis=0)), "c: x <= [3, 4, 5]")):
            self.assertEqual(repr(f), text)

    def test_many_steps(self):
        """Chains of 10^5 sums, parts that stand in many places, and steps that build on others."""
        s, n = Sampler(0), 10 ** 5
        with unittest.mock.patch.dict(SOLVERS, given=Given):
            Given.levels = s.levels
            x, values = s.model.variable("y", 3), s.levels[len(s.model.columns) - 2:][:3]
            s.model.solve("given")
            f, twice, state = 0, x, x
            for k in range(n):
                f += x[k % 3] + 1
            for _ in range(60):
                twice = twice + twice
            weight = s.model.parameter("w", 1.0)
            for _ in range(2000):
                weight = weight + 0.5
            for k in range(40):
                state = [[0, 1, 0], [0, 0, 1], [1, 0, 0]] @ state + state - state.T
            self.assertEqual(f.value, sum(values[k % 3] for k in range(n)) + n)
            self.assertEqual(s.model.sum(2 * x[k % 3] for k in range(n)).value, 2 * (f.value - n))
            self.assertEqual(twice.value, [2 ** 60 * v for v in values])
            self.assertEqual((weight * x).value, [1001 * v for v in values])
            self.assertEqual(state.value, values[1:] + values[:1])
            self.assertLess(len(repr(f)), 200)


if __name__ == "__main__":
    unittest.main()
