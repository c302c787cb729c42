"""Arguments for the closures that `run.py` measures, with a given number of terms."""

import array
from dataclasses import dataclass
from typing import Callable, Optional

import fragments


def closure(number):
    return getattr(fragments, "_c_closure_%d" % number)


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


def zeros(kind, n):
    return array.array(kind, [0]) * n


def right_product(number, terms, each):
    """E of 8 columns times a matrix of 8 x 4; a sparse E holds every second element of each row,
    a sparse matrix half of its entries, so that the product's terms are counted from the pairs."""
    sparse_e, sparse_m = number in (472, 468), number in (470, 468)
    columns = range(0, 8, 2) if sparse_e else range(8)
    entries = [(j, c) for j in range(8) for c in range(4) if not sparse_m or (j + c) % 2 == 0]
    pairs = sum(j in columns for j, _ in entries)
    d0 = max(1, terms // (pairs * each))
    w, r, x = Stack(), Stack(), Stack()
    sp = (8 * i + j for i in range(d0) for j in columns) if sparse_e else None
    e = expression(w, d0 * len(columns), each, sp=sp)
    n = d0 * pairs * each
    h = room(r, d0 * 4, n)
    msubi = array.array("i", [i for i, _ in entries])
    msubj = array.array("i", [j for _, j in entries])
    mval = cycle("d", [2.0, 1.0, 0.5], len(entries))
    erowptr, mcolptr, mperm = (x.ints(zeros("i", k)) for k in (d0 + 1, 5, len(entries)))
    closure(466)(d0, erowptr, mcolptr, 4, len(entries), mperm, msubj, x.i32)
    to = (0, 0, 0, h.cof, r.f64, r.i32, r.i64)
    stack = (w.f64, w.i32, w.i64)
    if number == 473:
        return Work(473, (0, 0, 0, 0, e.cof, d0, 8, 0, 4, mval, 0, e.nidxs, 0, e.ptr, *to, h.nidxs,
                          h.ptr, *stack), n)
    if number == 472:
        rowptr = memoryview(x.i32)[erowptr:erowptr + d0 + 1]
        empty = zeros("i", d0 + 1)

        def reset():
            rowptr[:] = empty

        return Work(472, (0, 0, 0, 0, e.cof, d0, 8, 0, 4, mval, 0, e.nelem, e.nidxs, 0, e.ptr, *to,
                          h.nidxs, h.ptr, e.sp, *stack, x.i32, erowptr), n, reset)
    if number == 470:
        return Work(470, (0, 0, 0, 0, e.cof, d0, 8, mcolptr, 4, mperm, msubi, mval, e.nidxs, 0,
                          e.ptr, *to[:4], 0, *to[4:], 0, h.nidxs, h.ptr, h.sp, *stack, x.i32), n)
    return Work(468, (0, 0, 0, 0, e.cof, 8, 0, 0, 4, len(entries), mperm, msubi, msubj, mval, 0,
                      e.nelem, e.nidxs, 0, e.ptr, *to, h.nidxs, h.ptr, h.sp, e.sp, *stack, x.i32),
                n)


def elementwise_product(terms, each):
    """Two of three positions of a sparse operand meet the tensor."""
    w, r = Stack(), Stack()
    nelem = max(3, terms // each * 3 // 2)
    e = expression(w, nelem, each, sp=range(0, 2 * nelem, 2))
    msp = array.array("q", (k for k in range(0, 2 * nelem, 2) if k % 3))
    n = len(msp) * each
    h = room(r, len(msp), n)
    shape, rshape = w.ints([2 * nelem]), r.ints([0])
    return Work(462, (0, 0, 0, e.cof, True, cycle("d", [2.0, -1.0], len(msp)), msp, 0, nelem,
                      e.nidxs, e.ptr, 0, 0, 0, h.cof, r.f64, r.i32, r.i64, 0, 1, h.nidxs, h.ptr,
                      rshape, h.sp, shape, e.sp, w.f64, w.i32, w.i64), n)


def weighted_add(terms, each):
    w, r = Stack(), Stack()
    nelem = max(1, terms // (2 * each))
    a = expression(w, nelem, each, sp=range(0, 2 * nelem, 2))
    b = expression(w, nelem, each, sp=range(0, 3 * nelem, 3))
    n = 2 * nelem * each
    h = room(r, 2 * nelem, n)
    return Work(508, (0, 0, 0, 0, 0, 0, a.cof, b.cof, 2.0, -1.0, 0, 0, nelem, nelem, a.nidxs,
                      b.nidxs, a.ptr, b.ptr, 0, 0, 0, h.cof, r.f64, r.i32, r.i64, 0, h.nidxs, h.ptr,
                      h.sp, a.sp, b.sp, w.f64, w.i32, w.i64), n)


def axis_sum_dense(terms, each):
    """The middle axis, of extent 4, goes."""
    w, r = Stack(), Stack()
    d0 = max(1, terms // (16 * each))
    e = expression(w, 16 * d0, each)
    h = room(r, 4 * d0, e.nnz)
    return Work(537, (0, 0, 0, 0, e.cof, d0, 4, 4, 0, 0, e.nidxs, e.ptr, 0, 0, 0, h.cof, r.f64,
                      r.i32, r.i64, 0, h.nidxs, h.ptr, 16, 4, w.f64, w.i32, w.i64), e.nnz)


def axis_sum_sparse(terms, each):
    """The last axis, of extent 8 with every second place stored, goes: the order stays."""
    w, r, x = Stack(), Stack(), Stack()
    d0 = max(1, terms // (4 * each))
    e = expression(w, 4 * d0, each, sp=range(0, 8 * d0, 2))
    h = room(r, d0, e.nnz)
    perm = x.ints(range(e.nelem))
    return Work(532, (0, 0, 0, 0, e.cof, perm, d0, 1, 0, 0, 0, e.nelem, e.nidxs, e.ptr, 0, 0, 0,
                      h.cof, r.f64, r.i32, r.i64, 0, h.nidxs, h.ptr, h.sp, 8, e.sp, w.f64, w.i32,
                      w.i64, x.i32), e.nnz)


def symmetric_part(terms, each):
    """A square operand with the places above the diagonal stored."""
    w, r, x = Stack(), Stack(), Stack()
    nelem = max(1, terms // (2 * each))
    d = nelem + 1
    e = expression(w, nelem, each, sp=range(1, nelem * (d + 1), d + 1))
    mirrored = x.longs(range(d, d + nelem * (d + 1), d + 1))
    perm = x.ints(range(nelem))
    n = 2 * nelem * each
    h = room(r, 2 * nelem, n)
    return Work(566, (0, 0, 0, 0, e.cof, perm, 0, 0, 0, nelem, e.nidxs, 0, e.ptr, 0, 0, 0, h.cof,
                      r.f64, r.i32, r.i64, 0, h.nidxs, h.ptr, h.sp, e.sp, w.f64, w.i32, w.i64,
                      x.i32, x.i64, mirrored), n)


def keyed_expression(stack, terms, each, spread):
    """Elements of `each` terms whose variable indexes come in a scrambled order, with repeats."""
    nelem = max(1, terms // each)
    e = expression(stack, nelem, each)
    keys = [k * 7919 % each // 2 * spread + 1 for k in range(each)]
    stack.i64[e.nidxs:e.nidxs + e.nnz] = cycle("q", keys, e.nnz)
    return e


def term_sort(terms, each, spread):
    w, x = Stack(), Stack()
    e = keyed_expression(w, terms, each, spread)
    perm, work = x.ints(zeros("i", e.nnz)), x.ints(zeros("i", 2 * each + 2))
    return Work(391, (e.nelem, e.nidxs, perm, e.ptr, w.i32, w.i64, work, x.i32), e.nnz)


def term_merge(terms, each):
    w, x, r = Stack(), Stack(), Stack()
    e = keyed_expression(w, terms, each, 1)
    perm, work = x.ints(zeros("i", e.nnz)), x.ints(zeros("i", 2 * each + 2))
    closure(391)(e.nelem, e.nidxs, perm, e.ptr, w.i32, w.i64, work, x.i32)
    h = room(r, e.nelem, e.nnz)
    return Work(399, (0, 0, 0, 0, e.cof, 0, e.nelem, e.nidxs, 0, perm, e.ptr, 0, 0, 0, h.cof, r.f64,
                      r.i32, r.i64, 0, h.nidxs, h.ptr, w.f64, w.i32, w.i64, x.i32), e.nnz)


def simplification(terms):
    """Programs (constant, parameter, product), as a product with a parameter leaves them."""
    atoms = 3 * terms
    ints, doubles = zeros("i", 60), zeros("d", 20)
    return Work(379, (0, 10, cycle("i", [2, 1, 5], atoms), 0, cycle("d", [1.5, 3.0, 0.0], atoms), 0,
                      0, -1, zeros("d", terms), 0, terms, array.array("i", range(0, atoms + 1, 3)),
                      0, 30, 0, zeros("i", atoms), 0, zeros("d", atoms), 0, zeros("i", terms + 1),
                      0, 0, 20, 0, doubles, ints), terms)


def parameter_product(number, terms, each):
    """8 columns of parameters times 8 elements of a column, dense (373) or sparse (378)."""
    w, r, x = Stack(), Stack(), Stack()
    rows = max(1, terms // (8 * each))
    pnnz, n = 8 * rows, 8 * rows * each
    e = expression(w, 8, each, sp=range(8) if number == 378 else None)
    h = room(r, rows, n, 3 * n)
    psp, pidx, perm = x.longs(range(pnnz)), x.ints(range(pnnz)), x.ints(range(8))
    head = (0, 0, 0, 0, e.cof, 1, 0)
    body = (h.cconst, h.code, h.codeptr, r.f64, r.i32, r.i64, h.nidxs, h.ptr, h.sp)
    tail = (w.f64, w.i32, w.i64, x.i32, x.i64)
    if number == 378:
        return Work(378, (*head, 0, 8, e.nidxs, 0, 8, pidx, pnnz, 0, e.ptr, *body, e.sp, *tail,
                          perm, psp), n)
    return Work(373, (*head, 0, 0, e.nidxs, 0, 8, pidx, pnnz, e.ptr, *body, *tail, psp), n)


def row_evaluation(terms, program):
    """Rows of 4 entries, each with the opcodes of that program."""
    size, rows = len(program), max(1, terms // 4)
    n = 4 * rows
    return Work(134, (cycle("d", [1.5, 3.0, 0.0][-size:], size * n), cycle("i", program, size * n),
                      0, cycle("i", [size], n), cycle("d", [1.0, 2.0], 8),
                      cycle("q", [1, 2, 3], n), array.array("i", range(0, size * n, 4 * size)),
                      array.array("i", range(0, 4 * rows, 4)),
                      array.array("i", range(4, 4 * rows + 4, 4)), 0, 0, zeros("i", n),
                      zeros("i", n), zeros("d", n), zeros("d", 8)), n)


def all():
    """(name, function of a number of terms) of each workload."""
    for each in (1, 100):
        of = lambda make, *first: lambda n: make(*first, n, each)
        one = "%d term%s an element" % (each, "" if each == 1 else "s")
        yield "481 left product, dense, " + one, of(left_product_dense)
        yield "479 left product, sparse, " + one, of(left_product_sparse)
        yield "473 right product, dense by dense, " + one, of(right_product, 473)
        yield "472 right product, sparse by dense, " + one, of(right_product, 472)
        yield "470 right product, dense by sparse, " + one, of(right_product, 470)
        yield "468 right product, sparse by sparse, " + one, of(right_product, 468)
        yield "462 elementwise product, " + one, of(elementwise_product)
        yield "373 parameter product, dense, " + one, of(parameter_product, 373)
        yield "378 parameter product, sparse, " + one, of(parameter_product, 378)
        yield "523 weighted sum, merge, " + one, of(weighted_sum_merge)
        yield "521 weighted sum, scatter, " + one, of(weighted_sum_scatter)
        yield "508 weighted add, merge, " + one, of(weighted_add)
        yield "537 axis sum, dense, " + one, of(axis_sum_dense)
        yield "532 axis sum, sparse, " + one, of(axis_sum_sparse)
        yield "566 symmetric part, sparse, " + one, of(symmetric_part)
    yield "481 left product, dense, coded", lambda n: left_product_dense(n, 1, coded=True)
    yield "391 term sort, counting, 10 terms", lambda n: term_sort(n, 10, 1)
    yield "391 term sort, merging, 10 terms", lambda n: term_sort(n, 10, 10**6)
    yield "391 term sort, merging, 1 element", lambda n: term_sort(n, n, 10**6)
    yield "399 term merge, 10 terms", lambda n: term_merge(n, 10)
    yield "379 simplification, 3 atoms", simplification
    # (constant, parameter, product), and the parameter alone
    yield "134 row evaluation, 3 atoms", lambda n: row_evaluation(n, [2, 1, 5])
    yield "134 row evaluation, 1 atom", lambda n: row_evaluation(n, [1])
