"""Triplets put in order, summed up and transposed."""

import random
import unittest

from host.data.assembly import sort_triplets, transpose_triplets
from support import f64, i32, i64, prefix


def random_triplets(rng):
    rows, columns = rng.randrange(1, 7), rng.randrange(1, 7)
    return rows, columns, [(rng.randrange(rows), rng.randrange(columns), rng.random())
                           for _ in range(rng.choice([0, 1, 20]))]


def arrays(triplets):
    return [make(t[k] for t in triplets) for k, make in enumerate((i32, i32, f64))]


class Assembly(unittest.TestCase):
    def test_sorted_sums(self):
        for seed in range(60):
            rows, columns, triplets = random_triplets(random.Random(seed))
            sums = {}
            for i, j, value in triplets:
                sums[i, j] = sums.get((i, j), 0.0) + value
            self.assertEqual(list(zip(*sort_triplets(rows, columns, *arrays(triplets)))),
                             [(i, j, sums[i, j]) for i, j in sorted(sums)])

    def test_transposition(self):
        for seed in range(60):
            rng = random.Random(seed)
            rows, columns, triplets = random_triplets(rng)
            triplets.sort(key=lambda t: t[0])
            starts = lambda sub, count: prefix(map(list(sub).count, range(count)))
            subi, subj, val = arrays(triplets)
            first = rng.randrange(rows + 1)  # the rows before that are left out
            kept = sorted((t for t in triplets if t[0] >= first), key=lambda t: t[1])
            ptr = i64(starts(subi, rows)[first:])
            ptr, tsubi, tval = transpose_triplets(ptr, columns, subj, val)
            self.assertEqual(list(zip(tsubi, tval)), [(i - first, value) for i, _, value in kept])
            self.assertEqual(list(ptr), starts([j for _, j, _ in kept], columns))


if __name__ == "__main__":
    unittest.main()
