"""Solvers by name, and the choice among them."""

from __future__ import annotations

from typing import Dict, FrozenSet, Iterable, Optional, Type

from .adapter import Adapter, Options, SolverError
from .csdp import Csdp
from .cvxopt_adapter import Cvxopt
from .glpk import Glpk
from .problem import Cone, Forms, Problem, Solution

__all__ = ["Adapter", "Cone", "Forms", "Options", "Problem", "Solution", "SOLVERS", "SolverError",
           "choose"]

# The first one that takes what a model needs is taken.
SOLVERS: Dict[str, Type[Adapter]] = {solver.name: solver for solver in (Glpk, Csdp, Cvxopt)}


def choose(needs: Iterable[str], named: Optional[str] = None) -> Type[Adapter]:
    """The solver of that name, or without one the first that is there and takes all that is needed,
    of "linear", "integer", "quadratic" and "semidefinite". Raises ValueError for an unknown name,
    SolverError if none can be had, with what stands in the way.
    """
    needed = frozenset(needs)
    able = [solver for solver in SOLVERS.values() if needed <= solver.takes]
    if named is not None:
        if named not in SOLVERS:
            raise ValueError("there is no solver %r: there are %s" % (named, listed(SOLVERS)))
        return _required(SOLVERS[named], needed)
    for solver in able:
        if solver.missing() is None:
            return solver
    if able:
        raise SolverError("; ".join(str(solver.missing()) for solver in able))
    raise SolverError("no solver takes %s together: %s" % (listed(sorted(needed)), "; ".join(
        "%s takes %s" % (solver.name, listed(sorted(solver.takes)))
        for solver in SOLVERS.values())))


def _required(solver: Type[Adapter], needed: FrozenSet[str]) -> Type[Adapter]:
    if not needed <= solver.takes:
        others = [other.name for other in SOLVERS.values() if needed <= other.takes]
        raise SolverError("%s doesn't take %s models; %s" % (
            solver.name, " and ".join(sorted(needed - solver.takes)),
            "%s would" % listed(others) if others else "nor does any other take all of this one"))
    missing = solver.missing()
    if missing is not None:
        raise SolverError(missing)
    return solver


def listed(words: Iterable[str]) -> str:
    """The words as a list to read."""
    *most, last = words
    return "%s and %s" % (", ".join(most), last) if most else last
