"""Arguments for the closures that `run.py` measures, with a given number of terms."""

import array
from dataclasses import dataclass
from typing import Callable, Optional


@dataclass
class Work:
    number: int
    arguments: tuple
    terms: int
    reset: Optional[Callable[[], None]] = None  # makes a second call do the same as the first


class Stack:
    """Three arrays that grow by whole sections."""

    def __init__(self):
        self.i32, self.i64, self.f64 = array.array("i"), array.array("q"), array.array("d")

    @staticmethod
    def put(target, section):
        base = len(target)
        target.extend(section)
        return base

    def ints(self, section):
        return self.put(self.i32, section)

    def longs(self, section):
        return self.put(self.i64, section)

    def doubles(self, section):
        return self.put(self.f64, section)


@dataclass
class Expression:
    nelem: int
    nnz: int
    ncodeatom: int
    ptr: int
    nidxs: int
    cof: int
    sp: int = 0
    codeptr: int = 0
    code: int = 0
    cconst: int = 0


def cycle(kind, values, n):
    """`n` entries that repeat `values`."""
    whole = array.array(kind, values) * (n // len(values) + 1)
    return whole[:n]


def expression(stack, nelem, each, sp=None, coded=False):
    """`nelem` elements of `each` terms; with `coded` each term has one atom."""
    nnz = nelem * each
    e = Expression(
        nelem, nnz, nnz if coded else 0,
        ptr=stack.ints(range(0, nnz + 1, each)),
        nidxs=stack.longs(cycle("q", range(1, 1001), nnz)),
        cof=stack.doubles(cycle("d", [1.5, 2.5, -0.5], nnz)),
    )
    if sp is not None:
        e.sp = stack.longs(sp)
    if coded:
        e.codeptr = stack.ints(range(nnz + 1))
        e.code = stack.ints(cycle("i", [2], nnz))
        e.cconst = stack.doubles(cycle("d", [0.0], nnz))
    return e


def room(stack, nelem, nnz, ncodeatom=0, sparse=True):
    """A result of these sizes, all zero."""
    zeros = lambda kind, n: array.array(kind, [0]) * n
    e = Expression(nelem, nnz, ncodeatom,
                   ptr=stack.ints(zeros("i", nelem + 1)),
                   nidxs=stack.longs(zeros("q", nnz)),
                   cof=stack.doubles(zeros("d", nnz)))
    if sparse:
        e.sp = stack.longs(zeros("q", nelem))
    if ncodeatom:
        e.codeptr = stack.ints(zeros("i", nnz + 1))
        e.code = stack.ints(zeros("i", ncodeatom))
        e.cconst = stack.doubles(zeros("d", ncodeatom))
    return e


def band(rows, each):
    """A sparse matrix with `each` entries in each row, as many columns as rows."""
    msubi = array.array("i", (i for i in range(rows) for _ in range(each)))
    msubj = array.array("i", (min(i, rows - each) + k for i in range(rows) for k in range(each)))
    return msubi, msubj, cycle("d", [2.0, -1.0, 0.5], rows * each)


def left_product_dense(terms, each, coded=False):
    w, r = Stack(), Stack()
    rows = max(2, terms // (2 * each))
    e = expression(w, rows, each, coded=coded)
    msubi, msubj, mval = band(rows, 2)
    n = 2 * rows * each
    h = room(r, rows, n, 3 * n if coded else 0)
    return Work(481, (e.cconst, e.code, 0, e.codeptr, e.cof, 1, 0, len(mval), 0, msubi, msubj, mval,
                      e.nidxs, 0, e.ptr, h.cconst, h.code, h.codeptr, h.cof, r.f64, r.i32, r.i64,
                      h.ncodeatom, h.nidxs, h.ptr, h.sp, w.f64, w.i32, w.i64), n)


def left_product_sparse(terms, each):
    w, r, x = Stack(), Stack(), Stack()
    rows = max(2, terms // (2 * each))
    e = expression(w, rows, each, sp=range(rows))
    msubi, msubj, mval = band(rows, 2)
    n = 2 * rows * each
    h = room(r, rows, n)
    eptr, eperm = x.ints([0, rows]), x.ints(range(rows))
    return Work(479, (0, 0, 0, e.cof, 1, eperm, eptr, len(mval), msubi, msubj, mval, e.nidxs, e.ptr,
                      0, 0, 0, h.cof, r.f64, r.i32, r.i64, 0, h.nidxs, h.ptr, h.sp, e.sp, w.f64,
                      w.i32, w.i64, x.i32), n)


def operand_lists(expressions):
    ints = lambda name: array.array("i", (getattr(e, name) for e in expressions))
    return {name: ints(name) for name in
            ("cconst", "code", "codeptr", "cof", "ncodeatom", "nelem", "nidxs", "ptr", "sp")}


def weighted_sum_merge(terms, each):
    w, r = Stack(), Stack()
    nelem = max(1, terms // (2 * each))
    k = operand_lists([expression(w, nelem, each, sp=range(0, 2 * nelem, 2)),
                       expression(w, nelem, each, sp=range(0, 3 * nelem, 3))])
    n = 2 * nelem * each
    h = room(r, 2 * nelem, n)
    return Work(523, (False, k["cconst"], k["code"], k["codeptr"], k["cof"], 2, k["ncodeatom"],
                      k["nelem"], k["nidxs"], k["ptr"], 0, 0, 0, h.cof, r.f64, r.i32, r.i64,
                      h.nidxs, h.ptr, h.sp, k["sp"], array.array("d", [2.0, -1.0]), w.f64, w.i32,
                      w.i64), n)


def weighted_sum_scatter(terms, each):
    w, r = Stack(), Stack()
    nelem = max(1, terms // each)
    e = expression(w, nelem, each)
    k = operand_lists([e])
    h = room(r, nelem, e.nnz)
    starts = w.i32[e.ptr:e.ptr + nelem + 1]
    ptr = memoryview(r.i32)[h.ptr:h.ptr + nelem + 1]

    def reset():
        ptr[:] = starts

    reset()
    return Work(521, (False, k["cconst"], k["code"], k["codeptr"], k["cof"], 0, k["ncodeatom"],
                      k["nelem"], k["nidxs"], k["ptr"], 0, 0, 0, h.cof, r.f64, r.i32, r.i64,
                      h.nidxs, h.ptr, array.array("d", [2.0]), w.f64, w.i32, w.i64, 0, r.i32),
                e.nnz, reset)


def all():
    """(name, function of a number of terms) of each workload."""
    for each in (1, 100):
        one = "%d term%s an element" % (each, "" if each == 1 else "s")
        yield "481 left product, dense, " + one, lambda n, k=each: left_product_dense(n, k)
        yield "479 left product, sparse, " + one, lambda n, k=each: left_product_sparse(n, k)
        yield "523 weighted sum, merge, " + one, lambda n, k=each: weighted_sum_merge(n, k)
        yield "521 weighted sum, scatter, " + one, lambda n, k=each: weighted_sum_scatter(n, k)
    yield "481 left product, dense, coded", lambda n: left_product_dense(n, 1, coded=True)
