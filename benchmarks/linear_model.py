"""A linear model with a sparse matrix, from the variable to the rows in the solver, beside the
solver's own routine that takes the same matrix as ready lists. Times are by the clock, as those of
the closures that the host adds up."""

import array
import ctypes
import statistics
import time

from host.closures import closure
from host.glpk import Problem, address, library
from host.matrices import SparseMatrix
from host.model import Model

ROWS, COLUMNS, EACH = 200_000, 100_000, 10  # nonzeros in a row


def matrix():
    """EACH nonzeros in each row, at distances that make them fall all over the columns."""
    step = COLUMNS // EACH
    msubi = array.array("i", (i for i in range(ROWS) for _ in range(EACH)))
    msubj = array.array("i", (i * 7919 % step + k * step for i in range(ROWS) for k in range(EACH)))
    return SparseMatrix(ROWS, COLUMNS, msubi, msubj, array.array("d", [2.0, -1.0]) * (len(msubi) // 2))


def build(a):
    """Seconds in all and in closures."""
    in_closures, start = closure.seconds, time.perf_counter()
    native = Problem()
    model = Model(native)
    x = model.variable([COLUMNS])
    with model.evaluator.w.scratch():
        model.constrain(model.evaluator.mul_left(a, model.evaluator.push_variable(x)), 0.0, 1.0)
    seconds = time.perf_counter() - start
    assert native.nonzeros == a.mnnz
    return seconds, closure.seconds - in_closures


def load(a):
    """Seconds that the solver takes for ready lists."""
    lib, lists = library(), [array.array("i", (i + 1 for i in list)) for list in (a.msubi, a.msubj)]
    problem = ctypes.c_void_p(lib.create_prob())
    lib.add_rows(problem, ROWS)
    lib.add_cols(problem, COLUMNS)
    start = time.perf_counter()
    lib.load_matrix(problem, a.mnnz, *(address(entries, -1) for entries in (*lists, a.mval)))
    seconds = time.perf_counter() - start
    lib.delete_prob(problem)
    return seconds


def nanoseconds(repetitions):
    """The median of each part, in ns a nonzero, and that of the solver's own."""
    a = matrix()
    samples = [(*build(a), load(a)) for _ in range(repetitions)]
    total, closures, peer = (statistics.median(s) / a.mnnz * 1e9 for s in zip(*samples))
    return {"closures": closures, "host": total - closures, "in all": total,
            "GLPK alone": peer}, peer
