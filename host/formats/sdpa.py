"""Semidefinite problems in SDPA's sparse format.

A problem has blocks of semidefinite matrices X and m constraints:

    maximise  <F0, X>  subject to  <Fk, X> = c[k]  for k from 1 to m,  X semidefinite.

All Fk are symmetric, with the blocks of X. A block of negative dimension is a diagonal one. An
entry stands once, in either triangle, for both of its places.

Read is what solvers take for the same: comments come before all else, the numbers of constraints
and of blocks, the dimensions and the constants have a line each, with commas and brackets if one
likes and anything behind, and an entry is a line of five numbers. Only there lines may be blank.
"""

from __future__ import annotations

import re
from array import array
from dataclasses import dataclass
from math import inf
from typing import Callable, IO, Iterable, List, Optional, Sequence, Set, Tuple, TypeVar

from ..data.buffers import LARGEST

Number = TypeVar("Number", int, float)
NUMBER = re.compile(r"[^\s,(){}=]+")


class FormatError(Exception):
    """What is wrong with a file, in one line that names the line of the file."""


@dataclass
class SdpaProblem:
    """`blocks` are the dimensions, diagonal ones negative; `c` (f64) the m constants. The entries
    of all matrices stand in parallel lists: `matrix` (0 for F0), `block`, `row`, `column` (i32, all
    but `matrix` counted from 0, row <= column) and `value` (f64)."""

    blocks: List[int]
    c: array[float]
    matrix: array[int]
    block: array[int]
    row: array[int]
    column: array[int]
    value: array[float]

    @classmethod
    def empty(cls, blocks: List[int], c: array[float]) -> SdpaProblem:
        return cls(blocks, c, array("i"), array("i"), array("i"), array("i"), array("d"))

    def append(self, matrix: int, block: int, row: int, column: int, value: float) -> None:
        self.matrix.append(matrix)
        self.block.append(block)
        self.row.append(min(row, column))
        self.column.append(max(row, column))
        self.value.append(value)

    @classmethod
    def read(cls, path: str) -> SdpaProblem:
        """Raises OSError if the file can't be read, FormatError if it is not of this format."""
        with open(path, encoding="ascii", errors="replace") as file:
            return _Reader(path, file).problem()

    def objective(self, X: Sequence[Sequence[float]]) -> float:
        """<F0, X> for the blocks of X, matrices row by row and diagonals."""
        total = 0.0
        for k, b, i, j, v in zip(self.matrix, self.block, self.row, self.column, self.value):
            if k == 0:
                place = i if self.blocks[b] < 0 else self.blocks[b] * i + j
                total += (v if i == j else 2.0 * v) * X[b][place]
        return total

    def write(self, file: IO[str]) -> None:
        """Values are written with all their digits."""
        file.write("%d\n%d\n%s\n%s\n" % (len(self.c), len(self.blocks),
                                         " ".join(map(str, self.blocks)),
                                         " ".join(map(repr, self.c))))
        for k, b, i, j, v in zip(self.matrix, self.block, self.row, self.column, self.value):
            file.write("%d %d %d %d %r\n" % (k, b + 1, i + 1, j + 1, v))


class _Reader:
    def __init__(self, path: str, file: Iterable[str]) -> None:
        self.path, self.lines, self.number = path, iter(file), 0

    def error(self, text: str) -> FormatError:
        return FormatError("%s is not in SDPA's sparse format: line %d: %s"
                           % (self.path, self.number, text))

    def line(self) -> Optional[str]:
        """The next line, or None."""
        line = next(self.lines, None)
        self.number += line is not None
        return line

    def numbers(self, kind: Callable[[str], Number], count: int, what: str, comments: str = ""
                ) -> List[Number]:
        """The first `count` numbers of the next line that begins with none of `comments`; what
        stands behind them is a comment."""
        line = self.line()
        while line is not None and line[:1] in tuple(comments):
            line = self.line()
        if line is None:
            raise self.error("the file ends before %s" % what)
        found = [self.parse(kind, text, what) for text in NUMBER.findall(line)[:count]]
        if len(found) < count:
            raise self.error("%d of %d numbers stand where %s should" % (len(found), count, what))
        return found

    def parse(self, kind: Callable[[str], Number], text: str, what: str) -> Number:
        try:
            value = kind(text.replace("_", "?"))  # which Python allows in numbers
        except ValueError:
            raise self.error("%r stands where %s should" % (text, what)) from None
        if not -inf < value < inf:
            raise self.error("%s is not finite" % what)
        return value

    def problem(self) -> SdpaProblem:
        (m,) = self.numbers(int, 1, "the number of constraints", comments='"*')
        if m < 1:
            raise self.error("the number of constraints is %d" % m)
        (nblock,) = self.numbers(int, 1, "the number of blocks")
        if nblock < 1:
            raise self.error("the number of blocks is %d" % nblock)
        blocks = self.numbers(int, nblock, "the dimensions of the blocks")
        if 0 in blocks:
            raise self.error("a block has the dimension 0")
        if sum(n * n if n > 0 else -n for n in blocks) > LARGEST:
            raise self.error("the blocks have more than %d places" % LARGEST)
        # A dimension of 1 is a diagonal block as well.
        problem = SdpaProblem.empty([-1 if n == 1 else n for n in blocks],
                                    array("d", self.numbers(float, m, "the constants")))
        seen: Set[Tuple[int, int, int, int]] = set()
        for line in iter(self.line, None):
            if line.strip():
                self.entry(problem, line.split(), seen)
        return problem

    def entry(self, problem: SdpaProblem, texts: List[str],
              seen: Set[Tuple[int, int, int, int]]) -> None:
        if len(texts) != 5:
            raise self.error("an entry needs five numbers: matrix, block, row, column and value")
        k, b, i, j = (self.parse(int, text, "an index") for text in texts[:4])
        value = self.parse(float, texts[4], "a value")
        if not 0 <= k <= len(problem.c):
            raise self.error("there is no matrix %d" % k)
        if not 1 <= b <= len(problem.blocks):
            raise self.error("there is no block %d" % b)
        n = problem.blocks[b - 1]
        if not 1 <= min(i, j) <= max(i, j) <= abs(n):
            raise self.error("the entry (%d, %d) lies outside of block %d, which has the dimension "
                             "%d" % (i, j, b, abs(n)))
        if n < 0 and i != j:
            raise self.error("the entry (%d, %d) is not on the diagonal of the diagonal block %d"
                             % (i, j, b))
        place = (k, b, min(i, j), max(i, j))
        if place in seen:
            raise self.error("the entry (%d, %d) of matrix %d, block %d stands twice"
                             % (i, j, k, b))
        seen.add(place)
        if value != 0.0:
            problem.append(k, b - 1, i - 1, j - 1, value)
