"""Parameter code: evaluation (289, 290), simplify_code (379), the row store (25, 134 to 144)."""

import math
import unittest

from support import (MARKER, OP_ADD, OP_CONST, OP_FOLDED, OP_INV, OP_MUL, OP_NEG, OP_PARAM, OP_SUM,
                     Model, Sampler, Stack, Term, call, f64, i32, i64, prefix, push, run_program,
                     strided)

P, C = (lambda p: (OP_PARAM, float(p))), (lambda c: (OP_CONST, c))
ADD, NEG, MUL, INV = ((op, 0.0) for op in (OP_ADD, OP_NEG, OP_MUL, OP_INV))
SUM = lambda n: (OP_SUM, float(n))
FOLDED = [(OP_FOLDED, 0.0)]


class RichSampler(Sampler):
    """Programs with all opcodes. Parameters are powers of 2, and only a parameter or a power of 2
    is inverted, so that all results stay exact."""

    def __init__(self, seed):
        super().__init__(seed)
        self.parameters = [self.rng.choice([-2.0, -0.5, 0.5, 1.0, 2.0]) for _ in range(4)]

    def program(self, depth=3):
        rng = self.rng
        kind = rng.randrange(7) if depth else rng.randrange(3)
        if kind == 0:
            return [C(rng.choice([-0.0, 0.0, 1.0, 1.0, self.number()]))]
        if kind == 1:
            return [P(rng.randrange(4))]
        if kind == 2:
            return [rng.choice([P(rng.randrange(4)), C(rng.choice([-2.0, 0.5]))]), INV]
        if kind == 3:
            return self.program(depth - 1) + [rng.choice([NEG, (0, 0.0)])]
        if kind == 4:
            n = rng.choice([0, 2, 3, 4])
            return [a for _ in range(n) for a in self.program(depth - 1)] + [SUM(n)]
        return self.program(depth - 1) + self.program(depth - 1) + [rng.choice([ADD, MUL])]


def run_paired(programs, parameters, stack_n=0, stack_base=2, step=1):
    """Runs split programs in paired form; returns (stack_n, target, value stack)."""
    atoms = [a for p in programs for a in p]
    words = [w for op, c in atoms for w in (op, int(c) if op in (OP_PARAM, OP_SUM) else -99)]
    arrays = [f64(parameters), i32(words), f64([c for _, c in atoms]),
              i32(prefix(2 * len(p) for p in programs)), f64([100.0] * (1 + len(programs))),
              f64([MARKER["d"]] * (len(atoms) + stack_n + stack_base + 1))]
    table, code, consts, ptr, target, stack = [strided(a, step) for a in arrays]
    n = call(290, table, code, consts, 1, ptr, stack_base, stack_n, target, stack)
    return n, list(target), list(stack)[stack_base:]


class Evaluation(unittest.TestCase):
    def test_values_of_a_batch(self):
        for seed in range(60):
            s = RichSampler(seed)
            programs = [s.program() for _ in range(s.rng.randrange(4))]
            expected = [run_program([a for a in p if a[0]], s.parameters) for p in programs]
            n, target, stack = run_paired(programs, s.parameters, step=1 + seed % 2)
            self.assertEqual(n, len(programs))
            self.assertEqual(target, [100.0] + [100.0 + v for v in expected])
            self.assertEqual(stack[:n], expected)

    def test_results_stand_behind_the_values_that_came_in(self):
        n, target, stack = run_paired([[C(2.0)], [], [C(5.0)]], [], stack_n=3)
        self.assertEqual((n, target), (5, [100.0, 102.0, 102.0, 105.0]))
        self.assertEqual(stack[:5], [MARKER["d"]] * 3 + [2.0, 5.0])

    def test_sum_adds_the_top_first(self):
        self.assertEqual(run_paired([[C(1.0), C(1e16), C(-1e16), SUM(3)]], [])[2][0], 1.0)
        self.assertEqual(run_paired([[C(1e16), C(-1e16), C(1.0), SUM(3)]], [])[2][0], 0.0)

    def test_empty_sums_push_zero(self):
        n, _, stack = run_paired([[C(7.0), SUM(0), SUM(-2)]], [])
        self.assertEqual((n, stack[:3]), (3, [7.0, 0.0, 0.0]))

    def test_signs_and_reciprocals_of_zero(self):
        programs = [[C(0.0), INV], [C(-0.0), INV], [C(0.0), NEG, INV], [C(-0.0), SUM(1), INV]]
        inf = math.inf
        self.assertEqual(run_paired(programs, [])[2][:4], [inf, -inf, -inf, inf])

    def test_no_program(self):
        for ptr in (None, i32([]), i32([4])):
            self.assertEqual(call(290, None, None, None, 0, ptr, 0, 6, None, None), 6)

    def test_relocation(self):
        code = i32([2, 5, 1, 2, 2, 2, 8, 3, 2, 9])
        call(289, code, 10, 8)
        self.assertEqual(list(code), [2, 15, 1, 2, 2, 12, 8, 3, 2, 9])


class Simplifier:
    """One call of 379 over programs and numbers, with all sections at odd places."""

    def __init__(self, programs, numbers, errpos=-1, step=1, dstpos=0):
        source, target, x = (Stack(4096, step=step) for _ in range(3))
        atoms = [a for p in programs for a in p]
        code = source.put("i", [op for op, _ in atoms])
        consts = source.put("d", [c for _, c in atoms])
        ptr = source.put("i", prefix(map(len, programs)))
        fix = source.put("d", numbers)
        n = 2 * len(atoms)
        tcode, tconst = target.reserve("i", n + dstpos), target.reserve("d", n + dstpos)
        tptr = target.put("i", [dstpos])
        kind, childptr, child, stack = (x.reserve("i", n + 2) for _ in range(4))
        operand = x.reserve("d", n)
        result = call(379, child, childptr, source.i32, code, source.f64, consts, dstpos, errpos,
                      source.f64, fix, len(programs), source.i32, ptr, stack, 9, target.i32, tcode,
                      target.f64, tconst, target.i32, tptr, operand, kind, 9, x.f64, x.i32)
        self.dstpos, self.errpos, self.stack_n, self.tnodes = result
        self.numbers = [source.f64[fix + i] for i in range(len(numbers))]
        self.kinds = [x.i32[kind + k] for k in range(n)]
        written = [target.i32[tptr + i] for i in range(len(programs) + 1)]
        self.ends = [e for e in written if e != MARKER["i"]]
        self.programs = [[(target.i32[tcode + a], target.f64[tconst + a]) for a in range(b, e)]
                         for b, e in zip(self.ends, self.ends[1:])]


class Simplification(unittest.TestCase):
    def simplified(self, *program, number=0.0):
        """The program, with 0.0 for operands that mean nothing, and the number."""
        s = Simplifier([program], [number])
        self.assertEqual(s.errpos, -1)
        (result,) = s.programs
        plain = [(op, 0.0 if op in (OP_ADD, OP_NEG, OP_MUL, OP_INV) else c) for op, c in result]
        return plain, s.numbers[0]

    def test_value_stays_and_number_has_one_side(self):
        for seed in range(300):
            s = RichSampler(seed)
            programs = [s.program() for _ in range(s.rng.randrange(5))]
            numbers = [s.number() for _ in programs]
            r = Simplifier(programs, numbers, step=1 + seed % 2, dstpos=seed % 3)
            self.assertEqual((r.errpos, len(r.programs)), (-1, len(programs)))
            self.assertEqual(r.dstpos, r.ends[-1])
            for old, number, new, rest in zip(programs, numbers, r.programs, r.numbers):
                value = number + run_program([a for a in old if a[0]], s.parameters)
                self.assertEqual(rest + run_program(new, s.parameters), value)
                if new != FOLDED:
                    self.assertEqual(rest, 0.0)
                    self.assertIn(OP_PARAM, [op for op, _ in new])
                    self.assertLessEqual(len(new), len(old) + 2)

    def test_worked_examples(self):
        self.assertEqual(self.simplified(C(2.0), P(7), ADD, C(3.0), MUL, number=4.0),
                         ([C(2.0), P(7), ADD, C(3.0), MUL, C(4.0), ADD], 0.0))
        self.assertEqual(self.simplified(P(0), C(2.0), P(1), C(3.0), C(5.0), SUM(5)),
                         ([C(10.0), P(1), P(0), SUM(3)], 0.0))
        self.assertEqual(self.simplified(C(1.5), C(2.0), MUL, number=1.0), (FOLDED, 4.0))

    def test_identities_and_only_those(self):
        for program, expected in [
            ([P(3), C(-0.0), ADD], [P(3)]), ([C(0.0), P(3), ADD], [P(3)]),
            ([P(3), C(1.0), MUL], [P(3)]), ([C(1.0), P(3), MUL], [P(3)]),
            ([P(3), (0, 4.0)], [P(3)]), ([P(3), NEG, NEG, INV, INV],) * 2,
            ([C(-1.0), P(3), MUL],) * 2, ([P(3), C(math.inf), ADD],) * 2,
            ([P(1), SUM(0), ADD], [P(1)]), ([C(2.0), NEG, INV, P(1), MUL], [C(-0.5), P(1), MUL]),
            ([C(1.0), P(1), P(2), SUM(3.9)], [C(1.0), P(1), P(2), SUM(3)]),
            ([C(1.0), P(1), C(-1.0), SUM(3)], [C(0.0), P(1), SUM(2)]),
        ]:
            self.assertEqual(self.simplified(*program), (expected, 0.0))

    def test_constant_roots(self):
        value = lambda *program: self.simplified(*program, number=2.0)
        self.assertEqual(value(C(0.0)), (FOLDED, 2.0))
        self.assertEqual(value(C(-0.0), P(3), MUL), (FOLDED, 2.0))
        self.assertEqual(value(C(0.0), INV), (FOLDED, math.inf))
        # Constants enter a sum in list order, the top first.
        self.assertEqual(value(C(1.0), C(1e16), C(-1e16), SUM(3)), (FOLDED, 3.0))

    def test_unwritten_operands(self):
        marked = lambda op: (op, MARKER["d"])
        (program,) = Simplifier([[P(0), NEG, INV]], [4.0]).programs
        self.assertEqual(program, [P(0), marked(OP_NEG), marked(OP_INV), C(4.0), marked(OP_ADD)])

    def test_node_numbers(self):
        r = Simplifier([[P(3), C(0.0), ADD]], [0.0])
        self.assertEqual((r.tnodes, r.stack_n), (3, 0))
        self.assertEqual(r.kinds[:4], [OP_PARAM, OP_CONST, -9999, MARKER["i"]])
        r = Simplifier([[C(1.0), C(2.0), P(1), SUM(3)]], [0.0])
        self.assertEqual((r.tnodes, r.kinds[:5]), (5, [2, 2, 1, 2, 8]))

    def test_malformed_terms(self):
        good = [C(1.0), P(0), ADD]
        for bad, errpos in [
            ([(7, 0.0), C(1.0)], 3), ([C(1.0), (9, 0.0)], 4), ([C(1.0), (-1, 0.0)], 4),
            (FOLDED, 3), ([C(1.0), MUL, ADD], 5), ([INV], 3), ([NEG, C(1.0)], 3),
            ([C(1.0), SUM(2)], 4), ([C(1.0), (OP_SUM, -1.0)], 4), ([C(1.0), (OP_SUM, 1e10)], 4),
            ([C(1.0), (OP_SUM, math.nan)], 4),
            ([], 0), ([P(0), P(1), P(0), ADD], 4), ([C(1.0), SUM(1)], 2),
        ]:
            r = Simplifier([good, bad, good], [2.0, 3.0, 4.0])
            self.assertEqual((r.errpos, r.dstpos, r.ends), (errpos, 5, [0, 5]), bad)
            self.assertEqual(r.numbers, [0.0, 3.0, 4.0])

    def test_nothing_to_do(self):
        for nterm, errpos in ((0, -1), (5, 0)):
            self.assertEqual(call(379, 0, 0, None, 0, None, 0, 11, errpos, None, 0, nterm, None, 0,
                                  0, 12, None, 0, None, 0, None, 0, 0, 0, 13, None, None),
                             (11, errpos, 12, 13))


class Store:
    """The store's arrays, filled with markers but for empty rows, as the host keeps them."""

    def __init__(self, nrow, room, step=1):
        array = lambda make, n, value: strided(make([value] * n), step)
        self.ptrb, self.ptre = array(i32, nrow, 0), array(i32, nrow, 0)
        self.code_ptr = array(i32, nrow, MARKER["i"])
        self.sizes, self.code = array(i32, room, MARKER["i"]), array(i32, room, MARKER["i"])
        self.varidx, self.cconst = array(i64, room, MARKER["q"]), array(f64, room, MARKER["d"])
        self.dst_atom = self.dst_param = 1

    def put(self, model, rows, step=1, nonneg=True):
        """store_param_rows, on closures 135, 136 and 137."""
        r = Stack(4096, step)
        h = push(r, model)
        nidxs = i32(rows)
        sizes = call(135, h.code_base, h.codeptr_base, h.nelem, 0, 0, h.ptr_base, r.i32)
        before = self.dst_param, self.dst_atom
        self.dst_atom, self.dst_param = call(
            136, h.code_base, h.codeptr_base, self.dst_atom, self.dst_param, nidxs, h.nelem,
            h.ptr_base, r.i32, self.code_ptr, self.ptrb, self.ptre)
        assert sizes == (self.dst_param - before[0], self.dst_atom - before[1])
        return call(137, self.cconst, h.cconst_base, self.code, h.code_base, h.codeptr_base, nidxs,
                    h.nelem, h.nidxs_base, nonneg, self.sizes, self.varidx, h.ptr_base, r.f64,
                    r.i32, r.i64, self.code_ptr, self.ptrb)

    def triplets(self, parameters, dstpos=2):
        """eval_param_rows by 134, whose pairs 25 must confirm."""
        subi, subj, val = i32([-1] * 99), i32([-1] * 99), f64([0.0] * 99)
        stack = f64([0.0] * 50)
        end, left = call(134, self.cconst, self.code, dstpos, self.sizes, f64(parameters),
                         self.varidx, self.code_ptr, self.ptrb, self.ptre, 3, 0, subi, subj, val,
                         stack)
        subj_, val_ = i32([-1] * 99), f64([0.0] * 99)
        assert (end, left) == call(
            25, self.cconst, self.code, self.varidx, self.code_ptr, self.sizes, dstpos,
            len(self.ptrb), f64(parameters), self.ptrb, self.ptre, 3, 0, subj_, val_, stack)
        assert (subj, val, left) == (subj_, val_, 0) and subi[end] == subi[dstpos - 1] == -1
        return list(zip(subi, subj, val))[dstpos:end]


def has_entry(term):
    return [op for op, _ in term.program] not in ([OP_CONST], [OP_FOLDED])


class RowStore(unittest.TestCase):
    def test_rows_by_meaning(self):
        for seed in range(80):
            s, step = RichSampler(seed), 1 + 2 * (seed % 2)
            model = s.model([s.rng.randrange(4)], coded=True)
            for t in (t for e in model.elements for t in e):
                t.nidx = s.rng.choice([t.nidx, -t.nidx])
                t.program = s.rng.choice([FOLDED, [a for a in t.program if a[0]]])
            rows = s.rng.sample(range(6), len(model.elements))
            entries = {row: [t for t in e if has_entry(t)] for row, e in zip(rows, model.elements)}
            store = Store(6, 400, step)
            nonneg = store.put(model, rows, step)
            self.assertEqual(nonneg, all(t.nidx >= 0 for e in entries.values() for t in e))
            self.assertEqual(store.triplets(s.parameters), [
                (row, t.nidx, run_program(t.program, s.parameters))
                for row in sorted(entries) for t in entries[row]])
            atoms = {row: sum(len(t.program) for t in e) for row, e in entries.items()}
            for row, e in entries.items():
                self.assertEqual(call(139, 7, row, store.sizes, store.ptrb, store.ptre),
                                 7 + atoms[row])
                if not e:
                    self.assertEqual(store.code_ptr[row], MARKER["i"])
            gone, kept = i32(rows[:1]), rows[1:]
            for _ in range(2):
                used = call(138, store.dst_atom, gone, store.sizes, store.ptrb, store.ptre,
                            store.dst_param)
                store.dst_atom, store.dst_param = used
            self.assertEqual(used, (1 + sum(atoms[r] for r in kept),
                                    1 + sum(len(entries[r]) for r in kept)))
            self.assertEqual(call(144, used[1], i32(kept), len(kept), store.code_ptr, store.ptrb,
                                  store.ptre), 1)
            self.assertEqual(list(store.ptrb) + list(store.ptre), [0] * 12)

    def test_which_terms_get_entries(self):
        programs = [[C(5.0)], FOLDED, [C(1.0), C(2.0)], [P(0)], [], [(0, 0.0)]]
        store = Store(2, 20)
        model = Model([1], [[Term(k, 0.0, p) for k, p in enumerate(programs)]], coded=True)
        self.assertTrue(store.put(model, [1]))
        self.assertEqual(list(store.varidx[:5]), [MARKER["q"], 2, 3, 4, 5])
        self.assertEqual(list(store.sizes[:6]), [MARKER["i"], 2, 1, 0, 1, MARKER["i"]])
        self.assertEqual((store.code_ptr[1], store.ptrb[1], store.ptre[1]), (1, 1, 5))
        model.elements[0] = model.elements[0][:2]
        self.assertFalse(Store(2, 20).put(model, [1], nonneg=False))

    def test_low_half_of_a_variable_index(self):
        store = Store(1, 4)
        store.put(Model([1], [[Term(2**32 + 5, 0.0, [P(0)])]], coded=True), [0])
        self.assertEqual(store.triplets([3.0]), [(0, 5, 3.0)])

    def test_no_store(self):
        self.assertEqual(call(144, 5, i32([0]), 1, None, i32([0]), i32([4])), 5)
        self.assertEqual(call(138, 5, i32([0]), None, None, None, 6), (5, 6))
        self.assertEqual(call(134, None, None, 4, *[None] * 6, 0, 6, *[None] * 4), (4, 6))
        self.assertEqual(call(25, *[None] * 5, 4, 0, *[None] * 3, 0, 6, *[None] * 3), (4, 6))

    def test_tables_in_one_array_hold_what_is_written_last(self):
        rows = i32([0])
        call(136, 4, 2, 7, 3, i32([0]), 1, 0, i32([0, 1, 0, 1, 1]), rows, rows, rows)
        self.assertEqual(list(rows), [7])

    def test_capacities(self):
        for atleast, cap, grown in [(5, 3, 6), (6, 3, 6), (7, 3, 12), (2, 3, 3), (1, 0, 0),
                                    (5, -2, -2), (2**31 - 1, 2**30, 2**30)]:
            self.assertEqual(call(141, atleast, cap), grown)
            self.assertEqual(call(140, cap, atleast), grown)
        for add, base, cap, grown in [(5, 3, 8, 8), (6, 3, 8, 16), (99, 3, 8, 128),
                                      (2**31 - 1, 2**31 - 1, 4, 2**30), (-1, -(2**31), 4, 4)]:
            self.assertEqual(call(143, add, base, cap), grown)
            self.assertEqual(call(142, base, cap, add), grown)


if __name__ == "__main__":
    unittest.main()
