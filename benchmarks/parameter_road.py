"""The road of an n x n matrix of parameters times a variable of n entries: from the variable to
stored rows, and from new values of all parameters to the coefficients of the rows."""

import array
import statistics
import time

from host.model import Model
from host.row_store import RowStore
from host.variables import Variable

BUILD = ("product", "merging and simplification", "storing")
STEPS = (*BUILD, "build", "update")


def road(n):
    """Seconds in each of the steps."""
    model, store = Model(None), RowStore()
    ev, matrix = model.evaluator, model.parameter_array([n, n], array.array("d", [1.0]) * (n * n))
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
        matrix.values = values
        _, _, coefficients = store.evaluate(model.param_value, ev.x)
        updates.append(time.thread_time() - start)
    assert coefficients == values
    return [*steps, sum(steps), statistics.median(updates)]


def nanoseconds(n, repetitions):
    """The median of each step, in ns a parameter."""
    return [statistics.median(step) / n**2 * 1e9
            for step in zip(*(road(n) for _ in range(repetitions)))]
