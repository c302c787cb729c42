"""What the tests of the products share: triplet lists, and calls by the parameters' names."""

from support import Model, call, f64, i32, strided


def triplets(matrix):
    """The entries of a matrix but for the blanks (None), by row and then column."""
    places = [(i, j) for i, row in enumerate(matrix) for j, v in enumerate(row) if v is not None]
    return [i for i, _ in places], [j for _, j in places], [matrix[i][j] for i, j in places]


def random_matrix(sampler, rows, columns, sparse):
    blank = lambda: sparse and sampler.rng.random() < 0.5
    return [[None if blank() else sampler.number() for _ in range(columns)] for _ in range(rows)]


def matrix_bindings(matrix, step=1):
    """`msubi`, `msubj`, `mval`, `mnnz` and the extents of a matrix."""
    msubi, msubj, mval = triplets(matrix)
    arrays = [i32(msubi), i32(msubj), f64(mval)]
    if step > 1:
        arrays = [strided(a, step) for a in arrays]
    return dict(zip(("msubi", "msubj", "mval"), arrays), mnnz=len(mval), md0=len(matrix),
                md1=len(matrix[0]) if matrix else 0)


def stack_bindings(letter, stack):
    return {letter + "i32": stack.i32, letter + "i64": stack.i64, letter + "f64": stack.f64}


def header_bindings(prefix, header):
    return {prefix + name: value for name, value in vars(header).items()}


def split(model, n):
    """The first `n` stored elements of a model, and the others."""
    return [Model(model.shape, model.elements[part], model.sp and model.sp[part], model.coded)
            for part in (slice(n), slice(n, None))]


def call_by_name(number, parameters, *bindings, **values):
    """Calls a closure whose parameters are told as a string of names, in their order. Later
    bindings take precedence over earlier ones."""
    bound = {name: value for binding in bindings for name, value in binding.items()}
    bound.update(values)
    return call(number, *[bound[name] for name in parameters.split()])
