"""Builds the rows of a model in shards, on the workers of a local Dask cluster.

    python examples/sharded.py [--nonzeros N] [--workers N] [--shards N ...] [--runs N]

Rows are independent of each other: each worker has stacks of its own, takes a range of the rows of
A x + b and gives back their constants, starts, variables and coefficients. The rows are compared
with those that this process builds alone, and the parts of the time are printed, each of the
fastest of several runs. Needs NumPy and Dask's scheduler (Debian's python3-distributed).
"""

import argparse
import sys
import time

import distributed
import numpy

import first_host

COLUMNS = 1000


def matrix(nonzeros):
    """A random sparse matrix in the order of the closures, (subi, subj, val), and the constants."""
    rows = max(8, nonzeros // 100)
    random = numpy.random.default_rng(1)
    places = numpy.sort(random.choice(rows * COLUMNS, nonzeros, replace=False, shuffle=False))
    subi, subj = (x.astype("i") for x in divmod(places, COLUMNS))
    return subi, subj, random.random(len(places)), random.random(rows)


def cut(subi, subj, val, b, count):
    """The matrix and the constants in `count` ranges of rows."""
    bounds = numpy.linspace(0, len(b), count + 1).astype("i")
    places = numpy.searchsorted(subi, bounds)
    for k in range(count):
        entries = slice(places[k], places[k + 1])
        yield (subi[entries] - bounds[k], subj[entries], val[entries],
               b[bounds[k] : bounds[k + 1]])


def build(shard):
    """The rows of one shard, and the seconds that they took."""
    start = time.perf_counter()
    # What comes over the wire may lie at any address, and NumPy gives such an array another format.
    subi, subj, val, b = (numpy.require(part, requirements=["ALIGNED"]) for part in shard)
    s = first_host.Stack(5 * len(val) + 10 * (len(b) + COLUMNS))
    x = first_host.variable(s, numpy.arange(1, COLUMNS + 1))
    ax = first_host.product(s, len(b), COLUMNS, subi, subj, val, x)
    total = first_host.total(s, first_host.constant(s, b), ax)
    rows = first_host.model_rows(s, first_host.in_order(s, total))
    return [numpy.asarray(part) for part in rows], time.perf_counter() - start


def joined(parts):
    """The rows of all shards as those of one model."""
    fixed, starts, variables, coefficients = zip(*parts)
    ends = numpy.cumsum([0] + [p[-1] for p in starts])
    ptrb = [p[:-1] + end for p, end in zip(starts, ends)] + [ends[-1:]]
    return [numpy.concatenate(x) for x in (fixed, ptrb, variables, coefficients)]


def clocked(function, *arguments):
    start = time.perf_counter()
    result = function(*arguments)
    return result, time.perf_counter() - start


def sharded(client, shards):
    """The rows, and the seconds of sending, building, the sum of that over shards, gathering."""
    held, sending = clocked(lambda: client.scatter(shards, hash=False))
    built = client.map(build, held, pure=False)
    _, building = clocked(distributed.wait, built)
    results, gathering = clocked(client.gather, built)
    rows, joining = clocked(joined, [rows for rows, _ in results])
    return rows, sending, building, sum(seconds for _, seconds in results), gathering + joining


def fastest(runs, function, *arguments):
    """What the fastest of several runs returns, by the sum of its seconds."""
    return min((function(*arguments) for _ in range(runs)), key=lambda result: sum(result[1:]))


def positive(text):
    if int(text) < 1:
        raise argparse.ArgumentTypeError("%s is not at least 1" % text)
    return int(text)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--nonzeros", type=positive, default=2 * 10**6)
    parser.add_argument("--workers", type=positive, default=2)
    parser.add_argument("--shards", type=positive, nargs="+", default=[1, 2, 4, 8])
    parser.add_argument("--runs", type=positive, default=3)
    options = parser.parse_args()

    data = matrix(options.nonzeros)
    expected, alone = fastest(options.runs, build, next(cut(*data, 1)))
    print("%d rows, %d nonzeros, %d workers; seconds" % (len(data[3]), len(data[2]), options.workers))
    print("shards   send  build  (sum of shards)  gather  total  one process / total")
    print("  none         %6.3f %25s %6.3f" % (alone, "", alone))
    with distributed.LocalCluster(n_workers=options.workers, threads_per_worker=1,
                                  dashboard_address=None) as cluster, cluster.get_client() as client:
        sharded(client, list(cut(*matrix(1000), options.workers)))  # workers import what they need
        for count in options.shards:
            rows, send, building, each, gather = fastest(
                options.runs, sharded, client, list(cut(*data, count)))
            if not all(map(numpy.array_equal, rows, expected)):
                return "the rows of %d shards are not those of one process" % count
            total = send + building + gather
            print("%6d %6.3f %6.3f %16.3f %7.3f %6.3f %20.2f"
                  % (count, send, building, each, gather, total, alone / total))
    return 0


if __name__ == "__main__":
    sys.exit(main())
