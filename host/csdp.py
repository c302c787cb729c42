"""CSDP as the native solver of semidefinite problems: a thin adapter to its program.

The program takes a problem in SDPA's sparse format and leaves its solution in a file.
"""

import os
import re
import shutil
import subprocess
import tempfile
import time
from array import array
from dataclasses import dataclass
from typing import List

from .glpk import SolverError
from .stacks import zeros

PROGRAM = "csdp"
SOLVED, PRIMAL_INFEASIBLE, DUAL_INFEASIBLE, REDUCED_ACCURACY = range(4)  # exit statuses


@dataclass
class CsdpSolution:
    """`X` and `Z` have an array (f64) for each block: a matrix row by row, or the diagonal of a
    diagonal block. `y` (f64) are the duals of the constraints. `objective` is that of X."""

    objective: float
    dual_objective: float
    y: array
    X: List[array]
    Z: List[array]
    seconds: float


def solve_file(path, blocks):
    """Solves the problem in the file at `path`, whose blocks have these dimensions, diagonal ones
    negative.

    Raises SolverError if the program is missing or finds no optimum, with its own word for that.
    """
    program = shutil.which(PROGRAM)
    if program is None:
        raise SolverError("CSDP is missing: there is no program %s; on Debian: apt-get install "
                          "coinor-csdp" % PROGRAM)
    path = os.path.abspath(path)
    # It looks for a parameter file where it runs.
    with tempfile.TemporaryDirectory() as directory:
        start = time.perf_counter()
        run = subprocess.run([program, path, "solution"], cwd=directory, stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
                             encoding="ascii", errors="replace")
        seconds = time.perf_counter() - start
        if run.returncode not in (SOLVED, REDUCED_ACCURACY):
            raise SolverError("CSDP found no optimum: %s" % verdict(run.stdout))
        with open(os.path.join(directory, "solution"), encoding="ascii") as file:
            y = array("d", map(float, file.readline().split()))
            Z, X = read_matrices(file, blocks)
    objectives = (float(re.search(kind + r" objective value: (\S+)", run.stdout)[1])
                  for kind in ("Primal", "Dual"))
    return CsdpSolution(*objectives, y, X, Z, seconds)


def solve(problem):
    """The same for an SdpaProblem."""
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "problem.dat-s")
        with open(path, "w", encoding="ascii") as file:
            problem.write(file)
        return solve_file(path, problem.blocks)


def verdict(output):
    """What the program said of its end."""
    lines = [line for line in output.splitlines() if line.strip()]
    words = [line for line in lines if re.match(r"(Success|Failure|Partial Success|Stuck)", line)]
    return (words or lines or ["nothing"])[-1].strip()


def read_matrices(file, blocks):
    """The two block matrices of a solution; an entry stands for both of its places."""
    matrices = tuple([zeros("f64", n * n if n > 0 else -n) for n in blocks] for _ in range(2))
    for line in file:
        kind, b, i, j, value = line.split()
        n, target = blocks[int(b) - 1], matrices[int(kind) - 1][int(b) - 1]
        i, j = int(i) - 1, int(j) - 1
        if n < 0:
            target[i] = float(value)
        else:
            target[n * i + j] = target[n * j + i] = float(value)
    return matrices
