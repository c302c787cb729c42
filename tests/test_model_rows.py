"""Model rows from stacked expressions, and the solution read back."""

import itertools
import random
import struct
import unittest

from support import (LAYOUTS, MARKER, Model, Sampler, Stack, Term, blank, call, f64, i32, i64, prefix,
                     push)


class Rows(unittest.TestCase):
    def cases(self, count=60):
        """Random expressions with ascending terms, some constant or semidefinite, and row codes:
        (subtest, model, codes, stack, header, layout)."""
        for seed, step in itertools.product(range(count), (1, 3)):
            s = Sampler(seed)
            model = s.model([s.rng.randrange(7)], coded=seed % 2 == 1)
            for element in model.elements:
                for t in element:
                    t.nidx -= s.rng.choice([0, 0, 4])
                element[:] = {t.nidx: t for t in element}.values()
                element.sort(key=lambda t: t.nidx)
            model.coded = model.coded and any(model.elements)
            codes = [s.rng.randrange(-4, 4) for _ in model.elements]
            stack = Stack(step=step)
            case = self.subTest(seed=seed, step=step)
            yield case, model, codes, stack, push(stack, model), LAYOUTS[step > 1]

    @staticmethod
    def halves(codes):
        """Elements of the conic and of the linear rows, each with its row."""
        return ([(e, -c - 1) for e, c in enumerate(codes) if c < 0],
                [(e, c) for e, c in enumerate(codes) if c >= 0])

    def test_counts_by_kind(self):
        for case, model, codes, w, h, lay in self.cases():
            with case:
                conidxs, nrow = lay(i32(codes + [5])), len(codes)
                halves = [[model.elements[e] for e, _ in half] for half in self.halves(codes)]
                terms = [sum(map(len, half)) for half in halves]
                atoms = [sum(len(t.program) for element in half for t in element)
                         for half in halves]
                for rows, of_terms, of_atoms in ((26, 27, 28), (31, 34, 36)):
                    self.assertEqual(call(rows, conidxs, nrow, 3), 3 + len(halves[1]))
                    self.assertEqual(call(of_terms, 10, conidxs, 20, nrow, h.ptr_base, w.i32),
                                     (10 + terms[0], 20 + terms[1]))
                    if model.coded:
                        self.assertEqual(call(of_atoms, 10, h.codeptr_base, conidxs, 20, nrow,
                                              h.ptr_base, w.i32), (10 + atoms[0], 20 + atoms[1]))

    def test_split(self):
        for case, model, codes, w, h, lay in self.cases():
            with case:
                conic, linear = self.halves(codes)
                nrow = len(codes)
                x = Stack()
                cptr, lptr = x.reserve("i", nrow + 3), x.reserve("i", nrow + 3)
                rows = [lay(blank("i", nrow + 3)) for _ in range(4)]
                result = call(35, 1, 10, lay(i32(codes)), cptr, rows[0], 2, 20, lptr, rows[1], nrow,
                              h.ptr_base, w.i32, x.i32)
                self.assertEqual(call(39, 1, lay(i32(codes)), rows[2], 2, rows[3], nrow),
                                 result[::2])
                expected = Stack()
                for k, (half, base, pos, nnz) in enumerate(((conic, cptr, 1, 10),
                                                            (linear, lptr, 2, 20))):
                    pointers = [nnz + p for p in prefix(len(model.elements[e]) for e, _ in half)]
                    self.assertEqual(result[2 * k : 2 * k + 2], (pos + len(half), pointers[-1]))
                    for p, pointer in enumerate(pointers[1:]):
                        expected.i32[base + pos + 1 + p] = pointer
                    for written in (rows[k], rows[k + 2]):
                        gap = [MARKER["i"]]
                        self.assertEqual(list(written), gap * pos + [row for _, row in half]
                                         + gap * (nrow + 3 - pos - len(half)))
                self.assertEqual(x.snapshot(), expected.snapshot())

    def test_row_pointers_of_a_run(self):
        for case, model, codes, w, h, _ in self.cases(20):
            with case:
                first, last = len(codes) // 3, len(codes)
                pointers = prefix(len(e) for e in model.elements[first:last])
                for number in (29, 37, 30, 38):
                    x = i32([MARKER["i"]] * (last + 9))
                    order = [10, 4, 2]
                    order.insert(0 if number in (29, 37) else 3, h.ptr_base)
                    self.assertEqual(call(number, *order, first, last, w.i32, x),
                                     (10 + pointers[-1], 2 + last - first))
                    gap = [MARKER["i"]]
                    self.assertEqual(list(x), gap * 7 + [10 + p for p in pointers[1:]]
                                     + gap * (first + 2))
        self.assertEqual(call(29, 3, 10, 0, 2, 5, 4, None, None), (10, 2))

    def test_dense_block(self):
        for case, model, codes, w, h, lay in self.cases():
            with case:
                nrow = len(codes)
                varidxs = sorted(random.Random(nrow).sample(range(10), 4))
                block = []
                for element in model.elements:
                    cofs = {t.nidx: t.cof for t in element}
                    block.append([cofs.get(v, MARKER["d"]) for v in varidxs])
                variables = lay(i32(varidxs))
                sections = variables, w.f64, w.i32, w.i64
                gap = [MARKER["d"]]
                for number in (32, 41):
                    cof = lay(blank("d", 4 * nrow + 3))
                    middle = (nrow, h.nidxs_base, 2) if number == 32 else (2, nrow, h.nidxs_base)
                    self.assertEqual(call(number, cof, h.cof_base, *middle, h.ptr_base, *sections),
                                     2 + 4 * nrow)
                    self.assertEqual(list(cof), gap * 2 + sum(block, []) + gap)
                cofs = [lay(blank("d", 4 * nrow + 3)) for _ in range(2)]
                rows = [lay(blank("i", 4 * nrow + 3)) for _ in range(2)]
                result = call(33, cofs[0], 1, h.cof_base, lay(i32(codes)), rows[0], cofs[1], 2,
                              rows[1], nrow, h.nidxs_base, h.ptr_base, *sections)
                for k, (half, pos) in enumerate(zip(self.halves(codes), (1, 2))):
                    self.assertEqual(result[k], pos + 4 * len(half))
                    rest = 4 * nrow + 3 - result[k]
                    self.assertEqual(list(cofs[k]), gap * pos + sum((block[e] for e, _ in half), [])
                                     + gap * rest)
                    self.assertEqual(list(rows[k]), [MARKER["i"]] * pos
                                     + [row for _, row in half for _ in varidxs]
                                     + [MARKER["i"]] * rest)

    def test_first_of_repeated_terms_is_read(self):
        w = Stack()
        h = push(w, Model([1], [[Term(2, 1.0), Term(2, 3.0), Term(4, 5.0)]]))
        cof = f64([0.0] * 3)
        call(32, cof, h.cof_base, 1, h.nidxs_base, 0, h.ptr_base, i32([2, 3, 4]), w.f64, w.i32,
             w.i64)
        self.assertEqual(list(cof), [1.0, 0.0, 5.0])

    def test_block_without_variables(self):
        self.assertEqual(call(32, None, 0, 3, 0, 7, 0, *[None] * 4), 7)
        self.assertEqual(call(41, None, 0, 7, 3, 0, 0, *[None] * 4), 7)
        self.assertEqual(call(33, None, 7, 0, None, None, None, 8, None, 3, 0, 0, *[None] * 4),
                         (7, 8))

    def test_ascending(self):
        for values, ascending in (([1, 2, 5], True), ([1, 1], False), ([2, 1], False),
                                  ([-3, 0], True), ([4], True), ([1, 2, 2], False)):
            self.assertIs(call(40, len(values), i32(values), True), ascending)
            self.assertIs(call(40, len(values), i32(values), False), False)
        self.assertIs(call(40, 1, None, True), True)


class Solution(unittest.TestCase):
    def read(self, number, lay, native, pos, arrays):
        """Calls a read closure, with a marker at either end, and returns the values read.
        `arrays` are those before `n` and those from `res` on."""
        before, after = arrays
        res = lay(blank("d", len(native) + pos + 1))
        call(number, *before, len(native), native, pos, res, *after)
        self.assertEqual([*res[:pos], res[len(res) - 1]], [MARKER["d"]] * (pos + 1))
        return list(res[pos : len(res) - 1])

    def test_row_values(self):
        for seed, lay in itertools.product(range(20), LAYOUTS):
            s = Sampler(seed)
            rng = s.rng
            numbers = lambda n: [s.number() for _ in range(n)]
            accptr, slots, linear, scale = [0, 3, 5], numbers(9), numbers(6), numbers(4)
            accid, ofs = [rng.randrange(3) for _ in range(4)], [rng.randrange(3) for _ in range(4)]
            codes = [rng.randrange(-4, 6) for _ in range(rng.randrange(8))]
            expected = [linear[c] if c >= 0 else slots[accptr[accid[~c]] + ofs[~c]] * scale[~c]
                        for c in codes]
            before = [lay(a) for a in (i32(accptr), f64(slots), i32(accid), i32(ofs), f64(scale))]
            for number in (15, 16):
                self.assertEqual(self.read(number, lay, lay(i32(codes)), 2,
                                           (before, [lay(f64(linear))])), expected)
        self.assertEqual(self.read(15, lay, i32([1, 0]), 0, ([None] * 5, [f64([4.0, 5.0])])),
                         [5.0, 4.0])

    def test_variable_values(self):
        for lay in LAYOUTS:
            native = [0, 2, ~1, 1, 2, ~0, 3]
            nan = float("nan")
            xx, bar = lay(f64([nan, 7.0, 0.0, 2.5])), lay(f64([1.5, 4.5]))
            read = lambda number, before, after: self.read(number, lay, lay(i64(native)), 1,
                                                           (before, after))
            self.assertEqual(read(19, [bar], [xx]), [0.0, 0.0, 4.5, 7.0, 0.0, 1.5, 2.5])
            self.assertEqual(read(17, [], [xx]), [0.0, 0.0, 0.0, 7.0, 0.0, 0.0, 2.5])
            # Only a zero that is read changes its sign.
            negated = read(18, [], [xx])
            self.assertEqual(struct.pack("7d", *negated),
                             struct.pack("7d", 0.0, -0.0, 0.0, -7.0, -0.0, 0.0, -2.5))
            # Variable 2 is slot 1 of block 0, variable 3 slot 1 of block 1.
            blocks = [lay(i32([0, 2])), lay(f64([nan, 6.0, nan, 8.0]))]
            self.assertEqual(read(20, blocks + [bar],
                                  [lay(i32([0, -1, 0, 1])), lay(i32([0, 0, 1, 1])), xx]),
                             [0.0, 6.0, 4.5, 7.0, 6.0, 1.5, 8.0])

    def test_only_arrays_that_indexes_lead_to(self):
        read = lambda number, native, before, after: self.read(number, LAYOUTS[0], i64(native), 0,
                                                               (before, after))
        self.assertEqual(read(19, [0], [None], [None]), [0.0])
        self.assertEqual(read(19, [1], [None], [f64([0.0, 3.0])]), [3.0])
        self.assertEqual(read(20, [0, ~0], [None, None, f64([6.0])], [None] * 3), [0.0, 6.0])
        self.assertEqual(read(20, [1], [None] * 3, [i32([0, -1]), None, f64([0.0, 3.0])]), [3.0])

    def test_linear_values(self):
        for lay in LAYOUTS:
            native = [3, -1, 0, -7, 5]
            self.assertEqual(call(21, lay(i64(native)), 4), 7)
            subj, val = lay(blank("i", 6)), lay(blank("d", 6))
            self.assertEqual(call(22, 2, lay(i64(native)), subj, val,
                                  lay(f64([0.5, 1.5, 2.5, 3.5, 4.5]))), 5)
            self.assertEqual(list(subj), [MARKER["i"]] * 2 + [3, 0, 5] + [MARKER["i"]])
            self.assertEqual(list(val), [MARKER["d"]] * 2 + [0.5, 2.5, 4.5] + [MARKER["d"]])
        self.assertEqual((call(21, None, 4), call(22, 4, None, None, None, None)), (4, 4))

    def test_combined_duals(self):
        for number, lay in itertools.product((23, 24), LAYOUTS):
            y = lay(blank("d", 4))
            call(number, 3, lay(f64([1.0, 0.5, 0.0])), lay(f64([0.25, 2.0, 0.0])), y)
            self.assertEqual(list(y), [0.75, -1.5, 0.0, MARKER["d"]])

    def test_tail(self):
        for number, n, lay in ((k, n, lay) for k in (130, 131, 132, 133) for n in (1, 2, 4)
                               for lay in LAYOUTS):
            arrays = [lay(f64([9.0] * 6)) for _ in range(3 if number == 131 else 4)]
            result = call(number, n, arrays[0], 2, *arrays[1:])
            self.assertEqual(result, n if number in (130, 132) else None)
            for a in arrays:
                self.assertEqual(list(a), [0.0 if 2 <= k < n else 9.0 for k in range(6)])


if __name__ == "__main__":
    unittest.main()
