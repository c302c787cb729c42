"""A small modelling layer that drives the closures of `fragments` end to end.

It owns all arrays, keeps all positions and headers, and hands every loop over terms or elements to
a closure. What is left to it is what the closures leave to their caller: sums of sizes, room on the
stacks, the choice of a path, the zero at the head of `ptr`. Copy from it what you need:

Expressions:

    closures            the closures by number, counted and timed in one place
    stacks              growing work stacks, and the header of an expression that stands on one
    expressions         the evaluator: all operations, a method each that runs its closures
    construction        expressions from data of the host, outer products with a constant vector
    sums                sums of expressions and along an axis, symmetric and triangular part
    products            products with constant matrices, tensors and numbers
    parameter_products  products with arrays of parameters
    structure           stacks, repeats, transposes, permuted dimensions, slices and picks

Data and variables:

    data                constant data in any order, checked and put into the form of the closures
    matrices            constant matrices, dense and sparse, as operands
    assembly            triplets put in order, summed up and transposed
    arrays              arrays of indexes, their boxes and ranges; bounds of a matrix in one form
    variables           a variable as a list of native indexes
    views               slices, picks, other orders of dimensions, symmetric pairs, stacks, repeats
    shapes              shapes, boxes, strides, and the errors where they don't fit

Linear models:

    model               rows, objective and parameters over a native solver, the solution read back
    row_store           the terms whose coefficients depend on parameters, by model row
    slots               numbers of rows and columns that are used again
    solutions           levels and duals read back by variable and constraint
    glpk                that native solver: GLPK's shared library

Conic models:

    conic               what a conic model hands to a solver, and what comes back
    conic_model         variables, rows and cones over expressions, for such a solver
    affine_rows         scalar terms, constants and matrices of expressions, semidefinite variables
    cones               layouts of cones over dimensions, and the tables of their elements
    domains             elements listed by subscripts, and bounds
    csdp                such a solver: CSDP's program
    cvxopt_adapter      another one: CVXOPT, where the interpreter has it

The demo:

    linear              the problem of an MPS file
    sdpa, semidefinite  the format of semidefinite problems, and the problem of such a file
    comparison          two roads to a solution side by side
    progress            the step that long work is in, on a terminal
    __main__            python -m host FILE

A model in short, to minimise x0 + x1 with 3 x0 + 4 x1 >= 12 p and x >= 0:

    from math import inf
    from host.solvers.old_glpk import Problem
    from host.data.matrices import DenseMatrix, SparseMatrix
    from host.model.linear import Model

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
