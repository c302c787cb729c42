"""A complete host: the rows of A x + b, for a sparse A, through closures alone."""

from array import array

import fragments


def closure(number, *arguments):
    return getattr(fragments, "_c_closure_%d" % number)(*arguments)


class Stack:
    def __init__(self, room):
        self.i32, self.i64, self.f64 = (array(kind, [0]) * room for kind in "iqd")
        self.top = {"i32": 0, "i64": 0, "f64": 0}

    def reserve(self, kind, count):
        base = self.top[kind]
        self.top[kind] = base + count
        return base


class Expression:
    """A header: sizes, and where the sections stand. All here have one dimension and no code."""

    def __init__(self, stack, nelem, nnz, hassp=False):
        self.nelem, self.nnz, self.hassp = nelem, nnz, hassp
        self.shape = stack.reserve("i32", 1)
        self.ptr = stack.reserve("i32", nelem + 1)
        self.sp = stack.reserve("i64", nelem if hassp else 0)
        self.nidxs = stack.reserve("i64", nnz)
        self.cof = stack.reserve("f64", nnz)
        stack.i32[self.ptr] = 0  # entry 0 is the host's


def variable(s, indexes):
    e = Expression(s, len(indexes), len(indexes))
    closure(570, s.i32, array("i", [len(indexes)]), e.shape)
    closure(146, indexes, e.cof, False, e.nidxs, e.nnz, e.ptr, s.f64, s.i32, s.i64, 0, None)
    return e


def constant(s, values):
    n = len(values)
    e = Expression(s, n, n)
    closure(601, values, e.cof, None, s.f64, s.i32, s.i64, 1, n, e.nidxs, e.ptr,
            array("q", [0]) * (n + 1), array("i", [n]), e.shape, None)
    return e


def product(s, rows, columns, subi, subj, val, x):
    if any(closure(482, False, False, rows, columns, len(subi), subi, subj)):
        raise ValueError("an entry of the matrix is out of range or out of order")
    _, nelem, nnz = closure(478, 0, 1, rows, True, len(subi), subi, subj, 0, x.nnz, x.ptr,
                            0, 0, 0, s.i32)
    e = Expression(s, nelem, nnz, hassp=True)
    closure(570, s.i32, array("i", [rows]), e.shape)
    closure(481, 0, 0, 0, 0, x.cof, 1, 0, len(subi), 0, subi, subj, val, x.nidxs, 0, x.ptr,
            0, 0, 0, e.cof, s.f64, s.i32, s.i64, 0, e.nidxs, e.ptr, e.sp, s.f64, s.i32, s.i64)
    return e


def total(s, a, b):
    """a + b, for a dense `a` and a sparse `b`."""
    e = Expression(s, closure(505, 1, a.shape, 1, s.i32), a.nnz + b.nnz)
    closure(503, s.i32, 1, e.shape, a.shape, s.i32)
    closure(504, 0, 0, 0, 0, 0, 0, 0, a.cof, b.cof, 0, 0, 0, 1.0, 1.0, 0, 0, a.nelem, b.nelem,
            a.nidxs, b.nidxs, 0, a.ptr, b.ptr, 0, 0, 0, e.cof, s.f64, s.i32, s.i64, 0, e.nidxs,
            e.ptr, b.sp, s.f64, s.i32, s.i64)
    return e


def in_order(s, a):
    """`a` with each element's terms ascending by variable and each variable once."""
    longest = closure(390, 0, a.nelem, a.ptr, s.i32)
    perm, work = s.reserve("i32", a.nnz), s.reserve("i32", 2 * longest + 1)
    closure(391, a.nelem, a.nidxs, perm, a.ptr, s.i32, s.i64, work, s.i32)
    _, nnz = closure(396, a.cof, 0, a.nelem, a.nidxs, perm, a.ptr, 0, 0, s.f64, s.i32, s.i64, s.i32)
    e = Expression(s, a.nelem, nnz)
    closure(397, 1, s.i32, e.shape, a.shape, s.i32)
    closure(399, 0, 0, 0, 0, a.cof, 0, a.nelem, a.nidxs, 0, perm, a.ptr, 0, 0, 0, e.cof,
            s.f64, s.i32, s.i64, 0, e.nidxs, e.ptr, s.f64, s.i32, s.i64, s.i32)
    return e


def model_rows(s, e):
    """(constants, row starts, variables, coefficients)"""
    _, nlin, _ = closure(75, 0, None, 0, e.nelem, e.nidxs, e.ptr, s.i32, s.i64, 0)
    fixed, ptrb = array("d", [0]) * e.nelem, array("i", [0]) * (e.nelem + 1)
    subj, cof = array("i", [0]) * nlin, array("d", [0]) * nlin
    closure(76, fixed, cof, e.cof, e.nelem, e.nidxs, e.ptr, ptrb, s.f64, s.i32, s.i64, subj)
    return fixed, ptrb, subj, cof


def main():
    s = Stack(200)
    x = variable(s, array("q", [7, 5, 6]))
    # [2 3 0]       [10]
    # [0 0 4] * x + [20]
    ax = product(s, 2, 3, array("i", [0, 0, 1]), array("i", [0, 1, 2]), array("d", [2, 3, 4]), x)
    rows = model_rows(s, in_order(s, total(s, constant(s, array("d", [10, 20])), ax)))
    print(*map(list, rows), sep="\n")


if __name__ == "__main__":
    main()
