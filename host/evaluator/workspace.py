"""What all operations of the evaluator work with."""

from typing import Any, Optional

from ..closures import closure
from ..data.buffers import LARGEST, Shape, as_array
from .stacks import Expression, Stack


class Workspace:
    """The stacks of an Evaluator. A result stands on the r stack and operands are taken from the w
    stack; the two are the same arrays here, so that a result is the next operand where it stands.
    The x stack is scratch between the closures of one operation.

    With `param_value`, the table of a model's parameter values, an index beyond it is refused.
    `name` tells in errors whose expressions these are.
    """

    def __init__(self, param_value: Any = None, name: Optional[str] = None) -> None:
        self.r = self.w = Stack(name=name)
        self.x = Stack()
        self._param_value = param_value

    def _reserve(self, shape: Shape, nelem: int, nnz: int, ncodeatom: int = 0,
                 hassp: bool = False) -> Expression:
        """Room for a result of these sizes, with its shape written."""
        e = self.r.reserve_expression(shape, nelem, nnz, ncodeatom, hassp)
        self._write_shape(e)
        return e

    def _write_shape(self, e: Expression) -> None:
        closure(570, self.r.i32, as_array("i32", e.shape), e.shape_base)

    def _require_parameters(self, indexes: Any) -> None:
        """ValueError if one of the indexes (i32) is no parameter's."""
        count = LARGEST if self._param_value is None else len(self._param_value)
        if closure(474, False, count, count, len(indexes), indexes, indexes):
            raise ValueError("there is no parameter %d"
                             % next(k for k in indexes if not 0 <= k < count))
