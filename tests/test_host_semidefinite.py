"""SDPA's format: what is written is read, also by way of a model; errors name the line."""

import io
import random
import unittest
import unittest.mock

from host.demo.semidefinite import build
from host.formats.sdpa import FormatError, SdpaProblem
from host.solvers.csdp import sdpa_text
from support import f64


def sdpa(constraints, blocks, c, *entries):
    return "\n".join((str(constraints), str(len(blocks)), " ".join(map(str, blocks)), c,
                      *entries)) + "\n"


class Format(unittest.TestCase):
    def read(self, text):
        with unittest.mock.patch("builtins.open", lambda *_, **__: io.StringIO(text)):
            return SdpaProblem.read("F")

    def test_what_is_written_is_read(self):
        rng = random.Random(1)
        blocks = [3, -4, 2]
        problem = SdpaProblem.empty(blocks, f64([rng.random(), -1e-300]))
        for k in range(3):
            for b, n in enumerate(blocks):
                for i in range(abs(n)):
                    problem.append(k, b, i, i if n < 0 else rng.randrange(i, n), rng.random() - 0.5)
        text = io.StringIO()
        problem.write(text)
        self.assertEqual(self.read(text.getvalue()), problem)
        built = build(problem)
        built.parameter.value = 3.0
        problem.c = f64([3.0 * c for c in problem.c])
        # Blocks come in their order, entries too.
        self.assertEqual(self.read(sdpa_text(built.model.problem())), problem)

    def test_errors_name_the_line(self):
        for line, what, text in (
            (1, "number of constraints is 0", sdpa(0, [1], "")),
            (3, "dimension 0", sdpa(1, [0], "1")), (3, "more than", sdpa(1, [1, 10 ** 5], "1")),
            (4, "1 of 2 numbers stand where the constants", sdpa(2, [2], "1")),
            (5, "five numbers", sdpa(1, [2], "1", "* late", "1 1 1 1 1")),
            (2, "0 of 1 numbers stand where the number of blocks", "1\n\n1\n2\n1\n"),
            (4, "'1_0' stands", sdpa(1, [2], "1_0")),
            (4, "not finite", sdpa(1, [2], "inf")),
            (5, "five numbers", sdpa(1, [2], "1", "1 1 1 1")),
            (5, "five numbers", sdpa(1, [2], "1", "1 1 1 1 1 more")),
            (5, "five numbers", sdpa(1, [2], "1", "1,1,1,1,1")),
            (5, "no matrix 2", sdpa(1, [2], "1", "2 1 1 1 1")),
            (5, "no block 2", sdpa(1, [2], "1", "1 2 1 1 1")),
            (5, "not on the diagonal", sdpa(1, [-2], "1", "1 1 1 2 1")),
            (6, "stands twice", sdpa(1, [2], "1", "1 1 1 2 1", "1 1 2 1 1")),
        ):
            with self.assertRaisesRegex(FormatError, r"F .*line %d: .*%s" % (line, what)):
                self.read(text)


if __name__ == "__main__":
    unittest.main()
