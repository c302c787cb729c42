"""CVXOPT as the native solver of conic problems, which takes linear, quadratic and semidefinite
cones as they are. It is there where the interpreter has the package: on Debian, the system's
Python with python3-cvxopt.
"""

import math
import time
from array import array

from .problem import OFF_DIAGONAL, QUADRATIC, ConicSolution, triangle
from .adapter import SolverError
from ..data.buffers import zeros

STATUSES = {"optimal": "optimal", "primal infeasible": "infeasible", "dual infeasible": "unbounded"}
OPTIONS = {"show_progress": False, "abstol": 1e-8, "reltol": 1e-8, "feastol": 1e-8}


def package():
    """The package. Raises SolverError if it is missing."""
    try:
        import cvxopt.solvers
    except ImportError as error:
        raise SolverError("CVXOPT is missing (%s); on Debian: apt-get install python3-cvxopt, for "
                          "the system's python3" % error) from None
    return cvxopt


class Cvxopt:
    """The back end. `seconds` adds up the time that it spent solving."""

    def __init__(self):
        self._cvxopt = package()
        self.seconds = 0.0

    def solve(self, problem):
        """The ConicSolution of a ConicProblem. Raises SolverError if the solver gives up."""
        t = _Translation(problem)
        arguments = t.arguments(self._cvxopt)
        start = time.perf_counter()
        try:
            found = self._cvxopt.solvers.conelp(*arguments, options=OPTIONS)
        except (ValueError, ArithmeticError) as error:
            raise SolverError("CVXOPT gave up: %s" % error) from None
        finally:
            self.seconds += time.perf_counter() - start
        if found["status"] not in STATUSES:
            raise SolverError("CVXOPT gave up: the status is %s" % found["status"])
        status = STATUSES[found["status"]]
        if status == "optimal" and not t.unbounded:
            return t.solution(found)
        return ConicSolution("unbounded" if status == "optimal" else status)


class _Rows:
    """A sparse matrix and a right-hand side in the making."""

    def __init__(self):
        self.i, self.j, self.value, self.side = [], [], [], []

    def append(self, terms, side, factor=1.0):
        """A row with these (column, value), all times the factor. Returns its number."""
        for j, value in terms:
            self.i.append(len(self.side))
            self.j.append(j)
            self.value.append(factor * value)
        self.side.append(factor * side)
        return len(self.side) - 1

    def matrices(self, cvxopt, columns):
        shape = len(self.side), columns
        return (cvxopt.spmatrix(self.value, self.i, self.j, shape, "d"),
                cvxopt.matrix(self.side, (len(self.side), 1), "d"))


class _Translation:
    """A ConicProblem in the solver's form: minimise c'z so that G z + s = h with s in cones, and
    A z = b. Here z are the columns, and behind them the entries of the semidefinite variables."""

    def __init__(self, problem):
        p = self.problem = problem
        self.sign = -1.0 if p.maximize else 1.0
        self.columns = self.count = len(p.column_lower) - 1
        self.place = {}  # in z, of the entries of the semidefinite variables
        for n, d in enumerate(p.dims):
            for i, j in triangle(d):
                self.place[n, i, j] = self.count
                self.count += 1
        rows, self.slots = self._terms(p.rows), self._terms(p.slots)
        self.rows, self.G, self.A = rows, _Rows(), _Rows()
        units = [[], *([(j, 1.0)] for j in range(self.columns))]
        self.column_bounds = self._bound(units, zeros("f64", len(units)), p.column_lower,
                                         p.column_upper)
        self.row_bounds = self._bound(rows, p.rows.offset, p.row_lower, p.row_upper)
        self.dims = {"l": len(self.G.side), "q": [], "s": []}
        self.slot_rows, self.weight = [0] * len(self.slots), [1.0] * len(self.slots)
        for cone in sorted(p.cones, key=lambda cone: cone.kind != QUADRATIC):
            self._add_cone(cone)
        self.entry_rows = [row for n, d in enumerate(p.dims) for row in self._add_matrix(
            d, {(i, j): ([(self.place[n, i, j], 1.0)], 0.0) for i, j in triangle(d)})]
        # The solver asks for a cone, and for each column to be in a row.
        if not self.G.side:
            self.dims["l"] += 1
            self.G.append([], 1.0)
        loose = set(range(self.count)).difference(self.G.j, self.A.j)
        for j in loose:
            self.A.append([(j, 1.0)], 0.0)
        self.unbounded = any(j in loose and value for j, value in rows[0])

    def _terms(self, forms):
        """By form its (column of z, value)."""
        result = [[] for _ in range(len(forms))]
        for i, j, value in zip(forms.subi, forms.subj, forms.cof):
            result[i].append((j - 1, value))
        for i, n, k, l, value in zip(forms.barsubi, forms.barsubj, forms.matsubi, forms.matsubj,
                                     forms.matcof):
            result[i].append((self.place[n, k, l], value if k == l else 2.0 * value))
        return result

    def _bound(self, forms, offsets, lower, upper):
        """Keeps all forms but the first between bounds. For each the rows that do it: in A for an
        equation, and in G for the lower and the upper bound."""
        result = [(None, None, None)]
        for terms, offset, l, u in list(zip(forms, offsets, lower, upper))[1:]:
            if l == u and (terms or l == offset):
                result.append((self.A.append(terms, l - offset) if terms else None, None, None))
            else:
                result.append((
                    None,
                    None if l == -math.inf else self.G.append(terms, l - offset, -1.0),
                    None if u == math.inf else self.G.append(terms, u - offset)))
        return result

    def _add_cone(self, cone):
        slots = range(cone.first, cone.first + cone.size)
        forms = [(self.slots[k], self.problem.slots.offset[k]) for k in slots]
        if cone.kind == QUADRATIC:
            self.dims["q"].append(cone.size)
            rows = [self._add_member(terms, offset) for terms, offset in forms]
        else:
            for k, (i, j) in zip(slots, triangle(cone.dim)):
                self.weight[k] = 1.0 if i == j else OFF_DIAGONAL
            rows = self._add_matrix(cone.dim, {
                place: ([(j, value / self.weight[k]) for j, value in terms],
                        offset / self.weight[k])
                for k, place, (terms, offset) in zip(slots, triangle(cone.dim), forms)})
        self.slot_rows[slots.start : slots.stop] = rows

    def _add_member(self, terms, offset):
        return self.G.append(terms, -offset, -1.0)

    def _add_matrix(self, d, entries):
        """The forms `entries`, by place in the lower triangle, make a semidefinite matrix. Returns
        the rows of these places; the solver takes the whole matrix."""
        self.dims["s"].append(d)
        rows = {(i, j): self._add_member(*entries[max(i, j), min(i, j)])
                for j in range(d) for i in range(d)}
        return [rows[place] for place in triangle(d)]

    def arguments(self, cvxopt):
        c = cvxopt.matrix(0.0, (self.count, 1))
        for j, value in self.rows[0]:
            c[j] += self.sign * value
        G, h = self.G.matrices(cvxopt, self.count)
        return c, G, h, self.dims, *self.A.matrices(cvxopt, self.count)

    def solution(self, found):
        p, n = self.problem, self.columns
        x, y, z = (list(found[name]) for name in "xyz")
        value = lambda terms: math.fsum(v * x[j] for j, v in terms)
        levels = lambda forms, terms: array("d", (
            offset + value(own) for offset, own in zip(forms.offset, terms)))
        xc = levels(p.rows, self.rows)
        return ConicSolution(
            "optimal", xc[0],
            array("d", [0.0, *x[:n]]), *self._bound_duals(self.column_bounds, y, z),
            xc, *self._bound_duals(self.row_bounds, y, z),
            levels(p.slots, self.slots),
            array("d", (self.sign * w * z[row] for w, row in zip(self.weight, self.slot_rows))),
            array("d", x[n:]), array("d", (self.sign * z[row] for row in self.entry_rows)))

    def _bound_duals(self, bounds, y, z):
        """The duals of all lower and of all upper bounds."""
        pairs = []
        for equation, lower, upper in bounds:
            combined = 0.0 if equation is None else -y[equation]
            pairs.append((max(combined, 0.0) if lower is None else z[lower],
                          max(-combined, 0.0) if upper is None else z[upper]))
        return (array("d", (self.sign * pair[side] for pair in pairs)) for side in (0, 1))
