"""The chains of sparse assembly beside SciPy's, on the same random triplets: sorting by row and
column with repeats summed, and the column-sorted copy of what that leaves. Times are those of the
thread, as a time slice of another process is longer than a small chain."""

import statistics
import time

import numpy
import scipy.sparse

from workloads import closure


class Chain:
    """Steps (closure, arguments) that count in `pointers`; `seconds` has one list for each step."""

    def __init__(self, pointers, steps):
        self.pointers, self.seconds = pointers, {number: [] for number, _ in steps}
        self._steps = [(number, closure(number), arguments) for number, arguments in steps]

    def run(self):
        """Returns the seconds in the closures."""
        for pointer in self.pointers:
            pointer.fill(0)
        total = 0.0
        for number, method, arguments in self._steps:
            start = time.thread_time()
            method(*arguments)
            elapsed = time.thread_time() - start
            self.seconds[number].append(elapsed)
            total += elapsed
        return total


def triplets(n):
    """`n` random entries in n / 10 rows and columns; one of ten repeats the place of another."""
    rng = numpy.random.default_rng(1)
    subi, subj = rng.integers(0, n // 10, (2, n), dtype=numpy.int32)
    once = n - n // 10
    repeated = rng.integers(0, once, n - once)
    subi[once:], subj[once:] = subi[repeated], subj[repeated]
    order = rng.permutation(n)
    return subi[order], subj[order], rng.random(n)


def pointers(count):
    return numpy.empty(count + 2, numpy.int64)


def empty_triplets(n):
    """Like SciPy's own (NumPy gives these large pages), but with all memory touched before."""
    arrays = numpy.empty(n, numpy.int32), numpy.empty(n, numpy.int32), numpy.empty(n)
    for array in arrays:
        array.fill(0)
    return arrays


def sums(n, subi, subj, val):
    """Sorted sums, and SciPy's: a Chain, its result, and a function."""
    count = n // 10
    cptrb, rptrb, cols, rows = pointers(count), pointers(count), *empty_triplets(n)[:2]
    result = empty_triplets(n)
    chain = Chain((cptrb, rptrb), (
        (121, (cptrb, n, subj)), (122, (cptrb, count)), (123, (cols, cptrb, n, subj)),
        (124, (n, rptrb, subi)), (125, (count, rptrb)),
        (126, (cols, cptrb, count, rows, rptrb, subi)), (127, (n, 1, rows, subi, subj)),
        (128, (1, n, rows, subi, subj, *result, val))))
    first = numpy.lexsort((subj, subi))[0]  # the host writes the first entry
    for target, source in zip(result, (subi, subj, val)):
        target[0] = source[first]
    matrix = scipy.sparse.coo_matrix((val, (subi, subj)), (count, count))
    return chain, result, matrix.tocsr


def transposition(csr):
    """The column-sorted copy of a matrix, and SciPy's, told as by `sums`."""
    count, n = csr.shape[0], csr.nnz
    subi = numpy.repeat(numpy.arange(count, dtype=numpy.int32), numpy.diff(csr.indptr))
    cptrb, rptrb, result = pointers(count), pointers(count), empty_triplets(n)
    chain = Chain((cptrb, rptrb), (
        (117, (cptrb, n, rptrb, subi, csr.indices)), (118, (count + 1, rptrb)),
        (119, (cptrb, count)),
        (120, (cptrb[1:], count, rptrb[1:], csr.indices, *result, csr.data))))
    return chain, result, csr.tocsc


def major_sorted(matrix):
    """The triplets (major, minor, value) of a compressed matrix."""
    ends = numpy.diff(matrix.indptr)
    return numpy.repeat(numpy.arange(len(ends)), ends), matrix.indices, matrix.data


def compare(n, order, chain, result, peer, repetitions):
    """Medians over repetitions that alternate: seconds of the chain, seconds of the peer, their
    ratio, and seconds by closure. `order` has the places of `result` as the peer sorts them."""
    ours, theirs = [], []
    for _ in range(repetitions):
        ours.append(chain.run())
        start = time.thread_time()
        matrix = peer()
        theirs.append(time.thread_time() - start)
    for place, expected in zip(order, major_sorted(matrix)):  # SciPy adds repeats in any order
        assert numpy.allclose(result[place][:matrix.nnz], expected, 1e-12, 0), "not SciPy's result"
    return (statistics.median(ours), statistics.median(theirs),
            statistics.median(b / a for a, b in zip(ours, theirs)),
            {number: statistics.median(each) for number, each in chain.seconds.items()})


def rows(most, repetitions):
    """For each chain and size: what it is, entries, and what `compare` returns."""
    for n in (10**5, 10**6, 10**7):
        if n > most:
            continue
        chain, result, tocsr = sums(n, *triplets(n))
        yield "sort and sum", n, compare(n, (0, 1, 2), chain, result, tocsr, repetitions)
        csr = tocsr()
        yield ("column-sorted copy", csr.nnz,
               compare(n, (1, 0, 2), *transposition(csr), repetitions))
