"""The road of an n x n matrix of parameters times a variable of n entries: from the variable to
stored rows, and from new values of all parameters to the coefficients of the rows."""

import array
import statistics
import time

from host.evaluator.expressions import Evaluator
from host.index_maps.arrays import IndexArray
from host.index_maps.variables import Variable
from host.model.row_store import RowStore

BUILD = ("product", "merging and simplification", "storing")
STEPS = (*BUILD, "build", "update")


def road(n):
    """Seconds in each of the steps."""
    table, store = array.array("d", [1.0]) * (n * n), RowStore()
    ev, matrix = Evaluator(table), IndexArray([n, n], range(n * n))
    x, rows = Variable([n], range(1, n + 1)), array.array("i", range(n))
    store.add_rows(n)
    times = [time.thread_time()]
    with ev.w.scratch():
        e = ev.mul_param_left(matrix, ev.push_variable(x))
        times.append(time.thread_time())
        e = ev.finish(e)
        times.append(time.thread_time())
        store.store(ev.w, e, rows)
        times.append(time.thread_time())
    steps = [b - a for a, b in zip(times, times[1:])]
    values, updates = array.array("d", range(n * n)), []
    for _ in range(5):
        start = time.thread_time()
        table[:] = values
        _, _, coefficients = store.evaluate(table, ev.x)
        updates.append(time.thread_time() - start)
    assert coefficients == values
    return [*steps, sum(steps), statistics.median(updates)]


def nanoseconds(n, repetitions):
    """The median of each step, in ns a parameter."""
    return [statistics.median(step) / n**2 * 1e9
            for step in zip(*(road(n) for _ in range(repetitions)))]
