"""python -m host FILE.mps [--parameter P | --matrix-parameters] [--maximize]
python -m host FILE.dat-s [--parameter P]

Solves the linear problem in an MPS file, or the semidefinite one in a file of SDPA's sparse format,
on two roads and compares them. On the first, the host builds the model through the closures and the
native solver (GLPK, CSDP) solves it; on the other, that solver solves what stands in the file. Both
are done for p = 1, the problem as it is, and for p = P: the constant side of every row or
constraint is multiplied by p. On the first road only the parameter code runs for that, and nothing
is built again.

With --matrix-parameters each nonzero of the constraint matrix is a parameter of its own. Both roads
are done for the matrix as it is, and for one with each nonzero times a random factor between 0.9
and 1.1, the same ones in each run.

The time in the host takes in handing the model to the solver; the time in the solver is that of
solving and of taking the solution from it. Reading the file is in neither, and the second road is
not in the account. While all this takes its time, standard error tells the step that it is in, if
that is a terminal.

Exit status: 0; 1 if the roads differ by more than 1e-6, relative (1e-4 for matrices and their
duals); 2, with one line on standard error, if there is nothing to compare: the file can't be read,
its problem has no solution, the parameter is not a finite number, the solver or the module is
missing.
"""

import argparse
import math
import os
import sys
from typing import NoReturn, Optional, Sequence

from .closures import load
from .demo.comparison import Roads
from .demo.linear import LinearRoads, MatrixRoads
from .demo.progress import progress
from .demo.semidefinite import SemidefiniteRoads
from .formats.sdpa import FormatError
from .solvers import SolverError

SDPA, MPS = ".dat-s", (".mps", ".mps.gz")


class UsageError(Exception):
    """Arguments that can't be used; the text is one line for the user."""


class Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        raise UsageError("%s (usage: python -m host FILE [--parameter P | --matrix-parameters] "
                         "[--maximize])" % message)


def finite(text: str) -> float:
    try:
        value = float(text)
    except ValueError:
        value = math.nan
    if not math.isfinite(value):
        raise argparse.ArgumentTypeError("%r is not a finite number" % text)
    return value


def roads(options: argparse.Namespace) -> Roads:
    """The Roads of the file, by its name."""
    name = os.path.basename(options.file).lower()
    if "." in name and not name.endswith((SDPA, *MPS)):
        raise UsageError("%s is neither an MPS file (.mps, .mps.gz or without a suffix) nor one in "
                         "SDPA's sparse format (.dat-s)" % options.file)
    if name.endswith(SDPA):
        if options.maximize:
            raise UsageError("--maximize is for MPS files: SDPA's format tells what to maximize")
        if options.matrix_parameters:
            raise UsageError("--matrix-parameters is for MPS files")
        return SemidefiniteRoads(options.file)
    kind = MatrixRoads if options.matrix_parameters else LinearRoads
    return kind(options.file, options.maximize)


def run(arguments: Optional[Sequence[str]]) -> int:
    """The exit status; errors for the user are raised."""
    parser = Parser(prog="python -m host", allow_abbrev=False, description="Solves a "
                    "problem through the closures and by its solver alone, and compares the two.")
    parser.add_argument("file", metavar="FILE",
                        help="an MPS file, fixed or free, or one of SDPA's format: FILE.dat-s")
    parameters = parser.add_mutually_exclusive_group()
    parameters.add_argument("--parameter", metavar="P", type=finite, default=1.1,
                            help="second factor of the constants of all rows (default: 1.1)")
    parameters.add_argument("--matrix-parameters", action="store_true",
                            help="a parameter for each nonzero of the matrix instead")
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
    both = roads(options)

    comparisons = []
    for p in both.steps(options.parameter):
        comparison = both.compare(p)
        comparisons.append(comparison)
        if comparison.ours.status != "optimal" and len(comparisons) == 1 and comparison.agrees:
            raise SolverError("%s has no solution: %s"
                              % (options.file, both.why_unsolved(comparison.ours)))
    progress.clear()
    print(both.table(comparisons), flush=True)
    if not all(c.agrees for c in comparisons):
        t = both.tolerances
        print("host: the two roads don't agree within %g (objective) and %g"
              % (t.objective, t.others), file=sys.stderr)
        return 1
    return 0


def main(arguments: Optional[Sequence[str]] = None) -> int:
    try:
        return run(arguments)
    except OSError as error:
        text = "%s: %s" % (error.filename, error.strerror) if error.filename else str(error)
    except (UsageError, FormatError, SolverError, ImportError, OverflowError, MemoryError) as error:
        text = str(error) or type(error).__name__
    finally:
        progress.clear()
    print("host: " + " ".join(text.split()), file=sys.stderr)
    return 2


if __name__ == "__main__":
    # Names may have any bytes.
    sys.stdout.reconfigure(errors="backslashreplace")  # type: ignore[attr-defined]
    sys.exit(main())
