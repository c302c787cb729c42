"""The solution of a model, read back in the order of the elements of its variables and constraints.
"""

from __future__ import annotations

from array import array
from typing import Any, Optional

from ..closures import closure
from ..data.buffers import zeros
from ..index_maps.variables import Variable as IndexMap
from ..solvers.problem import Forms, Solution
from .affine_rows import ElementTables
from .cones import Cones

NO_CONES = array("i")


class Reading:
    """What a solver found, `s`. All that is read is f64, with a number for each stored element.
    That variables and constraints are in the model is the caller's to see to.

    The semidefinite variables that the solver has got are all but those removed: `held` lists for
    each entry of the model's table the place in the solution, or is None if these are the same.
    """

    def __init__(self, solution: Solution, tables: ElementTables, held: Any = None) -> None:
        s: Any = solution  # whose arrays may be None
        self.s, none = s, zeros("f64", 0)
        self._entries = tables.barj, tables.i, tables.j
        self._barx, self._bars = (spread(bar, held) for bar in (s.barx or none, s.bars or none))
        self._cone = array("i", [-1]) * len(s.xx or none)
        if s.has_duals:
            self._y, self._yx = zeros("f64", len(s.xc)), zeros("f64", len(s.xx))
            closure(24, len(s.xc), s.slc, s.suc, self._y)
            closure(23, len(s.xx), s.slx, s.sux, self._yx)

    def levels(self, variable: IndexMap) -> Any:
        res = zeros("f64", len(variable))
        closure(19, self._barx, len(variable), variable.nativeidxs, 0, res, self.s.xx)
        return res

    def duals(self, variable: IndexMap) -> Any:
        res = zeros("f64", len(variable))
        closure(20, NO_CONES, zeros("f64", 0), self._bars, len(variable), variable.nativeidxs, 0,
                res, self._cone, self._cone, self._yx)
        return res

    def values(self, forms: Forms) -> Any:
        """The values of forms."""
        res, xx, place = forms.offset[:], self.s.xx, {}
        for i, j, cof in zip(forms.subi, forms.subj, forms.cof):
            res[i] += cof * xx[j]
        if len(forms.matcof) > 0:
            place = {at: k for k, at in enumerate(zip(*self._entries))}
        for form, barj, i, j, cof in zip(forms.barsubi, forms.barsubj, forms.matsubi, forms.matsubj,
                                         forms.matcof):
            res[form] += (1.0 if i == j else 2.0) * cof * self._barx[place[barj, i, j]]
        return res

    def row_levels(self, codes: Any, cones: Optional[Cones]) -> Any:
        return self._rows(15, codes, cones, self.s.accx, self.s.xc)

    def row_duals(self, codes: Any, cones: Optional[Cones]) -> Any:
        return self._rows(16, codes, cones, self.s.accy, self._y)

    @staticmethod
    def _rows(number: int, codes: Any, cones: Optional[Cones], slots: Any, linear: Any) -> Any:
        res, accptr, accid, ofs, scale = zeros("f64", len(codes)), None, None, None, None
        if cones is not None:
            accptr, accid, ofs, scale = cones.accptr, cones.accid, cones.ofs, cones.scale
            slots = slots[cones.first:cones.first + len(cones)]
        closure(number, accptr, slots, accid, ofs, scale, len(codes), codes, 0, res, linear)
        return res


def spread(values: Any, held: Any) -> Any:
    """The values by entry of the table: 0.0 where the solver has got none."""
    if held is None:
        return values
    return array("d", (0.0 if at < 0 else values[at] for at in held))
