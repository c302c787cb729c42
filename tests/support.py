"""Vocabulary of the tests: stacks, random expressions and what they mean.

An expression is held here as a plain `Model`; `push` puts it on a stack, `read` takes it back off,
and `evaluate` gives the numbers that it stands for. Numbers are small dyadic ones, so that sums and
products are exact in any order and results compare with ==.
"""

import array
import importlib
import itertools
import os
import random
from dataclasses import dataclass, field
from typing import List, Optional, Tuple

fragments = importlib.import_module("fragments")
if "FRAGMENTS_CALLS" in os.environ:
    importlib.import_module("recorder").record_into(fragments, os.environ["FRAGMENTS_CALLS"])

OP_PARAM, OP_CONST, OP_ADD, OP_NEG, OP_MUL, OP_INV, OP_SUM, OP_FOLDED = 1, 2, 3, 4, 5, 6, 8, 10
NO_OPERAND = (OP_ADD, OP_NEG, OP_MUL, OP_INV)

# What a section holds before it is written: a value that no test produces.
MARKER = {"i": -77777777, "q": -7777777777777, "d": -777.777e77}


def closure(number):
    return getattr(fragments, "_c_closure_%d" % number)


def call(number, *arguments):
    return closure(number)(*arguments)


def i32(values):
    return array.array("i", values)


def i64(values):
    return array.array("q", values)


def f64(values):
    return array.array("d", values)


def strided(values, step=3):
    """The same values at every `step`-th place of a larger array, markers in the gaps."""
    kind = values.typecode if isinstance(values, array.array) else values.format
    base = array.array(kind, [MARKER[kind]]) * (len(values) * step + 1)
    view = memoryview(base)[1::step][: len(values)]
    for k, value in enumerate(values):
        view[k] = value
    return view


LAYOUTS = (memoryview, strided)


def blank(kind, n):
    return array.array(kind, [MARKER[kind]] * n)


def written(*targets):
    """Of each target, rank 1 or 2, that was filled with markers: what stands where no marker does.
    What surrounds the entries that a call has to write is tested along with them."""
    def entries(target):
        view = memoryview(target)
        if view.ndim == 1:
            return enumerate(view)
        return (((i, j), x) for i, row in enumerate(view.tolist()) for j, x in enumerate(row))

    return [{k: x for k, x in entries(t) if x != MARKER[memoryview(t).format]} for t in targets]


def matrix(kind, rows):
    """A rank-2 array; there is none without elements, which None stands for."""
    flat = array.array(kind, itertools.chain(*rows))
    return memoryview(flat).cast("B").cast(kind, [len(rows), len(rows[0])]) if flat else None


def assert_table(test, rows):
    """The closures of each row, with contiguous and strided arrays, give the result that it tells,
    and leave what it tells in the arrays that held markers before. A row: the closures' numbers,
    arguments, result, and the content of each such array."""
    for (numbers, arguments, result, *written), lay in itertools.product(rows, LAYOUTS):
        for number in numbers:
            laid = [lay(a[:]) if isinstance(a, array.array) else a for a in arguments]
            marked = [new for old, new in zip(arguments, laid) if isinstance(old, array.array)
                      and MARKER[old.typecode] in old]
            test.assertEqual([call(number, *laid), *map(list, marked)], [result, *written],
                             (number, arguments))


def gaps(view):
    """The elements of the array below a view made by `strided` that don't belong to it."""
    step = view.strides[0] // view.itemsize
    own = range(1, 1 + step * len(view), step)
    return [x for k, x in enumerate(view.obj) if k not in own]


class Stack:
    """A work stack: an i32, an i64 and an f64 array, filled with markers, and a next free position
    in each. With `step` above 1 the arrays are strided views."""

    def __init__(self, size=1024, step=1):
        make = lambda kind: array.array(kind, [MARKER[kind]]) * size
        self.i32, self.i64, self.f64 = (
            make(kind) if step == 1 else strided(make(kind), step) for kind in "iqd"
        )
        # Sections start at odd places, so that a forgotten base shows.
        self.top = {"i": 3, "q": 5, "d": 7}

    def reserve(self, kind, count):
        """The position of a new section of `count` entries, with a gap of markers behind it."""
        base = self.top[kind]
        self.top[kind] += count + 2
        return base

    def put(self, kind, values):
        values = list(values)
        base = self.reserve(kind, len(values))
        target = self.array(kind)
        for k, value in enumerate(values):
            target[base + k] = value
        return base

    def array(self, kind):
        return {"i": self.i32, "q": self.i64, "d": self.f64}[kind]

    def snapshot(self):
        return [list(self.i32), list(self.i64), list(self.f64)]


@dataclass
class Term:
    nidx: int
    cof: float
    program: List[Tuple[int, float]] = field(default_factory=list)


@dataclass
class Model:
    """`elements[k]` is the list of terms of the k-th stored element; `sp` its linear indexes, or
    None for a dense expression. With `coded` each term has a program."""

    shape: List[int]
    elements: List[List[Term]]
    sp: Optional[List[int]] = None
    coded: bool = False

    @property
    def nnz(self):
        return sum(map(len, self.elements))

    @property
    def ncodeatom(self):
        return sum(len(t.program) for e in self.elements for t in e) if self.coded else 0

    def linear(self):
        """The linear index of each stored element."""
        return self.sp if self.sp is not None else list(range(len(self.elements)))


@dataclass
class Header:
    """Where an expression lies and how large it is, as the closures take it."""

    nd: int
    nelem: int
    nnz: int
    ncodeatom: int
    hassp: bool
    shape_base: int = 0
    ptr_base: int = 0
    sp_base: int = 0
    nidxs_base: int = 0
    cof_base: int = 0
    codeptr_base: int = 0
    code_base: int = 0
    cconst_base: int = 0


def product(values):
    result = 1
    for value in values:
        result *= value
    return result


def positions(shape):
    """The subscripts of all positions, row-major."""
    return list(itertools.product(*map(range, shape)))


def row_major(shape):
    """The strides of a shape."""
    return [product(shape[k + 1 :]) for k in range(len(shape))]


def prefix(counts):
    """0 and the running sums of `counts`."""
    sums = [0]
    for count in counts:
        sums.append(sums[-1] + count)
    return sums


def push(stack, model):
    terms = [t for e in model.elements for t in e]
    header = Header(
        nd=len(model.shape),
        nelem=len(model.elements),
        nnz=len(terms),
        ncodeatom=model.ncodeatom,
        hassp=model.sp is not None,
        shape_base=stack.put("i", model.shape),
        ptr_base=stack.put("i", prefix(map(len, model.elements))),
        nidxs_base=stack.put("q", [t.nidx for t in terms]),
        cof_base=stack.put("d", [t.cof for t in terms]),
    )
    if model.sp is not None:
        header.sp_base = stack.put("q", model.sp)
    if model.coded:
        atoms = [atom for t in terms for atom in t.program]
        header.codeptr_base = stack.put("i", prefix(len(t.program) for t in terms))
        header.code_base = stack.put("i", [op for op, _ in atoms])
        header.cconst_base = stack.put("d", [operand for _, operand in atoms])
    return header


def reserve(stack, nd, nelem, nnz, ncodeatom=0, hassp=False):
    """Room for a result of these sizes. Entries 0 of `ptr` and `codeptr` are set, as the host sets
    them; all else holds markers."""
    header = Header(nd, nelem, nnz, ncodeatom, hassp)
    header.shape_base = stack.reserve("i", nd)
    header.ptr_base = stack.reserve("i", nelem + 1)
    header.nidxs_base = stack.reserve("q", nnz)
    header.cof_base = stack.reserve("d", nnz)
    header.sp_base = stack.reserve("q", nelem if hassp else 0)
    header.codeptr_base = stack.reserve("i", nnz + 1 if ncodeatom > 0 else 0)
    header.code_base = stack.reserve("i", max(ncodeatom, 0))
    header.cconst_base = stack.reserve("d", max(ncodeatom, 0))
    stack.i32[header.ptr_base] = 0
    if ncodeatom > 0:
        stack.i32[header.codeptr_base] = 0
    return header


def assert_only_sections_written(test, stack, before, header, shape=False):
    """Nothing but the result's own sections differs from the snapshot `before`."""
    h = header
    sections = (
        [(h.ptr_base, h.nelem + 1), (h.codeptr_base, h.nnz + 1 if h.ncodeatom > 0 else 0),
         (h.code_base, h.ncodeatom), (h.shape_base, h.nd if shape else 0)],
        [(h.sp_base, h.nelem if h.hassp else 0), (h.nidxs_base, h.nnz)],
        [(h.cof_base, h.nnz), (h.cconst_base, h.ncodeatom)],
    )
    for kind, old, new, places in zip("iqd", before, stack.snapshot(), sections):
        inside = {p for base, n in places for p in range(base, base + n)}
        changed = [p for p in range(len(old)) if old[p] != new[p] and p not in inside]
        test.assertEqual(changed, [], "places outside the result in the '%s' array" % kind)


def read(stack, header, shape=None):
    """The expression at `header`; `shape` where the closures left it to the host."""
    i, q, d = stack.i32, stack.i64, stack.f64
    h = header
    coded = h.ncodeatom > 0

    def term(t):
        program = []
        if coded:
            for a in range(i[h.codeptr_base + t], i[h.codeptr_base + t + 1]):
                program.append((i[h.code_base + a], d[h.cconst_base + a]))
        return Term(q[h.nidxs_base + t], d[h.cof_base + t], program)

    ptr = [i[h.ptr_base + e] for e in range(h.nelem + 1)]
    return Model(
        shape=list(shape) if shape is not None else [i[h.shape_base + k] for k in range(h.nd)],
        elements=[[term(t) for t in range(a, b)] for a, b in zip(ptr, ptr[1:])],
        sp=[q[h.sp_base + e] for e in range(h.nelem)] if h.hassp else None,
        coded=coded,
    )


def run_program(program, parameters):
    values = []
    for op, operand in program:
        if op == OP_PARAM:
            values.append(parameters[int(operand)])
        elif op == OP_CONST:
            values.append(operand)
        elif op == OP_ADD:
            values.append(values.pop() + values.pop())
        elif op == OP_MUL:
            values.append(values.pop() * values.pop())
        elif op == OP_NEG:
            values.append(-values.pop())
        elif op == OP_INV:
            values.append(1.0 / values.pop())
        elif op == OP_SUM:
            n = int(operand)
            values[len(values) - n :] = [sum(values[len(values) - n :])]
        elif op == OP_FOLDED:
            values.append(0.0)
        else:
            raise ValueError("opcode %d" % op)
    (value,) = values
    return value


def evaluate(model, variables, parameters):
    """The value of every position of the shape, row-major; `variables[0]` is 1.0, the constant."""
    values = [0.0] * product(model.shape)
    for linear, element in zip(model.linear(), model.elements):
        for t in element:
            cof = t.cof + (run_program(t.program, parameters) if model.coded else 0.0)
            values[linear] += cof * variables[t.nidx]
    return values


class Sampler:
    """Random models and values from one seed."""

    variable_count = 9
    parameter_count = 4

    def __init__(self, seed):
        self.rng = random.Random(seed)
        self.variables = [1.0] + [self.number() for _ in range(self.variable_count)]
        self.parameters = [self.number() for _ in range(self.parameter_count)]

    def number(self):
        """A dyadic number, now and then 0."""
        return self.rng.choice([-2.0, -1.5, -1.0, -0.5, 0.0, 0.5, 1.0, 1.5, 2.0, 3.0])

    def program(self):
        """A well-formed program: a constant 0.0, or some parameters and constants combined."""
        rng = self.rng
        if rng.random() < 0.3:
            return [(OP_CONST, 0.0)]
        push = lambda: (
            (OP_PARAM, float(rng.randrange(self.parameter_count)))
            if rng.random() < 0.6
            else (OP_CONST, self.number())
        )
        atoms = [push()]
        for _ in range(rng.randrange(3)):
            atoms += [push(), rng.choice([(OP_ADD, 0.0), (OP_MUL, 0.0), (OP_SUM, 2.0)])]
            if rng.random() < 0.2:
                atoms.append((OP_NEG, 0.0))
        return atoms

    def terms(self, coded, most=3):
        return [
            Term(
                self.rng.randrange(self.variable_count + 1),
                self.number(),
                self.program() if coded else [],
            )
            for _ in range(self.rng.randrange(most + 1))
        ]

    def shape(self, nd, most=3):
        """Extents from 0 to `most`, rarely 0."""
        return [self.rng.choice([1] + list(range(1, most + 1)) * 3 + [0]) for _ in range(nd)]

    def pattern(self, size, density=0.5):
        return [k for k in range(size) if self.rng.random() < density]

    def model(self, shape, sparse=False, coded=False, density=0.5):
        """With `coded` the model has at least one atom, as code exists only then."""
        size = product(shape)
        sp = self.pattern(size, density) if sparse else None
        elements = [self.terms(coded) for _ in range(size if sp is None else len(sp))]
        return Model(list(shape), elements, sp, coded and any(elements))
