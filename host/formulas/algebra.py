"""Sums and products of formulas.

A product has a factor without variables. Constant data and arrays of parameters multiply as they
are; what is made of them is taken apart: (p + 1) f is p f + f, and (C P) f is C (P f).
"""

import math
from typing import Any, Dict, Iterable, List, Optional, Tuple

from ..data.constants import Constant
from . import printing, structure, tree
from .tree import Formula, Shape

Term = Tuple[Formula, float]  # and its weight

# What an operator does with its second operand, seen from the factor.
LEFT, RIGHT, ELEMENTS, DOT = "left", "right", "elements", "dot"
DIAGONAL_LEFT, DIAGONAL_RIGHT = "diagonal left", "diagonal right"
OUTER_LEFT, OUTER_RIGHT = "outer left", "outer right"  # of constant data and a variable


def finite(value: Any) -> float:
    """A number as a float. Raises ValueError if it is not finite."""
    try:
        result = float(value)
    except OverflowError:
        result = math.inf
    if not -math.inf < result < math.inf:
        raise ValueError("a number in a formula has to be finite, not %r" % result)
    return result


# Sums.


def add(f: Formula, weight: float, other: Any, other_weight: float) -> Formula:
    """weight * f + other_weight * other."""
    if not isinstance(other, Formula):
        if isinstance(other, (int, float)) and other == 0:  # as in sum(formulas)
            return scaled(weight, f)
        other = tree.as_formula(other)
    if f.shape != other.shape:
        f, other = spread_to_fit(f, other)
    model = f.model
    if other.model is not model:
        model = tree.owner((f, other))
    return Formula("sum", f.shape, (f, other), (weight, other_weight), model,
                   f.kinds | other.kinds)


def spread_to_fit(f: Formula, g: Formula) -> Tuple[Formula, Formula]:
    """Both in the shape of one, where the other is a scalar; else ValueError."""
    if f.shape == () or f.shape == g.shape:
        return structure.spread(f, g.shape), g
    if g.shape == ():
        return f, structure.spread(g, f.shape)
    raise ValueError("the shapes %s of %s and %s of %s don't fit"
                     % (list(f.shape), printing.short(f), list(g.shape), printing.short(g)))


def scaled(weight: Any, f: Formula) -> Formula:
    """weight * f for a number."""
    weight = finite(weight)
    if weight == 1.0:
        return f
    if f.op == "sum" and len(f.operands) == 1:
        return Formula("sum", f.shape, f.operands, (weight * f.data[0],), f.model, f.kinds)
    return Formula("sum", f.shape, (f,), (weight,), f.model, f.kinds)


def total(items: Iterable[Any]) -> Formula:
    """The sum of formulas and constant data, scalars spread to the shape of the others."""
    terms: List[Formula] = [tree.as_formula(item) for item in items]
    shape: Shape = next((f.shape for f in terms if f.shape != ()), ())
    for k, f in enumerate(terms):
        if f.shape != shape:
            terms[k], _ = spread_to_fit(f, next(g for g in terms if g.shape == shape))
            if terms[k].shape != shape:
                raise ValueError("a sum needs equal shapes: %s, %s" % (list(shape), list(f.shape)))
    if not terms:
        terms = [tree.as_formula(0.0)]
    return tree.node("sum", shape, terms, (1.0,) * len(terms))


def counted(root: Formula) -> Dict[int, int]:
    """In how many places each part of a formula stands."""
    uses, stack = {id(root): 1}, [root]
    while stack:
        for g in stack.pop().operands:
            if id(g) not in uses:
                uses[id(g)] = 0
                stack.append(g)
            uses[id(g)] += 1
    return uses


def flattened(f: Formula, uses: Dict[int, int]) -> List[Term]:
    """The terms of a sum in their order, those of sums that stand nowhere else among them; what
    stands in it several times is one term."""
    terms: Dict[int, Term] = {}
    stack: List[Term] = [(f, 1.0)]
    while stack:
        g, weight = stack.pop()
        if g.op == "sum" and (g is f or uses[id(g)] == 1):
            stack.extend((h, weight * w) for h, w in zip(reversed(g.operands), reversed(g.data)))
        else:
            _, before = terms.get(id(g), (g, 0.0))
            terms[id(g)] = g, before + weight
    return list(terms.values())


# Products.


def multiply(f: Formula, other: Any) -> Formula:
    """f * other, element by element."""
    if isinstance(other, Formula) or not tree.number(other):
        return product(f, tree.as_formula(other), ELEMENTS)
    return scaled(other, f)


def divide(f: Formula, other: Any) -> Formula:
    """f / other, for numbers and constant data."""
    if isinstance(other, Formula):
        raise TypeError("a formula can't be a divisor: %s" % printing.short(other))
    data = tree.as_formula(other).data
    if not all(data.dense()):
        raise ZeroDivisionError("%s divided by zero" % printing.short(f))
    for k, value in enumerate(data.values):
        finite(1.0 / value)
    if data.shape == ():
        return scaled(1.0 / data.number, f)
    inverse = type(data.values)("d", (1.0 / value for value in data.values))
    return product(f, constant_formula(Constant(data.shape, inverse)), ELEMENTS)


def matmul(left: Any, right: Any) -> Formula:
    """left @ right, for one or two dimensions each."""
    left, right = tree.as_formula(left), tree.as_formula(right)
    if not (left.ndim in (1, 2) and right.ndim in (1, 2) and left.shape[-1] == right.shape[0]):
        raise ValueError("the shapes %s of %s and %s of %s don't fit a matrix product"
                         % (list(left.shape), printing.short(left), list(right.shape),
                            printing.short(right)))
    if left.ndim == right.ndim == 1:
        return product(left, right, DOT)
    return product(left, right, LEFT)


def dot(left: Any, right: Any) -> Formula:
    """The sum of left * right, for equal shapes."""
    left, right = tree.as_formula(left), tree.as_formula(right)
    if left.shape != right.shape:
        raise ValueError("the shapes %s and %s have no inner product"
                         % (list(left.shape), list(right.shape)))
    return product(left, right, DOT if left.shape else ELEMENTS)


def outer(left: Any, right: Any) -> Formula:
    """The matrix of all products of an element of one vector and one of the other."""
    left, right = (structure.reshape(tree.as_formula(f), -1) for f in (left, right))
    shape = left.shape + right.shape
    if left.op == "constant" and right.op == "variable":
        return tree.node("product", shape, (right,), (left.data, OUTER_LEFT))
    if left.op == "variable" and right.op == "constant":
        return tree.node("product", shape, (left,), (right.data, OUTER_RIGHT))
    return matmul(structure.reshape(left, -1, 1), structure.reshape(right, 1, -1))


def product(left: Formula, right: Formula, how: str) -> Formula:
    """The product of two formulas that fit; LEFT stands for left @ right here."""
    if left.kinds & right.kinds & tree.VARIABLES:
        raise TypeError("%s and %s can't be multiplied: a product of two variables is not linear "
                        "(%s)" % (printing.culprit(left), printing.culprit(right),
                                  printing.operation(left, right, how)))
    if how == ELEMENTS and left.shape != right.shape and () not in (left.shape, right.shape):
        spread_to_fit(left, right)
    variables_right = right.kinds & tree.VARIABLES
    if variables_right or not left.kinds & tree.VARIABLES and left.kinds >= right.kinds:
        return times(left, right, how)
    return times(right, left, RIGHT if how == LEFT else how)


def times(factor: Formula, f: Formula, how: str) -> Formula:
    """The product of `f` and a factor without variables, on the side that `how` says."""
    if factor.op == "constant":
        if factor.shape == ():
            return scaled(factor.data.number, f)
        return tree.node("product", product_shape(factor, f, how), (f,), (factor.data, how))
    if how == ELEMENTS and f.shape == () != factor.shape:
        f = structure.spread(f, factor.shape)
    if factor.op == "parameter":
        return tree.node("parameters", product_shape(factor, f, how), (factor, f), how)
    if factor.op == "sum":
        parts, weights = zip(*flattened(factor, counted(factor)))
        terms = [times(part, f, how) for part in parts]
        return tree.node("sum", terms[0].shape, terms, weights)
    if factor.op in ("product", "parameters"):
        inner, side = ((constant_formula(factor.data[0]), factor.data[1])
                       if factor.op == "product" else (factor.operands[0], factor.data))
        g = factor.operands[-1]
        if inner.shape == () and side == ELEMENTS:
            return times(inner, times(g, f, how), ELEMENTS)
        if side == how == ELEMENTS and g.shape == inner.shape or side == how == LEFT:
            return times(inner, times(g, f, how), how)
        if side == RIGHT and how == LEFT:
            return times(g, times(inner, f, LEFT), LEFT)
        if side == LEFT and how == RIGHT:
            return times(g, times(inner, f, RIGHT), RIGHT)
        if side == how == RIGHT:
            return times(inner, times(g, f, how), how)
    if factor.op == "spread" and how == ELEMENTS:
        return times(factor.operands[0], f, ELEMENTS)
    raise TypeError("%s can't be a factor: parameters multiply as arrays, or as sums and multiples "
                    "of such" % printing.short(factor))


def diagonal(f: Formula) -> Optional[Formula]:
    """The diagonal of a square product of matrices, of which no more is formed; None if `f` is
    something else."""
    if f.op not in ("product", "parameters") or f.shape[0] != f.shape[1]:
        return None
    factor, how = f.data if f.op == "product" else (f.operands[0], f.data)
    if how not in (LEFT, RIGHT) or not len(factor.shape) == f.operands[-1].ndim == 2:
        return None
    how = DIAGONAL_LEFT if how == LEFT else DIAGONAL_RIGHT
    return tree.node(f.op, f.shape[:1], f.operands, (factor, how) if f.op == "product" else how)


def product_shape(factor: Formula, f: Formula, how: str) -> Shape:
    if how == ELEMENTS:
        return factor.shape or f.shape
    if how == DOT:
        return ()
    left, right = (factor, f) if how == LEFT else (f, factor)
    return left.shape[:-1] + right.shape[1:]


def constant_formula(data: Constant) -> Formula:
    return Formula("constant", data.shape, (), data, None, 0)
