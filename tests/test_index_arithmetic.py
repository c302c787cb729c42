"""Arithmetic on shapes and indexes: products, strides and copies of shapes, linear indexes,
gathers, boxes, bounds. Arrays of parameters are tested through the host."""

import itertools
import operator
import random
import unittest

from product_support import call_by_name
from support import (LAYOUTS, MARKER, blank, call, f64, i32, i64, matrix, positions, product,
                     row_major, strided, written)
from test_buffers import Buffer

# Closures that fold entries of `s` into a value v: operation, bits, places of the entries, and the
# numbers for each order of parameters.
FOLDS = """
*    32 range(nd)         | v s: 0 50 63 190 | s v: 193 261 262 277 | v beyond s: 232
*    64 range(nd)         | s v: 167 249 268 281 288 | v s: 276 278 279 280
*    32 range(n)          | v n s: 56 93 147 156 160 210 232 254 318 | n s v: 206
*    32 range(n)          | n v s: 57 69 94 198 | n v stack base: 81
*    64 range(n)          | n v s: 84 295
*    32 range(k+1,end)    | v k end s: 157 161 211 255|k v end s: 58 95 200|k end v s: 70 71 199
*    64 range(k+1,end)    | k v end s: 86 296 | k end v s: 85
*    32 range(k+1,nd)     | v k s: 148 158 162 234
*    32 {*range(n)}-{k,m} | k m n v s: 83
max  32 range(n)          | v n s: 52 65 217 239 | n s v: 228
max  32 range(1,n)        | v n s: 298
+    32 range(n)          | n s v: 227 251 | v n s: 233
+    32 range(nd)         | s v: 294
not1 32 range(n)          | n v s: 204
"""
OPERATIONS = {"*": operator.mul, "+": operator.add, "max": max, "not1": lambda n, x: n + (x != 1)}

# Closures that write an i32 list `t` or an i64 list `q`: entries that they write, and the numbers.
WRITES = """
i: s[i] for i in range(n)           | n t s: 72 90 149 153 212 229 291 | t n s: 60 97
k+i: s[i] for i in range(n)         | n t s k: 145
i: s[i] for i in range(nd)          | s t: 225 | t s: 274
i: (s+s)[i] for i in range(2*nd)    | t s s: 275
k+i: s[i] for i in range(nd)        | t s k: 325
i: 1 for i in range(nd, beyond)     | beyond s t: 226
i: 1 for i in range(k, end)         | k end t: 213 230
i: s[i] for i in range(k+1, end)    | k end t s: 154
i: s[i+1] for i in range(k, end-1)  | t k end s: 61 98 | k end t s: 73 91
i: s[i+1] for i in range(k, nd-1)   | k t s: 155
i: s[i+2] for i in range(k, end-2)  | k1 t end s: 74 92
i+1: s[i] for i in range(k+1, nd)   | k t s: 150
i: not1[i] for i in range(len(not1))               | n t s: 205
i: i for i in range(n)                             | t n: 53 66 219 237 300 | n q: 152
i: 0 for i in range(n+1)                           | n t: 301
i: sum(t[:i+1]) for i in range(n+1)                | n t: 303
i: t[i] * product(s[:k]) for i in [0]              | k t s: 263
i: t[i] * product(s[k+1:end]) for i in [2]         | k end t s: 264
i: t[i] * product(s[k+1:end]) for i in [4]         | k t end s: 265
i+1: t[0] + sum(s[:i+1]) for i in range(n-1)       | n t s: 236
i: product(s[i+1:n]) for i in range(n)             | n s t: 49 62
i: last*product(s[i+1:n]) for i in range(n-1) | n s q: 43 175 180 218 240 257 273 299 306 317 321
i: last*product(s[i+1:n]) for i in range(n-1) | n s t: 99
i: last*product(permuted[i+1:n]) for i in range(n-1) | n p q s: 207
"""


def wrap(value, bits=32):
    return (value + 2 ** (bits - 1)) % 2**bits - 2 ** (bits - 1)


def samples(count=60):
    """Random shapes, with dense and strided layouts in turn."""
    for seed in range(count):
        rng = random.Random(seed)
        yield rng, [rng.randrange(1, 5) for _ in range(rng.randrange(1, 5))], LAYOUTS[seed % 2]


class Shapes(unittest.TestCase):
    def cases(self, rows):
        """Each closure of a table with many arguments, some so large that 32 bits overflow."""
        for (rng, _, lay), row in itertools.product(samples(), rows.strip().splitlines()):
            (what, *texts), nd = row.split("|"), rng.randrange(6)
            a = {name: rng.randrange(nd + 1) for name in ("n", "k", "m", "end")}
            s = [rng.choice([0, 1, 1, 2, 3, 1 << 12, 70001]) for _ in range(nd)]
            t, p = [rng.randrange(-9, 9) for _ in range(2 * nd + 5)], rng.sample(range(nd), nd)
            a.update(s=s, t=t, last=t[a["n"] - 1], nd=nd, v=rng.choice([1, -3, 1 << 20]), base=2,
                     k1=a["k"] + 1, beyond=nd + rng.randrange(3), permuted=[s[k] for k in p],
                     not1=[x for x in s[: a["n"]] if x != 1], product=product)
            lists = {"s": s, "t": t, "stack": [5, 7] + s, "p": p}
            for parameters, numbers in (text.split(":") for text in texts):
                for number in map(int, numbers.split()):
                    arrays = {name: lay(i32(values)) for name, values in lists.items()}
                    yield number, parameters, what, a, {**arrays, "q": lay(i64(t))}

    def test_folds(self):
        for number, parameters, what, a, arrays in self.cases(FOLDS):
            (operation, bits, places), value = what.split(), a["v"]
            for k in eval(places, a):
                value = OPERATIONS[operation](value, a["s"][k])
            none = dict.fromkeys(arrays)
            self.assertEqual((call_by_name(number, parameters, a, arrays),
                              call_by_name(number, parameters, a, none, n=0, end=0)),
                             (wrap(value, int(bits)), a["v"]), number)

    def test_writes(self):
        for number, parameters, what, a, arrays in self.cases(WRITES):
            call_by_name(number, parameters, a, arrays)
            target, bits = (arrays["q"], 64) if "q" in parameters else (arrays["t"], 32)
            expected = {**dict(enumerate(a["t"])), **eval("{%s}" % what, a)}
            self.assertEqual(list(target), [wrap(x, bits) for x in expected.values()], number)

    def test_tables_and_lists_of_shapes(self):
        shapes, total = matrix("i", [[9] * 3] * 3), i32([7, 7])
        call(250, 3, 2, shapes)
        call(252, 1, shapes, i32([4, 5]))
        call(253, 1, 3, total, shapes)
        self.assertEqual([*shapes.tolist(), *total], [[1, 1, 9], [4, 5, 9], [1, 1, 9], 7, 13])
        listed = Buffer((i32([2, 3]), i32([4]), None, strided(i32([8, 9]))), "O", 8, (4,), (8,))
        for n, k, shapes, sums in ((4, 1, listed, [7, 13 + 3 + 1 + 1 + 9]), (0, 0, listed, [7, 27]),
                                   (3, 0, listed, [7 + 2 + 4 + 1, 27]), (3, 0, None, [14, 27])):
            call(231, k, n, total, shapes)
            self.assertEqual(list(total), sums)

    def test_stacked_shapes(self):
        for shape, part, dim, same, fits, extent in (
            ([2, 3], [2, 9], 1, 1, 1, 9), ([2, 3], [9, 3], 1, 0, 1, 3), ([2, 1], [2], 0, 1, 1, 2),
            ([2, 3], [2], 0, 1, 0, 2), ([2, 3], [2], 1, 1, 1, 1), ([2, 3], [], 0, 1, 1, 1)):
            arrays, sizes = (i32(shape), i32(part)), i32([9])
            self.assertEqual(call(292, dim, True, *arrays), same)
            self.assertEqual([*call(293, dim, True, 6, sizes, 0, 2, *arrays), sizes[0]],
                             [fits, 6 + extent, extent])


class Indexes(unittest.TestCase):
    def test_subscripts_and_linear_indexes(self):
        for rng, shape, lay in samples():
            nd, sh, st = len(shape), lay(i32(shape)), lay(i64(row_major(shape)))
            places, rows = positions(shape), matrix("i", positions(shape))
            for index, p in enumerate(places):
                for number in (309, 308, 178, 177):
                    self.assertEqual(call(number, index, 2**40, rows, nd, st), 2**40 + index)
                lin, head = index + 2 * len(places), p[0] + 2 * shape[0]  # that isn't reduced
                res, dest, k = (lay(i32([9] * nd)) for _ in range(3))
                call(272, lin, res, sh)
                call(270, dest, lin, sh)
                self.assertEqual(call(271, k, nd, lin, sh), head)
                self.assertEqual([[*res], [*dest], [*k]], [[x, *p[1:]] for x in (head, head, 9)])
                backward = sum(x * product(shape[1 : k + 1]) for k, x in enumerate(p))
                self.assertEqual(call(269, lay(i32(p)), p[0], sh), index)
                for number in (312, 311):
                    self.assertEqual(call(number, lay(i32(p)), p[-1], nd, sh), backward)
            idxs, p = lay(i32([9] * len(places))), [rng.randrange(-1, x + 1) for x in shape]
            call(307, idxs, rows, nd, lay(i32(range(5, 5 + len(places)))), st)
            self.assertEqual(list(idxs), list(range(5, 5 + len(places))))
            self.assertIs(call(305, False, matrix("i", [places[0], p]), sh), tuple(p) not in places)
            self.assertIs(call(310, lay(i32([0, p[0]])), False, sh), p[0] not in range(shape[0]))

    def test_stacked_indexes(self):
        for rng, shape, lay in samples():
            dim, sizes, shift = rng.randrange(len(shape)), rng.sample(range(1, 6), 3), 0
            parts = [[*shape[:dim], extent, *shape[dim + 1 :]] for extent in sizes]
            shape[dim], counts = sum(sizes), list(map(product, parts))
            for i, part in enumerate(parts):
                sp, first = lay(i64([-9, *range(counts[i]), -9])), sum(sizes[:i])
                shift = call(297, dim, row_major(shape)[dim], shape[dim], lay(i32(sizes)), i,
                             lay(i64(counts)), counts[i], 1, shift, sp)
                moved = [p[:dim] + (p[dim] + first,) + p[dim + 1 :] for p in positions(part)]
                self.assertEqual(list(sp), [-9, *map(positions(shape).index, moved), -9])
                self.assertEqual(shift, sum((sizes if dim else counts)[: i + 1]))

    def test_sort_by_dimensions(self):
        for rng, shape, lay in samples():
            sp = [rng.randrange(product(shape)) for _ in range(rng.randrange(9))]
            order, n = rng.sample(range(len(shape)), len(shape)), len(sp)
            index = (lay(i32(shape)), lay(i64(row_major(shape))), lay(i64(sp)))
            perm, other, ptr = lay(i32(range(n))), lay(i32([0] * n)), lay(i32([8] * 6))
            for dim in reversed(order):
                call(301, shape[dim], ptr)
                call(302, dim, ptr, n, *index)
                call(303, shape[dim], ptr)
                call(304, dim, perm, other, ptr, n, *index)
                perm, other = other, perm
            key = lambda k: [positions(shape)[sp[k]][dim] for dim in order]
            self.assertEqual(list(perm), sorted(range(n), key=key))

    def test_symmetric_fill(self):
        for _, (extent, *shape), lay in samples():
            dim, st = [2, extent, len(shape), extent, 3], lay(i32([0, 0, 0, 0, 1]))
            call(266, lay(i32(dim)), st)
            for upper, ordered in ((False, operator.ge), (True, operator.le)):
                half = [p for p in positions(dim) if ordered(p[1], p[3])]
                native, nidxs = lay(i32([5, *range(len(half))])), lay(i32([-9] * product(dim)))
                self.assertEqual(call(267, lay(i32(dim)), 1, native, nidxs, st, upper), len(native))
                for (a, b, c, d, e), entry in zip(positions(dim), nidxs):
                    self.assertIn(half[entry], ((a, b, c, d, e), (a, d, c, b, e)))


class Lists(unittest.TestCase):
    def test_gathers(self):
        size, sp, square = i32([2, 3]), i64([5, 0, 4]), matrix("d", [[1, 2, 3], [4, 5, 6]])
        for lay in LAYOUTS:
            vals, dest, places = lay(f64([0] * 7)), lay(i64([9] * 5)), lay(sp)
            for number, arguments, target, expected in (
                    (329, (3, vals, 7), vals, [7, 7, 7, 0, 0, 0, 0]),
                    (326, (size, vals, square), vals, [1, 2, 3, 4, 5, 6, 0]),
                    (327, (size, places, vals, square), vals, [6, 1, 5, 4, 5, 6, 0]),
                    (328, (vals, size, places, f64(range(6))), vals, [5, 0, 5, 4, 5, 6, 0]),
                    (316, (dest, size, 1, None), dest, [9, 0, 1, 9, 9]),
                    (316, (dest, size, 1, places), dest, [9, 5, 0, 4, 9])):
                call(number, *arguments)
                self.assertEqual(list(target), expected)
            flat = lay(f64([0] * 11))
            self.assertEqual((call(286, 2, 3, 4, square, flat, square, lay(f64([0] * 10))), *flat),
                             (10, *[0] * 4, *range(1, 7), 0))
            for number, more, key, pos in ((314, 0, 4, 0), (314, 0, 4, 1), (313, 2**40, 4, 1),
                                           (313, 2**40, 5, 1), (314, 0, 0, 3)):
                at = next((k for k in range(pos, 3) if sp[k] >= key), 3)
                self.assertEqual(call(number, key + more, pos, lay(i64(v + more for v in sp))), at)
        for number, sources, expected in (
                (331, [[1, 2]], [[1, 2, 8], [8, 8, 8]]), (330, [[1, 2]], [[1, 8, 8], [2, 8, 8]]),
                (287, [[1, 2], [3, 4]], [[1, 3, 8], [2, 4, 8]])):
            target = matrix("i", [[8] * 3] * 3)
            call(number, target, *(strided(i32(source)) for source in sources))
            self.assertEqual(target.tolist(), [*expected, [8] * 3])

    def test_boxes(self):
        for rng, shape, lay in samples():
            shape = shape[: rng.randrange(len(shape) + 1)]
            nd, places = len(shape), positions(shape)
            start = [rng.randrange(n) for n in shape]
            stop = [rng.randrange(a, n + 1) for a, n in zip(start, shape)]
            extents = [b - a for a, b in zip(start, stop)]
            inside = [k for k, p in enumerate(places)
                      if all(a <= x < b for a, x, b in zip(start, p, stop))]
            stored = sorted(rng.sample(range(len(places)), rng.randrange(len(places) + 1)))
            kept = [q for q, k in enumerate(stored) if k in inside]
            box, index = (lay(i32(start)), lay(i32(stop))), lay(i32([0] * nd))
            source = lay(i32(shape)), lay(i64(row_major(shape)))
            native, dense = lay(i32(range(50, 50 + len(stored)))), lay(i32(range(len(places))))
            sp, target, rsp = lay(i64(stored)), blank("i", len(places) + 3), blank("q", len(places) + 3)
            self.assertEqual(call(319, *box, index, 1, nd, dense, target, *source), 1 + len(inside))
            self.assertEqual(written(target), [dict(enumerate(inside, 1))])
            self.assertEqual(call(320, *box, 7, index, nd, native, source[0], sp, source[1]),
                             7 + len(kept))
            target, strides = blank("i", len(places) + 3), lay(i64(row_major(extents)))
            self.assertEqual(call(322, *box, index, 2, nd, native, target, rsp, strides, source[0],
                                  sp, source[1]), 2 + len(kept))
            new = [positions(extents).index(tuple(x - a for x, a in zip(places[stored[q]], start)))
                   for q in kept]
            self.assertEqual(written(target, rsp), [dict(enumerate((50 + q for q in kept), 2)),
                                                    dict(enumerate(new, 2))])
            low, high = sorted(rng.choices(range(-1, len(places) + 2), k=2))
            run = [q for q, k in enumerate(stored) if low <= k < high]
            target, rsp = blank("i", len(places) + 3), blank("q", len(places) + 3)
            self.assertEqual((call(323, 3, sp, low, high),
                              call(324, 3, native, target, rsp, sp, low, high)), (3 + len(run),) * 2)
            self.assertEqual(written(target, rsp), [
                dict(enumerate((50 + q for q in run), 3)),
                dict(enumerate((stored[q] - low for q in run), 3))])

    def test_bounds(self):
        for seed in range(30):
            rng, lay = random.Random(seed), LAYOUTS[seed % 2]
            places = [(i, j) for i in range(3) for j in range(3)]
            lower, upper = ({p: rng.uniform(1, 9) for p in sorted(rng.sample(places, n))}
                            for n in (rng.randrange(6), rng.randrange(6)))
            lists = [(lay(i32(i for i, _ in side)), lay(i32(j for _, j in side)),
                      lay(f64(side.values()))) for side in (lower, upper)]
            union = sorted({*lower, *upper})
            self.assertEqual(call(282, *lists[0][:2], 2**40, *lists[1][:2]), 2**40 + len(union))
            inst = matrix("i", [[MARKER["i"]] * 3] * (len(union) + 1))
            lbv, ubv = blank("d", len(union) + 1), blank("d", len(union) + 1)
            call(283, inst, lbv, *lists[0], ubv, *lists[1])
            self.assertEqual(written(inst, lbv, ubv), [
                {(k, c): p[c] for k, p in enumerate(union) for c in (0, 1)},
                *({k: side.get(p, 0.0) for k, p in enumerate(union)} for side in (lower, upper))])
            dense = [lay(blank("d", 10)) for _ in range(2)]
            call(284, 3, dense[0], *lists[0])
            call(285, 3, *lists[1][:2], dense[1], lists[1][2])
            self.assertEqual(written(*dense), [{3 * i + j: v for (i, j), v in side.items()}
                                               for side in (lower, upper)])


if __name__ == "__main__":
    unittest.main()
