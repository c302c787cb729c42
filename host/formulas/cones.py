"""Formulas in cones."""

from typing import Any

from . import structure
from .tree import Membership, as_formula


def quadratic_cone(f: Any, axis: int = 0) -> Membership:
    """A formula whose first element along an axis is at least the norm of the others."""
    f = as_formula(f)
    return Membership(f, "quadratic", (structure.axis_of(f, axis),))


def rotated_cone(f: Any, axis: int = 0) -> Membership:
    """One in which twice the product of the first two elements along an axis is at least the sum of
    squares of the others, and these two are at least 0."""
    f = as_formula(f)
    return Membership(f, "rotated", (structure.axis_of(f, axis),))


def semidefinite(f: Any, axis1: int = -2, axis2: int = -1) -> Membership:
    """A formula whose matrices along two axes have positive semidefinite symmetric parts."""
    f = as_formula(f)
    return Membership(f, "semidefinite", structure.pair(f, axis1, axis2))
