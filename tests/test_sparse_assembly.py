"""Sparse matrices from triplets: sorting, summing repeats, transposing; merging of sorted runs."""

import itertools
import random
import unittest

from support import LAYOUTS, MARKER, call, f64, i32, i64, prefix

MAKE = {"i": i32, "q": i64, "d": f64}


def cases():
    """(nrow, ncol, triplets in any order with repeats, layout of all arrays)"""
    long = 140_000, LAYOUTS[0]  # no array of it stays near
    for seed, (n, lay) in enumerate([*itertools.product([0, 1, 5, 30] * 20, LAYOUTS), long]):
        rng = random.Random(seed)
        nrow, ncol = rng.randrange(1, 7), rng.randrange(1, 7)
        yield nrow, ncol, [(rng.randrange(nrow), rng.randrange(ncol), rng.random() - 0.5)
                           for _ in range(n)], lay


def arrays(kinds, rows, lay):
    """An array for each column of a table."""
    return [lay(MAKE[kind](row[k] for row in rows)) for k, kind in enumerate(kinds)]


class SparseAssembly(unittest.TestCase):
    def test_sorted_sums(self):
        for nrow, ncol, triplets, lay in cases():
            n, (subi, subj, val) = len(triplets), arrays("iid", triplets, lay)
            cptrb, rptrb = lay(i64([0] * (ncol + 2))), lay(i64([0] * (nrow + 2)))
            cols, rows = arrays("ii", [(MARKER["i"],) * 2] * (n + 1), lay)
            call(121, cptrb, n, subj)
            call(122, cptrb, ncol)
            call(123, cols, cptrb, n + 2**32, subj)  # the low 32 bits count
            call(124, n, rptrb, subi)
            call(125, nrow, rptrb)
            call(126, cols, cptrb, ncol, rows, rptrb, subi)
            by_place = sorted(range(n), key=lambda k: triplets[k][:2])
            self.assertEqual(list(cols), sorted(range(n), key=list(subj).__getitem__)
                             + [MARKER["i"]])
            self.assertEqual(list(rows), by_place + [MARKER["i"]])
            for ptr, sub, count in ((rptrb, subi, nrow), (cptrb, subj, ncol)):
                self.assertEqual(list(ptr)[: count + 1], prefix(map(list(sub).count, range(count))))

            sums = {}
            for i, j, value in (triplets[k] for k in by_place):  # added in the order of the list
                sums[i, j] = sums[i, j] + value if (i, j) in sums else value
            mark = [tuple(MARKER[kind] for kind in "iid")]
            first = [triplets[k] for k in by_place[:1]]
            target = arrays("iid", mark + first + mark * n, lay)
            top = call(128, 1 + len(first), n, rows, subi, subj, *target, val)
            self.assertEqual(call(127, n, len(first), rows, subi, subj), len(sums))
            self.assertEqual(list(zip(*target)), mark + [(*place, v) for place, v in sums.items()]
                             + mark * (n + 1 + len(first) - top))

    def test_transposition(self):
        for (nrow, ncol, triplets, lay), (number, kinds) in itertools.product(
                cases(), ((113, "qqd"), (117, "iid"))):
            triplets, n = sorted(triplets, key=lambda t: t[0]), len(triplets)
            subi, subj, val = arrays("iid", triplets, lay)
            cptrb, rptrb = (memoryview(lay(i64([0] * (d + 2)))) for d in (ncol, nrow))
            mark = [tuple(MARKER[kind] for kind in kinds)]
            target = arrays(kinds, mark * (n + 1), lay)
            call(number, cptrb, n, rptrb, subi, subj)
            call(number + 1, nrow + 1, rptrb)  # up to the end of the last row
            call(number + 2, cptrb, ncol)
            call(number + 3, cptrb[1:], nrow, rptrb[1:], subj, *target, val)
            self.assertEqual(list(zip(*target)), sorted(triplets, key=lambda t: t[1]) + mark)

    def test_merged_runs(self):
        for seed, lay in itertools.product(range(80), LAYOUTS):
            rng = random.Random(seed)
            lo, mid, hi = sorted(rng.randrange(90) for _ in range(3))
            vals, src = [rng.randrange(-5, 5) for _ in range(90)], rng.sample(range(90), 90)
            left, right = (sorted(run, key=vals.__getitem__) for run in (src[lo:mid], src[mid:hi]))
            src[lo:hi], tgt = left + right, lay(i32([MARKER["i"]] * 90))
            call(129, lo, mid, hi, lay(i32(src)), tgt, lay(i32(vals)))
            merged = sorted(right + left, key=vals.__getitem__)  # of equal keys the right run first
            self.assertEqual(list(tgt), [MARKER["i"]] * lo + merged + [MARKER["i"]] * (90 - hi))


if __name__ == "__main__":
    unittest.main()
