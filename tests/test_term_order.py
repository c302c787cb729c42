"""Order of terms: sorting and merging (390 to 394, 396, 399), compaction (385, 386, 389) and the
copies of sections beside them (360, 380 to 384, 387, 388, 395, 397, 398)."""

import itertools
import math
import random
import unittest
from bisect import bisect_right

from support import (MARKER, OP_CONST, OP_FOLDED, OP_PARAM, OP_SUM, Model, Sampler, Stack, Term,
                     assert_only_sections_written, call, evaluate, f64, i32, i64, prefix, push,
                     read, reserve)

FORMS = list(itertools.product((False, True), (False, True), (1, 3)))  # sparse, coded, step
NONE = (None,) * 4


def sort_terms(w, x, e, by_counting):
    """Sorts by 391 or 392; returns the array that holds the permutation, and its position."""
    if by_counting:
        longest = call(390, 0, e.nelem, e.ptr_base, w.i32)
        perm, work = x.reserve("i", e.nnz), x.reserve("i", max(2 * longest, longest + 1))
        call(391, e.nelem, e.nidxs_base, perm, e.ptr_base, w.i32, w.i64, work, x.i32)
        return x.i32, perm
    perm, permx = w.reserve("i", e.nnz), w.reserve("i", e.nnz)
    call(392, e.nelem, e.nidxs_base, e.nnz, perm, permx, e.ptr_base, w.i32, w.i64)
    return w.i32, perm


def in_blocks(positions, key, width):
    """Each block of `width` positions in stable order: a merge sort after the pass to `width`."""
    blocks = [positions[k:k + width] for k in range(0, len(positions), width)]
    return [t for block in blocks for t in sorted(block, key=lambda t: key[t])]


class Sorting(unittest.TestCase):
    def elements(self):
        rng = random.Random(5)
        for n in list(range(11)) * 3 + [33, 64, 65, 100, 40000]:
            for spread in (1, max(n // 2, 1), n, n + 1, 10 * n + 5, 2**62):
                low = rng.choice([-spread, 0, 7])
                yield [low + rng.randrange(spread) for _ in range(n)]
        yield [-2**62 - 2**61, 0, 2**62 + 2**61]  # a span beyond 64 bits with sign

    def test_permutation_and_scratch_of_one_element(self):
        first, gap = 3, 2
        for key, step in itertools.product(self.elements(), (1, 3)):
            n, span = len(key), max(key, default=0) - min(key, default=0)
            if n > 100 and step > 1:
                continue
            w, x = Stack(n + 20, step), Stack(3 * n + 20, step)
            nidxs = w.put("q", [0] * first + key)
            ptr = w.put("i", [first, first + n])
            perm, work = x.reserve("i", first + n + gap), x.reserve("i", 2 * n + gap)
            call(391, 1, nidxs, perm, ptr, w.i32, w.i64, work, x.i32)
            order = sorted(range(n), key=lambda t: key[t])
            scratch = [MARKER["i"]] * (2 * n + gap)
            if n > 2 and span < n:
                ranks = sorted(key)
                ends = [bisect_right(ranks, ranks[0] + i) for i in range(span + 1)]
                scratch[:span + 2] = ends + [n]
            elif n > 2:
                passes = (n - 1).bit_length()
                for done in (passes - 1, passes):
                    half = n * (done % 2)
                    scratch[half:half + n] = in_blocks(range(n), key, 2**done)
            with self.subTest(n=n, span=span, step=step):
                expected = [MARKER["i"]] * first + [first + t for t in order] + [MARKER["i"]] * gap
                self.assertEqual(list(x.i32[perm:perm + first + n + gap]), expected)
                self.assertEqual(list(x.i32[work:work + 2 * n + gap]), scratch)

    def test_merging_alone_and_its_second_buffer(self):
        rng = random.Random(6)
        elements = [[rng.randrange(30) for _ in range(n)] for n in (0, 1, 2, 3, 5, 8, 9, 1, 20)]
        key, ptr = sum(elements, []), prefix(map(len, elements))
        nnz = len(key)
        wi32 = i32(ptr + [MARKER["i"]] * (2 * nnz + 1))
        perm, permx = len(ptr), len(ptr) + nnz
        call(392, len(elements), 0, nnz, perm, permx, 0, wi32, i64(key))
        for begin, end in zip(ptr, ptr[1:]):
            positions = range(begin, end)
            self.assertEqual(list(wi32[perm + begin:perm + end]),
                             sorted(positions, key=lambda t: key[t]))
            passes = max(end - begin - 1, 0).bit_length()
            last_odd = passes - 1 + passes % 2  # the last pass that wrote to the second buffer
            self.assertEqual(list(wi32[permx + begin:permx + end]),
                             in_blocks(positions, key, 2**last_odd) if passes
                             else [MARKER["i"]] * (end - begin))
        self.assertEqual(wi32[-1], MARKER["i"])

    def test_longest_element(self):
        self.assertEqual(call(390, 4, 0, 0, None), 4)
        self.assertEqual(call(390, 0, 3, 1, i32([9, 0, 2, 7, 8])), 5)
        self.assertEqual(call(390, 6, 3, 1, i32([9, 0, 2, 7, 8])), 6)

    def test_order_test_is_strict_and_within_elements(self):
        ordered = lambda ptr, nidxs: call(393, True, len(ptr) - 1, 0, 0, i32(ptr), i64(nidxs))
        self.assertTrue(ordered([0, 2, 2, 3, 5], [1, 2**40, -3, -4, 0]))
        self.assertFalse(ordered([0, 2], [1, 1]))
        self.assertFalse(ordered([0, 1, 3], [1, 3, 2]))
        self.assertFalse(call(393, False, 5, 0, 0, None, None))

    def test_zero_test(self):
        def passes(cof, program, coded=True, ok=True):
            # The atom behind the program would fail the test.
            code = [0, len(program)] + [op for op, _ in program] + [OP_CONST]
            operands = [operand for _, operand in program] + [2.0]
            return call(394, 1, 2, 0, 0, ok, coded, 1, f64([cof] + operands), i32(code))

        self.assertTrue(passes(math.nan, [], coded=False))
        self.assertFalse(passes(-0.0, [(OP_CONST, 0.0)], coded=False))
        self.assertFalse(passes(0.0, [(OP_CONST, 2.0)]))
        self.assertFalse(passes(0.0, [(OP_CONST, math.nan)]))
        for program in ([], [(OP_CONST, 0.0)], [(OP_PARAM, 2.0)], [(OP_CONST, 2.0)] * 2):
            self.assertTrue(passes(0.0, program))
        self.assertTrue(passes(1.0, [(OP_CONST, 2.0)]))
        self.assertFalse(passes(1.0, [], ok=False))
        self.assertTrue(call(394, 0, 0, 0, 0, True, 1, 0, None, None))


class Merging(unittest.TestCase):
    def merge(self, model, by_counting, step=1):
        w, r, x = (Stack(step=step) for _ in range(3))
        e = push(w, model)
        perms, perm = sort_terms(w, x, e, by_counting)
        ncodeatom, nnz = call(396, e.cof_base, e.ncodeatom, e.nelem, e.nidxs_base, perm, e.ptr_base,
                              e.ncodeatom, 0, w.f64, w.i32, w.i64, perms)
        h = reserve(r, e.nd, e.nelem, nnz, ncodeatom, e.hassp)
        r.i32[h.ptr_base] = r.i32[h.codeptr_base] = MARKER["i"]
        before = r.snapshot()
        written = call(399, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, e.ncodeatom,
                       e.nelem, e.nidxs_base, 0, perm, e.ptr_base, h.cconst_base, h.code_base,
                       h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, ncodeatom, h.nidxs_base,
                       h.ptr_base, w.f64, w.i32, w.i64, perms)
        self.assertEqual(written, (ncodeatom, nnz))
        call(397, e.nd, r.i32, h.shape_base, e.shape_base, w.i32)
        call(398, e.hassp, e.nelem, r.i64, h.sp_base, e.sp_base, w.i64)
        assert_only_sections_written(self, r, before, h, shape=True)
        self.assertTrue(call(393, True, h.nelem, h.nidxs_base, h.ptr_base, r.i32, r.i64))
        return read(r, h)

    def test_value(self):
        for (sparse, coded, step), seed in itertools.product(FORMS, range(25)):
            s = Sampler(seed)
            model = s.model(s.shape(2), sparse, coded)
            for element in model.elements:
                element += s.terms(model.coded, most=6)
            with self.subTest(sparse=sparse, coded=coded, step=step, seed=seed):
                result = self.merge(model, seed % 2, step)
                self.assertEqual((result.shape, result.sp), (model.shape, model.sp))
                self.assertEqual(evaluate(result, s.variables, s.parameters),
                                 evaluate(model, s.variables, s.parameters))

    def test_zeros_without_code(self):
        terms = [(9, -0.0), (4, 1.0), (4, -1.0), (8, 0.0), (8, 0.0), (5, math.nan), (2, 1e16),
                 (2, 1.0), (2, -1e16)]
        result = self.merge(Model([1], [[Term(*t) for t in terms]]), True)
        self.assertEqual([t.nidx for t in result.elements[0]], [2, 4, 5])
        self.assertEqual([t.cof for t in result.elements[0]][:2], [0.0, 0.0])

    def test_programs_are_chained_in_sorted_order(self):
        element = [Term(3, 0.0, [(OP_PARAM, 1.0)]), Term(1, -0.0, [(OP_CONST, 0.0)]),
                   Term(3, 2.0, [(OP_PARAM, 2.0), (OP_CONST, 4.0)]), Term(3, 0.5, [(OP_PARAM, 3.0)])]
        result = self.merge(Model([1], [element], coded=True), False)
        chain = [(OP_PARAM, 1.0), (OP_PARAM, 2.0), (OP_CONST, 4.0), (OP_PARAM, 3.0), (OP_SUM, 3.0)]
        self.assertEqual(result.elements, [[Term(1, 0.0, [(OP_CONST, 0.0)]), Term(3, 2.5, chain)]])
        # The sum starts from 0.0, so that of -0.0 is 0.0.
        self.assertEqual(math.copysign(1.0, result.elements[0][0].cof), 1.0)

    def test_running_totals_and_absent_arrays(self):
        nidxs, perm = i64([4, 4, 4, 6]), i32([0, 1, 2, 3])
        self.assertEqual(call(396, 0, 5, 1, 0, 0, 0, 5, 7, None, i32([0, 4]), nidxs, perm), (6, 9))
        self.assertEqual(call(396, 0, 0, 0, 0, 0, 0, 5, 7, *NONE), (5, 7))
        # Positions that come in go on; without elements only entry 0 of ptr and codeptr is set.
        ri32 = i32([8, 8, 8])
        self.assertEqual(call(399, 0, 0, 3, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0, 2, 0, None, ri32, None, 1,
                              0, 1, *NONE), (3, 4))
        self.assertEqual(list(ri32), [8, 0, 0])


class Compaction(unittest.TestCase):
    def compact(self, model, step=1):
        """`model` has programs as simplification leaves them; they lie on the x stack."""
        w, r, x = (Stack(step=step) for _ in range(3))
        programs = [t.program for element in model.elements for t in element]
        e = push(w, Model(model.shape, model.elements, model.sp))
        xcodeptr = x.put("i", prefix(map(len, programs)))
        xcode = x.put("i", [op for p in programs for op, _ in p])
        xcconst = x.put("d", [operand for p in programs for _, operand in p])
        ncodeatom, nelem, nnz = call(385, e.cof_base, e.nelem, e.ptr_base, 0, 0, 0, w.f64, w.i32,
                                     xcode, xcodeptr, x.i32)
        sparse = call(386, e.nd, e.hassp, nelem, e.shape_base, w.i32)
        h = reserve(r, e.nd, nelem, nnz, ncodeatom, sparse)
        before = r.snapshot()
        written = call(389, 0, e.cof_base, 0, e.hassp, e.nelem, e.nidxs_base, 0, e.ptr_base,
                       h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64, sparse, r.i32,
                       r.i64, h.nidxs_base, h.ptr_base, h.sp_base, e.sp_base, w.f64, w.i32, w.i64,
                       xcconst, xcode, xcodeptr, x.f64, x.i32)
        self.assertEqual(written, (ncodeatom, nelem, nnz))
        assert_only_sections_written(self, r, before, h)
        return read(r, h, model.shape)

    def test_value_and_emptiness(self):
        for (sparse, _, step), seed in itertools.product(FORMS, range(30)):
            s = Sampler(seed)
            model = s.model(s.shape(2), sparse, True)
            for t in sum(model.elements, []):
                if s.rng.random() < 0.6:
                    t.program = [(OP_FOLDED, 0.0)]
                else:
                    t.cof = 0.0
            with self.subTest(sparse=sparse, step=step, seed=seed):
                result = self.compact(model, step)
                self.assertEqual(evaluate(result, s.variables, s.parameters),
                                 evaluate(model, s.variables, s.parameters))
                self.assertTrue(all(result.elements))
                for t in sum(result.elements, []):
                    self.assertFalse(t.cof == 0.0 and t.program == [(OP_FOLDED, 0.0)])

    def test_what_stays_of_a_term(self):
        folded, program = [(OP_FOLDED, 0.0)], [(OP_CONST, 2.0), (OP_PARAM, 1.0), (OP_SUM, 2.0)]
        element = [Term(1, -0.0, folded), Term(2, 0.0, [(OP_CONST, 2.0)]), Term(3, 0.0, program),
                   Term(4, 1.5, program), Term(5, 0.0, folded * 2)]
        self.assertEqual(self.compact(Model([2], [[Term(1, 0.0, folded)], element])).elements,
                         [[Term(2, 0.0, [(OP_CONST, 2.0)]), Term(3, 0.0, program),
                           Term(4, 1.5, [(OP_CONST, 2.0)]), Term(5, 0.0, folded * 2)]])

    def test_size_of_an_empty_program(self):
        # The opcode that stands where the program would start decides.
        sized = lambda opcode: call(385, 0, 1, 0, 0, 0, 0, f64([0]), i32([0, 1]), 2, 0,
                                    i32([0, 0, opcode]))
        self.assertEqual(sized(OP_FOLDED), (0, 0, 0))
        self.assertEqual(sized(OP_CONST), (1, 1, 1))

    def test_need_of_sparsity(self):
        needed = lambda shape, nelem: call(386, len(shape), False, nelem, 0, i32(shape))
        self.assertTrue(needed([2, 3], 5))
        self.assertFalse(needed([2, 3], 6))
        self.assertTrue(needed([2**16, 2**16], 0))
        self.assertFalse(call(386, 0, True, 1, 0, None))


class Copies(unittest.TestCase):
    def test_whole_expression(self):
        for (sparse, coded, step), seed in itertools.product(FORMS, range(5)):
            s = Sampler(seed)
            model = s.model(s.shape(2), sparse, coded)
            w, r = Stack(step=step), Stack(step=step)
            e = push(w, model)
            h = reserve(r, e.nd, e.nelem, e.nnz, e.ncodeatom, e.hassp)
            before = r.snapshot()
            call(395, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, e.hassp, e.ncodeatom,
                 e.nd, e.nelem, e.nidxs_base, e.nnz, e.ptr_base, h.cconst_base, h.code_base,
                 h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.nidxs_base, h.ptr_base,
                 h.shape_base, h.sp_base, e.shape_base, e.sp_base, w.f64, w.i32, w.i64)
            assert_only_sections_written(self, r, before, h, shape=True)
            self.assertEqual(read(r, h), model)

    def test_single_sections(self):
        source, blank = list(range(10, 16)), [0] * 6
        copied = lambda n: [0, 0] + source[1:1 + n] + [0] * (4 - n)
        for number, counts in [(397, {3: 3}), (387, {3: 3}), (381, {3: 3}), (360, {3: 3, -1: 0}),
                               (380, {3: 4, 0: 1, -1: 0})]:
            for count, n in counts.items():
                target = i32(blank)
                base = (1, target, 2) if number == 380 else (target, 2, 1)
                call(number, count, *base, i32(source))
                self.assertEqual(list(target), copied(n), number)
        for number, hassp in itertools.product((398, 384), (True, False)):
            target = i64(blank)
            call(number, hassp, 3, target, 2, 1, i64(source))
            self.assertEqual(list(target), copied(3 if hassp else 0))
        nidxs, cof = i64(blank), f64(blank)
        call(382, 1, 3, nidxs, 2, i64(source))
        call(383, 1, 3, 2, cof, f64(source))
        self.assertEqual((list(nidxs), list(cof)), (copied(3), copied(3)))

    def test_move_within_the_stack(self):
        for hassp in (True, False):
            rf64, ri32, ri64 = f64([0] * 40), i32(range(40)), i64(range(40))
            call(388, 0, hassp, 35, 0, 2, 3, 1, rf64, ri32, ri64, 37, 1, 0, 2, f64([5, 6]),
                 i64([7, 8]))
            self.assertEqual(list(rf64[:4]), [0, 5, 6, 0])
            self.assertEqual(list(ri32), [0] + list(range(3, 39)) + [37, 38, 39])
            moved = list(range(2, 37)) + [35, 36] if hassp else list(range(37))
            self.assertEqual(list(ri64), moved + [7, 8, 39])


if __name__ == "__main__":
    unittest.main()
