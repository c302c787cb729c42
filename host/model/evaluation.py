"""Formulas evaluated on the work stacks: each node of a tree by the operation of its name, once."""

from __future__ import annotations

from array import array
from typing import Any, Callable, Dict, List, Sequence, Tuple

from ..data.buffers import size
from ..data.constants import Constant
from ..evaluator.expressions import Evaluator
from ..evaluator.stacks import Expression
from ..formulas.algebra import (DIAGONAL_LEFT, DIAGONAL_RIGHT, DOT, ELEMENTS, LEFT, OUTER_LEFT,
                                OUTER_RIGHT, RIGHT, Term, counted, flattened)
from ..formulas.tree import Formula, Shape
from ..index_maps.arrays import IndexArray
from ..index_maps.variables import Variable as IndexMap


def evaluate(ev: Evaluator, root: Formula, variables: int) -> Expression:
    """The formula as an expression on the stack, a scalar with the shape (1,). `variables` is how
    many an element can have: where it has more terms, some are of the same, and these are merged,
    as they would double at each of many steps that build on each other."""
    uses = counted(root)
    done: Dict[int, Expression] = {}
    sums: Dict[int, List[Term]] = {}
    stack = [root]
    while stack:
        f = stack[-1]
        if id(f) in done:
            stack.pop()
            continue
        if f.op == "sum" and id(f) not in sums:
            sums[id(f)] = flattened(f, uses)
        operands = [g for g, _ in sums[id(f)] if not atomic(g)] if f.op == "sum" else expressed(f)
        missing = [g for g in operands if id(g) not in done]
        if missing:
            stack.extend(missing)
            continue
        stack.pop()
        if f.op == "sum":
            e = weighted_sum(ev, sums[id(f)], done)
        else:
            e = OPERATIONS[f.op](ev, f, *(done[id(g)] for g in operands))
        if e.nnz > e.nelem * (variables + 1):
            e = ev.merge_terms(e)
        done[id(f)] = e
    return done[id(root)]


def atomic(f: Formula) -> bool:
    """Whether a sum takes it without an expression of its own."""
    return f.shape == () and f.op in ("variable", "constant")


def expressed(f: Formula) -> Sequence[Formula]:
    """The operands of an operation that it needs as expressions."""
    if f.op == "parameters":  # whose first are indexes
        return f.operands[1:]
    if f.op == "product" and f.data[1] in PLAIN and f.operands[0].op == "variable":
        require_kept(f.operands[0])
        return ()
    return f.operands


def require_kept(f: Any) -> None:
    f.require_kept()


def weighted_sum(ev: Evaluator, terms: List[Term], done: Dict[int, Expression]) -> Expression:
    rest = [(done[id(g)], weight) for g, weight in terms if not atomic(g)]
    single = [term for term in terms if atomic(term[0])]
    if single:
        rest.insert(0, (scalars(ev, single), 1.0))
    if len(rest) == 1:
        (e, weight), = rest
        return e if weight == 1.0 else ev.mul_const(weight, e)
    if len(rest) == 2:
        (e1, weight1), (e2, weight2) = rest
        return ev.weighted_add(weight1, e1, weight2, e2)
    return ev.weighted_sum([e for e, _ in rest], [weight for _, weight in rest])


def scalars(ev: Evaluator, terms: List[Tuple[Any, float]]) -> Expression:
    """A sum of scalar variables and numbers, written at once."""
    fixed, subj, cof = 0.0, array("q"), array("d")
    for f, weight in terms:
        if f.op == "constant":
            fixed += weight * f.data.number
        else:
            f.require_kept()
            for place in places(f):
                subj.append(place)
                cof.append(weight)
    return ev.push_expression([1], [fixed], [0, len(subj)], subj, cof)


def places(f: Formula) -> Any:
    """The native indexes of a variable."""
    return (f.data,) if isinstance(f.data, int) else f.data.nativeidxs


def reshaped(ev: Evaluator, e: Expression, shape: Shape) -> Expression:
    return ev.reshape(e, shape or (1,))


# The operations.


def variable(ev: Evaluator, f: Any) -> Expression:
    f.require_kept()
    return ev.push_variable(f.map)


def parameter(ev: Evaluator, f: Any) -> Expression:
    p = parameters_of(f)
    return ev.push_parameters(p.shape, p.indexes, p.sparsity)


def parameters_of(f: Any) -> IndexArray:
    """An array of parameters as the evaluator takes it."""
    return IndexArray(f.map.shape, f.map.narrow(), f.map.sparsity)


def constants(ev: Evaluator, f: Formula) -> Expression:
    data: Constant = f.data
    return ev.push_constant_vector(data.shape or (1,), data.values, data.sparsity)


def product(ev: Evaluator, f: Formula, *expressions: Expression) -> Expression:
    data, how = f.data
    (g,) = f.operands
    if how in PLAIN and not expressions:
        return reshaped(ev, PLAIN[how](ev, data, g.map), f.shape)
    (e,) = expressions
    if how == ELEMENTS and g.shape != data.shape:
        flat = data.reshape((1, size(data.shape)))
        return reshaped(ev, ev.mul_scalar_matrix(flat.matrix(), e), f.shape)
    return reshaped(ev, PRODUCTS[how](ev, data, e), f.shape)


PRODUCTS: Dict[str, Callable[[Evaluator, Constant, Expression], Expression]] = {
    LEFT: lambda ev, c, e: ev.mul_left(c.matrix(), e),
    RIGHT: lambda ev, c, e: ev.mul_right(e, c.matrix(column=True)),
    ELEMENTS: lambda ev, c, e: ev.mul_elm(c.tensor(), e),
    DOT: lambda ev, c, e: ev.dot(c.tensor(), e),
    DIAGONAL_LEFT: lambda ev, c, e: ev.mul_diag_left(c.matrix(), e),
    DIAGONAL_RIGHT: lambda ev, c, e: ev.mul_diag_right(e, c.matrix()),
}
# Those in which a variable need not be an expression.
PLAIN: Dict[str, Callable[[Evaluator, Constant, IndexMap], Expression]] = {
    LEFT: lambda ev, c, x: ev.mul_plain_left(c.matrix(), x),
    RIGHT: lambda ev, c, x: ev.mul_plain_right(x, c.matrix(column=True)),
    OUTER_LEFT: lambda ev, c, x: ev.outer_product(c.matrix(), x, transposed=True),
    OUTER_RIGHT: lambda ev, c, x: ev.outer_product(c.matrix(), x),
}


def parameters(ev: Evaluator, f: Formula, e: Expression) -> Expression:
    p, how = f.operands[0], f.data
    index = parameters_of(p)
    if how == ELEMENTS and p.shape == ():
        return ev.mul_param_scalar(index.indexes[0], e)
    if p.ndim == 1 and how in (LEFT, RIGHT):  # a row on the left, a column on the right
        shape = (1, p.size) if how == LEFT else (p.size, 1)
        index = IndexArray(shape, index.indexes, index.sparsity)
    return reshaped(ev, PARAMETER_PRODUCTS[how](ev, index, e), f.shape)


PARAMETER_PRODUCTS: Dict[str, Callable[[Evaluator, IndexArray, Expression], Expression]] = {
    LEFT: lambda ev, p, e: ev.mul_param_left(p, e),
    RIGHT: lambda ev, p, e: ev.mul_param_right(e, p),
    ELEMENTS: lambda ev, p, e: ev.mul_param_elem(p, e),
    DOT: lambda ev, p, e: ev.dot_param(p, e),
    DIAGONAL_LEFT: lambda ev, p, e: ev.diag_param_left(p, e),
    DIAGONAL_RIGHT: lambda ev, p, e: ev.diag_param_right(e, p),
}


def axis_sum(ev: Evaluator, f: Formula, e: Expression) -> Expression:
    if len(e.shape) == 1:
        e = ev.reshape(e, (e.shape[0], 1))
    return ev.sum_axis(e, f.data)


def triangle(ev: Evaluator, f: Formula, e: Expression) -> Expression:
    (first, second), lower = f.data
    return ev.triangle(e, first, second, lower)


OPERATIONS: Dict[str, Callable[..., Any]] = {
    "variable": variable,
    "parameter": parameter,
    "constant": constants,
    "product": product,
    "parameters": parameters,
    "spread": lambda ev, f, e: ev.spread(e, f.shape),
    "slice": lambda ev, f, e: ev.slice(e, *f.data),
    "pick": lambda ev, f, e: ev.pick(e, f.data),
    "reshape": lambda ev, f, e: reshaped(ev, e, f.shape),
    "permute": lambda ev, f, e: ev.permute_dims(e, f.data),
    "stack": lambda ev, f, *parts: ev.stack(parts, f.data),
    "tile": lambda ev, f, e: ev.repeat(e, *f.data),
    "axis sum": axis_sum,
    "triangle": triangle,
    "symmetric": lambda ev, f, e: ev.symmetrize(e, *f.data),
    "diagonal": lambda ev, f, e: ev.diagonal_matrix(e),
}
