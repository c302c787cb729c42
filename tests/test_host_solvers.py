"""Small problems with known levels and duals, solved by every solver that takes them, in both forms
and by way of files, and checked by the conditions of optimality."""

import copy
import itertools
import os
import random
import re
import tempfile
import unittest
import unittest.mock
from array import array
from math import hypot, inf, sqrt

from host.formats import write
from host.formats.mps import read_mps
from host.formats.sdpa import SdpaProblem
from host.solvers import SOLVERS, Cone, Forms, Options, Problem, SolverError, choose, csdp, glpk
from host.solvers import glpk_library

S2 = sqrt(2)
FREE = (-inf, inf)


class Case:
    """A problem and what is known of it. Forms are {column, or (matrix, row, column): coefficient},
    with the constant at 0; rows are (form, lower, upper), cones (kind, forms, dimension)."""

    def __init__(self, sense, objective, columns, rows=(), cones=(), dims=(), integer=(),
                 status="optimal", value=None, levels=None, duals=None):
        self.maximize, self.columns, self.cones = sense == "max", [None, *columns], cones
        self.rows = [(objective, *FREE), *rows]
        self.dims, self.integer = dims, integer
        self.status, self.value, self.levels, self.duals = status, value, levels, duals

    def forms(self, forms):
        result = Forms.zero(len(forms))
        for i, form in enumerate(forms):
            for key, value in form.items():
                if key == 0:
                    result.offset[i] = value
                elif isinstance(key, int):
                    for part in (0.25, 0.75):  # what is listed twice adds up
                        result.subi.append(i)
                        result.subj.append(key)
                        result.cof.append(part * value)
                else:
                    result.barsubi.append(i)
                    result.barsubj.append(key[0])
                    result.matsubi.append(key[1])
                    result.matsubj.append(key[2])
                    result.matcof.append(value)
        return result

    def problem(self):
        cones, slots = [], []
        for kind, forms, *dim in self.cones:
            cones.append(Cone(kind, len(slots), len(forms), *dim))
            slots += forms
        n, side = len(self.columns) - 1, lambda pairs, k: array("d", [pair[k] for pair in pairs])
        return Problem(
            self.maximize, *(side([FREE, *self.columns[1:]], k) for k in (0, 1)),
            bytearray(j in self.integer for j in range(n + 1)),
            self.forms([form for form, *_ in self.rows]),
            *(side([row[1:] for row in self.rows], k) for k in (0, 1)), self.forms(slots), cones,
            array("i", [*([-n] if n else []), *self.dims]))


# The known levels and duals are of the columns and of the rows.
MIXED = dict(columns=[(0, 3), (0, inf), (-1, inf)], rows=[
    ({1: 1, 2: 1}, 4, 4), ({2: 1, 3: 1, 0: 1}, 2, 4), ({1: -1, 0: 5}, -inf, 4),
    ({1: 1, 3: 1}, *FREE)])
A = {(0, 0, 0): 2, (0, 1, 0): 1, (0, 1, 1): 2}  # eigenvalues 1 and 3
TRACE = {(0, 0, 0): 1, (0, 1, 1): 1}
CASES = {
    "rows of each kind": Case("min", {1: 1, 2: 2, 3: 3, 0: -10}, value=-7, levels=[2, 2, -1],
                              duals=[1, 1, 0, 0], **MIXED),
    "their maximum": Case("max", {1: 1, 2: 2, 3: 3, 0: -10}, value=1, levels=[3, 1, 2],
                          duals=[-1, 3, 0, 0], **MIXED),
    "bounds of each kind": Case(
        "min", {1: 2, 2: -1, 3: 2, 4: 3, 5: 1, 6: -2}, [(1, inf), (-inf, 2), (-1, 1), (4, 4), FREE,
                                                       (0, 7)],
        [({1: 1, 2: 1, 3: 1, 4: 1, 5: 1}, 0, inf)], value=-10, levels=[1, 2, -1, 4, -6, 7],
        duals=[1]),
    "integers": Case("max", {1: 5, 2: 4, 0: 2}, [(0.5, inf), (0, 2.5)],
                     [({1: 6, 2: 4}, -inf, 24), ({1: 1, 2: 2}, -inf, 6)], integer=(1, 2), value=22,
                     levels=[4, 0]),
    "nothing": Case("max", {0: 3}, [], value=3),
    "a distance": Case("min", {1: 1}, [FREE] * 3, [({2: 1, 3: 1}, -inf, 5)],
                       [("quadratic", [{1: 1}, {2: 1, 0: -3}, {3: 1, 0: -4}])], value=S2,
                       levels=[S2, 2, 3], duals=[-1 / S2]),
    "a rotated cone": Case("max", {1: -1, 2: -1}, [FREE] * 3, [({3: 1}, 2, 2)],
                           [("rotated", [{1: 1}, {2: 1}, {3: 1}])], value=-2 * S2,
                           levels=[S2, S2, 2], duals=[-S2]),
    "least eigenvalue": Case("min", A, [], [(TRACE, 1, 1)], dims=[2], value=1, duals=[1]),
    "greatest eigenvalue": Case("max", {**A, 1: 1}, [(-inf, 2)], [(TRACE, 1, 1)], dims=[2], value=5,
                                levels=[2], duals=[3]),
    "a semidefinite cone": Case("max", {1: 1}, [FREE], cones=[
        ("semidefinite", [{0: 2, 1: -1}, {0: S2}, {0: 2, 1: -1}], 2)], value=1, levels=[1]),
    "all together": Case(
        "min", {1: 1, 2: -1, (0, 0, 0): 1, (0, 1, 1): 1}, [FREE, (-inf, 4)],
        [({2: 1, (0, 1, 0): -1}, 0, 0), ({2: 1}, 1, 3)],
        [("quadratic", [{1: 1}, {2: 1}]), ("quadratic", [{0: 1}])], dims=[2], value=1,
        duals=[-1, 1]),
    "no room in rows": Case("min", {1: 1}, [FREE, FREE], [
        ({1: 1, 2: 1}, 2, inf), ({1: 1, 2: 1}, -inf, 1)], status="infeasible"),
    "no room in bounds": Case("min", {1: 1}, [(2, 1)], [({1: 1}, 0, 5)], status="infeasible"),
    "no whole number": Case("min", {1: 1}, [(0.2, 0.8)], [({1: 1}, 0, 5)], integer=(1,),
                            status="infeasible"),
    "no room in a cone": Case("min", {2: 1}, [(-inf, 1), FREE],
                              cones=[("quadratic", [{1: 1}, {2: 1}, {0: 2}])], status="infeasible"),
    "no room in a row of fixed columns": Case("min", {1: 1}, [(1, 1), (0, 2)], [
        ({1: 1}, 2, 3), ({2: 1}, 0, 1)], status="infeasible"),
    "no end": Case("max", {1: 1}, [(0, inf), (0, inf)], [({1: 1, 2: -1}, -inf, 1)],
                   status="unbounded"),
    "no end beside the rows": Case("max", {1: 1}, [(0, inf), (0, 1)], [({2: 1}, 0, 1)],
                                   status="unbounded"),
    "no end in a cone": Case("max", {1: 1, 2: 1}, [FREE, (0, inf)], [({1: 1}, 1, inf)],
                             [("quadratic", [{1: 1}, {0: 1}])], status="unbounded"),
    "no end of a matrix": Case("max", TRACE, [], [({(0, 1, 0): 1}, 1, 1)], dims=[2],
                               status="unbounded"),
    "neither room nor end": Case("max", {3: 1}, [FREE, FREE, (0, inf)], [
        ({1: 1, 2: 1, 3: -1}, 2, inf), ({1: 1, 2: 1, 3: -1}, -inf, 1)], status="infeasible"),
}


def value(form, case, s):
    """A form at the levels of a solution."""
    def factor(key):
        if not isinstance(key, tuple):
            return 1.0 if key == 0 else s.xx[key]
        return entry(case, s.barx, *key) * (1 if key[1] == key[2] else 2)
    return sum(v * factor(key) for key, v in form.items())


def entry(case, numbers, n, i, j):
    first = sum(d * (d + 1) // 2 for d in case.dims[:n])
    return numbers[first + sum(case.dims[n] - k for k in range(j)) + i - j]


def is_semidefinite(matrix, room):
    """By Cholesky's factorisation of the matrix with a little more on its diagonal."""
    n = len(matrix)
    a = [[matrix[i][j] + (room if i == j else 0.0) for j in range(n)] for i in range(n)]
    for k in range(n):
        if a[k][k] <= 0.0:
            return False
        for i in range(k + 1, n):
            for j in range(k + 1, n):
                a[i][j] -= a[i][k] * a[k][j] / a[k][k]
    return True


class Solvers(unittest.TestCase):
    def runs(self, case):
        """(what, solution) by each solver, form and file that can."""
        problem = case.problem()
        for solver in SOLVERS.values():
            if not solver.takes.issuperset(problem.needs()) or solver.missing():
                continue
            for form in ("auto",) if solver.in_place else ("auto", "standard", "geometric"):
                adapter = solver()
                adapter.load(problem)
                yield "%s, %s" % (solver.name, form), adapter.solve(Options(form=form))
        if problem.needs()[1:] in ([], ["integer"]) and not glpk.Glpk.missing():
            adapter = glpk.Glpk()
            adapter.load(self.written(problem, "mps"))
            s = adapter.solve(Options())
            if s.has_levels:
                self.complete(case, s)
            if problem.maximize and s.has_levels:
                s.objective, s.bound, s.xc[0] = -s.objective, -s.bound, -s.xc[0]
                for duals in (s.slc, s.suc, s.slx, s.sux) if s.has_duals else ():
                    duals[:] = array("d", [-v for v in duals])
            yield "mps", s

    @staticmethod
    def complete(case, s):
        """Files have no offsets of rows, and readers leave out rows without sides."""
        for i, (form, lower, upper) in list(enumerate(case.rows))[1:]:
            if (lower, upper) == FREE:
                s.xc.insert(i, value({**form, 0: 0.0}, case, s))
                for duals in (s.slc, s.suc) if s.has_duals else ():
                    duals.insert(i, 0.0)
            s.xc[i] += form.get(0, 0.0)

    def written(self, problem, suffix):
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "file." + suffix)
            write(problem, path)
            if suffix == "mps":
                return read_mps(path)[1]
            with open(path) as file:
                return SdpaProblem.read(path), file.readline()

    def test_table(self):
        for name, case in CASES.items():
            for what, s in self.runs(case):
                with self.subTest(case=name, by=what):
                    self.assertEqual(s.status, case.status, s.words)
                    self.assertEqual(s.has_levels, case.status == "optimal")
                    if s.has_levels:
                        self.check(case, s)

    def near(self, first, second, what=""):
        self.assertLessEqual(abs(first - second), 2e-5 * max(1.0, abs(second)),
                             "%s: %r is not %r" % (what, first, second))

    def between(self, lower, level, upper):
        self.assertTrue(lower - 1e-5 <= level <= upper + 1e-5, (lower, level, upper))

    def check(self, case, s):
        self.near(s.objective, case.value, "objective")
        self.near(s.bound, case.value, "bound")
        for j, level in enumerate(case.levels or (), 1):
            self.near(s.xx[j], level, "column %d" % j)
        for (lower, upper), level in zip(case.columns[1:], s.xx[1:]):
            self.between(lower, level, upper)
        for i, (form, lower, upper) in enumerate(case.rows):
            self.near(s.xc[i], value(form, case, s), "row %d" % i)
            self.between(lower, s.xc[i], upper)
        self.check_cones(case, s, 1.0, s.accx, s.barx)
        if case.integer:
            self.assertTrue(all(s.xx[j] == round(s.xx[j]) for j in case.integer))
            self.assertFalse(s.has_duals)
            return
        sign = -1.0 if case.maximize else 1.0
        for i, dual in enumerate(case.duals or (), 1):
            self.near(s.slc[i] - s.suc[i], dual, "dual of row %d" % i)
        self.check_cones(case, s, sign, s.accy, s.bars)
        sides = [(*row[1:], *numbers) for row, *numbers in zip(case.rows, s.xc, s.slc, s.suc)]
        sides += [(*pair, *numbers) for pair, *numbers in
                  zip(case.columns[1:], s.xx[1:], s.slx[1:], s.sux[1:])]
        for lower, upper, level, *duals in sides:
            for side, dual in zip((lower, upper), duals):
                self.assertGreaterEqual(sign * dual, 0.0)
                if dual != 0.0:
                    self.near(dual * (level - side), 0.0, "complementary")
        self.check_stationary(case, s)

    def check_cones(self, case, s, sign, slots, entries):
        """Slots and entries, or their duals, are in the cones; the two together make 0."""
        first = 0
        for kind, forms, *dim in case.cones:
            a, b = ([v[k] for k in range(first, first + len(forms))] for v in (slots, s.accx))
            if slots is s.accx:
                for form, level in zip(forms, a):
                    self.near(level, value(form, case, s), "slot")
            else:
                self.near(sum(u * v for u, v in zip(a, b)), 0.0, "complementary slots")
            a, room = [sign * v for v in a], 1e-5
            if kind == "quadratic":
                self.assertLessEqual(hypot(*a[1:]) if len(a) > 1 else 0.0, a[0] + room)
            elif kind == "rotated":
                self.assertLessEqual(sum(v * v for v in a[2:]), 2 * a[0] * a[1] + room)
                self.assertGreaterEqual(min(a[:2]), -room)
            else:
                self.assertTrue(is_semidefinite([[a[0], a[1] / S2], [a[1] / S2, a[2]]], room))
            first += len(forms)
        for n, d in enumerate(case.dims):
            matrix = [[sign * entry(case, entries, n, max(i, j), min(i, j)) for j in range(d)]
                      for i in range(d)]
            self.assertTrue(is_semidefinite(matrix, 1e-5), matrix)
            product = sum(matrix[i][j] * entry(case, s.barx, n, max(i, j), min(i, j))
                          for i, j in itertools.product(range(d), repeat=2))
            if entries is not s.barx:
                self.near(product, 0.0, "complementary matrices")

    def check_stationary(self, case, s):
        """The gradient of the objective is the sum of dual times gradient."""
        keys = [*range(1, len(case.columns)), *((n, i, j) for n, d in enumerate(case.dims)
                                                for i in range(d) for j in range(i + 1))]
        slots = [form for _, forms, *_ in case.cones for form in forms]
        for key in keys:
            total = s.slx[key] - s.sux[key] if isinstance(key, int) else entry(case, s.bars, *key)
            total += sum((l - u) * form.get(key, 0.0) for (form, *_), l, u in
                         zip(case.rows, s.slc, s.suc))
            total += sum(dual * form.get(key, 0.0) for form, dual in zip(slots, s.accy))
            self.near(total, case.rows[0][0].get(key, 0.0), "stationary at %s" % (key,))

    @unittest.skipIf(csdp.Csdp.missing(), "CSDP is missing")
    def test_files_of_matrices(self):
        for name, case in CASES.items():
            if case.status == "optimal" and not case.integer:
                with self.subTest(case=name):
                    problem, head = self.written(case.problem(), "dat-s")
                    factor, constant = map(float, re.findall(r"[-+.\de]*\d", head))
                    found = csdp.solve_blocks(problem, Options())
                    self.near(factor * problem.objective(found.X) + constant, case.value)

    def test_choice(self):
        self.assertEqual([choose(needs).name for needs in (["linear"], ["linear", "integer"])],
                         ["glpk", "glpk"])
        for text, *arguments in (
            ("no solver takes integer and quadratic together", ["integer", "quadratic"]),
            ("glpk doesn't take semidefinite models; csdp and cvxopt would", ["semidefinite"],
             "glpk"),
            ("nor does any other", ["semidefinite", "integer"], "csdp"),
        ):
            self.assertRaisesRegex(SolverError, text, choose, *arguments)
        self.assertRaisesRegex(ValueError, "no solver 'x'", choose, ["linear"], "x")
        for wrong in (dict(time_limit=-1), dict(start="cold"), dict(form="dual")):
            self.assertRaises(ValueError, Options, **wrong)
        with unittest.mock.patch.object(csdp, "PROGRAM", "csdp-of-nowhere"):
            self.assertRaisesRegex(SolverError, "csdp-of-nowhere.*apt-get", choose, ["linear"],
                                   "csdp")

    def test_files_refused(self):
        conic, integer = CASES["a distance"].problem(), CASES["integers"].problem()
        for text, problem, name in (("cones", conic, "a.mps"), ("integer", integer, "a.dat-s"),
                                    (r"\*.mps and \*.dat-s", integer, "a.txt")):
            with self.assertRaisesRegex(ValueError, text):
                write(problem, os.path.join("/nowhere", name))

    def test_limits_and_interruptions(self):
        """A solver that was stopped has its problem still, and solves it."""
        def interrupt(line):
            if " form: " not in line:  # which comes before the solver's own
                raise KeyboardInterrupt
        for name, case in (("glpk", "rows of each kind"), ("csdp", "a distance"),
                           ("cvxopt", "a distance")):
            if SOLVERS[name].missing():
                continue
            with self.subTest(solver=name):
                adapter = SOLVERS[name]()
                adapter.load(CASES[case].problem())
                with self.assertRaises(KeyboardInterrupt):
                    adapter.solve(Options(log=interrupt))
                if name != "glpk":  # which may come to an end before
                    self.assertEqual(adapter.solve(Options(time_limit=0.0)).status, "limit")
                lines = []
                s = adapter.solve(Options(log=lines.append))
                self.check(CASES[case], s)
                self.assertTrue(lines and not any("\n" in line for line in lines))


@unittest.skipIf(glpk.Glpk.missing(), "GLPK is missing")
class InPlace(unittest.TestCase):
    def test_changes(self):
        """What was changed again and again is solved like one that is loaded as it is."""
        for seed in range(6):
            rng, columns, rows = random.Random(seed), [], []
            adapter, number = glpk.Glpk(), lambda: rng.choice([-2.0, -1.0, 0.5, 1.0, 3.0])
            objective = {0: 1.0}
            adapter.load(Case("min", objective, []).problem())
            for step in range(12):
                n, m = len(columns), len(rows)
                new = [(-float(rng.randrange(3)), float(rng.randrange(1, 4)))
                       for _ in range(rng.randrange(3))]
                columns += new
                adapter.add_columns([l for l, _ in new], [u for _, u in new],
                                    [seed % 2] * len(new))
                for j in range(n + 1, len(columns) + 1):
                    objective[j] = number()
                adapter.set_objective(list(objective), list(objective.values()))
                rows.append(({0: number(), **{j: number() for j in range(1, len(columns) + 1)
                                              if rng.random() < 0.6}}, -5.0, 4.0))
                adapter.add_rows([-5.0], [4.0], [rows[m][0][0]])
                changed = {m, rng.randrange(m + 1)}
                for i in sorted(changed):
                    form, lower, upper = rows[i]
                    form[0] += 0.5
                    adapter.set_row_bounds([i + 1], [lower], [upper], [form[0]])
                    terms = sorted((j, v) for j, v in form.items() if j > 0)
                    adapter.set_rows([i + 1], [0], [len(terms)], array("i", [j for j, _ in terms]),
                                     array("d", [v for _, v in terms]))
                if step % 4 == 3:  # one goes
                    i = rng.randrange(m + 1)
                    rows[i] = {0: 0.0}, *FREE
                    adapter.set_rows([i + 1], [0], [0], array("i"), array("d"))
                    adapter.set_row_bounds([i + 1], [-inf], [inf], [0.0])
                case = Case("max" if step % 3 else "min", objective, columns, rows,
                            integer=range(1, len(columns) + 1) if seed % 2 else ())
                adapter.maximize = case.maximize
                other = glpk.Glpk()
                other.load(case.problem())
                found, fresh = adapter.solve(Options(start="basis")), other.solve(Options())
                self.assertEqual(found.status, fresh.status)
                if found.has_levels:
                    self.assertAlmostEqual(found.objective, fresh.objective)
                    for i, (form, *_) in enumerate(rows, 1):
                        self.assertAlmostEqual(found.xc[i], value(form, case, found))

    def test_numbers_that_end_the_library(self):
        good, hopeless = CASES["rows of each kind"].problem(), CASES["rows of each kind"].problem()
        for number in (1e-200, -1e308, inf, float("nan")):
            hopeless.rows.cof[6] = number
            with self.assertRaisesRegex(SolverError, "column 1 in row 1: .* is not a number"):
                glpk.Glpk().load(hopeless)
        adapter = glpk.Glpk()
        adapter.load(good)
        for text, change, *arguments in (
            ("column 2 in row 3", adapter.set_rows, [3], [0], [1], array("i", [2]),
             array("d", [1e-200])),
            ("the constant|column 0", adapter.set_objective, [0], [inf]),
            ("bound of row 2", adapter.set_row_bounds, [2], [1e200], [inf]),
            ("bound of column 3", adapter.set_column_bounds, [3], [inf], [inf]),
            ("bound of row 5", adapter.add_rows, [0.0], [-inf], [1.0]),
            ("bound of column 4", adapter.add_columns, [-1e-300], [inf], [0]),
        ):
            self.assertRaisesRegex(SolverError, text, change, *arguments)
        s = adapter.solve(Options())
        self.assertEqual((s.objective, len(s.xc), len(s.xx)), (-7, 5, 4))
        self.assertRaisesRegex(SolverError, "has to be loaded", glpk.Glpk().solve, Options())
        self.assertRaisesRegex(TypeError, "can't be copied", copy.copy, adapter)

    def test_a_library_that_stops(self):
        """Its callers get an error, also those whose problem was lost with it, and can go on."""
        adapter = glpk.Glpk()
        adapter.load(CASES["rows of each kind"].problem())
        with self.assertRaisesRegex(SolverError, "GLPK stopped .*rows? number"):
            glpk_library.thread().call(adapter._native.lib.set_row_bnds, adapter._native.handle, 9,
                                       *map(glpk_library.ctypes.c_int, (1, 0, 0)))
        self.assertFalse(adapter.loaded)
        self.assertRaisesRegex(SolverError, "loaded again", adapter.solve, Options())
        adapter.load(CASES["rows of each kind"].problem())
        self.assertAlmostEqual(adapter.solve(Options()).objective, -7)


if __name__ == "__main__":
    unittest.main()
