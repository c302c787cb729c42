"""CSDP as a solver of conic problems: a thin adapter to its program.

The program takes a problem in SDPA's sparse format and leaves its solution in a file. Its X is the
z of a pair (see forms) and its Z the slacks, block by block: a linear cone is a diagonal block, a
semidefinite one itself. Of a quadratic cone the slacks s are the arrow matrix with s[0] on the
diagonal and the others in the first row, which is semidefinite where s is in the cone; to its inner
product with X belong z[0] = trace X and z[i] = 2 X[0, i].

So what stands in such a file comes back from a model in its standard form as it was: block by
block, and entry by entry if the file lists them in ascending order. On that depends where the
program ends if several X or several duals are optimal.
"""

from __future__ import annotations

import io
import math
import os
import re
import selectors
import shutil
import subprocess
import tempfile
import time
from array import array
from dataclasses import dataclass
from typing import IO, Dict, Iterator, List, Optional, Sequence, Tuple

from ..data.buffers import zeros
from ..formats.sdpa import SdpaProblem
from .adapter import Adapter, Options, SolverError
from .forms import Standard, solve
from .pair import FIRST, LINEAR, SECOND, Found, Pair
from .problem import (INACCURATE, LIMIT, OFF_DIAGONAL, OPTIMAL, QUADRATIC, Problem, Solution,
                      triangle)
from .reduction import Reduced

PROGRAM = "csdp"
# By exit status. Its primal problem is the second one of a pair.
STATUSES = {0: OPTIMAL, 1: SECOND, 2: FIRST, 3: INACCURATE}
OF_THE_END = re.compile(r"Success|Partial Success|Failure|Stuck|Lack of progress|Factorization|"
                        r"Too many|. was singular")


class TimeIsUp(Exception):
    """The program was ended."""


@dataclass
class BlockSolution:
    """What the program says: `status` as in Found, and `words`. For "optimal" and "inaccurate", the
    duals `y` (f64) of the constraints, and for X and Z an array (f64) for each block: a matrix row
    by row, or the diagonal of a diagonal block."""

    status: str
    words: str
    y: array[float]
    X: List[array[float]]
    Z: List[array[float]]


class Csdp(Adapter):
    name, takes = "csdp", frozenset({"linear", "quadratic", "semidefinite"})

    def __init__(self) -> None:
        self._problem: Optional[Problem] = None

    @staticmethod
    def missing() -> Optional[str]:
        if shutil.which(PROGRAM) is None:
            return ("CSDP is missing: there is no program %s; on Debian: apt-get install "
                    "coinor-csdp" % PROGRAM)
        return None

    def load(self, problem: Problem) -> None:
        if any(problem.integer):
            raise SolverError("csdp doesn't take integer columns")
        self._problem = problem

    def solve(self, options: Options) -> Solution:
        if self._problem is None:
            raise SolverError("CSDP has no problem yet: it has to be loaded")
        start = time.perf_counter()
        end = time.monotonic() + min(options.seconds, 1e9)
        try:
            solution = solve(self._problem, options, lambda pair: solve_pair(pair, options, end))
        except TimeIsUp:
            solution = Solution(LIMIT, "the time limit is reached")
        solution.seconds = time.perf_counter() - start
        return solution


def solve_pair(pair: Pair, options: Options, end: float = math.inf) -> Found:
    """The solution of a pair without equations in u, unless the clock shows `end` before."""
    found = solve_blocks(as_blocks(pair), options, end)
    return Found(found.status, found.words, found.y, list(rows_of(pair, found.Z, dual=False)),
                 list(rows_of(pair, found.X, dual=True)))


def as_blocks(pair: Pair) -> SdpaProblem:
    """The second problem of a pair without equations in u."""
    sizes = [-size if kind == LINEAR or size == 1 else size for kind, size in pair.blocks]
    result = SdpaProblem.empty(sizes, array("d", pair.c))
    matrices: List[Dict[Tuple[int, int, int], float]] = [{} for _ in range(len(pair.c) + 1)]
    for row, (places, scale) in enumerate(places_of(pair)):
        for k, value in [(0, -pair.h[row]), *((k + 1, v) for k, v in pair.F[row].items())]:
            if value != 0.0:
                for place in places:
                    matrices[k][place] = value * scale
    # In the usual order, which counts in the program's rounding.
    for k, entries in enumerate(matrices):
        for place, value in sorted(entries.items()):
            result.append(k, *place, value)
    return result


def sdpa_text(problem: Problem) -> str:
    """A file of SDPA's format with the standard form of a problem. What the format can't tell
    stands in a comment: a minimum, and a constant in the objective. Raises ValueError for integer
    columns, and for a problem that is seen to have no solution."""
    if any(problem.integer):
        raise ValueError("a file of SDPA's format can't carry integer columns")
    reduced = Reduced(problem)
    if reduced.contradiction or reduced.unbounded:
        raise ValueError("a file of SDPA's format can't carry the problem: %s"
                         % (reduced.contradiction or reduced.unbounded))
    form, file = Standard(reduced), io.StringIO()
    file.write('"the objective is this one times %g, plus %r\n' % (-reduced.sign, form.constant))
    as_blocks(form.pair.without_equations()).write(file)
    return file.getvalue()


def places_of(pair: Pair) -> Iterator[Tuple[List[Tuple[int, int, int]], float]]:
    """For each row of K the places (block, row, column) where its coefficients stand in the upper
    triangle, and the factor with which they do."""
    for block, (kind, size) in enumerate(pair.blocks):
        if kind == LINEAR:
            for i in range(size):
                yield [(block, i, i)], 1.0
        elif kind == QUADRATIC:
            yield [(block, i, i) for i in range(size)], 1.0
            for i in range(1, size):
                yield [(block, 0, i)], 1.0
        else:
            for i, j in triangle(size):
                yield [(block, j, i)], 1.0 if i == j else 1.0 / OFF_DIAGONAL


def rows_of(pair: Pair, blocks: Sequence[array[float]], dual: bool) -> Iterator[float]:
    """By row of K what X (`dual`) or Z has of it."""
    for (kind, size), block in zip(pair.blocks, blocks):
        if kind == LINEAR or size == 1:
            yield from block
        elif kind == QUADRATIC:
            yield math.fsum(block[:: size + 1]) if dual else block[0]
            for value in block[1:size]:
                yield 2.0 * value if dual else value
        else:
            for i, j in triangle(size):
                yield block[size * i + j] * (1.0 if i == j else OFF_DIAGONAL)


def solve_blocks(problem: SdpaProblem, options: Options, end: float = math.inf) -> BlockSolution:
    """The solution of an SdpaProblem, as solve_file."""
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "problem.dat-s")
        with open(path, "w", encoding="ascii") as file:
            problem.write(file)
        return solve_file(path, problem.blocks, options, end)


def solve_file(path: str, blocks: Sequence[int], options: Options, end: float = math.inf
               ) -> BlockSolution:
    """Solves the problem in the file at `path`, whose blocks have these dimensions, diagonal ones
    negative. Raises SolverError if the program is missing or fails, with its own word for that,
    and TimeIsUp if the clock shows `end` before."""
    missing = Csdp.missing()
    if missing is not None:
        raise SolverError(missing)
    # The program looks for a file of parameters where it runs.
    with tempfile.TemporaryDirectory() as directory:
        code, output = _run([PROGRAM, os.path.abspath(path), "solution"], directory, options, end)
        status, words = STATUSES.get(code), last_word(output)
        if status is None:
            raise SolverError("CSDP failed: %s" % words)
        solution = BlockSolution(status, words, array("d"), [], [])
        if status in (OPTIMAL, INACCURATE):
            with open(os.path.join(directory, "solution"), encoding="ascii") as file:
                solution.y.extend(map(float, file.readline().split()))
                solution.Z, solution.X = read_matrices(file, blocks)
    return solution


def _run(command: List[str], directory: str, options: Options, end: float) -> Tuple[int, str]:
    """The exit status of a program and what it prints. However this ends, so does the program."""
    if shutil.which("stdbuf"):
        command = ["stdbuf", "-oL", *command]  # lines come when they are printed
    lines: List[str] = []
    with subprocess.Popen(command, cwd=directory, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, start_new_session=True) as process, \
            selectors.DefaultSelector() as selector:
        try:
            assert process.stdout is not None
            selector.register(process.stdout, selectors.EVENT_READ)
            rest = b""
            while True:
                seconds = end - time.monotonic()
                if seconds <= 0.0 or not selector.select(min(seconds, 1e6)):
                    raise TimeIsUp
                got = os.read(process.stdout.fileno(), 65536)
                *found, rest = (rest + got).split(b"\n") if got else (rest, b"")
                for line in found:
                    lines.append(line.decode("ascii", "replace").rstrip())
                    options.tell(lines[-1])
                if not got:
                    return process.wait(), "\n".join(lines)
        finally:
            process.kill()


def last_word(output: str) -> str:
    """What the program said of its end, with the reason if it gave one, which comes before."""
    lines = [line.strip() for line in output.splitlines()]
    lines = [line for line in lines if line not in ("", "Giving up.")]
    return " ".join(filter(OF_THE_END.match, lines)) or (lines or ["nothing"])[-1]


def read_matrices(file: IO[str], blocks: Sequence[int]
                  ) -> Tuple[List[array[float]], List[array[float]]]:
    """The two block matrices of a solution; an entry stands for both of its places."""
    matrices = tuple([zeros("f64", n * n if n > 0 else -n) for n in blocks] for _ in range(2))
    for line in file:
        kind, b, i, j, value = line.split()
        n, target = blocks[int(b) - 1], matrices[int(kind) - 1][int(b) - 1]
        k, l = int(i) - 1, int(j) - 1
        if n < 0:
            target[k] = float(value)
        else:
            target[n * k + l] = target[n * l + k] = float(value)
    return matrices[0], matrices[1]
