"""What moves elements: stack, repeat, transpose, permute_dims, slice and pick, closures 405 to 443.

An operator's result is told by the sources of its positions: pairs of an operand's number and a
linear index of it. Which elements are stored, and their terms, follows from that.
"""

import itertools
import unittest

from scripts.declarations import read_declarations
from product_support import call_by_name, header_bindings, stack_bindings
from support import (MARKER, OP_CONST, Model, Sampler, Stack, Term, assert_only_sections_written,
                     call, i32, i64, matrix, positions, product, push, read, reserve, row_major,
                     strided)
from test_buffers import Buffer

PARAMETERS = {d.number: " ".join(p.name for p in d.parameters) for d in read_declarations()}


def moved(models, sources, shape, sparse):
    """The result whose position x is that of sources[x]."""
    coded = any(m.coded for m in models)
    program = lambda m, t: t.program if m.coded or not coded else [(OP_CONST, 0.0)]
    stored = [dict(zip(m.linear(), m.elements)) for m in models]
    sp = [x for x, (k, p) in enumerate(sources) if not sparse or p in stored[k]]
    elements = [[Term(t.nidx, t.cof, program(models[k], t)) for t in stored[k].get(p, [])]
                for k, p in (sources[x] for x in sp)]
    return Model(list(shape), elements, sp if sparse else None, coded and any(elements))


class Chain:
    """Stacks that hold some models, and closures whose arguments are found by their names."""

    def __init__(self, test, models, step):
        spread = lambda values: strided(values, step) if step > 1 and len(values) else values
        self.i32, self.i64 = (lambda v: spread(i32(v))), (lambda v: spread(i64(v)))
        self.test, self.models = test, models
        self.w, self.r, self.x = (Stack(2048, step) for _ in range(3))
        self.headers = [push(self.w, m) for m in models]
        self.e = self.headers[0]
        self.sizes = self.e.ncodeatom, self.e.nelem, self.e.nnz
        self.bound = {**header_bindings("", self.e), **header_bindings("e", self.e),
                      **stack_bindings("w", self.w), **stack_bindings("r", self.r),
                      **stack_bindings("x", self.x), "codei": 0, "knnz": 0, "kelm": 0}

    def __call__(self, number, **values):
        return call_by_name(number, PARAMETERS[number], self.bound, values)

    def reserve(self, shape, sparse, sizes, heads=0):
        """Room for the result. Of `ptr` and `codeptr`, the closures write so many entries 0."""
        ncodeatom, nelem, nnz = sizes
        self.h = h = reserve(self.r, len(shape), nelem, nnz, ncodeatom, sparse)
        for head in (h.ptr_base, h.codeptr_base)[: heads if ncodeatom > 0 else heads > 0]:
            self.r.i32[head] = MARKER["i"]
        self.before = self.r.snapshot()
        self.bound.update(header_bindings("r", h))

    def check(self, sources, shape, has_shape=True):
        h = self.h
        assert_only_sections_written(self.test, self.r, self.before, h, has_shape)
        self.test.assertEqual(self.r.i32[h.ptr_base], 0)
        self.test.assertEqual(h.ncodeatom and self.r.i32[h.codeptr_base], 0)
        self.test.assertEqual(read(self.r, h, None if has_shape else shape),
                              moved(self.models, sources, shape, h.hassp))


def cases(test):
    """Runs a test for some seeds, with and without sparsity, code and strides."""
    def run(self):
        for seed, sparse, coded, step in itertools.product(range(25), (0, 1), (0, 1), (1, 3)):
            with self.subTest(seed=seed, sparse=sparse, coded=coded, step=step):
                s = Sampler(seed)
                chain = lambda shape: Chain(self, [s.model(shape, sparse, coded)], step)
                test(self, s, sparse, coded, step, chain)
    return run


class Structure(unittest.TestCase):
    def write_stack(self, c, rshape, dim, path):
        """The stack along `dim` by the closures of one path."""
        n, one = len(c.models), dict(shape_base=c.e.shape_base)
        outcode, *sizes = c(429, outcode=False, rncodeatom=0, rnelem=0, rnnz=0)
        c.reserve(rshape, path != "dense", sizes, 2)
        c(434, **one)
        c.r.i32[c.h.shape_base + dim] = c(428, rdim=0)
        if path == "dense":
            c(435, outcode=outcode, d0=c(430, d0=1, **one), d2=c(433, d2=1, **one))
        elif path == "first":
            c(438)
        else:
            offset = c.i32([0] + [MARKER["i"]] * (n - 1))
            c(431, offset=offset)
            c.bound.update({name + "_base": c.x.reserve(kind, c.h.nelem) for name, kind in (
                ("tgtop", "i"), ("tgtpos", "i"), ("tgtval", "q"), ("perm", "i"), ("tgtperm", "i"))})
            c(440, offset=offset, rd1=c(432, acc=0), d2=c(437, prod=1, **one))
            lperm, _ = c(441, xptr_base=c.x.reserve("i", c(439, maxd=0) + 1))
            c(442, outcode=outcode, lperm_base=lperm)

    @cases
    def test_stack(self, s, sparse, coded, step, _):
        shape = s.shape(s.rng.randrange(4))
        dim, count = s.rng.randrange(len(shape) + 1), s.rng.randrange(1, 5)
        d1s = [s.rng.randrange(4) if dim < len(shape) else 1 for _ in range(count)]
        models = [s.model(shape[:dim] + [d1] * (dim < len(shape)) + shape[dim + 1 :],
                          sparse and s.rng.random() < 0.6, coded and s.rng.random() < 0.6)
                  for d1 in d1s]
        dense = all(m.sp is None for m in models)
        # For each position before `dim`, a slab of each model.
        slabs = [product(m.shape[dim:]) for m in models]
        sources = [(k, a * slab + x) for a in range(product(shape[:dim]))
                   for k, slab in enumerate(slabs) for x in range(slab)]
        for path in itertools.compress(("dense", "first", "sorted"), (dense, dim == 0, True)):
            c = Chain(self, models, step)
            lists = {f: c.i32([getattr(h, f) for h in c.headers]) for f in vars(c.e) if f != "nd"}
            c.bound.update(lists, n=count, dim=dim, d1s=c.i32(d1s), nds=c.i32([c.e.nd] * count),
                           **{f: lists[f + "_base"] for f in ("codeptr", "code", "cconst")})
            self.assertEqual((dense, False), c(427, alldense=not c.e.hassp, mismatch=False,
                                               shape0_base=c.e.shape_base))
            rshape = shape[:dim] + [sum(d1s)] + shape[dim + 1 :]
            self.write_stack(c, rshape, dim, path)
            c.check(sources, rshape)

    @cases
    def test_repeat(self, s, sparse, coded, step, chain):
        shape = s.shape(s.rng.randrange(1, 4))
        dim, m, c = s.rng.randrange(len(shape)), s.rng.randrange(4), chain(shape)
        rshape = shape[:dim] + [m * shape[dim]] + shape[dim + 1 :]
        c.reserve(rshape, sparse, [m * size for size in c.sizes], 2)
        c(425, dim=dim, m=m, rd1=rshape[dim], d0=c(423, d0=1, dim=dim), d1=shape[dim],
          d2=c(424, d2=1, dim=dim))
        slab = product(shape[dim:])
        c.check([(0, a * slab + x) for a in range(product(shape[:dim])) for _ in range(m)
                 for x in range(slab)], rshape)

    @cases
    def test_transpose(self, s, sparse, coded, step, chain):
        d0, d1 = s.shape(2, 5)
        c = chain([d0, d1])
        c.reserve([d1, d0], sparse, c.sizes, 1)
        c(421 if sparse else 422, d0=d0, d1=d1, perm_base=c.x.reserve("i", c.e.nelem),
          pptr_base=c.x.reserve("i", d1 + 1))
        c.check([(0, d1 * j + i) for i in range(d1) for j in range(d0)], [d1, d0], False)

    @cases
    def test_permute_dims(self, s, sparse, coded, step, chain):
        shape = s.shape(s.rng.randrange(5))
        perm = s.rng.sample(range(len(shape)), len(shape))
        back, rshape = [perm.index(j) for j in range(len(shape))], [shape[j] for j in perm]
        strides, rstrides, c = row_major(shape), row_major(rshape), chain(shape)
        c.reserve(rshape, sparse, c.sizes, 0 if sparse else 2)
        c(417, dperm=c.i32(perm))
        if sparse:
            sp = c.i64([MARKER["q"]] * c.e.nelem)
            c(418, dperm=c.i32(back), dstride=c.i32(rstrides), sp=sp, stride=c.i64(strides))
            order = sorted(range(c.e.nelem), key=lambda k: sp[k])
            self.assertEqual(c(419, perm=c.i64(order), sp=sp, kelm=7),
                             (c.e.ncodeatom, 7 + c.e.nelem, c.e.nnz))
        else:
            c(420, dperm=c.i32(perm), dstride=c.i32([strides[j] for j in perm]),
              stride=c.i64([rstrides[i] for i in back]))
        place = {x: k for k, x in enumerate(positions(shape))}
        c.check([(0, place[tuple(x[i] for i in back)]) for x in positions(rshape)], rshape)

    @cases
    def test_slice(self, s, sparse, coded, step, chain):
        shape = s.shape(s.rng.randrange(4), 5)
        first = [s.rng.randrange(d + 1) for d in shape]
        last = [s.rng.randrange(f, d + 1) for f, d in zip(first, shape)]
        rshape, c = [b - a for a, b in zip(first, last)], chain(shape)
        st, rst = (c.i64([MARKER["q"]] * (len(shape) - 1) + [1]) for _ in range(2))
        c.bound.update(st=st, rst=rst, rshape=c.i32(rshape), first=c.i32(first), last=c.i32(last))
        c(412), c(415)
        sizes = c(413, rncodeatom=0, rnelem=0, rnnz=0)
        c.reserve(rshape, sparse, sizes)
        c(414)
        # The elements of a sparse operand may be written in portions.
        half = c.e.nelem // 2 if sparse else 0
        written = c(416, nelem=half)
        c.bound.update(zip(("codei", "kelm", "knnz"), written))
        self.assertEqual(c(416, nelem=c.e.nelem - half, ptr_base=c.e.ptr_base + half,
                           sp_base=c.e.sp_base + half), sizes)
        c.check([(0, p) for p, x in enumerate(positions(shape))
                 if all(a <= k < b for a, k, b in zip(first, x, last))], rshape)

    @cases
    def test_pick(self, s, sparse, coded, step, chain):
        shape = s.shape(s.rng.randrange(1, 4))
        places, c = positions(shape), chain(shape)
        rows = s.rng.choices(places, k=s.rng.randrange(8)) if places else []
        idxs = c.i64([MARKER["q"]] * len(rows))
        c(406, idxs=matrix("i", rows), this_idxs=idxs, shape=c.i32(shape))
        c.bound.update(idxs=idxs, spos_base=c.x.reserve("i", len(rows)))
        sizes = c(410 if sparse else 408, rncodeatom=0, rnnz=0)
        c.reserve([len(rows)], False, (sizes[0], len(rows), sizes[1]))
        self.assertEqual(c(411 if sparse else 409), sizes)
        c.check([(0, places.index(row)) for row in rows], [len(rows)], False)

    def test_operands_that_dont_fit(self):
        # Operand 0 has the shape (2, 3); the other's rank, extents and form vary.
        for dim, rank, extents, hassp, flags in (
                (0, 2, [7, 3], 0, (True, False)), (0, 2, [2, 4], 0, (True, True)),
                (1, 2, [2, 7], 1, (False, False)), (1, 3, [2, 7], 0, (True, False)),
                (0, 3, [7, 3], 1, (False, True)), (2, 2, [2, 3], 0, (True, False))):
            headers = i32([1, hassp]), False, 2, 2, i32([9, rank]), 0, i32([0, 2])
            self.assertEqual(call(427, True, dim, *headers, i32([2, 3] + extents)), flags)

    def test_indexes_that_dont_fit(self):
        for index, total, unfit in ((-1, 5, True), (2**40, 2**40, True), (2**40, 2**41, False)):
            self.assertIs(call(407, i64([0, index]), total, False), unfit)
        for row, unfit in (([2, 0], True), ([0, -1], True), ([1, 3], True), ([1, 2], False)):
            self.assertIs(call(405, matrix("i", [[0, 0], row]), 2, i32([2, 3]), False), unfit)

    def test_largest_entries_of_a_list(self):
        for step in (1, 2):
            shape = i32([2, 3])
            entries = [None, i32([2, 5]), strided(i32([0, 7]))]
            items = tuple(x for e in entries for x in [e] + ["gap"] * (step - 1))
            call(444, 1, shape, Buffer(items, "O", 8, (3,), (8 * step,)))
            self.assertEqual(list(shape), [2, 15])
        null_reference = Buffer(bytearray(8), "O", 8, (1,), (8,))
        call(444, 0, shape, null_reference)
        self.assertEqual(list(shape), [2, 15])

    def test_extents(self):
        shape, targets = i32([3, 4, 5]), [i32([9] * 4), i32([9] * 4)]
        call(443, 2, targets[0], shape), call(426, 2, targets[1], shape)
        self.assertEqual([list(t) for t in targets], [[3, 4, 9, 9]] * 2)
        self.assertEqual(call(436, 2, 10, 0, shape), 120)


if __name__ == "__main__":
    unittest.main()
