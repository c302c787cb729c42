"""The host at size: triplets put in order, what GLPK's columns come to, the steps of long work."""

import os
import random
import subprocess
import sys
import tempfile
import unittest

from host.data.assembly import sort_triplets, transpose_triplets
from support import f64, i32, i64, prefix
from test_host import MIXED, Problem, needs_glpk


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


@needs_glpk
class Columns(unittest.TestCase):
    def test_matrices_of_ranges(self):
        for seed in range(60):
            rng = random.Random(seed)
            rows, columns, triplets = random_triplets(rng)
            entries = {(i, j): value for i, j, value in triplets}
            problem = Problem()
            problem.add_rows(rows)
            problem.add_columns(columns)
            for i in rng.sample(range(rows), rows):  # the library has the columns in any order then
                row = sorted((j + 1, value) for (k, j), value in entries.items() if k == i)
                problem.set_rows([i + 1], [0], [len(row)], i32(j for j, _ in row),
                                 f64(value for _, value in row))
            cut = rng.randrange(columns + 1)
            ranges = [(0, cut), (cut, columns), (cut, cut)]
            for (first, last), m in zip(ranges, problem.matrices(ranges)):
                self.assertEqual((m.rows, m.columns), (rows, last - first))
                self.assertEqual(list(zip(m.msubi, m.msubj, m.mval)), sorted(
                    (i, j - first, value) for (i, j), value in entries.items()
                    if first <= j < last))


@needs_glpk
class Steps(unittest.TestCase):
    def test_steps_on_a_terminal(self):
        steps = ["reading", "building", "solving", "alone"]
        for text, status, expected, left in ((MIXED, 0, steps, r"\A *\Z"),
                                             ("nothing", 2, steps[:1], r"\Ahost: .*MPS file")):
            with tempfile.NamedTemporaryFile("w") as model:
                print(text, file=model, flush=True)
                terminal, standard_error = os.openpty()
                found = subprocess.call([sys.executable, "-m", "host", model.name],
                                        stdout=subprocess.DEVNULL, stderr=standard_error)
                os.close(standard_error)
                shown = os.read(terminal, 65536).decode().replace("\r\n", "\n")
                os.close(terminal)
            self.assertEqual((found, [s for s in steps if s in shown]), (status, expected))
            screen = ""
            for part in shown.split("\r"):
                screen = part + screen[len(part) :]
            self.assertRegex(screen, left)


if __name__ == "__main__":
    unittest.main()
