"""A model solved, and what it came to read back."""

from __future__ import annotations

import sys
from array import array
from dataclasses import dataclass, replace
from typing import Any, Optional, Type

from ..closures import closure
from ..data.buffers import size, zeros
from ..formats import write
from ..formulas.leaves import Variable, dense, nested
from ..formulas.tree import Formula
from ..solvers import Adapter, Options, Solution, SolverError, choose
from ..solvers.problem import Forms
from .affine_rows import evaluated, split, stored_rows, with_terms
from .cones import numbers
from .constraints import Constraint
from .printing import Printing
from .row_store import RowStore
from .solutions import Reading


@dataclass
class Result:
    """What Model.solve came to: `status` as in Solution, the objective and what no solution can
    better (NaN where there is none), the seconds that the solver took, whether it gave levels and
    duals, its own words, its name, and what was built for it."""

    status: str
    objective: float
    bound: float
    seconds: float
    has_levels: bool
    has_duals: bool
    words: str
    solver: str
    build: str

    def __str__(self) -> str:
        found = ", objective %.10g" % self.objective if self.has_levels else ""
        return "%s%s (%s, %.3g s: %s; built: %s)" % (self.status, found, self.solver, self.seconds,
                                                    self.words, self.build)


class Solving(Printing):
    """`status` is that of the last solution, `last_build` what was built for it and why."""

    def __init__(self, name: str) -> None:
        super().__init__(name)
        self.status, self.last_build = "not solved", ""
        self._reading: Optional[Reading] = None

    def solve(self, solver: Optional[str] = None, time_limit: Optional[float] = None,
              log: Any = False, start: Optional[str] = None, form: str = "auto") -> Result:
        """Solves for the present parameter values, by the solver of that name or one that takes the
        model, in so many seconds at most. With `log` the solver's lines go to standard output, or
        to a file. `start` is "basis" to go on from where the last solution ended; `form` is told
        with Options. Raises SolverError if no solver takes the model, or it fails; Ctrl-C leaves
        the model as it was, with the status "interrupted"."""
        options = Options(time_limit, printer(log), start, form)
        self.build()
        chosen = choose(self.needs(), solver)
        self._reading, self.status = None, "failed"
        self.last_build = self.native.bring(self, chosen)
        try:
            found = self._run(chosen, options)
        except KeyboardInterrupt:
            self.status = "interrupted"
            raise
        self.status, self._since = found.status, None
        self._reading = Reading(found, self.tables, self._held())
        return Result(found.status, found.objective, found.bound, found.seconds, found.has_levels,
                      found.has_duals, found.words, chosen.name, self.last_build)

    def _run(self, chosen: Type[Adapter], options: Options) -> Solution:
        adapter, found = self.native.adapter, None
        try:
            found = adapter.solve(options)
        except SolverError:
            if options.start is None or adapter.loaded:
                raise
            # From some bases that changes have made singular a solver can't start, and loses all.
            self.last_build = self.native.bring(self, chosen)
            found = adapter.solve(replace(options, start=None))
        solution: Solution = found
        return solution

    def _held(self) -> Any:
        """For each entry of matrices its place in the solution, -1 for one that was removed; None
        if none was."""
        if not self.removed_matrices:
            return None
        places, held = array("q"), 0
        for matrix in self.tables.barj:
            gone = matrix in self.removed_matrices
            places.append(-1 if gone else held)
            held += not gone
        return places

    def write(self, path: Any) -> None:
        """Writes the problem for the present parameter values into a file, of the format that its
        suffix tells. Raises ValueError for one that isn't known or can't carry the model."""
        problem = self.problem()
        problem.names = self.native_names()
        write(problem, path)

    # Reading it back.

    @property
    def objective(self) -> float:
        return float(self._levels().s.objective)

    def level(self, x: Variable) -> Any:
        x.require_kept()
        return nested(dense(self._levels().levels(x.map), x.map), x.shape)

    def dual(self, x: Variable) -> Any:
        x.require_kept()
        return nested(dense(self._duals().duals(x.map), x.map), x.shape)

    def bounds(self, x: Variable) -> Any:
        """The lower and the upper bounds of a variable."""
        x.require_kept()
        columns, result = x.map.narrow(), []
        for table in (self.columns.lower, self.columns.upper):
            values = zeros("f64", len(columns))
            closure(101, columns, table, values)
            result.append(nested(dense(values, x.map), x.shape))
        return result

    def constraint_level(self, c: Constraint) -> Any:
        c.require_kept()
        return nested(self._levels().row_levels(c.codes, c.cones), c.shape)

    def constraint_dual(self, c: Constraint) -> Any:
        c.require_kept()
        return nested(self._duals().row_duals(c.codes, c.cones), c.shape)

    def sides(self, c: Constraint) -> Any:
        """The lower and the upper sides of a constraint, for the present parameter values."""
        c.require_kept()
        if c.cones is not None:
            raise ValueError("%s holds a formula in a cone: it has no sides" % c.name)
        self.run_programs()
        return [nested(array("d", table.at(c.codes)), c.shape)
                for table in (self.rows.lower, self.rows.upper)]

    def value(self, f: Formula) -> Any:
        """The value of a formula at the solution."""
        self._levels()
        ev, w = self.evaluator, self.evaluator.w
        with w.scratch():
            e, n = self._finished(f), size(f.shape)
            rows, store, forms = stored_rows(w, e, numbers(0, n)), RowStore(), Forms.zero(n)
            store.add_rows(n)
            store.store(w, e, rows)
            forms.add(split(self.tables, w, e), rows)
        subi, subj, val = evaluated(store, self.param_value, ev.x)
        forms = with_terms(forms, subi, subj, val, self.tables)
        return nested(self._levels().values(forms), f.shape)

    def _levels(self) -> Reading:
        """The solution. Raises ValueError if there is none, or the model has changed since."""
        reading = self._reading
        if reading is None or not reading.s.has_levels:
            raise ValueError("the model %r has no solution to read: its status is %r"
                             % (self.name, self.status))
        if self._since is not None:
            raise ValueError("the model %r has changed since it was solved (%s): solve it again"
                             % (self.name, self._since))
        return reading

    def _duals(self) -> Reading:
        reading = self._levels()
        if not reading.s.has_duals:
            raise ValueError("the solution of the model %r has no duals: its status is %r, and its "
                             "solver has given levels alone" % (self.name, self.status))
        return reading


def printer(log: Any) -> Any:
    """What takes the lines of a solver: None, or a function that prints them."""
    if log is None or log is False:
        return None
    file = sys.stdout if log is True else log
    if not hasattr(file, "write"):
        raise TypeError("log is False, True or a file, not %r" % (log,))
    return lambda line: print(line.rstrip("\n"), file=file, flush=True)
