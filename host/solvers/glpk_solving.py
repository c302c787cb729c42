"""The simplex method and branch and cut of GLPK, in steps that heed a wish to stop.

All of this runs in the library's thread (see glpk_library).
"""

from __future__ import annotations

import ctypes
import math
from typing import Callable, Optional

from .adapter import SolverError
from .glpk_library import CALLBACK, IntegerParameters, Interrupted, SimplexParameters
from .glpk_problem import NativeProblem
from .problem import (FEASIBLE, INFEASIBLE, INFEASIBLE_OR_UNBOUNDED, LIMIT, OPTIMAL, UNBOUNDED)

BASIC_SOLUTION, INTEGER_SOLUTION = 1, 3  # what the presolver is to bring back
PRIMAL, DUAL_THEN_PRIMAL = 1, 2
AUTOMATIC_SCALING = 0x80
SLICE = 200  # milliseconds of the simplex method between two looks at the wish to stop
FEW = 20  # iterations for a slice
TIME_IS_UP, NO_PRIMAL_SOLUTION, NO_DUAL_SOLUTION, STOPPED = 9, 10, 11, 13  # codes of routines
SINGULAR = 1, 2, 3  # codes: the basis can't be started from
PRIMAL_FEASIBLE = 2
STATUSES = {4: INFEASIBLE, 5: OPTIMAL, 6: UNBOUNDED}
INTEGER_STATUSES = {2: FEASIBLE, 4: INFEASIBLE, 5: OPTIMAL}


class Run:
    """One call of the solver. `bound` is what it has proved of an integer problem that it could
    not finish."""

    def __init__(self, native: NativeProblem) -> None:
        self.thread, self.lib, self.native = native.thread, native.lib, native
        self.bound = math.nan

    def linear(self, warm: bool, primal: bool) -> str:
        """Solves without regard to integer columns: from the present basis, which is more likely
        `primal` feasible or dual, or else presolved. Returns the status; levels and duals are in
        the problem if that is "optimal" or "feasible"."""
        handle = self.native.handle
        try:
            if not warm:
                status = self._presolved(BASIC_SOLUTION, self._reduced_linear)
                if status is not None:
                    return status
                self._fresh(handle)
            method = PRIMAL if primal or not warm else DUAL_THEN_PRIMAL
            if self._simplex(handle, method) in SINGULAR:
                self._fresh(handle)
                self._simplex(handle, PRIMAL)
        except Interrupted:
            if warm and self.lib.get_prim_stat(handle) == PRIMAL_FEASIBLE:
                return FEASIBLE
            return LIMIT
        return self._status(handle)

    def integer(self, warm: bool) -> str:
        """The same with regard to them; there are no duals."""
        handle = self.native.handle
        try:
            if not warm:
                return self._presolved(INTEGER_SOLUTION, self._reduced_integer) \
                    or INFEASIBLE_OR_UNBOUNDED
            if self._simplex(handle, DUAL_THEN_PRIMAL) in SINGULAR:
                self._fresh(handle)
                self._simplex(handle, PRIMAL)
            return self._branch_and_cut(handle)
        except Interrupted:
            return LIMIT

    def _presolved(self, kind: int, solve: Callable[[ctypes.c_void_p], str]) -> Optional[str]:
        """The status that `solve` comes to for the presolved problem, whose solution the problem
        itself gets; None if the presolver can't tell, or the solver fails on what it has left."""
        lib, reduced = self.lib, ctypes.c_void_p(self.lib.create_prob())
        presolver = ctypes.c_void_p(lib.npp_alloc_wksp())
        try:
            lib.npp_load_prob(presolver, self.native.handle, kind, 0)
            code = lib.npp_preprocess1(presolver, int(kind == INTEGER_SOLUTION))
            if code != 0:
                return INFEASIBLE if code == NO_PRIMAL_SOLUTION else None
            self._heed()
            lib.npp_build_prob(presolver, reduced)
            self._fresh(reduced)
            try:
                status = solve(reduced)
            except SolverError:
                return None
            if status in (OPTIMAL, FEASIBLE):
                lib.npp_postprocess(presolver, reduced)
                lib.npp_obtain_sol(presolver, self.native.handle)
            return status
        finally:
            lib.npp_free_wksp(presolver)
            lib.delete_prob(reduced)

    def _reduced_linear(self, handle: ctypes.c_void_p) -> str:
        self._simplex(handle, PRIMAL)
        return self._status(handle)

    def _reduced_integer(self, handle: ctypes.c_void_p) -> str:
        self._simplex(handle, PRIMAL)
        return self._branch_and_cut(handle)

    def _fresh(self, handle: ctypes.c_void_p) -> None:
        """Scales, and makes an advanced basis."""
        self.lib.scale_prob(handle, AUTOMATIC_SCALING)
        self._heed()
        self.lib.adv_basis(handle, 0)

    def _simplex(self, handle: ctypes.c_void_p, method: int) -> int:
        """The code with which the simplex method ended, which is not that of a time limit. A slice
        that led nowhere is followed by a longer one, as each begins by throwing away what the one
        before did against degeneracy."""
        parameters = SimplexParameters()
        self.lib.init_smcp(ctypes.byref(parameters))
        parameters.meth, parameters.tm_lim = method, SLICE
        iterations, objective = self.lib.get_it_cnt(handle), math.nan
        while True:
            code: int = self.lib.simplex(handle, ctypes.byref(parameters))
            if code != TIME_IS_UP:
                return code
            self._heed()
            before = iterations, objective
            iterations, objective = self.lib.get_it_cnt(handle), self.lib.get_obj_val(handle)
            if iterations - before[0] < FEW or math.isclose(objective, before[1]):
                parameters.tm_lim *= 2

    def _heed(self) -> None:
        if self.thread.stopping:
            raise Interrupted

    def _status(self, handle: ctypes.c_void_p) -> str:
        status = STATUSES.get(self.lib.get_status(handle))
        if status is None:
            raise SolverError("GLPK's simplex method failed: %s" % self.last_words())
        return status

    def _branch_and_cut(self, handle: ctypes.c_void_p) -> str:
        """For a problem whose relaxation is solved."""
        relaxation = self._status(handle)
        if relaxation != OPTIMAL:
            return INFEASIBLE if relaxation == INFEASIBLE else INFEASIBLE_OR_UNBOUNDED
        self.bound = self.lib.get_obj_val(handle)
        parameters = IntegerParameters()
        self.lib.init_iocp(ctypes.byref(parameters))
        parameters.cb_func = CALLBACK(self._on_step)
        code = self.lib.intopt(handle, ctypes.byref(parameters))
        status = INTEGER_STATUSES.get(self.lib.mip_status(handle))
        if status is not None:
            return status
        if code == STOPPED:
            return LIMIT
        raise SolverError("GLPK's branch and cut failed (code %d): %s" % (code, self.last_words()))

    def _on_step(self, tree: int, _: object) -> None:
        if self.thread.stopping:
            node = self.lib.ios_best_node(tree)
            if node != 0:
                self.bound = self.lib.ios_node_bound(tree, node)
            self.lib.ios_terminate(tree)

    def last_words(self) -> str:
        """The last line that the library printed."""
        lines = "".join(self.thread.messages).split("\n")
        return next((line.strip() for line in reversed(lines) if line.strip()), "nothing")
