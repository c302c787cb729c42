"""Affine expressions on the work stacks: one method per operation.

Every method runs the closures of its operation in their order, in the form of size, reserve, write:
a sizing closure tells how large the result is, room is reserved for it, and the writing closures
fill it. The operands are left as they are, and a method that raises has reserved and written
nothing.
"""

from .construction import Construction
from .finishing import Finishing
from .parameter_products import ParameterProducts
from .products import Products
from .structure import Structure
from .sums import Sums


class Evaluator(Construction, Products, ParameterProducts, Structure, Sums, Finishing):
    """Builds expressions on the stacks of its Workspace. An operand that stands on another stack,
    or was freed, is refused by each method.

    What a formula leaves behind is freed by the host that began it:

        with evaluator.w.scratch():
            model.constrain(formula(evaluator), ...)
    """
