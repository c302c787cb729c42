"""CVXOPT as a solver of conic problems, which takes the pairs of `forms` as they are. It is there
where the interpreter has the package: on Debian, the system's Python with python3-cvxopt.
"""

from __future__ import annotations

import contextlib
import io
import time
from typing import Any, Dict, List, Optional, Tuple

from .adapter import Adapter, Options, SolverError
from .forms import solve
from .pair import FIRST, LINEAR, SECOND, Found, Pair
from .problem import (INACCURATE, LIMIT, OFF_DIAGONAL, OPTIMAL, QUADRATIC, SEMIDEFINITE, Problem,
                      Solution, triangle)

STATUSES = {"optimal": OPTIMAL, "primal infeasible": FIRST, "dual infeasible": SECOND}
ACCURACY = 1e-8  # aimed at
LETTERS = ((LINEAR, "l"), (QUADRATIC, "q"), (SEMIDEFINITE, "s"))  # the order of its cones
ENOUGH = 1e-4  # of the errors of what is still worth telling
ERRORS = ("primal infeasibility", "dual infeasibility", "relative gap")


class TimeIsUp(Exception):
    """The clock has shown the end before the solver had a result."""


class Cvxopt(Adapter):
    name, takes = "cvxopt", frozenset({"linear", "quadratic", "semidefinite"})

    def __init__(self) -> None:
        self._problem: Optional[Problem] = None

    @staticmethod
    def missing() -> Optional[str]:
        try:
            import cvxopt.solvers  # type: ignore[import]  # noqa: F401
        except ImportError as error:
            return ("CVXOPT is missing (%s); on Debian: apt-get install python3-cvxopt, for the "
                    "system's python3" % error)
        return None

    def load(self, problem: Problem) -> None:
        if any(problem.integer):
            raise SolverError("cvxopt doesn't take integer columns")
        self._problem = problem

    def solve(self, options: Options) -> Solution:
        missing = self.missing()
        if missing is not None or self._problem is None:
            raise SolverError(missing or "CVXOPT has no problem yet: it has to be loaded")
        start = time.perf_counter()
        end = time.monotonic() + min(options.seconds, 1e9)
        try:
            solution = solve(self._problem, options, lambda pair: solve_pair(pair, options, end))
        except TimeIsUp:
            solution = Solution(LIMIT, "the time limit is reached")
        solution.seconds = time.perf_counter() - start
        return solution


def solve_pair(pair: Pair, options: Options, end: float) -> Found:
    """The solution of a pair without equations. Raises TimeIsUp if the clock shows `end` before,
    which is looked at in each iteration, and SolverError if the solver fails."""
    import cvxopt.misc  # type: ignore[import]
    import cvxopt.solvers

    order, dims = ordered(pair)
    c = cvxopt.matrix(pair.c, (len(pair.c), 1), "d")
    G, h = sparse([({k: -v * scale for k, v in pair.F[row].items()}, pair.h[row] * scale)
                   for row, scale in order], len(pair.c))
    factor = cvxopt.misc.kkt_chol(G, dims, cvxopt.spmatrix([], [], [], (0, len(pair.c)), "d"))

    def in_time(W: Any) -> Any:
        if time.monotonic() > end:
            raise TimeIsUp
        return factor(W)

    how: Dict[str, Any] = dict.fromkeys(("abstol", "reltol", "feastol"), ACCURACY)
    how["show_progress"] = options.log is not None
    try:
        with contextlib.redirect_stdout(Lines(options)):
            found = cvxopt.solvers.conelp(c, G, h, dims, kktsolver=in_time, options=how)
    except (ValueError, ArithmeticError) as error:
        raise SolverError("CVXOPT failed: %s" % error) from None
    words = "%s after %d iterations" % (found["status"], found["iterations"])
    status = status_of(found)
    if status in (FIRST, SECOND):
        return Found(status, words)
    return Found(status, words, list(found["x"]), *(
        back(pair, order, found[name]) for name in "sz"))


def status_of(found: Dict[str, Any]) -> str:
    """As in Found. Raises SolverError if the solver came nowhere."""
    status = STATUSES.get(found["status"])
    if status is not None:
        return status
    if all(found[name] is not None and found[name] < ENOUGH for name in ERRORS):
        return INACCURATE
    raise SolverError("CVXOPT failed: the status is %s after %d iterations"
                      % (found["status"], found["iterations"]))


def ordered(pair: Pair) -> Tuple[List[Tuple[int, float]], Dict[str, Any]]:
    """The rows of K in the solver's order, each with the factor that it has there, and the cones.
    It takes matrices whole, column by column."""
    order: List[Tuple[int, float]] = []
    dims: Dict[str, Any] = {"l": 0, "q": [], "s": []}
    for wanted, letter in LETTERS:
        first = 0
        for kind, size in pair.blocks:
            rows = size * (size + 1) // 2 if kind == SEMIDEFINITE else size
            if kind == wanted == SEMIDEFINITE:
                number = {place: first + k for k, place in enumerate(triangle(size))}
                order += [(number[max(i, j), min(i, j)], 1.0 if i == j else 1.0 / OFF_DIAGONAL)
                          for j in range(size) for i in range(size)]
            elif kind == wanted:
                order += [(first + k, 1.0) for k in range(size)]
            if kind == wanted:
                dims[letter] += size if kind == LINEAR else [size]
            first += rows
    return order, dims


def back(pair: Pair, order: List[Tuple[int, float]], values: Any) -> List[float]:
    """By row of K what the solver has in its order."""
    result = [0.0] * len(pair.h)
    for (row, scale), value in zip(order, values):
        result[row] = value / scale
    return result


def sparse(rows: List[Tuple[Dict[int, float], float]], columns: int) -> Tuple[Any, Any]:
    """A sparse matrix with these (terms, side) as rows, and the sides."""
    import cvxopt

    i = [k for k, (terms, _) in enumerate(rows) for _ in terms]
    j = [column for terms, _ in rows for column in terms]
    values = [value for terms, _ in rows for value in terms.values()]
    return (cvxopt.spmatrix(values, i, j, (len(rows), columns), "d"),
            cvxopt.matrix([side for _, side in rows], (len(rows), 1), "d"))


class Lines(io.StringIO):
    """A file that hands over what is written to it line by line."""

    def __init__(self, options: Options) -> None:
        super().__init__()
        self._options, self._rest = options, ""

    def write(self, text: str) -> int:
        *lines, self._rest = (self._rest + text).split("\n")
        for line in lines:
            self._options.tell(line)
        return len(text)
