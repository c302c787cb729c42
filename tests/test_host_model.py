"""The model: what stands in it, changes of it in place, solutions read back, and refusals."""

import contextlib
import copy
import io
import itertools
import os
import math
import random
import shutil
import tempfile
import textwrap
import unittest
from math import inf, nan, sqrt

import host
from host import Model, quadratic_cone, rotated_cone, semidefinite
from host.formats.mps import read_mps
from host.solvers.glpk import Glpk

needs_glpk = unittest.skipIf(Glpk.missing(), Glpk.missing())
needs_csdp = unittest.skipUnless(shutil.which("csdp"), "CSDP is missing")


def content(problem):
    """What a problem says, sides less the constants of their rows."""
    terms = {(i, j): v for i, j, v in zip(problem.rows.subi, problem.rows.subj, problem.rows.cof)
             if v != 0.0}
    sides = [[side - offset for side, offset in zip(held, problem.rows.offset)][1:]
             for held in (problem.row_lower, problem.row_upper)]
    return (problem.maximize, problem.rows.offset[0], terms, sides, problem.column_lower[1:],
            problem.column_upper[1:], problem.integer[1:])


class Changing:
    """A model that changes at random, over variables and parameters that stay."""

    def __init__(self, seed):
        self.rng, self.model = random.Random(seed), Model()
        self.variables = [self.model.variable(None, 2, 0, 9), self.model.variable("z", (), -9, 9)]
        self.p = self.model.parameter("p", [1.0, 2.0])
        self.held = []

    def number(self):
        return self.rng.choice((-2.0, -1.0, 0.0, 1.0, 3.0))

    def scalar(self):
        f = self.number() + self.number() * self.rng.choice(self.variables)
        g = self.rng.choice([self.number(), self.p[0], self.p[1] * self.variables[1], self.p[0] + 1,
                             self.number() * self.variables[0][1]])
        return (f + g).sum()

    def step(self):
        kind, m = self.rng.randrange(9), self.model
        if kind == 0:
            shape, upper = self.rng.choice([(), 3]), self.number() ** 2
            self.variables.append(m.variable(None, shape, -1, upper))
        elif kind in (1, 2):
            side = self.rng.choice([-8.0, [self.number(), -inf], 4 * self.p - 9])
            f = self.rng.choice([self.p, 1.0]) * self.variables[0] + self.scalar()
            self.held.append(m.constrain(f, lower=side))
        elif kind == 3:
            self.held += [m.constrain(self.scalar() <= 7.0) for _ in range(3)]
        elif kind == 4 and self.held:
            m.remove(self.held.pop(self.rng.randrange(len(self.held))))
        elif kind == 5 and self.held:
            self.rng.choice(self.held).update(upper=self.rng.choice((9, inf, self.p[1] + 20)))
        elif kind == 6:
            self.rng.choice(self.variables).update(upper=self.number() + 3)
        elif kind == 7:
            self.rng.choice([m.minimize, m.maximize])(self.scalar())
        elif len(self.variables) > 2:
            with contextlib.suppress(ValueError):  # it stands somewhere
                m.remove(self.variables[2])
                del self.variables[2]
        if self.rng.random() < 0.3:
            self.p.value = [self.number(), self.number()]


@needs_glpk
class InPlace(unittest.TestCase):
    def test_changes_lead_where_building_anew_leads(self):
        accounts = []
        for seed in range(40):
            s = Changing(seed)
            for _ in range(25):
                s.step()
                if s.rng.random() < 0.7:
                    s.model.solve(start=s.rng.choice((None, "basis")))
                    accounts.append(s.model.last_build)
                    native = s.model.native.adapter._do("problem")
                    self.assertEqual(content(native), content(s.model.problem()))
        anew = [text for text in accounts if text.startswith("all of it")]
        self.assertLess(len(anew), len(accounts) / 2)
        self.assertIn("nothing but numbers", accounts)

    def test_example_of_the_package(self):
        names = {}
        example = host.__doc__[host.__doc__.index("    from host"):host.__doc__.index("\n\nIts")]
        exec(textwrap.dedent(example), names)
        status, objective, level, dual = names["first"]
        self.assertEqual((status, *map(len, (level, dual))), ("optimal", 3, 2))
        self.assertAlmostEqual(objective, sum(a * b for a, b in zip(dual, (8, 6))))
        self.assertAlmostEqual(names["second"][0], 1.1 * objective)
        self.assertEqual(names["second"][1], "nothing but numbers")

    def test_parameters_everywhere(self):
        """max p x + y + q with p x + y <= 4 p, y <= q as a row, 0 <= x <= 5."""
        m = Model()
        x, y = m.variable("x", lower=0, upper=5), m.variable("y")
        p, q = m.parameter("p", 2.0), m.parameter("q", 1.0)
        both = m.constrain("both", p * x + y <= 4 * p)
        m.constrain(y <= q)
        m.maximize(p * x + y + q)
        for p.value, q.value in ((2.0, 1.0), (4.0, 9.0), (0.5, 1.0)):
            self.assertEqual(m.solve().status, "optimal")
            found = m.objective, both.level, both.dual, both.upper, (p * x + y - q).value
            for a, b in zip(found, (4 * p.value + q.value, 4 * p.value, 1.0, 4 * p.value,
                                    4 * p.value - q.value)):
                self.assertAlmostEqual(a, b)

    def test_integer_variables_and_time(self):
        m = Model()
        x = m.variable("x", 2, 0, 10, integer=True)
        m.constrain([2, 3] @ x <= 12.5)
        m.maximize([3, 4] @ x)
        log = io.StringIO()
        result = m.solve(log=log)
        self.assertEqual((m.status, round(m.objective), result.has_duals), ("optimal", 18, False))
        self.assertTrue(log.getvalue())
        self.assertRaisesRegex(ValueError, "no duals", lambda: x.dual)
        self.assertEqual(m.solve(time_limit=0.0).status, "limit")


@needs_csdp
class Cones(unittest.TestCase):
    def assert_close(self, first, second, delta=1e-5):
        flat = lambda a: [v for b in a for v in flat(b)] if isinstance(a, list) else [a]
        self.assertEqual(len(flat(first)), len(flat(second)))
        for a, b in zip(flat(first), flat(second)):
            self.assertAlmostEqual(a, b, delta=delta * max(1.0, abs(b)))

    def test_enclosing_ball(self):
        """min r with |c - p a| <= r for the points a at a distance from a centre on all axes."""
        for along, n in itertools.product((0, 1), (1, 3)):
            radius, *centre = [random.Random(n + k).uniform(0.5, 2) for k in range(n + 1)]
            a = [[centre[i] + (k % n == i) * (radius if k < n else -radius) for i in range(n)]
                 for k in range(2 * n)]
            m = Model()
            r, c, p = m.variable("r"), m.variable("c", n), m.parameter("p", 1.0)
            rc = host.hstack([host.tile(r, 2 * n).reshape(-1, 1),
                              host.tile(c.reshape(1, -1), 2 * n) - p * a])
            cones = m.constrain(quadratic_cone(rc.T if along == 0 else rc, along))
            m.minimize(r)
            for p.value in (1.0, -0.5):
                m.solve()
                self.assert_close([r.level, c.level],
                                  [abs(p.value) * radius, [p.value * v for v in centre]], 1e-3)
                self.assert_close(cones.level, (rc.T if along == 0 else rc).value)
                self.assert_close(cones[1].level, cones.level[1])
                # The dual cone: itself; and nothing is left of the objective's gradient in c.
                duals = cones.dual if along == 1 else list(map(list, zip(*cones.dual)))
                for first, *others in duals:
                    self.assertGreaterEqual(first, sqrt(sum(v * v for v in others)) - 1e-6)
                self.assert_close(list(map(sum, zip(*duals))), [1.0] + [0.0] * n)

    def test_semidefinite(self):
        """max t with A - t I semidefinite; min <A, X> with trace 1, whose levels are its duals."""
        for d in (1, 3):
            rng, m, other = random.Random(d), Model(), Model()
            a = [[rng.gauss(0, 1) for _ in range(d)] for _ in range(d)]
            t = m.variable("t")
            cone = m.constrain(semidefinite(host.diag([-1.0] * d * t) + a))
            m.maximize(t)
            m.solve()
            gone, x = (other.variable(name, (d, d), semidefinite=True) for name in "YX")
            other.constrain(x.trace() == 1)
            other.minimize(x.dot(a))
            for _ in range(2):
                other.solve()
                self.assert_close(other.objective, m.objective)
                self.assert_close(x.level, [[-v for v in row] for row in cone.dual], 1e-3)
                self.assert_close(x.dual, cone.level, 1e-3)
                self.assert_close((x[0] + 1).value, [v + 1 for v in x.level[0]])
                if not gone.roots[0].removed:
                    other.remove(gone)  # the numbers of matrices move

    def test_cones_come_and_go(self):
        m = Model()
        x = m.variable("x", 3, upper=[9, 2, 2])
        p = m.parameter("p", 2.0)
        low = m.constrain(rotated_cone(x))
        high = m.constrain(quadratic_cone(host.hstack([x[0], p, [0.0]])))
        m.constrain(x[1:] >= 2)
        m.minimize(x[0])
        for removed, objective in ((high, 2.0), (low, 1.0)):
            m.solve()
            self.assertAlmostEqual(m.objective, objective, places=5)
            self.assertAlmostEqual(low.level[2], 2.0, places=5)
            m.remove(removed)
        self.assertEqual(m.needs(), ["linear"])


class Refusals(unittest.TestCase):
    def test_what_belongs_to_another_model(self):
        a, b = Model("A"), Model("B")
        x, y = a.variable("x", 2), b.variable("y", 2)
        p, q = a.parameter("p", 1.0), b.parameter("q", 1.0)
        c = b.constrain("c", y >= 1)
        for names, call in (
                ("xy", lambda: x + y), ("py", lambda: p * y), ("qx", lambda: x @ (q * [1, 2])),
                ("xy", lambda: host.concatenate([x, y])), ("xy", lambda: a.sum([x, y])),
                ("y", lambda: a.constrain(y >= 0)), ("y", lambda: a.constrain(y[0] >= 0)),
                ("q", lambda: a.constrain(x >= q)), ("q", lambda: a.constrain(x, upper=q)),
                ("y", lambda: a.minimize(y[0])), ("y", lambda: a.constrain(quadratic_cone(y))),
                ("y", lambda: a.remove(y)), ("c", lambda: a.remove(c))):
            with self.assertRaises(ValueError) as error:
                call()
            for name in names:
                self.assertRegex(str(error.exception), r"\b%s\b" % name)
            self.assertIn("'A'", str(error.exception))

    def test_refusals_say_why_and_change_nothing(self):
        m = Model()
        x, p = m.variable("x", 2, 0, 9), m.parameter("p", [1.0, 2.0])
        c = m.constrain("c", x >= p)
        held = content(m.problem())
        cone = m.constrain("cone", quadratic_cone(x))
        for error, text, call in (
                (ValueError, "lower bound of y is inf", lambda: m.variable("y", lower=inf)),
                (ValueError, r"upper bound of y at \[1\] is NaN",
                 lambda: m.variable("y", 2, upper=[1, nan])),
                (ValueError, "a variable x already", lambda: m.variable("x")),
                (ValueError, "a constraint c already", lambda: m.constrain("c", x >= 0)),
                (ValueError, "value of q is NaN", lambda: m.parameter("q", nan)),
                (ValueError, "not finite", lambda: setattr(p, "value", inf)),
                (ValueError, "can't have values", lambda: setattr(p, "value", [1.0])),
                (ValueError, "NaN", lambda: x >= nan), (ValueError, "NaN", lambda: x[0] + nan),
                (ValueError, "finite", lambda: inf * x),
                (ValueError, "finite", lambda: x + [1, inf]),
                (ValueError, "is inf", lambda: m.constrain(x[0] >= inf)),
                (ValueError, "is -inf", lambda: m.constrain(x <= [1, -inf])),
                (ValueError, "finite", lambda: m.constrain(1e300 * (1e300 * x[0]) >= 1)),
                (TypeError, "variables, x.*x|x and .*x", lambda: x * x),
                (TypeError, "not linear", lambda: (x + 1) @ (p * x)),
                (TypeError, "divisor", lambda: 1 / p), (ZeroDivisionError, "x", lambda: x / 0),
                (TypeError, r"lower=a, upper=b", lambda: m.constrain(0 <= x <= 1)),
                (TypeError, "comparison of formulas", lambda: m.constrain("d", 0 <= 1)),
                (TypeError, "strict", lambda: x < 1), (TypeError, "name", lambda: m.variable(3)),
                (TypeError, "no variables", lambda: m.constrain(x, lower=x)),
                (TypeError, "integer, a slice", lambda: x[1.0]),
                (IndexError, "index 2 .*extent 2", lambda: x[2]),
                (ValueError, r"\[2\] of x and \[3\]", lambda: x + [1, 2, 3]),
                (ValueError, r"\[1, 3\].*\[2\] of x", lambda: [[1, 2, 3]] @ x),
                (ValueError, "shapes", lambda: x >= [1, 2, 3]),
                (ValueError, "one number, not", lambda: m.minimize(x)),
                (ValueError, "no sides", lambda: cone.update(lower=1)),
                (ValueError, "stands in", lambda: m.remove(x)),
                (ValueError, "whole", lambda: m.remove(x[0])),
                (ValueError, "square", lambda: m.variable("S", (2, 3), semidefinite=True)),
                (ValueError, "no solver 'none'", lambda: m.solve("none")),
                (TypeError, "copied", lambda: copy.copy(m)),
                (ValueError, "not solved", lambda: x.level)):
            self.assertRaisesRegex(error, text, call)
        self.assertIs(copy.deepcopy(x), x)
        m.remove(cone)
        self.assertEqual(content(m.problem()), held)
        self.assertEqual(c[1].lower, 2.0)

    @needs_glpk
    def test_levels_of_another_state(self):
        m = Model("M")
        x, p = m.variable("x", 2, 0, 9), m.parameter("p", 1.0)
        rows = m.constrain("rows", x[::-1] <= 7)
        gone, y = m.constrain(x[0] >= 1), m.variable("y")
        m.maximize(x.sum())
        changes = ((lambda: setattr(p, "value", 2.0), "p has another value"),
                   (lambda: x.update(upper=8), "x has other bounds"),
                   (lambda: rows.update(upper=[6, inf]), "rows has another side"),
                   (lambda: m.remove(gone), "was removed"), (lambda: m.remove(y), "y was removed"),
                   (lambda: m.constrain(x[0] <= 2), "constraint was added"),
                   (lambda: m.minimize(x[1]), "objective"), (lambda: m.variable(), "added"))
        for change, text in changes:
            m.solve()
            self.assertEqual(len(x.level), 2)
            change()
            for read in (lambda: x.level, lambda: rows.dual, lambda: m.objective,
                         lambda: x.sum().value):
                self.assertRaisesRegex(ValueError, "M.*changed.*%s.*again" % text, read)
        self.assertEqual((rows.upper, x.upper), ([6.0, inf], [8.0, 8.0]))
        for use in (lambda: gone.level, lambda: m.remove(gone), lambda: y.level,
                    lambda: m.constrain(y >= 0), lambda: m.minimize(2 * y), lambda: y.update(0)):
            self.assertRaisesRegex(ValueError, "removed", use)
        m.constrain(x[0] >= 3)
        self.assertEqual(m.solve().status, "infeasible")
        self.assertRaisesRegex(ValueError, "infeasible", lambda: x.level)


class Texts(unittest.TestCase):
    def test_a_model_reads_well(self):
        m = Model("diet")
        x = m.variable("x", (2, 2), lower=0)
        n, p = m.variable("n", integer=True, upper=3), m.parameter("p", 1.5)
        m.constrain("need", [[1, 2], [3, 4]] @ x[0] >= p * [1, 2])
        m.constrain(2 * x[0, 1] - n + 3 <= 4)
        m.minimize(x.sum() + n - 1)
        text = str(m)
        for part in ("diet: minimize sum(", "+ n - 1", "x (2 x 2) from 0 to inf", "p = 1.5",
                     "n from -inf to 3, integer", ") @ [x[0, 0], x[0, 1]] >= p * [1, 2]",
                     "2 x[0, 1] - n + 3 <= 4"):
            self.assertIn(part, text)
        for _ in range(1000):
            n = n + x[1, 0] - p
        self.assertLess(max(map(len, (str(n), str(n >= 1), *text.splitlines()))), 200)

    @needs_glpk
    def test_files_have_the_problem_and_its_names(self):
        m = Model()
        x, n = m.variable("my x", 2, lower=0), m.variable("n", upper=3, integer=True)
        m.constrain("need it", 2 * x + n >= m.parameter("p", [4.0, 5.0]))
        m.remove(m.constrain(n >= 1))
        m.minimize(x.sum() - n + 1.5)
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "model.mps")
            m.write(path)
            with open(path) as file:
                text = file.read()
            _, problem = read_mps(path)
            self.assertRaisesRegex(ValueError, "integer", m.write, path[:-3] + "dat-s")
            self.assertRaisesRegex(ValueError, r"\*\.mps", m.write, path[:-3] + "xyz")
            self.assertEqual(os.listdir(directory), ["model.mps"])
        for name in ("my_x[1]", "need_it[0]", " n "):
            self.assertIn(name, text)
        (_, _, terms, sides, *_), (_, _, found, read, *_) = map(content, (m.problem(), problem))
        self.assertEqual({k: v for k, v in found.items() if k[1] < 4}, terms)
        self.assertEqual([side[:2] for side in read], [side[:2] for side in sides])
        self.assertEqual(list(problem.integer[1:4]), [0, 0, 1])


if __name__ == "__main__":
    unittest.main()
