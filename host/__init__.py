"""A small modelling layer that drives the closures of `fragments` end to end.

It owns all arrays, keeps all positions and headers, and hands every loop over terms or elements to
a closure. What is left to it is what the closures leave to their caller: sums of sizes, room on the
stacks, the choice of a path, the zero at the head of `ptr`. Copy from it what you need:

    closures      the closures by number, counted and timed in one place
    stacks        growing work stacks, and the header of an expression that stands on one
    matrices      constant matrices, dense and sparse, as operands
    variables     a variable as a list of native indexes, and views of it
    construction  expressions from data of the host, and outer products with a constant vector
    sums          sums of expressions and along an axis, symmetric and triangular part
    products      products with constant matrices, tensors and numbers
    expressions   the evaluator: all operations, one method each, running its chain of closures
    row_store     the terms whose coefficients depend on parameters, by model row
    model         rows, objective and parameters over a native solver, and the solution read back
    glpk          that native solver: GLPK's shared library
    linear        the model of an MPS file, built by the above
    __main__      python -m host FILE.mps: both roads to the solution, side by side

A model in short, to minimise x0 + x1 with 3 x0 + 4 x1 >= 12 p and x >= 0:

    from math import inf
    from host.glpk import Problem
    from host.matrices import DenseMatrix, SparseMatrix
    from host.model import Model

    model = Model(Problem())
    x, p, e = model.variable([2], 0.0), model.parameter(1.0), model.evaluator
    costs, matrix = DenseMatrix(1, 2, [1, 1]), SparseMatrix(1, 2, [0, 0], [0, 1], [3, 4])
    with e.w.scratch():
        model.minimize(e.mul_left(costs, e.push_variable(x)))
        ax = e.mul_left(matrix, e.push_variable(x))
        pb = e.mul_param_scalar(p.index, e.push_expression([1], [12]))
        rows = model.constrain(e.weighted_sum([ax, pb], [1, -1]), 0.0, inf)

    model.solve()                                    # "optimal"
    first = model.levels(x), model.row_duals(rows)   # [0, 3] and [0.25]
    p.value = 2.0
    model.solve()                                    # parameter code runs, nothing is built again
    second = model.levels(x), model.row_duals(rows)  # [0, 6] and [0.25]
"""
