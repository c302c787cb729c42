"""Two roads to the solution of one problem, side by side: through the closures, and by the solver
alone."""

from __future__ import annotations

import math
import time
from dataclasses import dataclass, field
from typing import Any, Callable, List, Sequence, Tuple

from ..closures import closure
from .progress import progress


@dataclass
class Outcome:
    """What one road came to. `levels` and `duals` are numbers in the same order on both roads."""

    status: str
    objective: float = math.nan
    levels: List[float] = field(default_factory=list)
    duals: List[float] = field(default_factory=list)

    @property
    def number(self) -> str:
        """The objective, or why there is none."""
        return self.status if math.isnan(self.objective) else "%.9g" % self.objective


@dataclass
class Tolerances:
    """Largest differences that still agree, relative where the numbers are above 1."""

    objective: float
    others: float


@dataclass
class Cost:
    """Closures called, and seconds in them, in the solver and in all."""

    calls: int
    closures: float
    solver: float
    total: float

    @property
    def host(self) -> float:
        return self.total - self.closures - self.solver

    def __sub__(self, other: Cost) -> Cost:
        return Cost(self.calls - other.calls, self.closures - other.closures,
                    self.solver - other.solver, self.total - other.total)


class Roads:
    """A problem that can be solved on both roads for any value of the parameter.

    What a kind of problem brings: `solver`, the name of the native solver; `kinds`, what the levels
    and duals are called; `tolerances`; `heading`, lines that tell what the problem is; `build()`,
    which gives `built`, the model of the first road; and the roads, `ours(p)` and `theirs(p)`,
    which return an Outcome, with `seconds`, what the solver has taken on the first.
    """

    solver: str
    kinds: Tuple[str, str]
    tolerances: Tolerances
    heading: List[str]
    built: Any = None
    seconds = 0.0

    def build(self) -> Any:
        raise NotImplementedError

    def ours(self, p: Any) -> Outcome:
        raise NotImplementedError

    def theirs(self, p: Any) -> Outcome:
        raise NotImplementedError

    def why_unsolved(self, outcome: Outcome) -> str:
        """Why there is nothing to compare."""
        raise NotImplementedError

    def steps(self, parameter: float) -> Sequence[Any]:
        """The values of the parameter to solve for, of which the first leaves the problem as it
        is."""
        return 1.0, parameter

    def label(self, p: Any) -> str:
        """What a person reads for a value of the parameter."""
        return "p = %g" % p

    def cost(self) -> Cost:
        return Cost(closure.calls, closure.seconds, self.seconds, time.perf_counter())

    def compare(self, p: Any) -> Comparison:
        start = self.cost()
        if self.built is None:
            progress("building the model ...")
            self.built = self.build()
        progress("solving for %s ..." % self.label(p))
        ours = self.ours(p)
        cost = self.cost() - start
        progress("solving for %s again, by %s alone ..." % (self.label(p), self.solver))
        return Comparison(self.label(p), ours, self.theirs(p), cost, self.tolerances)

    def table(self, comparisons: Sequence[Comparison]) -> str:
        """The text that a person reads."""
        def difference(c: Comparison, value: float) -> str:
            return "%.1e" % value if c.solved else "-"

        rows: List[Tuple[str, Callable[[Comparison], str]]] = [
            ("", lambda c: c.label),
            ("closures called", lambda c: str(c.cost.calls)),
            ("time in closures", lambda c: milliseconds(c.cost.closures)),
            ("time in the host", lambda c: milliseconds(c.cost.host)),
            ("time in the solver", lambda c: milliseconds(c.cost.solver)),
            ("objective by closures", lambda c: c.ours.number),
            ("objective by %s alone" % self.solver, lambda c: c.theirs.number),
            ("largest difference of %s" % self.kinds[0],
             lambda c: difference(c, c.level_difference)),
            ("largest difference of %s" % self.kinds[1],
             lambda c: difference(c, c.dual_difference)),
        ]
        lines = [*self.heading, ""]
        for label, cell in rows:
            lines.append("%-30s" % label + "".join("%18s" % cell(c) for c in comparisons))
        return "\n".join(lines)


class Comparison:
    """Both roads for one value of the parameter. They agree if they come to the same numbers, or if
    neither finds a solution, for the same reason."""

    def __init__(self, label: str, ours: Outcome, theirs: Outcome, cost: Cost,
                 tolerances: Tolerances) -> None:
        self.label, self.ours, self.theirs, self.cost = label, ours, theirs, cost
        self.solved = ours.status == theirs.status == "optimal"
        self.level_difference = largest_difference(ours.levels, theirs.levels)
        self.dual_difference = largest_difference(ours.duals, theirs.duals)
        self.agrees = ours.status == theirs.status and (not self.solved or (
            largest_difference([ours.objective], [theirs.objective]) <= tolerances.objective
            and max(self.level_difference, self.dual_difference) <= tolerances.others))


def largest_difference(ours: Sequence[float], theirs: Sequence[float]) -> float:
    """The largest difference of two lists, relative where the numbers are above 1; infinite if one
    has more numbers than the other."""
    if len(ours) != len(theirs):
        return math.inf
    differences = [abs(a - b) / max(1.0, abs(a), abs(b)) for a, b in zip(ours, theirs)]
    return max((math.inf if math.isnan(d) else d for d in differences), default=0.0)


def milliseconds(seconds: float) -> str:
    return "%.3f ms" % (1e3 * seconds)


def count(n: int, what: str) -> str:
    return "%d %s%s" % (n, what, "" if n == 1 else "s")
