"""The demo command on tiny problems: what it prints, what it refuses, which steps it shows."""

import math
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from host.solvers.glpk import Glpk

needs_glpk = unittest.skipIf(Glpk.missing(), Glpk.missing())
needs_csdp = unittest.skipUnless(shutil.which("csdp"), "CSDP is missing")


class DemoCase(unittest.TestCase):
    """Runs the command `python -m host` on texts, each as the file `file_name`."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.path = os.path.join(directory.name, self.file_name)

    def run_host(self, *arguments, change=None, **environment):
        """Status, output and errors of the command, or of one where Python text changed things."""
        command = ["-m", "host"] if change is None else [
            "-c", change + "\nfrom host.__main__ import main\nsys.exit(main())"]
        result = subprocess.run([sys.executable, *command, *arguments], universal_newlines=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                env={**os.environ, **environment})
        return result.returncode, result.stdout, result.stderr

    def solve(self, text, *arguments, **how):
        with open(self.path, "w") as file:
            file.write(text)
        return self.run_host(self.path, *arguments, **how)

    def row(self, output, label):
        (line,) = (line for line in output.splitlines() if line.startswith(label))
        return line[len(label) :].split()

    def assert_refused(self, expected, answer):
        """Status 2 and one line on standard error, which says what is expected."""
        status, output, errors = answer
        self.assertEqual((status, output), (2, ""))
        self.assertRegex(errors, r"\Ahost: .*%s.*\n\Z" % re.escape(expected))


# min x + 2 y + 3 z - 10 with x + y = 4, 1 <= y + z <= 3, -x <= -1, a free row, x <= 3, z >= -1.
# With the first four sides times p and x = 4 p - y that is min 4 p + y + 3 z - 10, so from p = 1 on
# z = -1 and y = p + 1.
MIXED = """\
NAME MIXED
ROWS
 N COST
 E SUM
 G RANGE
 L NEG
 N WATCH
COLUMNS
 X COST 1 SUM 1
 X NEG -1 WATCH 1
 Y COST 2 SUM 1
 Y RANGE 1
 Z COST 3 RANGE 1
 Z WATCH 1
RHS
 B COST -10 SUM 4
 B RANGE 1 NEG -1
RANGES
 R RANGE 2
BOUNDS
 UP BND X 3
 LO BND Z -1
ENDATA
"""
# max 2 x with 2 x <= 1; an integer column without bounds is binary.
FIXED_FORMAT = """\
NAME          TINY
ROWS
 N  COST
 L  LIM 1
COLUMNS
    MARK1     'MARKER'                 'INTORG'
    X 1       COST             -2.0    LIM 1            2.0
    MARK2     'MARKER'                 'INTEND'
RHS
    RHS       LIM 1             1.0
ENDATA
"""


def lp(columns, rhs="", rows=" G LOW\n L HIGH\n", end=""):
    return "NAME T\nROWS\n N COST\n%sCOLUMNS\n%s\nRHS\n%s%sENDATA\n" % (
        rows, columns, rhs + "\n" if rhs else "", end)


@needs_glpk
class Linear(DemoCase):
    file_name = "model.mps"

    def test_objectives(self):
        empty = lp(" X LOW 1 HIGH 1", " B LOW 1 HIGH 5")
        negative = lp(" X COST 1 LOW 1", " B LOW -3", end="BOUNDS\n FR BND X\n")
        no_rows = lp(" X COST -1", rows="", end="BOUNDS\n UP BND X 4\n")
        both_sides = lp(" X COST 1 LOW 1", " B LOW 2", end="RANGES\n R LOW 0\n")
        for text, arguments, objectives in (
            (MIXED, [], [-7, -6.5]),
            (MIXED, ["--maximize"], [1, 1.5]),  # z = 3 p - y and y = 4 p - 3
            (MIXED, ["--parameter", "0"], [-7, -10]),
            (MIXED, ["--parameter", "-1"], [-7, "infeasible"]),
            (FIXED_FORMAT, ["--parameter", "2"], [-1, -2]),
            (empty, [], [0, 0]),
            (empty, ["--maximize"], [0, 0]),
            (negative, ["--parameter", "-2e0"], [-3, 6]),
            (no_rows, [], [-4, -4]),
            (both_sides, ["--parameter", "3"], [2, 6]),
        ):
            with self.subTest(text=text, arguments=arguments):
                status, output, errors = self.solve(text, *arguments)
                self.assertEqual((status, errors), (0, ""))
                for road in ("objective by closures", "objective by GLPK alone"):
                    found = [v if v.isalpha() else float(v) for v in self.row(output, road)]
                    for value, expected in zip(found, objectives):
                        self.assertAlmostEqual(value, expected)
                for numbers in ("levels", "duals"):
                    for value in self.row(output, "largest difference of " + numbers):
                        self.assertTrue(value == "-" or float(value) <= 1e-6)
        self.assertIn("1 integer column taken", self.solve(FIXED_FORMAT)[1])

    def test_roads_that_differ(self):
        change = ("import sys, host.demo.linear as l\nchange = l.LinearRoads.change\n"
                  "l.LinearRoads.change = lambda self, p: change(self, p * %s)")
        for factor, status in (("1.0000000001", 0), ("1.0001", 1), ("-1.0", 1)):
            found, output, errors = self.solve(MIXED, change=change % factor)
            self.assertEqual((found, errors.count("\n")), (status, status), output)

    def test_bad_input(self):
        infeasible = lp(" X LOW 1 HIGH 1", " B LOW 2 HIGH 1")
        hopeless = lp(" X COST 1 HIGH 1e308")
        no_module = "import sys, host.closures as c\nc.BUILDS = ()\nsys.modules['fragments'] = None"
        other = os.path.join(os.path.dirname(self.path), "fragments.cpython-27.so")
        open(other, "w").close()
        wrong_module = no_module.replace("()", "(%r,)" % os.path.dirname(other))
        no_glpk = "import sys, host.solvers.glpk_library as g\ng.LIBRARY = 'libnone.so.1'"
        for expected, answer in (
            ("required: FILE", self.run_host()),
            ("No such file", self.run_host(self.path)),
            ("problem.lp is neither an MPS file", self.run_host("problem.lp")),
            ("directory", self.run_host(os.path.dirname(self.path))),
            ("not an MPS file: line 1", self.solve("hello\n")),
            ("not an MPS file: line 1", self.solve("")),
            ("not an MPS file: line 11", self.solve(MIXED.replace("Y COST 2", "Y COST two"))),
            ("infeasible", self.solve(infeasible)),
            ("unbounded", self.solve(lp(" X COST 1 LOW 1"), "--maximize")),
            ("GLPK", self.solve(hopeless)),
            ("'x' is not a finite number", self.solve(MIXED, "--parameter", "x")),
            ("finite", self.solve(MIXED, "--parameter", "nan")),
            ("finite", self.solve(MIXED, "--parameter", "1e999")),
            ("not finite", self.solve(lp(" X COST 1 LOW 1", " B LOW 4e9"), "--parameter", "1e300")),
            ("unrecognized", self.solve(MIXED, "--param-eter", "1")),
            ("module fragments", self.solve(MIXED, change=no_module)),
            ("27.so is for another", self.solve(MIXED, change=wrong_module)),
            ("libnone.so.1", self.solve(MIXED, change=no_glpk)),
        ):
            with self.subTest(expected=expected):
                self.assert_refused(expected, answer)

    def test_matrix_of_parameters(self):
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


@needs_glpk
class Steps(unittest.TestCase):
    def test_steps_on_a_terminal(self):
        steps = ["reading", "building", "solving", "alone"]
        for text, status, expected, left in ((MIXED, 0, steps, r"\A *\Z"),
                                             ("nothing", 2, steps[:1], r"\Ahost: .*MPS file")):
            with tempfile.NamedTemporaryFile("w") as model:
                print(text, file=model, flush=True)
                terminal, standard_error = os.openpty()
                found = subprocess.call([sys.executable, "-m", "host", model.name],
                                        stdout=subprocess.DEVNULL, stderr=standard_error)
                os.close(standard_error)
                shown = os.read(terminal, 65536).decode().replace("\r\n", "\n")
                os.close(terminal)
            self.assertEqual((found, [s for s in steps if s in shown]), (status, expected))
            screen = ""
            for part in shown.split("\r"):
                screen = part + screen[len(part) :]
            self.assertRegex(screen, left)


# The largest eigenvalue of [[2, 1], [1, 2]], with a diagonal block for what the trace leaves.
EIGENVALUE = """\
"a comment
* another
1 = number of constraints
2 = number of blocks
{2, -1}
(1.0)
0 1 1 1 2.0
0 1 1 2 1.0
0 1 2 2 2
1 1 1 1 1
1 1 2 2 1.0
1 2 1 1 1
"""


def sdpa(constraints, blocks, c, *entries):
    return "\n".join((str(constraints), str(len(blocks)), " ".join(map(str, blocks)), c,
                      *entries)) + "\n"


def pentagon():
    """Lovasz' theta number of the cycle of five nodes: the square root of 5."""
    ones = ["0 1 %d %d 1" % (i, j) for i in range(1, 6) for j in range(i, 6)]
    trace = ["1 1 %d %d 1" % (i, i) for i in range(1, 6)]
    edges = ["%d 1 %d %d 1" % (k + 2, *sorted((k % 5 + 1, (k + 1) % 5 + 1))) for k in range(5)]
    return sdpa(6, [5], "1 0 0 0 0 0", *ones, *trace, *edges)


@needs_csdp
class Semidefinite(DemoCase):
    file_name = "model.dat-s"

    def test_objectives(self):
        for text, p, objectives in ((EIGENVALUE, "2", (3, 6)),
                                    (pentagon(), "0.5", (math.sqrt(5), math.sqrt(5) / 2))):
            with self.subTest(text=text):
                status, output, errors = self.solve(text, "--parameter", p)
                self.assertEqual((status, errors), (0, ""))
                for road in ("objective by closures", "objective by CSDP alone"):
                    for found, expected in zip(self.row(output, road), objectives):
                        self.assertAlmostEqual(float(found), expected, places=6)
                for kind in ("matrices", "duals"):
                    for value in self.row(output, "largest difference of " + kind):
                        self.assertLessEqual(float(value), 1e-7)

    def test_roads_that_differ(self):
        change = ("import sys, host.formats.sdpa as s\n"
                  "s.SdpaProblem.objective = lambda self, X: 3.0001")
        self.assertEqual(self.solve(EIGENVALUE, change=change)[0], 1)

    def test_bad_input(self):
        infeasible = sdpa(2, [2], "1 2", "1 1 1 1 1", "2 1 1 1 1")
        for expected, answer in (
            ("No such file", self.run_host(self.path)),
            ("line 1: 'hello' stands where", self.solve("hello\n")),
            ("line 5: the entry (1, 3) lies outside of block 1",
             self.solve(sdpa(1, [2], "1", "1 1 1 3 1"))),
            ("the semidefinite problem is infeasible (", self.solve(infeasible)),
            ("--maximize", self.solve(EIGENVALUE, "--maximize")),
            ("no program csdp", self.solve(EIGENVALUE, PATH="/nowhere")),
        ):
            with self.subTest(expected=expected):
                self.assert_refused(expected, answer)

if __name__ == "__main__":
    unittest.main()
