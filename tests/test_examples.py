"""The examples: each prints, and what it finds is checked in another way."""

import contextlib
import importlib.util
import io
import itertools
import math
import pathlib
import random
import unittest

from test_host_model import needs_csdp, needs_glpk

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent / "examples"


def example(name):
    """The module, and what it prints."""
    spec = importlib.util.spec_from_file_location(name, str(EXAMPLES / (name + ".py")))
    module, output = importlib.util.module_from_spec(spec), io.StringIO()
    spec.loader.exec_module(module)
    with contextlib.redirect_stdout(output):
        module.main()
    return module, output.getvalue()


class Examples(unittest.TestCase):
    @needs_glpk
    def test_diet(self):
        module, text = example("diet")
        self.assertEqual(text.count("nothing but numbers"), 2)
        m, buy, factor, need = module.build()
        m.solve()
        worth = sum(a * b for a, b in zip(module.DEMAND, need.dual))
        self.assertAlmostEqual(m.objective, worth + 4 * sum(min(d, 0) for d in buy.dual))

    @needs_csdp
    def test_portfolio(self):
        module, text = example("portfolio")
        self.assertEqual(text.count("return"), 3)
        m, x, risk = module.build(0.05)
        m.solve()
        self.assertAlmostEqual(sum(x.level), 1, places=6)
        spread = [sum(f * v for f, v in zip(row, x.level)) for row in module.FACTOR]
        self.assertAlmostEqual(math.hypot(*spread), 0.05, places=5)
        shares = [[i / 50, j / 50, 1 - (i + j) / 50] for i in range(51) for j in range(51 - i)]
        best = max(sum(map(float.__mul__, module.RETURNS, held)) for held in shares
                   if math.hypot(*(sum(map(float.__mul__, row, held))
                                   for row in module.FACTOR)) <= 0.05)
        self.assertTrue(best <= m.objective + 1e-6 <= best + 2e-3)

    @needs_csdp
    def test_maximum_cut(self):
        module, text = example("maxcut")
        self.assertIn("no cut has more", text)
        n, edges = module.NODES, module.EDGES
        m, X = module.build(n, edges)
        m.solve()
        best = max(sum(side[i] != side[j] for i, j in edges)
                   for side in itertools.product((0, 1), repeat=n))
        found = max(module.cut(X.level, edges, random.Random(k)) for k in range(20))
        self.assertTrue(0.878 * m.objective <= found <= best <= m.objective + 1e-5)

    @needs_glpk
    def test_cutting_planes(self):
        module, text = example("cutting_planes")
        self.assertNotIn(" 0 removed", text)
        cities = module.CITIES[::2]
        length = lambda tour: sum(math.dist(a, b) for a, b in zip(tour, tour[1:] + tour[:1]))
        best = min(length(cities[:1] + list(rest)) for rest in itertools.permutations(cities[1:]))
        self.assertAlmostEqual(module.shortest(cities)[0], best)

    @needs_glpk
    def test_control(self):
        module, text = example("control")
        self.assertIn("nothing but numbers", text)
        m, x, u, A = module.build()
        A.value = module.BRAKED
        m.solve()
        state = module.START
        for push in u.level:
            state = [sum(map(float.__mul__, row, state)) for row in module.BRAKED]
            state[1] += push
        for value in state:
            self.assertAlmostEqual(value, 0)
        self.assertAlmostEqual(m.objective, sum(map(abs, u.level)))


if __name__ == "__main__":
    unittest.main()
