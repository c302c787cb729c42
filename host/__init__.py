"""A modelling layer for conic optimisation over the closures of `fragments`.

    from host import Model

    m = Model("diet")
    x = m.variable("x", 3, lower=0, upper=10)
    p = m.parameter("demand", 1.0)
    need = m.constrain("need", [[2, 0, 1], [1, 3, 0]] @ x >= p * [8, 6])
    m.minimize([3, 2, 4] @ x)
    m.solve()
    first = m.status, m.objective, x.level, need.dual
    p.value = 1.1
    m.solve()                  # parameter programs run, nothing is built again
    second = m.objective, m.last_build

Its packages, from the top down:

    demo         two roads to the solution of one problem, side by side: python -m host FILE
    model        what a model is made of: it records, builds in bulk, changes, solves, reads back
    solvers      adapters that tell what they take; one translation between two conic forms
    formats      files of problems: MPS, SDPA's sparse format
    formulas     immutable trees with operators over variables, parameters and constant data
    evaluator    expressions on work stacks: one method per operation, which runs its closures
    index_maps   variables as lists of native indexes, and views of them
    data         constant data from whatever holds numbers, matrices, bounds, shapes
    closures     the closures by number, counted and timed in one place
"""

from .formulas import (concatenate, diag, dot, hstack, outer, quadratic_cone, repeat, rotated_cone,
                       semidefinite, stack, symmetric_part, tile, trace, tril, triu, vstack)
from .model.model import Model
from .solvers import SolverError

__all__ = ["Model", "SolverError", "concatenate", "diag", "dot", "hstack", "outer",
           "quadratic_cone", "repeat", "rotated_cone", "semidefinite", "stack", "symmetric_part",
           "tile", "trace", "tril", "triu", "vstack"]
