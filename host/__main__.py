"""python -m host FILE.mps [--parameter P] [--maximize]

Solves the linear problem in an MPS file on two roads and compares them. On the first, the host
builds the model through the closures and GLPK solves it; on the other, GLPK solves what it read
from the file. Both are done for p = 1, the problem as it is, and for p = P: the constant side of
every row, that is both its bounds, is multiplied by p. On the first road only the parameter code
runs for that, and nothing is built again.

Problems often have several optimal bases. Both roads give the solver the same rows and columns in
the same order and the same steps to take: scaling, an advanced basis, the primal simplex method
without a presolver, and the second time the basis of the first. So levels and duals agree, and not
the objective alone; what is compared is the work of the closures, not of two solvers. The linear
relaxation is solved where columns are integer.

The time in the host takes in handing the model to GLPK and taking the solution from it, row by row
and column by column; the time in the solver is that of solving alone. Reading the file is in
neither, and the second road is not in the account.

While this takes its time, standard error tells the step that it is in, if that is a terminal.

Exit status: 0; 1 if the roads differ by more than 1e-6, relative; 2, with one line on standard
error, if there is nothing to compare: the file can't be read, its problem has no solution, the
parameter is not a finite number, GLPK or the module is missing.
"""

import argparse
import math
import sys
import time
from dataclasses import dataclass, field

from .closures import closure, load
from .glpk import Problem, SolverError
from .linear import Reference, build
from .progress import progress

TOLERANCE = 1e-6


class UsageError(Exception):
    """Arguments that can't be used; the text is one line for the user."""


class Parser(argparse.ArgumentParser):
    def error(self, message):
        raise UsageError("%s (usage: python -m host FILE.mps [--parameter P] [--maximize])"
                         % message)


def finite(text):
    try:
        value = float(text)
    except ValueError:
        value = math.nan
    if not math.isfinite(value):
        raise argparse.ArgumentTypeError("%r is not a finite number" % text)
    return value


@dataclass
class Outcome:
    """What one road came to; the arrays are levels and duals of all columns and rows."""

    status: str
    objective: float = math.nan
    levels: list = field(default_factory=list)
    duals: list = field(default_factory=list)


@dataclass
class Cost:
    """Closures called, and seconds in them, in the solver and in all."""

    calls: int
    closures: float
    solver: float
    total: float

    @property
    def host(self):
        return self.total - self.closures - self.solver

    def __sub__(self, other):
        return Cost(self.calls - other.calls, self.closures - other.closures,
                    self.solver - other.solver, self.total - other.total)


class OurRoad:
    """The problem built through the closures when it is first solved."""

    def __init__(self, problem):
        self._problem, self._native, self._built = problem, Problem(), None

    def cost(self):
        return Cost(closure.calls, closure.seconds, self._native.seconds, time.perf_counter())

    def solve(self, p):
        """Outcome and cost."""
        if self._built is None:
            progress("building the model ...")
        start = self.cost()
        if self._built is None:
            self._built = build(self._problem, self._native)
        progress("solving for p = %g ..." % p)
        built, model = self._built, self._built.model
        built.scale.value = p
        outcome = Outcome(model.solve())
        if outcome.status == "optimal":
            outcome.objective = model.objective()
            outcome.levels = model.levels(built.x) + model.row_levels(built.rows)
            outcome.duals = model.duals(built.x) + model.row_duals(built.rows)
        return outcome, self.cost() - start


def direct(reference, p):
    """Outcome of GLPK alone."""
    progress("solving for p = %g again, by GLPK alone ..." % p)
    outcome = Outcome(reference.solve(p))
    if outcome.status == "optimal":
        s = reference.problem.solution()
        combined = lambda lower, upper: [l - u for l, u in zip(lower, upper)]
        outcome.objective = s.objective
        outcome.levels = s.xx[1:] + s.xc[1:]
        outcome.duals = combined(s.slx[1:], s.sux[1:]) + combined(s.slc[1:], s.suc[1:])
    return outcome


def largest_difference(ours, theirs):
    """The largest difference of two lists, relative where the numbers are above 1."""
    differences = [abs(a - b) / max(1.0, abs(a), abs(b)) for a, b in zip(ours, theirs)]
    return max((math.inf if math.isnan(d) else d for d in differences), default=0.0)


class Comparison:
    """Both roads for one value of p. They agree if they come to the same numbers, or if neither
    finds a solution, for the same reason."""

    def __init__(self, p, ours, theirs, cost):
        self.p, self.ours, self.theirs, self.cost = p, ours, theirs, cost
        self.solved = ours.status == theirs.status == "optimal"
        self.level_difference = largest_difference(ours.levels, theirs.levels)
        self.dual_difference = largest_difference(ours.duals, theirs.duals)
        self.agrees = ours.status == theirs.status and (not self.solved or max(
            largest_difference([ours.objective], [theirs.objective]),
            self.level_difference, self.dual_difference) <= TOLERANCE)


def milliseconds(seconds):
    return "%.3f ms" % (1e3 * seconds)


def table(path, problem, comparisons):
    """The text that a person reads."""
    number = lambda outcome: outcome.status if math.isnan(outcome.objective) else (
        "%.9g" % outcome.objective)
    difference = lambda c, value: "%.1e" % value if c.solved else "-"
    rows = [
        ("", lambda c: "p = %g" % c.p),
        ("closures called", lambda c: str(c.cost.calls)),
        ("time in closures", lambda c: milliseconds(c.cost.closures)),
        ("time in the host", lambda c: milliseconds(c.cost.host)),
        ("time in the solver", lambda c: milliseconds(c.cost.solver)),
        ("objective by closures", lambda c: number(c.ours)),
        ("objective by GLPK alone", lambda c: number(c.theirs)),
        ("largest difference of levels", lambda c: difference(c, c.level_difference)),
        ("largest difference of duals", lambda c: difference(c, c.dual_difference)),
    ]
    count = lambda n, what: "%d %s%s" % (n, what, "" if n == 1 else "s")
    lines = [
        "problem   %s (%s)" % (problem.name or "without a name", path),
        "size      " + ", ".join((count(problem.rows, "row"), count(problem.columns, "column"),
                                  count(problem.nonzeros, "nonzero"))),
    ]
    if problem.integers:
        lines.append("          %s taken as continuous: this is the linear relaxation"
                     % count(problem.integers, "integer column"))
    lines.append("")
    for label, cell in rows:
        lines.append("%-30s" % label + "".join("%18s" % cell(c) for c in comparisons))
    return "\n".join(lines)


def run(arguments):
    """The exit status; errors for the user are raised."""
    parser = Parser(prog="python -m host", allow_abbrev=False, description="Solves a "
                    "linear problem through the closures and by GLPK alone, and compares the two.")
    parser.add_argument("file", metavar="FILE.mps", help="an MPS file, fixed or free")
    parser.add_argument("--parameter", metavar="P", type=finite, default=1.1,
                        help="second factor of the constant sides of all rows (default: 1.1)")
    parser.add_argument("--maximize", action="store_true",
                        help="maximize the objective; MPS files don't tell")
    arguments = list(sys.argv[1:] if arguments is None else arguments)
    if "--parameter" in arguments[:-1]:
        # As one word, or the parser takes a negative number such as -1e-3 for an option.
        k = arguments.index("--parameter")
        arguments[k : k + 2] = ["=".join(arguments[k : k + 2])]
    options = parser.parse_args(arguments)
    load()
    progress("reading the file ...")
    problem = Problem.read(options.file)
    problem.maximize = options.maximize
    road, reference = OurRoad(problem), Reference(problem)

    comparisons = []
    for p in (1.0, options.parameter):
        ours, cost = road.solve(p)
        comparisons.append(Comparison(p, ours, direct(reference, p), cost))
        if ours.status != "optimal" and p == 1.0 and comparisons[0].agrees:
            raise SolverError("%s has no solution: the linear problem is %s"
                              % (options.file, ours.status))
    progress.clear()
    print(table(options.file, problem, comparisons), flush=True)
    if not all(c.agrees for c in comparisons):
        print("host: the two roads don't agree within %g" % TOLERANCE, file=sys.stderr)
        return 1
    return 0


def main(arguments=None):
    try:
        return run(arguments)
    except OSError as error:
        text = "%s: %s" % (error.filename, error.strerror) if error.filename else str(error)
    except (UsageError, SolverError, ImportError, OverflowError, MemoryError) as error:
        text = str(error) or type(error).__name__
    finally:
        progress.clear()
    print("host: " + " ".join(text.split()), file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.stdout.reconfigure(errors="backslashreplace")  # for names of any bytes
    sys.exit(main())
