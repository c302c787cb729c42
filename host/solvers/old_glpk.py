"""GLPK as the native model: a thin adapter to its shared library.

Rows and columns count from 1, as the library has them; the row number 0 stands for the objective,
and the column number 0 for the constant in it. Bounds that are not there are infinite.

The library ends the process when it is misused (an index out of range, for instance) or meets
numbers that it can't work with. So an adapter passes nothing on unseen, and where the process ends
all the same, it ends with one line that says why. Nothing else is printed.
"""

import ctypes
import itertools
import math
import os
import re
import sys
import time
from array import array
from dataclasses import dataclass

from ..data.assembly import rows_of_entries, transpose_triplets
from ..data.matrices import SparseMatrix
from ..progress import progress
from ..data.buffers import zeros
from .adapter import SolverError
from .problem import split_duals

LIBRARY = "libglpk.so.40"

FREE, LOWER, UPPER, DOUBLE, FIXED = 1, 2, 3, 4, 5  # kinds of bounds
KINDS = ((FREE, UPPER), (LOWER, DOUBLE))  # by whether there is a lower and an upper bound
FIXED_MPS, FREE_MPS = 1, 2
MINIMIZE, MAXIMIZE = 1, 2
AUTOMATIC_SCALING = 0x80
BOUNDS_CROSS = 4  # code of the simplex routine
STATUSES = {4: "infeasible", 5: "optimal", 6: "unbounded"}
MOST = 100_000_000  # rows or columns
LARGEST = 1.7976931348623157e308  # stands for an infinite bound


def _prototypes():
    """Result and arguments of each routine. Those that are called for each column get their
    arguments in the library's own types, as to convert them takes longer than the rest of a call.
    """
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
        "get_row_lb": (real,),
        "get_row_ub": (real,),
        "get_col_lb": (real,),
        "get_col_ub": (real,),
        "set_row_bnds": (None,),
        "set_col_bnds": (None,),
        "get_obj_dir": (whole, problem),
        "set_obj_dir": (None, problem, whole),
        "get_obj_coef": (real,),
        "set_obj_coef": (None,),
        "get_mat_row": (whole, problem, whole, lists, lists),
        "get_mat_col": (whole,),
        "set_mat_row": (None, problem, whole, whole, lists, lists),
        "load_matrix": (None, problem, whole, lists, lists, lists),
        "scale_prob": (None, problem, whole),
        "adv_basis": (None, problem, whole),
        "simplex": (whole, problem, ctypes.c_void_p),
        "get_status": (whole, problem),
        "get_obj_val": (real, problem),
        "get_row_prim": (real,),
        "get_row_dual": (real,),
        "get_col_prim": (real,),
        "get_col_dual": (real,),
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
            routine.restype, routine.argtypes = result, arguments or None
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
        progress.clear()
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
    accx = accy = barx = bars = None  # of cones and semidefinite variables, which there are none of


class Problem:
    """A linear problem in GLPK. `seconds` adds up the time that it spent solving."""

    def __init__(self):
        self._lib = library()
        self._handle = ctypes.c_void_p(self._lib.create_prob())
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
        lower, upper = self._get(get_lower, 1, count), self._get(get_upper, 1, count)
        return ([-math.inf if b == -LARGEST else b for b in lower],
                [math.inf if b == LARGEST else b for b in upper])

    def objective(self):
        """The constant and the coefficients of all columns."""
        return self._get(self._lib.get_obj_coef, 0, self.columns)

    def _get(self, get, first, last):
        """What the library has for each number from `first` to `last`."""
        return array("d", map(get, itertools.repeat(self._handle), range(first, last + 1)))

    def matrices(self, ranges):
        """For each pair (first, last) of `ranges` the columns `first` up to but not including
        `last`, counted from 0, as a SparseMatrix."""
        rows, (ptr, subi, val) = self.rows, self._compressed()
        for first, last in ranges:
            # The library counts rows from 1: a row 0, which is empty, is left out again.
            rowptr, msubj, mval = transpose_triplets(ptr[first : last + 1], rows + 1, subi, val)
            msubi = rows_of_entries(rowptr[1:])
            yield SparseMatrix(rows, last - first, msubi, msubj, mval)

    def _compressed(self):
        """All entries by column: where each column starts, and the end of the last; rows, which
        count from 1 and are in any order within a column; values."""
        ptr, subi, val = array("q", [0]), zeros("i32", self.nonzeros), zeros("f64", self.nonzeros)
        get, handle, place = self._lib.get_mat_col, self._handle, 0
        ind, num = ctypes.c_void_p(), ctypes.c_void_p()
        rows, values = address(subi, -1), address(val, -1)  # written from the second entry on
        for j in range(1, self.columns + 1):
            ind.value, num.value = rows + place * subi.itemsize, values + place * val.itemsize
            place += get(handle, j, ind, num)
            ptr.append(place)
        return ptr, subi, val

    @property
    def maximize(self):
        """Whether the objective is to be maximised; at first it is to be minimised."""
        return self._lib.get_obj_dir(self._handle) == MAXIMIZE

    @maximize.setter
    def maximize(self, value):
        self._lib.set_obj_dir(self._handle, MAXIMIZE if value else MINIMIZE)

    # Building it.

    @staticmethod
    def require_room(count):
        """SolverError if that are more rows or columns than a problem can have."""
        if count > MOST:
            raise SolverError("GLPK can't hold %d rows or columns: the most is %d" % (count, MOST))

    def add_columns(self, count):
        """Appends columns without terms, fixed at 0."""
        self._add(self._lib.add_cols, count, self.columns)

    def add_rows(self, count):
        """Appends rows without terms and bounds."""
        self._add(self._lib.add_rows, count, self.rows)

    def _add(self, add, count, held):
        self.require_room(held + count)
        self._started = False
        if count > 0:
            add(self._handle, count)

    def set_row_bounds(self, rows, lower, upper):
        """Gives each of the `rows` its bounds."""
        self._set(self._lib.set_row_bnds, rows, *native_bounds(lower, upper))

    def set_column_bounds(self, columns, lower, upper):
        self._set(self._lib.set_col_bnds, columns, *native_bounds(lower, upper))

    def column_lengths(self, columns):
        """The number of terms in each of the `columns`."""
        return [self._lib.get_mat_col(self._handle, j, None, None) for j in columns]

    def set_objective(self, columns, coefficients):
        """The coefficients of some columns, and of column 0 the constant."""
        self._set(self._lib.set_obj_coef, columns, map(ctypes.c_double, coefficients))

    def _set(self, set, numbers, *values):
        for _ in map(set, itertools.repeat(self._handle), numbers, *values):
            pass

    def set_rows(self, rows, begins, ends, subj, val):
        """The terms of some rows: columns and coefficients at the places `begin` up to but not
        including `end` of the lists `subj` (i32, ascending) and `val` (f64)."""
        self._started = False  # the library aborts on some bases that a new matrix makes singular
        columns = self.columns
        for i, begin, end in zip(rows, begins, ends):
            if begin < end and not 1 <= subj[begin] <= subj[end - 1] <= columns:
                raise IndexError("a term of row %d names a column that is not in the problem" % i)
        if self.nonzeros == 0:
            return self._load(rows, begins, ends, subj, val)
        for i, begin, end in zip(rows, begins, ends):
            # The library reads from the second entry on.
            self._lib.set_mat_row(self._handle, i, end - begin, address(subj, begin - 1),
                                  address(val, begin - 1))

    def _load(self, rows, begins, ends, subj, val):
        """set_rows where no other row has terms: at once, which takes half the time."""
        ia, ja, ar = array("i"), array("i"), array("d")
        for i, begin, end in zip(rows, begins, ends):
            ia.extend(array("i", [i]) * (end - begin))
            ja.extend(subj[begin:end])
            ar.extend(val[begin:end])
        self._lib.load_matrix(self._handle, len(ar), address(ia, -1), address(ja, -1),
                              address(ar, -1))

    def change_rows(self, rows, begins, ends, subj, val):
        """Gives columns of some rows other coefficients, told as in `set_rows`. The other terms of
        these rows stay."""
        if self.nonzeros == 0 and any(val):
            return self.set_rows(rows, begins, ends, subj, val)
        for i, begin, end in zip(rows, begins, ends):
            self._change_row(i, subj[begin:end], val[begin:end])

    def _change_row(self, i, subj, val):
        length = self._lib.get_mat_row(self._handle, i, None, None)
        held, numbers = zeros("i32", length), zeros("f64", length)
        self._lib.get_mat_row(self._handle, i, address(held, -1), address(numbers, -1))
        # The library has the terms of a row that was set in the opposite order.
        if memoryview(held)[::-1] == memoryview(subj):
            if memoryview(numbers)[::-1] == memoryview(val):
                return
        else:
            before, after = dict(zip(held, numbers)), dict(zip(subj, val))
            if all(before.get(j, 0.0) == coefficient for j, coefficient in after.items()):
                return
            terms = sorted({**before, **after}.items())
            subj, val = array("i", [j for j, _ in terms]), array("d", [v for _, v in terms])
        self.set_rows([i], [0], [len(subj)], subj, val)

    # Solving it.

    def solve(self):
        """Solves by the primal simplex method; "optimal", "infeasible" or "unbounded".

        The first time, and when the matrix has changed, it begins with an advanced basis, later
        with the basis that the last time ended with: two problems with the same rows and columns in
        the same order and with the same history take the same steps and end with the same basis,
        also where several are optimal.
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
        lib = self._lib
        objective = lib.get_obj_val(self._handle)
        if not math.isfinite(objective):
            raise SolverError("the objective of the solution is not finite")
        return Solution(objective,
                        self._values(lib.get_row_prim, self.rows),
                        *self._duals(lib.get_row_dual, self.rows),
                        self._values(lib.get_col_prim, self.columns),
                        *self._duals(lib.get_col_dual, self.columns))

    def _values(self, get, count):
        return array("d", [0.0]) + self._get(get, 1, count)

    def _duals(self, get, count):
        return split_duals(self._values(get, count), self.maximize)


def address(numbers, place=0):
    """Where entry `place` of an array lies."""
    return numbers.buffer_info()[0] + place * numbers.itemsize


def native_bounds(lower, upper):
    """Kinds, lower and upper bounds as the library takes them."""
    greatest, least = math.inf, -math.inf
    if not all(map(greatest.__gt__, lower)) or not all(map(least.__lt__, upper)):
        raise SolverError("a bound is not a finite number")
    kinds = [FIXED if l == u else KINDS[l > least][u < greatest] for l, u in zip(lower, upper)]
    return kinds, map(ctypes.c_double, lower), map(ctypes.c_double, upper)
