"""Views of variables that move elements between dimensions: triangles, the order of axes, repeats,
stacks. A view is right if it lists the array, a dictionary by subscripts here, as it was moved."""

import random
import unittest

from support import (LAYOUTS, MARKER, blank, call, i32, i64, positions, product, row_major,
                     strided)
from test_buffers import Buffer

EDGE = [MARKER["q"]]
# What stands for the source and the targets in the arguments of a call.
NATIVE, PATTERN, IDXS, SP, PERM, POS, N = "native", "pattern", "idxs", "sp", "perm", "pos", "n"


# (rng, layout, random shape) for each seed; extents are rarely 0.
def cases(count, nd):
    for seed, rng in enumerate(map(random.Random, range(count))):
        yield rng, LAYOUTS[seed % 2], rng.choices([0] + [1, 2, 3] * 4, k=nd or rng.randrange(1, 5))


def linear(shape, x):
    return sum(i * stride for i, stride in zip(x, row_major(shape)))


def pattern(shape, elements):
    return i64(linear(shape, x) for x in elements)


def dense(rng, shape):
    return {x: rng.randrange(1000) for x in positions(shape)}


# Some stored elements of a shape that may be too large to list.
def sparse(rng, shape):
    places = {tuple(map(rng.randrange, shape)) for _ in range(rng.randrange(9) * (0 not in shape))}
    return {x: rng.randrange(1000) for x in sorted(places)}


class Views(unittest.TestCase):
    def check(self, lay, number, source, shapes, moves, *arguments):
        """The targets get, between markers, the elements of the source at all places that each
        moves to; POS comes back as their end. For a pattern, `shapes` of source and target."""
        moved = {y: v for x, v in source.items() for y in moves(x)}
        n, first, sp_too = len(moved), int(POS not in arguments), SP in arguments
        idxs, sp, perm = (lay(blank("q", n + 2)) for _ in range(3))
        named = {NATIVE: lay(i64(source.values())), IDXS: idxs[first:], SP: sp[first:], PERM: perm,
                 PATTERN: sp_too and lay(pattern(shapes[0], source)), POS: 1, N: n}
        end = call(number, *(named[a] if isinstance(a, str) else
                             lay(a) if hasattr(a, "typecode") else a for a in arguments))
        start, *entries, stop = zip(sp, idxs)
        self.assertEqual(sorted(entries) if number in (164, 216) else entries, [
            (linear(shapes[1], x) if sp_too else EDGE[0], moved[x]) for x in sorted(moved)])
        self.assertEqual([*start, *stop, *perm, end], EDGE * 4 + [
            *(range(n) if PERM in arguments else EDGE * n), *EDGE * 2,
            len(source) if number == 224 else None if first else 1 + n])

    def test_triangles(self):
        for rng, lay, (pre, d, mid, post) in cases(100, 4):
            tri = [(i, j) for i in range(d) for j in range(i + 1)]
            lower = lambda x: [(x[0], tri.index((x[1], x[3])), x[2], x[4])] if x[3] <= x[1] else []
            both = lambda x: [(x[0], *tri[x[1]], x[2]), (x[0], *tri[x[1]][::-1], x[2])]
            mirrored = lambda x: [x, x[:1] + x[3:0:-1] + x[4:]]
            shape, rbig = [pre, d, mid, d, post], [2 ** 33, len(tri), mid, post]
            self.check(lay, 151, dense(rng, [pre, len(tri), post]), None, both,
                       NATIVE, d, pre, len(tri), post, IDXS, POS)
            self.check(lay, 159, dense(rng, shape), None, lower,
                       NATIVE, pre, d, mid, d, post, POS, IDXS)
            table = {x: rng.randrange(1000) for x in positions(shape) if x[1] <= x[3]}
            self.check(lay, 201, {x: ~v for x, v in table.items()}, None, mirrored,
                       pre, d, mid, d, post, i64(table.values()), IDXS, *row_major(shape)[:4])
            big, st = [2 ** 33, *shape[1:]], row_major(shape)
            source = sparse(rng, big)
            self.assertEqual(call(163, d, d, 4, st[1], st[3], pattern(big, source)),
                             4 + sum(j <= i for _, i, _, j, _ in source))
            self.check(lay, 164, source, (big, rbig), lower, NATIVE, d, mid, d, post, POS, N,
                       PERM, IDXS, *row_major(rbig), SP, *st, PATTERN)

    def test_order_of_axes(self):
        for rng, lay, shape in cases(150, None):
            nd, n, source, big = len(shape), product(shape), dense(rng, shape), [2 ** 31 - 1, 3]
            perm, stay, turned = rng.sample(range(nd), nd), lambda x: [x], lambda x: [x[::-1]]
            moved, rshape = lambda x: [tuple(x[k] for k in perm)], [shape[k] for k in perm]
            rest = nd, n, i32(perm), i64(row_major(rshape)), IDXS, i32(shape)
            self.check(lay, 208, source, None, moved, NATIVE, *rest)
            self.check(lay, 209, {x: linear(rshape, *moved(x)) for x in source}, None, stay, *rest)
            values, back = dict(enumerate(source.values())), i64(rng.sample(range(n), n))
            self.check(lay, 165, values, None, lambda k: [back.index(k)], n, IDXS, back, NATIVE)
            self.check(lay, 166, values, None, lambda k: [back.index(k)], n, back, NATIVE, IDXS)
            if nd == 2:
                self.check(lay, 170, source, None, turned, NATIVE, IDXS, i32(shape), None, None)
                self.check(lay, 170, sparse(rng, big), (big, big[::-1]), turned,
                           NATIVE, IDXS, i32(big), SP, PATTERN)
        # Places are 32-bit.
        self.check(lay, 209, {0: 0, 1: 0}, None, stay, 1, 2, i32([0]), i64([2**32]), IDXS, i32([2]))

    def test_repeats(self):
        for rng, lay, (outer, ext, inner) in cases(100, 3):
            copies, big = rng.randrange(4), [2 ** 12, ext, 2 ** 20]
            block = lambda x: [(x[0], x[1] + k * ext, x[2]) for k in range(copies)]
            source = sparse(rng, big)
            head, tail = (POS, copies, len(source)), (NATIVE, PATTERN)
            self.check(lay, 214, source, (big, [copies, *big]), lambda x: [
                (k, *x) for k in range(copies)], product(big), *head, IDXS, SP, *tail)
            self.check(lay, 215, source, (big, [*big, copies]), lambda x: [
                (*x, k) for k in range(copies)], *head, IDXS, SP, *tail)
            self.check(lay, 216, source, (big, [2 ** 12, copies * ext, 2 ** 20]), block, ext,
                       2 ** 20, *head, copies * ext << 20, IDXS, SP, ext << 20, 2 ** 20, *tail)
            self.check(lay, 224, dense(rng, [outer, ext, inner]), None, block, outer, ext, inner, 0,
                       copies, IDXS, copies * ext * inner, inner, NATIVE)

    def test_stack_and_sort(self):
        for rng, lay, sdims in cases(100, 3):
            offset, outer, end = lay(i32([0, sdims[0], sdims[0] + sdims[1]])), rng.choice([1, 4]), 1
            shape, shapes = [outer, sum(sdims), 2 ** 30], [[outer, sd, 2 ** 30] for sd in sdims]
            parts = [sparse(rng, s) for s in shapes]
            own = [v for s, p in zip(shapes, parts) for v in pattern(s, p)]
            stacked = [linear(shape, (a, m + o, b)) for o, p in zip(offset, parts) for a, m, b in p]
            n, numnz, rsp = len(own), lay(i32(map(len, parts))), lay(i64(EDGE + own + EDGE))
            if outer > 1:
                end = call(238, shape[1], 2 ** 30, end, 3, numnz, offset, rsp, lay(i32(sdims)))
            for o in range(3) if outer == 1 else ():
                end = call(235, o, end, offset[o] << 30, numnz, rsp)
            self.assertEqual((end, list(rsp)), (1 + n, EDGE + stacked + EDGE))
            # The last dimension is left out, so that keys repeat: the sort is the stable one.
            data = lay(i32(shape)), lay(i64(stacked[::-1])), lay(i64(row_major(shape)))
            perm, other, ptr = lay(i32(range(n))), lay(i32([0] * n)), lay(blank("i", 12))
            clear, count, add, place = rng.choice(((220, 221, 222, 223), (241, 242, 243, 244)))
            for k, before, after in ((1, perm, other), (0, other, perm)):
                call(clear, k, ptr, data[0])
                call(count, k, ptr, n, *data)
                call(add, k, ptr, data[0])
                call(place, before, k, ptr, n, *data, after)
            order = sorted(range(n), key=lambda i: stacked[~i] >> 30)
            self.assertEqual([*perm, ptr[outer], ptr[max(shape[:2]) + 1]], [*order, n, MARKER["i"]])

    def test_stack_of_constraints(self):
        lists = Buffer((i32([3, -4, 5]), strided(i32([6, 7, 8])), None), "O", 8, (3,), (8,))
        for n, shape, expected in ((2, [1, 3], [3, 6, -4, 7, 5, 8]), (1, [2], [3, -4]),
                                   (0, [3], []), (2, [], [3, 6]), (3, [0, 3], [])):
            codes = blank("i", 7)
            call(256, codes, n, len(shape), lists, i32(shape))
            self.assertEqual(list(codes), expected + [MARKER["i"]] * (7 - len(expected)))


if __name__ == "__main__":
    unittest.main()
