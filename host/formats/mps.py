"""Linear and integer problems in MPS files: read by GLPK's reader, written in the free format with
all digits.

The format has no agreed way to tell that an objective is to be maximised, nor to tell a constant in
it. So a maximum is written as the minimum of the negated objective, and a constant as a column that
is fixed at 1.
"""

from __future__ import annotations

import math
import os
import re
from typing import Dict, Iterator, List, Sequence, Tuple

from ..solvers.adapter import SolverError
from ..solvers.glpk_library import Thread, thread
from ..solvers.glpk_problem import NativeProblem, compact
from ..solvers.problem import Problem

FIXED_FORMAT, FREE_FORMAT = 1, 2
OBJECTIVE, CONSTANT = "objective", "constant"


def read_mps(path: str) -> Tuple[str, Problem]:
    """The name and the problem of an MPS file, in fixed or free format.

    Raises OSError if the file can't be read, SolverError if it is not an MPS file.
    """
    with open(path, "rb"):
        pass
    return thread().call(_read, thread(), path)


def _read(thread: Thread, path: str) -> Tuple[str, Problem]:
    """In the library's thread."""
    native, complaints = NativeProblem(thread), []
    for kind in (FIXED_FORMAT, FREE_FORMAT):
        thread.messages.clear()
        if thread.lib.read_mps(native.handle, kind, None, os.fsencode(path)) == 0:
            name = thread.lib.get_prob_name(native.handle) or b""
            return name.decode(errors="replace"), native.problem()
        complaints += re.findall(r":(\d+): (?!warning)(.*)", "".join(thread.messages))
    # The format that took the reader further is more likely what was meant.
    line, complaint = max(complaints, key=lambda c: int(c[0]), default=("1", "nothing to read"))
    raise SolverError("%s is not an MPS file: line %s: %s" % (path, line, complaint))


def mps_text(problem: Problem) -> str:
    """The text of a file. Raises ValueError for a problem that is more than linear and integer."""
    if problem.cones or problem.dims:
        raise ValueError("an MPS file can't carry cones and semidefinite variables")
    names = problem.names or ([], [])
    rows = [OBJECTIVE, *distinct(names[0], "r", len(problem.rows), OBJECTIVE)[1:]]
    columns = distinct(names[1], "c", len(problem.column_lower), CONSTANT)
    offset, constant = problem.rows.offset, problem.rows.offset[0] != 0.0
    sides = [(i, lower - offset[i], upper - offset[i]) for i, (lower, upper)
             in enumerate(zip(problem.row_lower, problem.row_upper)) if i > 0]
    lines = ["* the negated objective of a maximum"] if problem.maximize else []
    lines += ["NAME fragments", "ROWS", " N " + OBJECTIVE]
    lines += [" %s %s" % (_kind(lower, upper), rows[i]) for i, lower, upper in sides]
    lines += ["COLUMNS", *_column_lines(problem, rows, columns), "RHS"]
    lines += [" RHS %s %r" % (rows[i], upper if lower == -math.inf else lower)
              for i, lower, upper in sides if _kind(lower, upper) != "N"]
    lines += ["RANGES", *(" RANGE %s %r" % (rows[i], upper - lower) for i, lower, upper in sides
                          if -math.inf < lower < upper < math.inf)]
    lines += ["BOUNDS", *(" %s BOUND %s%s" % (kind, columns[j], value)
                          for j in range(1, len(columns)) for kind, value
                          in _bounds(problem.column_lower[j], problem.column_upper[j]))]
    lines += [" FX BOUND %s 1.0" % CONSTANT] if constant else []
    return "\n".join([*lines, "ENDATA", ""])


def distinct(names: Sequence[str], letter: str, count: int, taken: str) -> List[str]:
    """A name without blanks for each of `count` rows or columns, no two alike and none `taken`;
    those without a name get the letter and their number."""
    result, seen = [], {taken}
    for k in range(count):
        name = re.sub(r"\s+", "_", names[k] if k < len(names) else "").lstrip("$*")
        name = name or "%s%d" % (letter, k)
        while name in seen:
            name += "_%d" % k
        seen.add(name)
        result.append(name)
    return result


def _kind(lower: float, upper: float) -> str:
    if lower == upper:
        return "E"
    if lower > -math.inf:
        return "G"
    return "L" if upper < math.inf else "N"


def _column_lines(problem: Problem, rows: List[str], columns: List[str]) -> Iterator[str]:
    sign = -1.0 if problem.maximize else 1.0
    terms: List[Dict[int, float]] = [{} for _ in columns]
    for i, j, value in zip(*compact(problem.rows, len(columns))):
        terms[j][i] = sign * value if i == 0 else value
    marked = 0
    for j in range(1, len(columns)):
        if problem.integer[j] != marked:
            marked = problem.integer[j]
            yield " MARKER 'MARKER' '%s'" % ("INTORG" if marked else "INTEND")
        for i, value in terms[j].items() or [(0, 0.0)]:
            yield " %s %s %r" % (columns[j], rows[i], value)
    if marked:
        yield " MARKER 'MARKER' 'INTEND'"
    if problem.rows.offset[0] != 0.0:
        yield " %s %s %r" % (CONSTANT, OBJECTIVE, sign * problem.rows.offset[0])


def _bounds(lower: float, upper: float) -> List[Tuple[str, str]]:
    """The kinds and values of the lines that give a column these bounds. Upper bounds are told
    always: an integer column has one by default."""
    if lower == upper:
        return [("FX", " %r" % lower)]
    if lower == -math.inf and upper == math.inf:
        return [("FR", "")]
    return [("MI", "") if lower == -math.inf else ("LO", " %r" % lower),
            ("PL", "") if upper == math.inf else ("UP", " %r" % upper)]
