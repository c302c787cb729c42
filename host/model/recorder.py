"""Rows of scalars, recorded as they come and built together: one pass of closures over all."""

from __future__ import annotations

import math
from array import array
from typing import Any, Container, List, Optional

from ..data.bounds import sides
from ..evaluator.expressions import Evaluator
from ..evaluator.stacks import Expression
from ..formulas.algebra import DOT, LEFT
from ..formulas.tree import Formula

MOST = 1000  # sums and products in a row that is recorded


class Batch:
    """Rows in the order in which they were recorded: the name, the constant and the terms of each,
    and its sides. `rows` are their numbers once they are built."""

    def __init__(self) -> None:
        self.names: List[Any] = []
        self.fixed, self.ends = array("d"), array("q", [0])
        self.subj: List[int] = []
        self.cof: List[float] = []
        self.lower, self.upper = array("d"), array("d")
        self.rows: Any = None

    def __len__(self) -> int:
        return len(self.names)

    def settle(self, known: Container[Any]) -> None:
        """Takes back the last row if Ctrl-C came before the model had its constraint."""
        count, names = len(self.names), self.names
        if count > 0 and names[-1] not in known:
            count -= 1
        terms = self.ends[count]
        if len(self.fixed) > count or len(self.subj) > terms:
            for table in (names, self.fixed, self.lower, self.upper):
                del table[count:]
            del self.ends[count + 1:], self.subj[terms:], self.cof[terms:]

    def add(self, f: Formula, lower: float, upper: float, name: Any) -> Optional[int]:
        """The place of a new row in which the scalar formula is held between numbers, or None if it
        isn't one of scalar variables. Raises ValueError for terms that are not finite and for sides
        that leave no number."""
        subj, cof, n = self.subj, self.cof, len(self.subj)
        fixed = linear_terms(f, subj, cof)
        if fixed is None or not (lower < math.inf and upper > -math.inf and
                                 -math.inf < sum(cof[n:], fixed) < math.inf):
            del subj[n:], cof[n:]
            if fixed is None:
                return None
            sides(lower, upper, (), name_of(name))
            raise ValueError("a coefficient is not finite: %s" % f)
        self.fixed.append(fixed)
        self.lower.append(lower)
        self.upper.append(upper)
        self.ends.append(len(subj))
        self.names.append(name)
        return len(self.names) - 1

    def push(self, ev: Evaluator) -> Expression:
        """All rows as one expression."""
        return ev.push_expression([len(self)], self.fixed, self.ends, array("q", self.subj),
                                  array("d", self.cof))


def linear_terms(f: Any, subj: List[int], cof: List[float]) -> Optional[float]:
    """Appends the terms of a scalar formula, native indexes and coefficients, and returns its
    constant; None if the formula has other parts than numbers, scalar variables, and sums and
    products over vectors of such, or has many."""
    fixed, stack, seen = 0.0, [(f, 1.0)], 0
    while stack:
        seen += 1
        if seen > MOST:  # in which common parts may stand again and again
            return None
        f, weight = stack.pop()
        op = f.op
        if op == "variable":
            f.require_kept()
            if type(f.data) is int:
                subj.append(f.data)
                cof.append(weight)
            else:
                subj.extend(f.data.nativeidxs)
                cof.extend([weight] * len(f.data.nativeidxs))
        elif op == "sum":
            for g, w in zip(f.operands, f.data):
                if type(g.data) is int and g.op == "variable" and not g.roots[0].removed:
                    subj.append(g.data)
                    cof.append(weight * w)
                else:
                    stack.append((g, weight * w))
        elif op == "constant":
            fixed += weight * f.data.number
        else:
            data = vector_product(f)
            if data is None:
                return None
            (g,) = f.operands
            g.require_kept()
            subj.extend(g.map.nativeidxs)
            cof.extend([weight * value for value in data])
    return fixed


def vector_product(f: Any) -> Any:
    """The coefficients of the elements of a dense variable in a sum or an inner product with
    constant data; None if `f` is something else."""
    if not f.operands or f.operands[0].op != "variable" or f.operands[0].map.sparsity is not None:
        return None
    count = len(f.operands[0].map.nativeidxs)
    if f.op == "axis sum":
        return [1.0] * count if f.operands[0].ndim == 1 else None
    if f.op == "product" and f.data[1] in (DOT, LEFT) and f.data[0].sparsity is None:
        return f.data[0].values if len(f.data[0].values) == count else None
    return None


def name_of(key: Any) -> str:
    """The name of a constraint by its key, which is a number for one without."""
    return "c#%d" % key if isinstance(key, int) else str(key)
