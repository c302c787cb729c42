"""CVXOPT as the native solver of conic problems, which takes linear, quadratic and semidefinite
cones as they are. It is there where the interpreter has the package: on Debian, the system's
Python with python3-cvxopt.
"""

import math
import time
from array import array

from .conic import QUADRATIC, ConicSolution
from .glpk import SolverError
from .stacks import zeros

ROOT = math.sqrt(2.0)
STATUSES = {"optimal": "optimal", "primal infeasible": "infeasible", "dual infeasible": "unbounded"}
OPTIONS = {"show_progress": False, "abstol": 1e-9, "reltol": 1e-9, "feastol": 1e-9}


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
        start = time.perf_counter()
        try:
            found = self._cvxopt.solvers.conelp(*t.arguments(self._cvxopt), options=OPTIONS)
        except (ValueError, ArithmeticError) as error:
            raise SolverError("CVXOPT gave up: %s" % error) from None
        finally:
            self.seconds += time.perf_counter() - start
        status = STATUSES.get(found["status"])
        if status is None:
            raise SolverError("CVXOPT gave up: the status is %s" % found["status"])
        return t.solution(found) if status == "optimal" else ConicSolution(status)


class _Triplets:
    """A sparse matrix and a right-hand side in the making."""

    def __init__(self):
        self.i, self.j, self.value, self.side = [], [], [], []

    def append(self, terms, side):
        """A row with these (column, value). Returns its number."""
        for j, value in terms:
            self.i.append(len(self.side))
            self.j.append(j)
            self.value.append(value)
        self.side.append(side)
        return len(self.side) - 1

    def matrices(self, cvxopt, columns):
        shape = len(self.side), columns
        return (cvxopt.spmatrix(self.value, self.i, self.j, shape, "d"),
                cvxopt.matrix(self.side, (len(self.side), 1), "d"))


class _Translation:
    """A ConicProblem in the form: minimise c'z so that G z + s = h with s in cones, A z = b. z are
    the columns and behind them the entries of the semidefinite variables."""

    def __init__(self, problem):
        p = self.problem = problem
        self.sign = -1.0 if p.maximize else 1.0
        self.columns = len(p.column_lower) - 1
        self.barptr = [self.columns]
        for d in p.dims:
            self.barptr.append(self.barptr[-1] + d * (d + 1) // 2)
        self.rows, self.slots = self._terms(p.rows), self._terms(p.slots)
        self.G, self.A = _Triplets(), _Triplets()
        unit = [[]] + [[(j, 1.0)] for j in range(self.columns)]
        # Rows of A or G by which a form is kept between bounds: (equation, lower, upper).
        self.column_places = self._bound(unit, zeros("f64", len(unit)), p.column_lower,
                                         p.column_upper)
        self.row_places = self._bound(self.rows, p.rows.offset, p.row_lower, p.row_upper)
        self.dims = {"l": len(self.G.side), "q": [], "s": []}
        self._add_cones()

    def _terms(self, forms):
        """By form its (column, value)."""
        result = [[] for _ in range(len(forms))]
        for i, j, value in zip(forms.subi, forms.subj, forms.cof):
            result[i].append((j - 1, value))
        for i, n, k, l, value in zip(forms.barsubi, forms.barsubj, forms.matsubi, forms.matsubj,
                                     forms.matcof):
            place = self.barptr[n] + packed(k, l, self.problem.dims[n])
            result[i].append((place, value if k == l else 2.0 * value))
        return result

    def _bound(self, forms, offsets, lower, upper):
        places = [(None, None, None)]
        for terms, offset, l, u in list(zip(forms, offsets, lower, upper))[1:]:
            if l == u:
                places.append((self.A.append(terms, l - offset), None, None))
                continue
            negated = [(j, -value) for j, value in terms]
            places.append((None,
                           None if l == -math.inf else self.G.append(negated, offset - l),
                           None if u == math.inf else self.G.append(terms, u - offset)))
        return places

    def _add_cones(self):
        """The slots and the semidefinite variables. A matrix has all its entries, (i, j) at place
        d * j + i of its `d` * `d`; `self.places` and `self.bar_places` are those of the slots and of
        the entries of the variables."""
        p, self.slot_places, self.bar_places = self.problem, [0] * len(self.slots), []
        slots = [([(j, -value) for j, value in terms], offset)
                 for terms, offset in zip(self.slots, p.slots.offset)]
        for cone in p.cones:
            if cone.kind == QUADRATIC:
                self.dims["q"].append(cone.size)
                for slot in range(cone.first, cone.first + cone.size):
                    self.slot_places[slot] = self.G.append(*slots[slot])
        for cone in p.cones:
            if cone.kind != QUADRATIC:
                entries = [([(j, v / ROOT) for j, v in terms], offset / ROOT)
                           for terms, offset in slots[cone.first : cone.first + cone.size]]
                for j in range(cone.dim):
                    k = packed(j, j, cone.dim)
                    entries[k] = slots[cone.first + k]
                first = self._add_matrix(cone.dim, entries)
                self.slot_places[cone.first : cone.first + cone.size] = places(first, cone.dim)
        for begin, d in zip(self.barptr, p.dims):
            entries = [([(begin + k, -1.0)], 0.0) for k in range(d * (d + 1) // 2)]
            self.bar_places += places(self._add_matrix(d, entries), d)

    def _add_matrix(self, d, entries):
        first = len(self.G.side)
        self.dims["s"].append(d)
        for j in range(d):
            for i in range(d):
                self.G.append(*entries[packed(max(i, j), min(i, j), d)])
        return first

    def arguments(self, cvxopt):
        count = self.barptr[-1]
        c = cvxopt.matrix(0.0, (count, 1))
        for j, value in self.rows[0]:
            c[j] += self.sign * value
        if not self.G.side:  # the solver asks for a cone
            self.dims["l"] = 1
            self.G.append([], 1.0)
        G, h = self.G.matrices(cvxopt, count)
        A, b = self.A.matrices(cvxopt, count)
        return c, G, h, self.dims, A, b

    def solution(self, found):
        p, n = self.problem, self.columns
        x, s, y, z = (list(found[name]) for name in "xsyz")
        value = lambda terms: math.fsum(v * x[j] for j, v in terms)
        level = lambda terms, forms: array("d", map(sum, zip(map(value, terms), forms.offset)))
        xc = level(self.rows, p.rows)
        lists = lambda numbers: array("d", (self.sign * v for v in numbers))
        scale = [1.0] * len(self.slots)
        for cone in p.cones:
            if cone.kind != QUADRATIC:
                scale[cone.first : cone.first + cone.size] = [
                    1.0 if i == j else ROOT for j in range(cone.dim) for i in range(j, cone.dim)]
        return ConicSolution(
            "optimal", xc[0], array("d", [0.0, *x[:n]]), *self._duals(self.column_places, y, z),
            xc, *self._duals(self.row_places, y, z), level(self.slots, p.slots),
            lists(f * z[k] for f, k in zip(scale, self.slot_places)), array("d", x[n:]),
            lists(z[k] for k in self.bar_places))

    def _duals(self, bounded, y, z):
        """The duals of lower and of upper bounds."""
        pairs = []
        for equation, lower, upper in bounded:
            combined = 0.0 if equation is None else -y[equation]
            pairs.append((max(combined, 0.0) if lower is None else z[lower],
                          max(-combined, 0.0) if upper is None else z[upper]))
        return (array("d", (self.sign * pair[side] for pair in pairs)) for side in (0, 1))


def packed(i, j, d):
    """Place of the entry (i, j), i >= j, in a lower triangle column by column."""
    return j * (2 * d - 1 - j) // 2 + i


def places(first, d):
    """Where the entries of that triangle stand in the full matrix from `first` on."""
    return [first + d * j + i for j in range(d) for i in range(j, d)]
