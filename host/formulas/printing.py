"""Formulas as text, long ones shortened."""

from typing import Any, Iterable, Iterator, List, Tuple

from ..data.constants import constant
from . import structure, tree

LENGTH, TERMS, DEPTH = 160, 8, 6  # characters, terms of a sum, and levels that are shown


def short(f: Any) -> str:
    """A formula in at most LENGTH characters."""
    return clipped(text(f, DEPTH), LENGTH)


def clipped(line: str, length: int = 60) -> str:
    return line if len(line) <= length else line[:length - 4] + " ..."


def comparison(c: Any) -> str:
    return "%s %s %s" % (short(c.left), c.sense, side(c.right))


def between(b: Any) -> str:
    return held(short(b.formula), *("" if s is None else side(s) for s in (b.lower, b.upper)))


def held(middle: str, lower: str, upper: str) -> str:
    """What is between sides, of which empty ones are none."""
    if lower == upper and lower:
        return "%s == %s" % (middle, lower)
    return " <= ".join(filter(None, (lower, middle, upper)))


def side(data: Any) -> str:
    return short(data) if isinstance(data, tree.Formula) else numbers(constant(data))


def culprit(f: Any) -> str:
    """The first variable, or else parameter, of a formula by its kind and name."""
    stack, parameter = [f], None
    while stack:
        g = stack.pop()
        if g.op == "variable":
            return "the variable %s" % leaf(g)
        if g.op == "parameter":
            parameter = parameter or g
        stack.extend(reversed(g.operands))
    return "constant data" if parameter is None else "the parameter %s" % leaf(parameter)


def operation(left: Any, right: Any, how: str) -> str:
    return "%s %s %s" % (factor(left, 3), "*" if how == "elements" else "@", factor(right, 3))


def text(f: Any, depth: int) -> str:
    if f.op in ("variable", "parameter"):
        return leaf(f)
    if f.op == "constant":
        return numbers(f.data)
    if depth == 0:
        return "..."
    if f.op == "sum":
        return joined(total(f, depth - 1))
    if f.op == "product":
        data, how = f.data
        return product(numbers(data), factor(f.operands[0], depth - 1), how)
    if f.op == "parameters":
        left, right = (factor(g, depth - 1) for g in f.operands)
        return product(left, right, f.data)
    return "%s(%s)" % (called(f), ", ".join(text(g, depth - 1) for g in f.operands[:TERMS])
                       + (", ..." if len(f.operands) > TERMS else ""))


def product(left: str, right: str, how: str) -> str:
    if how == "dot":
        return "dot(%s, %s)" % (left, right)
    if how.endswith("right"):
        left, right = right, left
    if " " in how:
        return "%s(%s, %s)" % (how.split()[0], left, right)
    return "%s %s %s" % (left, "*" if how == "elements" else "@", right)


def factor(f: Any, depth: int) -> str:
    """A formula as an operand of a product."""
    inner = text(f, depth)
    return "(%s)" % inner if f.op == "sum" else inner


def total(f: Any, depth: int) -> Iterator[Tuple[float, str]]:
    """The terms of a sum, those of sums in it among them."""
    stack: List[Tuple[Any, float]] = [(f, 1.0)]
    while stack:
        g, weight = stack.pop()
        if g.op == "sum":
            stack.extend((h, weight * w) for h, w in zip(reversed(g.operands), reversed(g.data)))
        elif g.op == "constant" and g.shape == ():
            yield weight * g.data.number, ""
        else:
            yield weight, factor(g, depth)


def joined(terms: Iterable[Tuple[float, str]]) -> str:
    """Terms, weights and names, as a sum; numbers have no name."""
    parts: List[str] = []
    for weight, name in terms:
        if len(parts) == TERMS:
            return " ".join([*parts, "+ ..."])
        sign = ("-" if weight < 0 else "") if not parts else "- " if weight < 0 else "+ "
        size = "" if abs(weight) == 1 and name else "%.6g" % abs(weight)
        parts.append(sign + " ".join(filter(None, (size, name))))
    return " ".join(parts) or "0"


def called(f: Any) -> str:
    """The name of an operation, with what it needs beside its operands."""
    shape = "x".join(map(str, f.shape))
    names = {"reshape": "reshape " + shape, "spread": "spread " + shape, "permute": "transpose",
             "stack": "concatenate", "axis sum": "sum", "slice": "part " + shape,
             "pick": "elements", "triangle": "tril" if f.op == "triangle" and f.data[1] else "triu",
             "symmetric": "symmetric_part", "diagonal": "diag"}
    return names.get(f.op, f.op)


def numbers(data: Any) -> str:
    """Constant data: its numbers if they are few, else its shape."""
    if data.shape == ():
        return "%.6g" % data.number
    if structure.size(data.shape) <= 4 and len(data.shape) == 1:
        return "[%s]" % ", ".join("%.6g" % value for value in data.dense())
    kind = "sparse" if data.sparsity is not None else "array"
    return "%s(%s)" % (kind, "x".join(map(str, data.shape)))


def leaf(f: Any) -> str:
    """A variable or parameter: its name, the name and subscripts of one element, or for another
    view the first and the last of its elements."""
    if f.is_whole:
        return str(f.name)
    places = f.map.nativeidxs
    if len(places) == 0:
        return "%s[]" % f.name
    if len(places) == 1:
        return element(f.roots, places[0])
    return "[%s%s%s]" % (element(f.roots, places[0]), ", " if len(places) == 2 else ", ..., ",
                         element(f.roots, places[-1]))


def element(roots: Iterable[Any], place: int) -> str:
    """The name and subscripts of the element of these roots with that place."""
    for root in roots:
        idxs = root.map.nativeidxs
        if place in idxs:
            at = idxs.index(place)
            linear = at if root.map.sparsity is None else root.map.sparsity[at]
            return str(root.name) + subscripts(root.shape, linear)
    return "?"


def subscripts(shape: Any, linear: int) -> str:
    """"[i, j]" for a place of a shape, nothing for a scalar."""
    result: List[str] = []
    for extent in reversed(shape):
        result.append(str(linear % extent))
        linear //= extent
    return "[%s]" % ", ".join(reversed(result)) if shape else ""
