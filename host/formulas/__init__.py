"""Formulas over variables, parameters and constant data; see `tree` for what they are made of."""

from .algebra import dot, outer
from .cones import quadratic_cone, rotated_cone, semidefinite
from .structure import (concatenate, diag, hstack, repeat, stack, symmetric_part, tile, trace, tril,
                        triu, vstack)
from .tree import Comparison, Formula, Membership

__all__ = ["Comparison", "Formula", "Membership", "concatenate", "diag", "dot", "hstack", "outer",
           "quadratic_cone", "repeat", "rotated_cone", "semidefinite", "stack", "symmetric_part",
           "tile", "trace", "tril", "triu", "vstack"]
