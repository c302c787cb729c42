"""outer_product: closures 581 to 586."""

import itertools
import random
import unittest

from support import MARKER, blank, call, f64, i32, i64, prefix, strided, written

NUMBERS = [-2.0, -1.5, -0.5, 0.0, 0.5, 1.0, 3.0]


def dense(size, inst, ptrb, subj, cof, x, bfix=None):
    """The value of every position: those of the rows at the positions `inst`, zeros elsewhere."""
    values = [0.0] * size
    for k, linear in enumerate(inst):
        values[linear] = bfix[k] if bfix is not None else 0.0
        values[linear] += sum(cof[t] * x[subj[t]] for t in range(ptrb[k], ptrb[k + 1]))
    return values


class WithVariables(unittest.TestCase):
    def test_value_in_all_forms(self):
        for seed, step, transposed in itertools.product(range(40), (1, 2), (False, True)):
            rng = random.Random(seed)
            dim, varsize = rng.randrange(5), rng.randrange(4)
            sub = sorted(rng.sample(range(dim), rng.randrange(dim + 1)))
            a = [rng.choice(NUMBERS) for _ in sub]
            x = [rng.choice(NUMBERS) for _ in range(varsize)]
            n, size = len(a) * varsize, dim * varsize
            array = lambda values: strided(values, step) if step > 1 else values
            inst, subj = array(blank("q", n)), array(blank("q", n))
            ptrb, cof = array(blank("q", n + 1)), array(blank("d", n))
            sparse = len(a) < dim
            call(586, array(f64(a)), cof, dim, inst if sparse else None, ptrb,
                 array(i32(sub)) if sparse else None, subj, transposed, varsize)
            with self.subTest(seed=seed, step=step, transposed=transposed):
                self.assertEqual(list(ptrb), [MARKER["q"]] + list(range(1, n + 1)))
                if sparse:
                    self.assertEqual(list(inst), sorted(set(inst)))
                ptrb[0] = 0
                expected = [0.0] * size
                for (j, v), i in itertools.product(zip(sub, a), range(varsize)):
                    expected[j * varsize + i if transposed else i * dim + j] = v * x[i]
                linear = inst if sparse else range(size)
                self.assertEqual(dense(size, linear, ptrb, subj, cof, x), expected)

    def test_linear_index_in_64_bits(self):
        inst, ptrb, cof, subj = blank("q", 2), blank("q", 3), blank("d", 2), blank("q", 2)
        call(586, f64([1.0]), cof, 2**31 - 1, inst, ptrb, i32([5]), subj, False, 2)
        self.assertEqual(list(inst), [5, 2**31 + 4])
        call(586, f64([1.0]), cof, 2**31 - 1, inst, ptrb, i32([2**31 - 2]), subj, True, 2)
        self.assertEqual(list(inst), [2**32 - 4, 2**32 - 3])


class WithExpression(unittest.TestCase):
    def operands(self, seed):
        rng = random.Random(seed)
        dim, size = rng.randrange(1, 5), rng.randrange(1, 6)
        sub = sorted(rng.sample(range(dim), rng.randrange(dim + 1)))
        a = [rng.choice(NUMBERS) for _ in sub]
        einst = sorted(rng.sample(range(size), rng.randrange(size + 1)))
        eptrb = prefix(rng.randrange(4) for _ in einst)
        ecof = [rng.choice(NUMBERS) for _ in range(eptrb[-1])]
        esubj = [rng.randrange(6) for _ in ecof]
        ebfix = [rng.choice(NUMBERS) for _ in einst]
        x = [rng.choice(NUMBERS) for _ in range(6)]
        values = dense(size, einst, eptrb, esubj, ecof, x, ebfix)
        factors = dict(zip(sub, a))
        expected = [v * factors.get(s, 0.0) for v in values for s in range(dim)]
        return (dim, i32(sub), f64(a), i64(einst), i64(eptrb), f64(ecof), i64(esubj), f64(ebfix), x,
                expected)

    def test_value_with_either_outermost(self):
        for seed, by_entry in itertools.product(range(60), (True, False)):
            dim, sub, a, einst, eptrb, ecof, esubj, ebfix, x, expected = self.operands(seed)
            na, ne, enz = len(a), len(einst), len(ecof)
            inst, ptrb, bfix = blank("q", na * ne), blank("q", na * ne + 1), blank("d", na * ne)
            subj, cof = i64(list(esubj) * na), blank("d", na * enz)
            source = list(einst)
            ptrb[0] = n = 0
            for ia in range(na):
                rows = memoryview(inst)[n : n + ne] if by_entry else memoryview(inst)[ia::na]
                rows[:] = einst
                n = call(584, dim, rows, eptrb, ia, n, ptrb, sub)
                call(583, a, cof, ecof, enz, ia, ia * enz)
                self.assertEqual([*map(len, written(ptrb, cof))], [n + 1, (ia + 1) * enz])
            self.assertEqual(n, na * ne)
            if by_entry:
                call(585, a, bfix, ebfix, einst)
            else:
                call(582, a, bfix, cof, dim, ebfix, ecof, einst, eptrb, esubj, ptrb, sub, subj)
                self.assertEqual(list(inst), sorted(set(inst)))
                self.assertEqual(list(einst), source)
            with self.subTest(seed=seed, by_entry=by_entry):
                self.assertEqual(dense(len(expected), inst, ptrb, subj, cof, x, bfix), expected)

    def test_without_fixed_terms_or_entries(self):
        self.assertIsNone(call(585, f64([1.0]), None, None, i64([0])))
        ptrb = i64([0, MARKER["q"]])
        call(582, f64([1.0]), None, None, 1, None, None, i64([0]), i64([0, 0]), None, ptrb, None,
             None)
        self.assertEqual(list(ptrb), [0, 0])
        self.assertEqual(call(584, 1, None, None, 0, 2**40, None, None), 2**40)

    def test_extents_above_one(self):
        self.assertEqual(call(581, i32([0, 1, 2, -3, 5, 1]), 10), 12)
        self.assertEqual(call(581, None, 10), 10)


if __name__ == "__main__":
    unittest.main()
