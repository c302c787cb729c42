"""CSDP as the native solver of conic problems: a thin adapter to its program.

The program takes a problem in SDPA's sparse format and leaves its solution in a file. Its X has
these blocks, in this order:

    for the variables, in the order in which they were made:
        columns made together      a diagonal block: of each its distance from a bound, or two
                                   entries whose difference it is if it has no bounds
        a semidefinite variable    itself
    for the cones:
        a quadratic one            the arrow matrix of its slots: the first on the diagonal, the
                                   others in the first row and column, zeros elsewhere
        a semidefinite one         the matrix of its slots
    for the rows                   a diagonal block: of each that is no equation its distance from
                                   a bound

So what stands in such a file comes back from the model as it was: block by block, and entry by
entry if it lists them in ascending order. On that depends where the program ends if several X or
several duals are optimal.
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

from .problem import OFF_DIAGONAL, QUADRATIC, ConicSolution, split_duals, triangle
from .adapter import SolverError
from ..formats.sdpa import SdpaProblem
from ..data.buffers import zeros

PROGRAM = "csdp"
ZERO = 1e-8  # by how much the program lets an equation fail
SOLVED, PRIMAL_INFEASIBLE, DUAL_INFEASIBLE, REDUCED_ACCURACY = range(4)  # exit statuses
STATUSES = {SOLVED: "optimal", REDUCED_ACCURACY: "optimal", PRIMAL_INFEASIBLE: "infeasible",
            DUAL_INFEASIBLE: "unbounded"}
OF_THE_END = re.compile(r"Success|Partial Success|Failure|Stuck|Lack of progress|Factorization|"
                        r"Too many|. was singular")


@dataclass
class BlockSolution:
    """What the program says: `status` as in a ConicSolution, and `verdict`, its own word for it.
    For "optimal", the duals `y` (f64) of the constraints, and for X and Z an array (f64) for each
    block: a matrix row by row, or the diagonal of a diagonal block."""

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
        translation = Translation(problem)
        if translation.contradiction:
            self.verdict = "an equation without terms does not hold"
            return ConicSolution("infeasible")
        found = solve_blocks(translation.native)
        self.seconds += found.seconds
        self.verdict = found.verdict
        if found.status != "optimal":
            return ConicSolution(found.status)
        return translation.solution(found)


class Translation:
    """A ConicProblem as an SdpaProblem, and its solution back.

    A place in the program's X is (block, row, column); `row_constraints` and `slot_constraints` are
    numbers of constraints, which count from 1.
    """

    def __init__(self, problem):
        self.problem, self.contradiction = problem, False
        self.native = SdpaProblem.empty([], array("d"))
        # x[j] = shift[j] + the sum of sign * X over the (place, sign) in parts[j].
        self.shift, self.parts, self.matrix_block = zeros("f64", 1), [()], []
        for size in problem.blocks:
            if size > 0:
                self.matrix_block.append(self._block(size))
            else:
                self._columns(-size)
        cones = [(self._block(cone.dim or cone.size), cone) for cone in problem.cones]
        self.slacks = self._block(0)
        # The constraint of each row (None for one without bounds) and of each slot.
        self.row_constraints, self.slot_constraints = [None], []
        self.rows, self.slots = terms_by_form(problem.rows), terms_by_form(problem.slots)
        self._objective(self.rows[0])
        for i, bounds in enumerate(zip(problem.row_lower[1:], problem.row_upper[1:]), 1):
            self.row_constraints.append(self._row(self.rows[i], *bounds))
        for block, cone in cones:
            (self._arrow if cone.kind == QUADRATIC else self._triangle)(block, cone)
        if not self.native.c:  # the program asks for a constraint
            self._constraint(1.0, {self._scalar(self.slacks): 1.0})
        self._drop_if_empty()

    # Building it.

    def _block(self, size):
        self.native.blocks.append(size)
        return len(self.native.blocks) - 1

    def _drop_if_empty(self):
        """Takes the last block away if no place of it was needed."""
        if self.native.blocks[-1] == 0:
            self.native.blocks.pop()

    def _scalar(self, block):
        """A new place of a diagonal block."""
        self.native.blocks[block] -= 1
        at = -self.native.blocks[block] - 1
        return block, at, at

    def _constraint(self, value, entries):
        """A constraint with that constant and the coefficients `entries`, by place. Returns its
        number."""
        self.native.c.append(value)
        self._append(len(self.native.c), entries)
        return len(self.native.c)

    def _append(self, k, entries):
        """Matrix k, in the usual order, which counts in the program's rounding."""
        for place, coefficient in sorted(entries.items()):
            self.native.append(k, *place, coefficient)

    def _columns(self, count):
        """A diagonal block for the next columns."""
        p, block, first = self.problem, self._block(0), len(self.shift)
        for j in range(first, first + count):
            self._column(block, p.column_lower[j], p.column_upper[j])
        self._drop_if_empty()

    def _column(self, block, lower, upper):
        if lower == upper:
            self.shift.append(lower)
            self.parts.append(())
        elif lower > -math.inf:
            at = self._scalar(block)
            self.shift.append(lower)
            self.parts.append(((at, 1.0),))
            if upper < math.inf:
                self._constraint(upper - lower, {at: 1.0, self._scalar(block): 1.0})
        elif upper < math.inf:
            self.shift.append(upper)
            self.parts.append(((self._scalar(block), -1.0),))
        else:
            self.shift.append(0.0)
            self.parts.append(((self._scalar(block), 1.0), (self._scalar(block), -1.0)))

    def _form(self, form):
        """The constant of a form, and its coefficients by place."""
        offset, terms, entries = form
        found = {(self.matrix_block[n], i, j): value for n, i, j, value in entries}
        for j, coefficient in terms:
            offset += coefficient * self.shift[j]
            for place, sign in self.parts[j]:
                found[place] = found.get(place, 0.0) + sign * coefficient
        return offset, {place: value for place, value in found.items() if value != 0.0}

    def _objective(self, form):
        _, entries = self._form(form)
        sign = 1.0 if self.problem.maximize else -1.0
        self._append(0, {place: sign * value for place, value in entries.items()})

    def _row(self, form, lower, upper):
        offset, entries = self._form(form)
        if lower == -math.inf and upper == math.inf:
            return None
        if lower == upper:
            if entries:
                return self._constraint(lower - offset, entries)
            # Fixed columns may have left a rounding error.
            self.contradiction |= not math.isclose(lower, offset, rel_tol=ZERO, abs_tol=ZERO)
            return None
        slack = self._scalar(self.slacks)
        if lower == -math.inf:
            return self._constraint(upper - offset, {**entries, slack: 1.0})
        if upper < math.inf:
            self._constraint(upper - lower, {slack: 1.0, self._scalar(self.slacks): 1.0})
        return self._constraint(lower - offset, {**entries, slack: -1.0})

    def _slot(self, form, place, scale):
        """The form is `scale` times the entry at that place of a cone's block."""
        offset, entries = self._form(form)
        _, i, j = place
        entries[place] = -scale if i == j else -0.5 * scale
        self.slot_constraints.append(self._constraint(-offset, entries))

    def _arrow(self, block, cone):
        for i in range(cone.size):
            self._slot(self.slots[cone.first + i], (block, 0, i), 1.0)
        for i in range(1, cone.size):
            self._constraint(0.0, {(block, 0, 0): 1.0, (block, i, i): -1.0})
            for j in range(i + 1, cone.size):
                self._constraint(0.0, {(block, i, j): 0.5})

    def _triangle(self, block, cone):
        for k, (i, j) in enumerate(triangle(cone.dim), cone.first):
            self._slot(self.slots[k], (block, j, i), 1.0 if i == j else OFF_DIAGONAL)

    # And back.

    def solution(self, found):
        p, sign = self.problem, -1.0 if self.problem.maximize else 1.0
        dual = lambda k: 0.0 if k is None else -sign * found.y[k - 1]
        xx = array("d", (shift + math.fsum(s * self._entry(found.X, place) for place, s in parts)
                         for shift, parts in zip(self.shift, self.parts)))
        triangles = lambda blocks: array("d", (
            self._entry(blocks, (block, i, j)) for block in self.matrix_block
            for i, j in triangle(self.native.blocks[block])))
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

    def _level(self, form, xx, X):
        offset, terms, entries = form
        level = offset + math.fsum(coefficient * xx[j] for j, coefficient in terms)
        for n, i, j, coefficient in entries:
            entry = self._entry(X, (self.matrix_block[n], i, j))
            level += (1.0 if i == j else 2.0) * coefficient * entry
        return level

    def _entry(self, blocks, place):
        block, i, j = place
        n = self.native.blocks[block]
        return blocks[block][i if n < 0 else n * i + j]


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
