"""The model: variables, parameters, constraints and an objective, for any solver that has it."""

from __future__ import annotations

import math
from array import array
from itertools import count
from numbers import Real
from typing import Any, Dict, Iterable, Optional, Tuple

from ..closures import closure
from ..data.bounds import sides
from ..data.buffers import require_room, size, zeros
from ..data.constants import Constant, constant
from ..data.entries import all_finite, pattern
from ..data.shapes import checked_shape
from ..formulas import structure
from ..formulas.algebra import total
from ..formulas.leaves import Parameter, Root, Variable, dense, nested
from ..formulas.tree import (VARIABLES, Between, Comparison, Formula, Membership, Shape, as_formula)
from ..index_maps.variables import Variable as IndexMap
from ..interruptions import uninterrupted
from .changes import Changes
from .constraints import Constraint

FLIPPED = {"<=": ">=", ">=": "<=", "==": "=="}


class Model(Changes):
    """Minimises or maximises a formula over variables under constraints, again and again as
    parameters, bounds, rows and variables change.

    What is constrained is built when it is first needed, many rows at once; what is wrong with it
    is told at once. Errors leave the model as it was.
    """

    def __init__(self, name: str = "model") -> None:
        super().__init__(name)

    # Variables and parameters.

    @uninterrupted()
    def variable(self, name: Optional[str] = None, shape: Any = (), lower: Any = None,
                 upper: Any = None, integer: bool = False, semidefinite: bool = False,
                 at: Any = None) -> Variable:
        """A variable of that shape, an extent or several. Each bound is a number, None for none, or
        an array of the shape. With `semidefinite` the last two dimensions are symmetric, positive
        semidefinite matrices. With `at`, a list of subscripts, one tuple for each, only these
        elements are there, and bounds that are arrays are theirs; all others are fixed zeros."""
        name = self._claimed(self.variables, name, "variable", "x")
        shape = extents(shape)
        if semidefinite:
            if lower is not None or upper is not None or integer or at is not None:
                raise ValueError("%s is semidefinite: it can't have bounds, be integer or have but "
                                 "some elements" % name)
            map = self._matrices(shape, name)
        else:
            map = self._scalars(shape, name, lower, upper, integer, at)
        x = Variable(self, shape, map, (Root(name, shape, map, semidefinite),))
        self.variables[name] = x
        self.changed("%s was added" % name)
        return x

    def _scalars(self, shape: Any, name: str, lower: Any, upper: Any, integer: bool, at: Any
                 ) -> IndexMap:
        sparsity = None
        if at is None:
            lower, upper = sides(lower, upper, shape, name)
        else:
            sparsity, order = pattern(shape, at)
            lower, upper = (array("d", map(side.__getitem__, order))
                            for side in sides(lower, upper, (len(at),), name))
        before = len(self.columns)
        require_room(before + len(lower))
        columns = self.columns.take(lower, upper, integer)
        if len(self.columns) > before:
            self.blocks.append(before - len(self.columns))
        elif any(map(integer.__ne__, map(self.columns.integer.__getitem__, columns))):
            self.native.reason = "columns changed between integer and real"
        self.native.bounds.update(columns)
        self.native.note("columns added", len(columns))
        return IndexMap(shape or (1,), array("q", columns), sparsity)

    def _matrices(self, shape: Any, name: str) -> IndexMap:
        if len(shape) not in (2, 3) or shape[-1] != shape[-2] or shape[-1] < 1:
            raise ValueError("%s can't have the shape %s: semidefinite matrices are square, one, "
                             "or several along a first dimension" % (name, list(shape)))
        count, dim = size(shape[:-2]), shape[-1]
        require_room(len(self.tables) + count * dim * dim)
        self.blocks.extend([dim] * count)
        return IndexMap(shape, self.tables.add(count, dim).nativeidxs)

    @uninterrupted()
    def parameter(self, name: Optional[str] = None, value: Any = 0.0) -> Parameter:
        """A parameter, or an array of them of the shape of `value`; of a sparse matrix only the
        entries that it lists."""
        name = self._claimed(self.parameters, name, "parameter", "p")
        data = finite(constant(value, "the value of " + name), name)
        first = len(self.param_value)
        require_room(first + len(data.values))
        map = IndexMap(data.shape or (1,), range(first, first + len(data.values)), data.sparsity)
        self.param_value.extend(data.values)
        p = Parameter(self, data.shape, map, (Root(name, data.shape, map),))
        self.parameters[name] = p
        return p

    def parameter_values(self, p: Parameter) -> Any:
        values = zeros("f64", len(p.map))
        closure(101, p.map.narrow(), self.param_value, values)
        return nested(dense(values, p.map), p.shape)

    def set_parameter(self, p: Parameter, value: Any) -> None:
        data, map = finite(constant(value, "the value of " + p.name), p.name), p.map
        if data.shape not in (p.shape, ()):
            raise ValueError("%s, of shape %s, can't have values of shape %s"
                             % (p.name, list(p.shape), list(data.shape)))
        if data.shape != p.shape:
            values = array("d", [data.number]) * len(map)
        elif data.sparsity == map.sparsity:
            values = data.values
        else:
            held = data.dense()
            values = held if map.sparsity is None else array("d", [held[k] for k in map.sparsity])
        self.native.values = True  # both first, as Ctrl-C may come in between
        self.changed("%s has another value" % p.name)
        if p.is_whole and len(map) > 0:
            first = map.nativeidxs[0]
            self.param_value[first:first + len(map)] = values
        else:
            closure(102, map.narrow(), self.param_value, values)

    def _claimed(self, held: Dict[Any, Any], name: Optional[str], what: str, letter: str) -> str:
        """The name of something new, one made up if there is none."""
        if name is None:
            numbers = (("%s#%d" % (letter, k)) for k in count(len(held) + 1))
            return next(made for made in numbers if made not in held)
        if not isinstance(name, str):
            raise TypeError("the name of a %s comes first, a text: not %r" % (what, name))
        if name in held:
            raise ValueError("the model has a %s %s already" % (what, name))
        return name

    # The objective.

    @staticmethod
    def sum(items: Iterable[Any]) -> Formula:
        """The sum of formulas and constant data, of one shape or scalar, without the sums in
        between that `+` makes."""
        return total(items)

    def minimize(self, formula: Any) -> None:
        """Makes a scalar formula the objective."""
        self._optimize(formula, False)

    def maximize(self, formula: Any) -> None:
        self._optimize(formula, True)

    @uninterrupted()
    def _optimize(self, formula: Any, maximize: bool) -> None:
        f = self.own(as_formula(formula))
        if size(f.shape) != 1:
            raise ValueError("an objective is one number, not the shape %s of %s"
                             % (list(f.shape), f))
        self.build_objective(f, maximize)
        self.changed("it has another objective")

    # Constraints.

    def constrain(self, *what: Any, lower: Any = None, upper: Any = None) -> Constraint:
        """Holds the model to a comparison of formulas, a formula between sides, or a formula in a
        cone; a name may come first:

            m.constrain("need", nutrients @ x >= p * required)
            m.constrain("range", x[1:], lower=p, upper=[5, 6])
            m.constrain(quadratic_cone(f))

        Sides are numbers, arrays of the shape or formulas of parameters; those of infinity are
        none.
        """
        name, held = self._named(what)
        if isinstance(held, Comparison) and lower is upper is None:
            c = self._compared(name, held)
        elif isinstance(held, Membership) and lower is upper is None:
            c = self.build_cones(name, held)
        elif isinstance(held, Formula) and not lower is upper is None:
            c = self._between(name, held, lower, upper, None)
        else:
            raise TypeError("a constraint is a comparison of formulas, a formula with lower= or "
                            "upper=, or one in a cone, not %r" % (held,))
        return c

    def _named(self, what: Tuple[Any, ...]) -> Tuple[Any, Any]:
        """The name of a new constraint, a number for one without, and what is to hold."""
        if len(what) == 1 or len(what) == 2 and what[0] is None:
            self._serial += 1
            return self._serial, what[-1]
        if len(what) != 2 or not isinstance(what[0], str):
            raise TypeError("constrain takes a name, which is a text, and what is to hold: not %r"
                            % (what,))
        if what[0] in self.constraints:
            raise ValueError("the model has a constraint %s already" % what[0])
        return what[0], what[1]

    def _compared(self, name: Any, c: Comparison) -> Constraint:
        f, sense, side = c.left, c.sense, c.right
        if type(side) not in (float, int) and isinstance(side, Formula):
            if side.kinds & VARIABLES:
                if f.kinds & VARIABLES:
                    f, side = f - side, 0.0
                else:
                    f, sense, side = side, FLIPPED[sense], f
        return self._between(name, f, None if sense == "<=" else side,
                             None if sense == ">=" else side, c)

    def _between(self, name: Any, f: Formula, lower: Any, upper: Any, said: Any) -> Constraint:
        if f.model is not self:
            self.own(f)
        if f.shape == () and is_number(lower) and is_number(upper):
            self.batch.settle(self.constraints)
            place = self.batch.add(f, -math.inf if lower is None else lower,
                                   math.inf if upper is None else upper, name)
            if place is not None:
                return self.registered(Constraint(self, name, (), None, None, self.batch, place))
        lower, upper = self.side(lower), self.side(upper)
        for side in (lower, upper):
            if side is not None and f.shape == ():
                f = structure.spread(f, side.shape)
        said = Between(f, lower, upper) if said is None else said
        return self.build_rows(name, f, lower, upper, said)


def extents(shape: Any) -> Shape:
    """A shape from one extent or several. Raises ValueError if that is none."""
    return tuple(checked_shape(shape if hasattr(shape, "__iter__") else [shape]))


def finite(data: Constant, name: str) -> Constant:
    if not all_finite(data.values):
        raise ValueError("the value of %s is not finite" % name)
    return data


def is_number(side: Any) -> bool:
    return side is None or type(side) in (float, int) or isinstance(side, Real)
