"""The solution of a model, read back in the order of the elements of its variables and constraints.
"""

from array import array
from types import SimpleNamespace

from ..closures import closure
from ..data.buffers import zeros

NO_CONES = SimpleNamespace(accptr=None, accid=None, ofs=None, scale=None)


class Reading:
    """The optimum `s`, a Solution or ConicSolution. `cones` (see ConeTables) and, by column, the
    cone (i32, or -1) and the place in it are those of the model; a linear one has none.

    All that is read is f64, with a number for each stored element. That variables and constraints
    are in the model is the caller's to see to.
    """

    def __init__(self, s, cones=NO_CONES, cone=None, place=None):
        self.s, self._cones, self._place = s, cones, place
        self._cone = array("i", [-1]) * len(s.xx) if cone is None else cone
        self._y, self._yx = zeros("f64", len(s.xc)), zeros("f64", len(s.xx))
        closure(24, len(s.xc), s.slc, s.suc, self._y)
        closure(23, len(s.xx), s.slx, s.sux, self._yx)

    def levels(self, variable):
        res = zeros("f64", len(variable))
        closure(19, self.s.barx, len(variable), variable.nativeidxs, 0, res, self.s.xx)
        return res

    def duals(self, variable):
        res = zeros("f64", len(variable))
        closure(20, self._cones.accptr, self.s.accy, self.s.bars, len(variable),
                variable.nativeidxs, 0, res, self._cone, self._place, self._yx)
        return res

    def row_levels(self, constraint):
        return self._rows(15, constraint, self.s.accx, self.s.xc)

    def row_duals(self, constraint):
        return self._rows(16, constraint, self.s.accy, self._y)

    def _rows(self, number, constraint, slots, linear):
        t, codes = self._cones, constraint.nativeidxs
        res = zeros("f64", len(codes))
        closure(number, t.accptr, slots, t.accid, t.ofs, t.scale, len(codes), codes, 0, res, linear)
        return res
