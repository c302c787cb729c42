"""Speed of the closures, as ratios measured side by side in one run.

    python run.py [--numpy] [--most TERMS] [--repetitions N] [PATTERN]

Needs the modules `fragments` and `benchmark_reference` on the path. Every figure is the median of
several repetitions that alternate between the closure and what it is measured against, in time of
the processor, so that other processes count little. Only the benchmarks whose name contains PATTERN
run. With --numpy they are those that take NumPy's arrays.
"""

import argparse
import array
import itertools
import statistics
import sys
import time

import benchmark_reference as reference
import linear_model
import parameter_road
import workloads
from workloads import closure

MIN_SECONDS = 0.02  # of one repetition


def seconds(work, calls):
    start = time.thread_time()
    for _ in itertools.repeat(None, calls):
        work()
    return (time.thread_time() - start) / calls


def measure(works, repetitions):
    """Median seconds a call of each work, and the medians of their ratios to the first."""
    once = max(seconds(work, 1) for work in works)
    calls = max(1, int(MIN_SECONDS / max(once, 1e-9)))
    samples = [[seconds(work, calls) for work in works] for _ in range(repetitions)]
    columns = list(zip(*samples))
    ratios = [[row[k] / row[0] for row in samples] for k in range(len(works))]
    return [statistics.median(c) for c in columns], [statistics.median(r) for r in ratios]


def table(title, heads, rows):
    print("\n" + title)
    print("  " + "".join(h.rjust(w) if k else h.ljust(w) for k, (h, w) in enumerate(heads)))
    for row in rows:
        print("  " + "".join(c.rjust(w) if k else c.ljust(w)
                             for k, (c, (_, w)) in enumerate(zip(row, heads))), flush=True)


def frame(options):
    arrays = {kind: array.array(kind, [0]) for kind in "iqd"}
    exporters = {"array.array": lambda a: a, "memoryview": memoryview}
    if options.numpy:
        import numpy
        exporters = {"NumPy": lambda a: numpy.array(a)}

    def rows():
        for exporter, make in exporters.items():
            i, q, d = (make(arrays[kind]) for kind in "iqd")
            many = (0,) * 11 + (d,) + (0,) * 7 + (d, i, q) + (0,) * 4 + (d, i, q, i)
            for label, number, by_hand, arguments in (
                ("518: 3 parameters, 1 array", 518, reference.frame_3, (i, 0, 0)),
                ("480: 30 parameters, 8 arrays", 480, reference.frame_30, many),
            ):
                ours = closure(number)
                times, ratios = measure(
                    [lambda: by_hand(*arguments), lambda: ours(*arguments)],
                    options.repetitions * 5)
                yield (label, exporter, "%.0f" % (times[1] * 1e9), "%.0f" % (times[0] * 1e9),
                       "%.3f" % ratios[1])

    table("Frame: time of a call with nothing to do, against one that parses the tuple and takes "
          "memoryviews",
          [("closure", 30), ("arrays", 13), ("ns", 8), ("by hand", 10), ("ratio", 8)], rows())


def blocks(options):
    def rows():
        for n in (10**4, 10**7):
            q, q2 = array.array("q", [1]) * n, array.array("q", [2]) * n
            d, d2 = array.array("d", [1.0]) * n, array.array("d", [2.0]) * n
            i = array.array("i", [1]) * n
            copy, fill = reference.block_copy, reference.block_fill
            for number, label, ours, theirs, size in (
                (382, "382: copy of i64", (0, n, q, 0, q2), (copy, q, q2), 8),
                (383, "383: copy of f64", (0, n, 0, d, d2), (copy, d, d2), 8),
                (608, "608: fill of i32", (i, n, 0), (fill, i), 4),
            ):
                function = closure(number)
                times, ratios = measure(
                    [lambda: function(*ours), lambda: theirs[0](*theirs[1:])], options.repetitions)
                gb = ["%.1f" % (size * n / t / 1e9) for t in times]
                yield label, "%.0e" % n, gb[0], gb[1], "%.2f" % ratios[1]

    table("Copies and fills: GB written a second, and our speed as a share of the C library's",
          [("closure", 30), ("elements", 10), ("ours", 8), ("memcpy/memset", 15), ("share", 8)],
          rows())


def terms(options):
    def rows():
        for name, make in workloads.all():
            if options.pattern not in name:
                continue
            before = None
            for size in (10**4, 10**5, 10**6, 10**7):
                if size > options.most:
                    continue
                work = make(size)
                function = closure(work.number)
                works = [lambda: function(*work.arguments)]
                plain = getattr(reference, "plain_%d" % work.number, None)
                if plain is not None:
                    works.append(lambda: plain(*work.arguments))
                if work.reset is not None:
                    works = [lambda f=f: (work.reset(), f()) for f in works] + [work.reset]
                times, ratios = measure(works, options.repetitions)
                if work.reset is not None:
                    times = [t - times[-1] for t in times[:-1]]
                    ratios = [t / times[0] for t in times]
                each = times[0] / work.terms * 1e9
                yield (name, "%.0e" % size, "%.2f" % each,
                       "" if before is None else "%.2f" % (each / before),
                       "" if plain is None else "%.2f" % ratios[1])
                before = each

    if options.pattern and not any(options.pattern in name for name, _ in workloads.all()):
        return
    table("Loops: ns a term, growth of that against ten times fewer terms, and speed against plain "
          "strided loops",
          [("closure", 54), ("terms", 8), ("ns/term", 10), ("growth", 8), ("plain/ours", 12)],
          rows())


def parameters(options):
    few, many = (parameter_road.nanoseconds(n, options.repetitions) for n in (300, 1000))
    table("Parameter road: ns a parameter, for n x n parameters times a variable of n entries",
          [("step", 54), ("n = 300", 10), ("n = 1000", 10), ("growth", 8)],
          ((step, "%.1f" % a, "%.1f" % b, "%.2f" % (b / a))
           for step, a, b in zip(parameter_road.STEPS, few, many)))


def linear(options):
    each, peer = linear_model.nanoseconds(options.repetitions)
    table("Linear model with 2e6 nonzeros, from the variable to the solver's rows: ns a nonzero",
          [("part", 54), ("ns", 10), ("of GLPK's load", 16)],
          ((part, "%.0f" % t, "%.2f" % (t / peer)) for part, t in each.items()))


def assembly(options):
    heads = [("chain", 20), ("entries", 9), ("ns/entry", 10), ("SciPy", 8), ("SciPy/ours", 12),
             ("   of which", 0)]
    title = "Sparse assembly: ns an entry, and speed against SciPy"
    try:
        import assembly as chains
    except ImportError as error:
        return table(title, heads[:1], [("left out: %s; on Debian: apt-get install python3-scipy"
                                         % error,)])

    def rows():
        for chain, n, (ours, theirs, ratio, by_closure) in chains.rows(options.most,
                                                                      options.repetitions):
            each = lambda seconds: seconds / n * 1e9
            yield (chain, "%.0e" % n, "%.1f" % each(ours), "%.1f" % each(theirs), "%.2f" % ratio,
                   "   " + ", ".join("%d: %.1f" % (number, each(t))
                                     for number, t in by_closure.items()))

    table(title, heads, rows())


PARTS = {"frame": frame, "blocks": blocks, "parameters": parameters, "linear": linear,
         "loops": terms}
NUMPY_PARTS = {"frame": frame, "assembly": assembly}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--numpy", action="store_true", help="what takes NumPy's arrays, alone")
    parser.add_argument("--most", type=int, default=10**7, help="largest number of terms")
    parser.add_argument("--repetitions", type=int, default=7)
    parser.add_argument("pattern", nargs="?", default="", metavar="PATTERN")
    options = parser.parse_args()
    if options.repetitions < 1:
        parser.error("--repetitions must be at least 1")
    for name, part in (NUMPY_PARTS if options.numpy else PARTS).items():
        if name == "loops" or options.pattern in name:
            part(options)
    return 0


if __name__ == "__main__":
    sys.exit(main())
