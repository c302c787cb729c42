"""The host's constant data, from any holder of numbers and in any order."""

import ctypes
import itertools
import math
import random
import struct
import unittest
from array import array
from fractions import Fraction
from math import inf

from host.data.bounds import each, sides
from host.data.constants import constant
from host.data.entries import pattern, sorting_permutation
from host.data.matrices import DenseMatrix, SparseMatrix
from host.evaluator.products import SparseTensor
from host.model.slots import Slots
from support import product

try:
    import numpy
except ImportError:
    numpy = None
try:
    import scipy.sparse as scipy
except ImportError:
    scipy = None


def sums(entries):
    """The sum of the values at each place, in ascending order, from (place, value) pairs."""
    result = {}
    for place, value in entries:
        result[place] = result.get(place, 0.0) + value
    return dict(sorted(result.items()))


class Data(unittest.TestCase):
    def test_matrices(self):
        for seed in range(150):
            rng = random.Random(seed)
            rows, columns, n = rng.randrange(1, 5), rng.randrange(1, 5), rng.randrange(15)
            subi, subj = rng.choices(range(rows), k=n), rng.choices(range(columns), k=n)
            val = rng.choices([0.0, -0.0, 1.5, 2.0], k=n)
            entries = sums(((i, j), v) for i, j, v in zip(subi, subj, val) if v)
            data = [[entries.get((i, j), 0.0) for j in range(columns)] for i in range(rows)]
            flat = sum(data, [])
            code = rng.choice("df")
            view = memoryview(array(code, flat)).cast("B").cast(code, [rows, columns])
            for m in (SparseMatrix.from_triplets(rows, columns, subi, array("i", subj), val),
                      SparseMatrix.from_dense(data), SparseMatrix.from_dense(view)):
                self.assertEqual(list(zip(zip(m.msubi, m.msubj), m.mval)), list(entries.items()))
                self.assertEqual((m.dense().rows, list(m.dense().mval)), (rows, flat))
            self.assertEqual(list(DenseMatrix.from_rows(view).transpose().mval),
                             list(itertools.chain(*zip(*data))))
        self.assertEqual(list(SparseMatrix.diagonal([2, 3]).dense().mval), [2, 0, 0, 3])
        self.assertEqual(SparseMatrix.from_dense([[], []]).dense().rows, 2)

    def test_tensors(self):
        for seed in range(150):
            rng = random.Random(seed)
            shape, n = rng.choices([1, 2, 3, 2**20], k=rng.randrange(4)), rng.randrange(12)
            drawn = [[rng.randrange(rng.choice([d, min(d, 3)])) for d in shape] for _ in range(n)]
            linear = [sum(i * product(shape[k + 1 :]) for k, i in enumerate(s)) for s in drawn]
            values = rng.choices([0.0, 0.5, -0.5], k=n)
            for t in (SparseTensor.from_subscripts(shape, drawn, values),
                      SparseTensor.from_subscripts(shape, sum(drawn, []), values),
                      SparseTensor.from_indexes(shape, linear, values)):
                self.assertEqual(list(zip(t.msp, t.mcof)), list(sums(zip(linear, values)).items()))
            if len(set(linear)) == len(linear):
                sp, perm = pattern(shape, drawn)
                self.assertEqual((list(sp), [linear[k] for k in perm]), (sorted(linear),) * 2)
            for total in (1000, 2**50):  # by digits, and too many of these
                linear = array("q", rng.choices([0, 3, 31, 32, 999, total - 1], k=n))
                self.assertEqual(list(sorting_permutation(linear, total)),
                                 sorted(range(n), key=linear.__getitem__))

    def test_refusals_name_the_entry(self):
        triplets, subscripts = SparseMatrix.from_triplets, SparseTensor.from_subscripts
        for text, make, *arguments in (
            (r"entry 1, at \[2, 0\], .*\[2, 3\]", triplets, 2, 3, [1, 2, 3], [2, 0, 0], [1] * 3),
            (r"entry 0, at \[0, -1\]", triplets, 2, 3, [0, 9], [-1, 9], [1, 1]),
            (r"entry 1, at \[0, 4294967296\]", triplets, 2, 3, [0, 0], [1, 2**32], [1, 1]),
            (r"entry 1, at \[1, 3\], .*\[2, 3\]", subscripts, [2, 3], [0, 2, 1, 3], [1, 1]),
            (r"entry 0, at \[4294967296\]", subscripts, [2], [[2**32]], [1]),
            ("listed twice", pattern, [2], [[1], [1]]), ("at .2.", pattern, [2], [[1], [2]]),
            ("has 2 subscripts", subscripts, [2, 3], [[1, 0], [1]], [1, 1]),
            ("can't have 3", subscripts, [2, 3], [1, 0, 1], [1, 1]),
            ("no shape", subscripts, [2**31 - 1] * 3, [], []),
            (r"entry 2, at \[6\]", SparseTensor.from_indexes, [2, 3], [1, 5, 6], [1] * 3),
            (r"at \[0\] has the shape \[1\]", SparseMatrix.from_dense, [[1.0], [1.0, 2.0]]),
            ("two dimensions", DenseMatrix.from_rows, [1.0]),
            (r"entry 1, at \[0, 1.5\], .* no integer", triplets, 2, 3, [0, 0], [1, 1.5], [1, 1]),
            ("no shape", DenseMatrix, -1, -1, [1.0]),
            ("no shape", SparseMatrix, 2 ** 31, 1, [], [], []),
            ("outside", SparseMatrix(1, 1, [9], [0], [1.0]).dense),
        ):
            self.assertRaisesRegex(ValueError, text, make, *arguments)

    def test_constants_of_all_forms(self):
        """The numbers 0, 1, 2 and so on, by each format and byte order, dense and strided."""
        native = memoryview(bytearray(struct.pack("6d", *range(6)))).cast("d", [2, 3])
        held = [("d", native, (2, 3)), ("d", memoryview(native.tobytes()).cast("d")[::1], (6,))]
        for letter in "bBhHiIlLqQnNfd?":
            numbers = [k > 0 if letter == "?" else k for k in range(6)]
            view = memoryview(struct.pack("6" + letter, *numbers)).cast(letter)
            held += [(letter, view, (6,)), (letter, view[::2], (3,)), (letter, view[::-1], (6,)),
                     (letter, view.cast("B").cast(letter, [3, 2]), (3, 2)),
                     (letter, view[:0], (0,))]
        for kind in (ctypes.c_int16, ctypes.c_uint32, ctypes.c_int64, ctypes.c_float,
                     ctypes.c_double):
            held += [(kind, (order * 2)(3, 4), (2,))
                     for order in (kind.__ctype_be__, kind.__ctype_le__)]
        for form, data, shape in held:
            flat = [float(x) for x in (data if shape == (2,) else
                                       itertools.chain(*data.tolist()) if len(shape) > 1 else data)]
            with self.subTest(form=form, shape=shape):
                c = constant(data)
                self.assertEqual((c.shape, list(c.values), c.sparsity), (shape, flat, None))
        for data, shape, values in (
                (3, (), [3]), (Fraction(1, 2), (), [0.5]), ([], (0,), []), ([[], []], (2, 0), []),
                ([[1, True], range(2)], (2, 2), [1, 1, 0, 1]),
                ([[array("h", [7])]], (1, 1, 1), [7]),
                (map(abs, (-1, 2)), (2,), [1, 2]), (DenseMatrix(1, 2, [3, 4]), (1, 2), [3, 4]),
                (SparseMatrix(2, 2, [1], [0], [5]), (2, 2), [0, 0, 5, 0])):
            c = constant(data)
            self.assertEqual((c.shape, list(c.dense())), (shape, values))
        self.assertEqual(list(constant([3, 4]).matrix(column=True).mval), [3, 4])
        m = constant(SparseMatrix(2, 3, [0, 1], [2, 1], [5, 6])).matrix()
        self.assertEqual((list(m.msubi), list(m.msubj), list(m.mval)), ([0, 1], [2, 1], [5, 6]))
        self.assertEqual(list(each(2, [3], "it")), [2.0] * 3)
        self.assertEqual([list(side) for side in sides(None, [1, inf], [2])],
                         [[-inf, -inf], [1.0, inf]])

    def test_refused_constants_name_the_place(self):
        for data, text in (
                ([[1, 2], [3, None]], r"it at \[1, 1\] is no number: None"), ("12", "number: '12'"),
                ([1, "x"], r"at \[1\] is no number: 'x'"), (2j, "it is no number: 2j"),
                ([[1], [2, 3]], r"at \[0\] has the shape \[1\], and \[1\] the shape \[2\]"),
                ([1, [2]], r"at \[1\] is no"), ({1: 2}, "no number: {"), ({1}, "no number: {1}"),
                ([[0, math.nan]], r"it at \[0, 1\] is NaN"), (math.nan, "it is NaN"),
                ([1, 10 ** 400], r"at \[1\] is too large"), (memoryview(b"a").cast("c"), "no num"),
                (SparseMatrix(2, 2, [1], [0], [math.nan]), r"at \[1, 0\] is NaN")):
            self.assertRaisesRegex(ValueError, text, constant, data, "it")
        for lower, upper, text in ((inf, inf, r"lower bound of x at \[0\] is inf"),
                                   (0, [1, -inf], r"upper bound of x at \[1\] is -inf"),
                                   ([0, math.nan], 1, r"lower bound of x at \[1\] is NaN"),
                                   ("a", 1, "lower bound of x is no number"),
                                   (0, [1, 2, 3], r"upper bound of x of shape \[3\] .* \[2\]")):
            self.assertRaisesRegex(ValueError, text, sides, lower, upper, [2], "x")

    @unittest.skipIf(numpy is None, "there is no NumPy")
    def test_numpy(self):
        a = numpy.arange(6.0).reshape(2, 3)
        for data in (a, a.T, a[:, ::-1], a.astype(">i2"), numpy.float32(2), numpy.int8(3),
                     numpy.array(4.0), a.astype("f2"), a.astype("O"), a.astype(numpy.longdouble),
                     numpy.asfortranarray(a), numpy.zeros((0, 3)), a > 2, [a[0], a[1]]):
            c, expected = constant(data), numpy.asarray(data)
            self.assertEqual((c.shape, list(c.values)),
                             (expected.shape, list(map(float, expected.ravel()))))
        for data in (a * 1j, numpy.array(["a"]), numpy.ma.array([1, 2], mask=[0, 1])):
            self.assertRaisesRegex(ValueError, "no number", constant, data)

    @unittest.skipIf(scipy is None, "there is no SciPy")
    def test_scipy(self):
        a = scipy.coo_matrix(([1.0, 2.0, 3.0, 4.0], ([1, 0, 1, 1], [2, 1, 2, 0])), shape=(2, 3))
        for form in "coo", "csr", "csc", "bsr", "dok", "lil", "dia":
            c = constant(a.asformat(form))
            self.assertEqual((c.shape, list(c.sparsity), list(c.values)),
                             ((2, 3), [1, 3, 5], [2.0, 4.0, 4.0]))

    def test_slots(self):
        for seed in range(60):
            rng, slots, runs, peak = random.Random(seed), Slots(2), [], 0
            for _ in range(30):
                if runs and rng.random() < 0.5:
                    run = runs.pop(rng.randrange(len(runs)))
                    single = [run[k:k + 1] for k in rng.sample(range(len(run)), len(run))]
                    for part in rng.choice([[run], single]):
                        slots.give_back(part)
                else:
                    runs.append(slots.take(rng.randrange(6)))
                used = sorted(itertools.chain(*runs))
                peak = max(peak, len(used))
                self.assertEqual((slots.used, slots.top), (len(set(used)), peak))


if __name__ == "__main__":
    unittest.main()
