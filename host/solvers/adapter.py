"""What all adapters of solvers have in common, and what a caller tells them."""

from __future__ import annotations

import sys
from dataclasses import dataclass
from numbers import Real
from typing import Callable, ClassVar, FrozenSet, Optional

from .problem import Problem, Solution

AUTOMATIC, STANDARD, GEOMETRIC = FORMS = "auto", "standard", "geometric"
BASIS = "basis"


class SolverError(Exception):
    """What a solver can't do, or why it failed; the text is one line for the user."""


@dataclass
class Options:
    """How to solve: for `time_limit` seconds at most; every line that the solver prints goes to
    `log`, in the thread of the caller; `start` is None or "basis", to go on from where the last
    solution ended; `form` is "auto", "standard" or "geometric" (see forms).

    Raises ValueError if that is none of these.
    """

    time_limit: Optional[float] = None
    log: Optional[Callable[[str], object]] = None
    start: Optional[str] = None
    form: str = AUTOMATIC

    def __post_init__(self) -> None:
        if self.time_limit is not None and not (isinstance(self.time_limit, Real)
                                                and self.time_limit >= 0.0):
            raise ValueError("a time limit is a number of seconds from 0 on, not %r"
                             % (self.time_limit,))
        if self.start not in (None, BASIS):
            raise ValueError('start is None or "basis", not %r' % (self.start,))
        if self.form not in FORMS:
            raise ValueError("a form is %s, not %r" % (" or ".join(map(repr, FORMS)), self.form))

    def tell(self, line: str) -> None:
        if self.log is not None:
            self.log(line)

    @property
    def seconds(self) -> float:
        """The time limit as a number."""
        return sys.float_info.max if self.time_limit is None else self.time_limit


class Adapter:
    """A solver. `takes` are the kinds of models that it takes, of "linear", "integer", "quadratic"
    and "semidefinite". With `in_place`, what has been loaded can be changed, by the methods that
    the adapter has for that; with `warm` it can start from the basis of the solution before."""

    name: ClassVar[str]
    takes: ClassVar[FrozenSet[str]]
    in_place: ClassVar[bool] = False
    warm: ClassVar[bool] = False

    @staticmethod
    def missing() -> Optional[str]:
        """None if the solver is there, else one line: what is missing, and how to get it."""
        raise NotImplementedError

    def load(self, problem: Problem) -> None:
        """Takes the problem in the place of the one before."""
        raise NotImplementedError

    def solve(self, options: Options) -> Solution:
        """Solves what is loaded. Raises SolverError if the solver fails, and KeyboardInterrupt at
        Ctrl-C; what is loaded can be solved again after either."""
        raise NotImplementedError
