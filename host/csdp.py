"""CSDP as the native solver of conic problems: a thin adapter to its program.

The program takes a problem in SDPA's sparse format and leaves its solution in a file. Its X has a
block for each semidefinite variable and each cone, and a diagonal one for all that is scalar; they
are made in this order:

    a column       its distance from a bound, or the difference of two entries if it has none
    a row          as it is if it is an equation, else with a slack from a bound
    quadratic      the arrow matrix of the slots: the first on the diagonal, the others in the first
                   row and column, zeros elsewhere
    semidefinite   the matrix of the slots
"""

import math
import os
import re
import shutil
import subprocess
import tempfile
import time
from array import array
from dataclasses import dataclass
from typing import List

from .conic import OFF_DIAGONAL, QUADRATIC, ConicSolution, triangle
from .glpk import SolverError, split_duals
from .sdpa import SdpaProblem
from .stacks import zeros

PROGRAM = "csdp"
ZERO = 1e-8  # by how much the program lets an equation fail
SOLVED, PRIMAL_INFEASIBLE, DUAL_INFEASIBLE, REDUCED_ACCURACY = range(4)  # exit statuses
STATUSES = {SOLVED: "optimal", REDUCED_ACCURACY: "optimal", PRIMAL_INFEASIBLE: "infeasible",
            DUAL_INFEASIBLE: "unbounded"}
OF_THE_END = re.compile(r"Success|Partial Success|Failure|Stuck|Lack of progress|Factorization|"
                        r"Too many|. was singular")


@dataclass
class BlockSolution:
    """What the program says: `status` as in a ConicSolution, and `verdict`, its own word for it. For
    "optimal", the duals `y` (f64) of the constraints, and for X and Z an array (f64) for each block:
    a matrix row by row, or the diagonal of a diagonal block."""

    status: str
    verdict: str
    seconds: float
    y: array = None
    X: List[array] = None
    Z: List[array] = None


def solve_file(path, blocks):
    """Solves the problem in the file at `path`, whose blocks have these dimensions, diagonal ones
    negative. Raises SolverError if the program is missing or gives up, with its own word for that.
    """
    program = shutil.which(PROGRAM)
    if program is None:
        raise SolverError("CSDP is missing: there is no program %s; on Debian: apt-get install "
                          "coinor-csdp" % PROGRAM)
    path = os.path.abspath(path)
    # It looks for a file of parameters where it runs.
    with tempfile.TemporaryDirectory() as directory:
        start = time.perf_counter()
        run = subprocess.run([program, path, "solution"], cwd=directory, stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
                             encoding="ascii", errors="replace")
        seconds = time.perf_counter() - start
        status = STATUSES.get(run.returncode)
        if status is None:
            raise SolverError("CSDP gave up: %s" % last_word(run.stdout))
        solution = BlockSolution(status, last_word(run.stdout), seconds)
        if status == "optimal":
            with open(os.path.join(directory, "solution"), encoding="ascii") as file:
                solution.y = array("d", map(float, file.readline().split()))
                solution.Z, solution.X = read_matrices(file, blocks)
    return solution


def solve_blocks(problem):
    """The same for an SdpaProblem."""
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "problem.dat-s")
        with open(path, "w", encoding="ascii") as file:
            problem.write(file)
        return solve_file(path, problem.blocks)


def last_word(output):
    """What the program said of its end, with the reason if it gave one, which comes before."""
    lines = [line.strip() for line in output.splitlines()]
    lines = [line for line in lines if line not in ("", "Giving up.")]
    return " ".join(filter(OF_THE_END.match, lines)) or (lines or ["nothing"])[-1]


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


class Csdp:
    """The back end. `verdict` is the program's last word."""

    def __init__(self):
        self.seconds, self.verdict = 0.0, ""

    def solve(self, problem):
        """The ConicSolution of a ConicProblem. Raises SolverError as solve_file does."""
        translation = _Translation(problem)
        if translation.contradiction:
            self.verdict = "an equation without terms does not hold"
            return ConicSolution("infeasible")
        found = solve_blocks(translation.native)
        self.seconds += found.seconds
        self.verdict = found.verdict
        if found.status != "optimal":
            return ConicSolution(found.status)
        return translation.solution(found)


class _Translation:
    """A ConicProblem as an SdpaProblem, and its solution back."""

    def __init__(self, problem):
        self.problem, self.contradiction = problem, False
        blocks = [*problem.dims, *(cone.dim or cone.size for cone in problem.cones), 0]
        self.native = SdpaProblem.empty(blocks, array("d"))
        self.scalar_block = len(blocks) - 1
        # x[j] = shift[j] + the sum of sign * entry of the scalar block over parts[j].
        self.shift, self.parts = zeros("f64", 1), [()]
        for bounds in zip(problem.column_lower[1:], problem.column_upper[1:]):
            self._column(*bounds)
        # The constraint of each row (None for one without bounds) and of each slot.
        self.row_constraints, self.slot_constraints = [None], []
        self.rows, self.slots = terms_by_form(problem.rows), terms_by_form(problem.slots)
        self._objective(self.rows[0])
        for i, bounds in enumerate(zip(problem.row_lower[1:], problem.row_upper[1:]), 1):
            self.row_constraints.append(self._row(self.rows[i], *bounds))
        for number, cone in enumerate(problem.cones):
            add = self._arrow if cone.kind == QUADRATIC else self._triangle
            add(len(problem.dims) + number, cone)
        if not self.native.c:  # the program asks for a constraint
            self._constraint(1.0, [(self._scalar(), 1.0)])
        if blocks[-1] == 0:
            blocks.pop()

    # Building it.

    def _scalar(self):
        """A new entry of the scalar block."""
        self.native.blocks[self.scalar_block] -= 1
        return -self.native.blocks[self.scalar_block] - 1

    def _constraint(self, value, scalars=(), entries=()):
        """A constraint with that constant, the (entry of the scalar block, coefficient) and the
        (block, row, column, value of the matrix there). Returns its number, from 1 on."""
        self.native.c.append(value)
        k = len(self.native.c)
        self._append(k, scalars, entries, 1.0)
        return k

    def _append(self, k, scalars, entries, sign):
        """Matrix k, in the order of the blocks, which counts in the program's rounding."""
        for block, i, j, coefficient in entries:
            self.native.append(k, block, i, j, sign * coefficient)
        for at, coefficient in scalars:
            self.native.append(k, self.scalar_block, at, at, sign * coefficient)

    def _column(self, lower, upper):
        if lower == upper:
            self.shift.append(lower)
            self.parts.append(())
        elif lower > -math.inf:
            at = self._scalar()
            self.shift.append(lower)
            self.parts.append(((at, 1.0),))
            if upper < math.inf:
                self._constraint(upper - lower, [(at, 1.0), (self._scalar(), 1.0)])
        elif upper < math.inf:
            self.shift.append(upper)
            self.parts.append(((self._scalar(), -1.0),))
        else:
            self.shift.append(0.0)
            self.parts.append(((self._scalar(), 1.0), (self._scalar(), -1.0)))

    def _form(self, form):
        """A form as (its constant, scalars, entries)."""
        offset, terms, entries = form
        scalars = {}
        for j, coefficient in terms:
            offset += coefficient * self.shift[j]
            for at, sign in self.parts[j]:
                scalars[at] = scalars.get(at, 0.0) + sign * coefficient
        return offset, list(scalars.items()), entries

    def _objective(self, form):
        _, scalars, entries = self._form(form)
        self._append(0, scalars, entries, 1.0 if self.problem.maximize else -1.0)

    def _row(self, form, lower, upper):
        offset, scalars, entries = self._form(form)
        if lower == -math.inf and upper == math.inf:
            return None
        if lower == upper:
            if scalars or entries:
                return self._constraint(lower - offset, scalars, entries)
            # Fixed columns may have left a rounding error.
            self.contradiction |= not math.isclose(lower, offset, rel_tol=ZERO, abs_tol=ZERO)
            return None
        slack = self._scalar()
        if lower == -math.inf:
            return self._constraint(upper - offset, [*scalars, (slack, 1.0)], entries)
        if upper < math.inf:
            self._constraint(upper - lower, [(slack, 1.0), (self._scalar(), 1.0)])
        return self._constraint(lower - offset, [*scalars, (slack, -1.0)], entries)

    def _slot(self, form, block, i, j, scale):
        """The form is `scale` times the entry (i, j) of a cone's block."""
        offset, scalars, entries = self._form(form)
        value = -scale if i == j else -0.5 * scale
        self.slot_constraints.append(
            self._constraint(-offset, scalars, [*entries, (block, i, j, value)]))

    def _arrow(self, block, cone):
        for i in range(cone.size):
            self._slot(self.slots[cone.first + i], block, 0, i, 1.0)
        for i in range(1, cone.size):
            self._constraint(0.0, (), [(block, 0, 0, 1.0), (block, i, i, -1.0)])
            for j in range(i + 1, cone.size):
                self._constraint(0.0, (), [(block, i, j, 0.5)])

    def _triangle(self, block, cone):
        for k, (i, j) in enumerate(triangle(cone.dim), cone.first):
            self._slot(self.slots[k], block, j, i, 1.0 if i == j else OFF_DIAGONAL)

    # And back.

    def solution(self, found):
        p, sign = self.problem, -1.0 if self.problem.maximize else 1.0
        dual = lambda k: 0.0 if k is None else -sign * found.y[k - 1]
        scalar = found.X[self.scalar_block] if self.scalar_block < len(found.X) else ()
        xx = array("d", (shift + math.fsum(s * scalar[at] for at, s in parts)
                         for shift, parts in zip(self.shift, self.parts)))
        triangles = lambda blocks: array("d", (
            values[n * i + j] for n, values in zip(p.dims, blocks) for i, j in triangle(n)))
        barx = triangles(found.X)
        bars = array("d", (sign * z for z in triangles(found.Z)))
        xc, accx = (array("d", (self._level(form, xx, found.X) for form in forms))
                    for forms in (self.rows, self.slots))
        y = array("d", map(dual, self.row_constraints))
        accy = array("d", map(dual, self.slot_constraints))
        # What the duals of rows and slots leave of a column's coefficient in the objective.
        yx = zeros("f64", len(xx))
        for forms, weights in ((self.rows, [1.0, *(-v for v in y[1:])]),
                               (self.slots, [-v for v in accy])):
            for (_, terms, _), weight in zip(forms, weights):
                for j, coefficient in terms:
                    yx[j] += weight * coefficient
        for j in range(1, len(yx)):
            if p.column_lower[j] == -math.inf and p.column_upper[j] == math.inf:
                yx[j] = 0.0
        return ConicSolution("optimal", xc[0], xx, *split_duals(yx, p.maximize), xc,
                             *split_duals(y, p.maximize), accx, accy, barx, bars)

    @staticmethod
    def _level(form, xx, blocks):
        offset, terms, entries = form
        level = offset + math.fsum(coefficient * xx[j] for j, coefficient in terms)
        for block, i, j, coefficient in entries:
            n = math.isqrt(len(blocks[block]))
            level += (1.0 if i == j else 2.0) * coefficient * blocks[block][n * i + j]
        return level


def terms_by_form(forms):
    """For each of the Forms its offset, its (column, coefficient) and its (semidefinite variable,
    row, column, value), row <= column; each place once."""
    result = [(offset, [], {}) for offset in forms.offset]
    for i, j, coefficient in zip(forms.subi, forms.subj, forms.cof):
        result[i][1].append((j, coefficient))
    for i, *place, coefficient in zip(forms.barsubi, forms.barsubj, forms.matsubj, forms.matsubi,
                                      forms.matcof):
        entries = result[i][2]
        entries[tuple(place)] = entries.get(tuple(place), 0.0) + coefficient
    return [(offset, terms, [(*place, value) for place, value in sorted(entries.items())])
            for offset, terms, entries in result]
