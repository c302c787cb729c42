"""GLPK as the native model: a thin adapter to its shared library.

Rows and columns count from 1, as the library has them; the row number 0 stands for the objective,
and the column number 0 for the constant in it. Bounds that are not there are infinite.

The library ends the process when it is misused (an index out of range, for instance) or meets
numbers that it can't work with. So an adapter passes nothing on unseen, and where the process ends
all the same, it ends with one line that says why. Nothing else is printed.
"""

import bisect
import ctypes
import itertools
import math
import os
import re
import sys
import time
from array import array
from dataclasses import dataclass

from .matrices import SparseMatrix
from .stacks import zeros

LIBRARY = "libglpk.so.40"

FREE, LOWER, UPPER, DOUBLE, FIXED = 1, 2, 3, 4, 5  # kinds of bounds
FIXED_MPS, FREE_MPS = 1, 2
MINIMIZE, MAXIMIZE = 1, 2
AUTOMATIC_SCALING = 0x80
BOUNDS_CROSS = 4  # code of the simplex routine
STATUSES = {4: "infeasible", 5: "optimal", 6: "unbounded"}
LARGEST = 1.7976931348623157e308  # stands for an infinite bound


class SolverError(Exception):
    """Something that the library can't do; the text is one line for the user."""


def _prototypes():
    problem, text, whole, real = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int, ctypes.c_double
    lists = ctypes.c_void_p
    return {
        "create_prob": (problem,),
        "delete_prob": (None, problem),
        "copy_prob": (None, problem, problem, whole),
        "read_mps": (whole, problem, whole, ctypes.c_void_p, text),
        "get_prob_name": (text, problem),
        "get_num_rows": (whole, problem),
        "get_num_cols": (whole, problem),
        "get_num_nz": (whole, problem),
        "get_num_int": (whole, problem),
        "add_rows": (whole, problem, whole),
        "add_cols": (whole, problem, whole),
        "get_row_lb": (real, problem, whole),
        "get_row_ub": (real, problem, whole),
        "get_col_lb": (real, problem, whole),
        "get_col_ub": (real, problem, whole),
        "set_row_bnds": (None, problem, whole, whole, real, real),
        "set_col_bnds": (None, problem, whole, whole, real, real),
        "get_obj_dir": (whole, problem),
        "set_obj_dir": (None, problem, whole),
        "get_obj_coef": (real, problem, whole),
        "set_obj_coef": (None, problem, whole, real),
        "get_mat_row": (whole, problem, whole, lists, lists),
        "set_mat_row": (None, problem, whole, whole, lists, lists),
        "sort_matrix": (None, problem),
        "scale_prob": (None, problem, whole),
        "adv_basis": (None, problem, whole),
        "simplex": (whole, problem, ctypes.c_void_p),
        "get_status": (whole, problem),
        "get_obj_val": (real, problem),
        "get_row_prim": (real, problem, whole),
        "get_row_dual": (real, problem, whole),
        "get_col_prim": (real, problem, whole),
        "get_col_dual": (real, problem, whole),
    }


class Library:
    """The routines of the library as attributes, without their prefix. What they would print
    gathers in `messages`."""

    def __init__(self, name):
        try:
            library = ctypes.CDLL(name)
        except OSError:
            raise SolverError("GLPK is missing: %s can't be loaded; on Debian: apt-get install "
                              "libglpk40" % name) from None
        for name, (result, *arguments) in _prototypes().items():
            routine = getattr(library, "glp_" + name)
            routine.restype, routine.argtypes = result, arguments
            setattr(self, name, routine)
        self.messages = []
        self._on_print = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_char_p)(
            self._keep_message)
        self._on_error = ctypes.CFUNCTYPE(None, ctypes.c_void_p)(self._end)
        library.glp_term_hook(self._on_print, None)
        library.glp_error_hook(self._on_error, None)

    def _keep_message(self, _, text):
        self.messages.append(text.decode(errors="replace"))
        return 1

    def _end(self, _):
        """The library is about to abort."""
        print("host: GLPK stopped: " + " ".join("".join(self.messages[-2:]).split()),
              file=sys.stderr, flush=True)
        os._exit(2)


_library = []


def library():
    """The library, loaded when it is first needed. Raises SolverError if it is missing."""
    if not _library:
        _library.append(Library(LIBRARY))
    return _library[0]


@dataclass
class Solution:
    """Arrays (f64) by row or column number; entry 0 is unused.

    `xc`, `xx` are levels of rows and columns; `slc`, `suc` and `slx`, `sux` the duals of their
    lower and upper bounds, all at least 0 in a minimisation and at most 0 in a maximisation.
    """

    objective: float
    xc: array
    slc: array
    suc: array
    xx: array
    slx: array
    sux: array


class Problem:
    """A linear problem in GLPK. `seconds` adds up the time that it spent solving."""

    def __init__(self):
        self._lib = library()
        self._handle = self._lib.create_prob()
        self._started = False
        self.seconds = 0.0

    def __del__(self):
        if hasattr(self, "_handle"):
            self._lib.delete_prob(self._handle)

    @classmethod
    def read(cls, path):
        """The problem in an MPS file, in fixed or free format.

        Raises OSError if the file can't be read, SolverError if it is not an MPS file.
        """
        with open(path, "rb"):
            pass
        complaints = []
        for kind in (FIXED_MPS, FREE_MPS):
            problem = cls()
            problem._lib.messages.clear()
            if problem._lib.read_mps(problem._handle, kind, None, os.fsencode(path)) == 0:
                return problem
            complaints += re.findall(r":(\d+): (?!warning)(.*)", "".join(problem._lib.messages))
        # The format that took the reader further is more likely what was meant.
        line, complaint = max(complaints, key=lambda c: int(c[0]), default=("1", "nothing to read"))
        raise SolverError("%s is not an MPS file: line %s: %s" % (path, line, complaint))

    def copy(self):
        result = Problem()
        self._lib.copy_prob(result._handle, self._handle, False)
        return result

    # What it holds.

    @property
    def name(self):
        return (self._lib.get_prob_name(self._handle) or b"").decode(errors="replace")

    @property
    def rows(self):
        return self._lib.get_num_rows(self._handle)

    @property
    def columns(self):
        return self._lib.get_num_cols(self._handle)

    @property
    def nonzeros(self):
        return self._lib.get_num_nz(self._handle)

    @property
    def integers(self):
        """The number of integer columns, a property that is left out of the account here."""
        return self._lib.get_num_int(self._handle)

    def row_bounds(self):
        """Lists of the lower and of the upper bounds of all rows."""
        return self._bounds(self._lib.get_row_lb, self._lib.get_row_ub, self.rows)

    def column_bounds(self):
        return self._bounds(self._lib.get_col_lb, self._lib.get_col_ub, self.columns)

    def _bounds(self, get_lower, get_upper, count):
        lower = [get_lower(self._handle, k) for k in range(1, count + 1)]
        upper = [get_upper(self._handle, k) for k in range(1, count + 1)]
        return ([-math.inf if b == -LARGEST else b for b in lower],
                [math.inf if b == LARGEST else b for b in upper])

    def objective(self):
        """The constant and the coefficients of all columns."""
        return [self._lib.get_obj_coef(self._handle, j) for j in range(self.columns + 1)]

    def matrix(self, first, last):
        """Columns `first` up to but not including `last`, counted from 0, as a SparseMatrix."""
        ind, val = zeros("i32", self.columns + 1), zeros("f64", self.columns + 1)
        msubi, msubj, mval = array("i"), array("i"), array("d")
        self._lib.sort_matrix(self._handle)
        for i in range(1, self.rows + 1):
            top = 1 + self._lib.get_mat_row(self._handle, i, address(ind), address(val))
            begin, end = (bisect.bisect_right(ind, c, 1, top) for c in (first, last))
            msubi.extend(itertools.repeat(i - 1, end - begin))
            msubj.extend(j - 1 - first for j in ind[begin:end])
            mval.extend(val[begin:end])
        return SparseMatrix(self.rows, last - first, msubi, msubj, mval)

    @property
    def maximize(self):
        """Whether the objective is to be maximised; at first it is to be minimised."""
        return self._lib.get_obj_dir(self._handle) == MAXIMIZE

    @maximize.setter
    def maximize(self, value):
        self._lib.set_obj_dir(self._handle, MAXIMIZE if value else MINIMIZE)

    # Building it.

    def add_columns(self, count):
        """Appends columns fixed at 0; returns the number of the first."""
        return self._add(self._lib.add_cols, count, self.columns + 1)

    def add_rows(self, count):
        """Appends rows without terms and bounds; returns the number of the first."""
        return self._add(self._lib.add_rows, count, self.rows + 1)

    def _add(self, add, count, first):
        self._started = False
        if count > 0:
            add(self._handle, count)
        return first

    def set_row_bounds(self, i, lower, upper):
        self._lib.set_row_bnds(self._handle, i, *native_bounds(lower, upper))

    def set_column_bounds(self, j, lower, upper):
        self._lib.set_col_bnds(self._handle, j, *native_bounds(lower, upper))

    def set_row(self, i, subj, val, begin, end):
        """The terms of row i: columns and coefficients at the places `begin` up to but not
        including `end` of the lists `subj` (i32, ascending) and `val` (f64)."""
        if begin < end and not 1 <= subj[begin] <= subj[end - 1] <= self.columns:
            raise IndexError("a term of row %d names a column that is not in the problem" % i)
        # The library reads from the second entry on.
        self._lib.set_mat_row(self._handle, i, end - begin, address(subj, begin - 1),
                              address(val, begin - 1))

    def change_row(self, i, coefficients):
        """Gives some columns of row i, the keys of a dict, other coefficients."""
        ind, val = zeros("i32", self.columns + 1), zeros("f64", self.columns + 1)
        top = 1 + self._lib.get_mat_row(self._handle, i, address(ind), address(val))
        terms = sorted({**dict(zip(ind[1:top], val[1:top])), **coefficients}.items())
        self.set_row(i, array("i", [j for j, _ in terms]), array("d", [v for _, v in terms]), 0,
                     len(terms))

    def set_objective(self, j, coefficient):
        """The coefficient of column j, or for j = 0 the constant."""
        self._lib.set_obj_coef(self._handle, j, coefficient)

    # Solving it.

    def solve(self):
        """Solves by the primal simplex method; "optimal", "infeasible" or "unbounded".

        The first time it begins with an advanced basis, later with the basis that the last time
        ended with: two problems with the same rows and columns in the same order and with the same
        history take the same steps and end with the same basis, also where several are optimal.
        """
        lib, start = self._lib, time.perf_counter()
        lib.messages.clear()
        if not self._started:
            lib.scale_prob(self._handle, AUTOMATIC_SCALING)
            lib.adv_basis(self._handle, 0)
            self._started = True
        code = lib.simplex(self._handle, None)
        self.seconds += time.perf_counter() - start
        if code == BOUNDS_CROSS:
            return "infeasible"
        status = STATUSES.get(lib.get_status(self._handle))
        if code != 0 or status is None:
            raise SolverError("GLPK's simplex method gave up (code %d)" % code)
        return status

    def solution(self):
        """The solution that the last call of `solve` found. Raises SolverError if its numbers are
        too large."""
        lib, rows, columns = self._lib, range(1, self.rows + 1), range(1, self.columns + 1)
        objective = lib.get_obj_val(self._handle)
        if not math.isfinite(objective):
            raise SolverError("the objective of the solution is not finite")
        return Solution(objective,
                        self._values(lib.get_row_prim, rows),
                        *self._duals(lib.get_row_dual, rows),
                        self._values(lib.get_col_prim, columns),
                        *self._duals(lib.get_col_dual, columns))

    def _values(self, get, numbers):
        return array("d", itertools.chain([0.0], (get(self._handle, k) for k in numbers)))

    def _duals(self, get, numbers):
        """The duals of the lower and of the upper bounds. At most one of the two is in force, and
        the sign of the combined dual tells which."""
        duals, sign = self._values(get, numbers), -1.0 if self.maximize else 1.0
        return (array("d", (d if sign * d > 0.0 else 0.0 for d in duals)),
                array("d", (-d if sign * d < 0.0 else 0.0 for d in duals)))


def address(numbers, place=0):
    """Where entry `place` of an array lies."""
    return numbers.buffer_info()[0] + place * numbers.itemsize


def native_bounds(lower, upper):
    """Kind, lower and upper bound as the library takes them."""
    if not (lower < math.inf and upper > -math.inf):
        raise SolverError("a bound is not a finite number")
    if lower == upper:
        return FIXED, lower, upper
    if lower > -math.inf:
        return (DOUBLE if upper < math.inf else LOWER), lower, upper
    return (UPPER if upper < math.inf else FREE), lower, upper
