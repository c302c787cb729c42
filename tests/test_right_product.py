"""mul_right: closures 466 to 475."""

import itertools
import unittest

from product_support import (call_by_name, header_bindings, matrix_bindings, random_matrix,
                             split, stack_bindings)
from support import (MARKER, Header, Model, Sampler, Stack, Term, assert_only_sections_written,
                     call, evaluate, f64, i32, i64, prefix, push, read, reserve)

PARAMETERS = {
    473: "cconst_base code_base codei codeptr_base cof_base d0 d1 elmi md1 mval ncodeatom "
         "nidxs_base nnzi ptr_base rcconst_base rcode_base rcodeptr_base rcof_base rf64 ri32 ri64 "
         "rnidxs_base rptr_base wf64 wi32 wi64",
    472: "cconst_base code_base codei codeptr_base cof_base d0 d1 elmi md1 mval ncodeatom nelem "
         "nidxs_base nnzi ptr_base rcconst_base rcode_base rcodeptr_base rcof_base rf64 ri32 ri64 "
         "rnidxs_base rptr_base sp_base wf64 wi32 wi64 xi32 xrowptr_base",
    470: "cconst_base code_base codei codeptr_base cof_base d0 d1 mcolptr_base md1 mperm_base "
         "msubi mval nidxs_base nnzi ptr_base rcconst_base rcode_base rcodeptr_base rcof_base elmi "
         "rf64 ri32 ri64 rncodeatom rnidxs_base rptr_base rsp_base wf64 wi32 wi64 xi32",
    469: "codeptr_base d0 d1 mcolptr_base md1 mperm_base msubi ncodeatom ptr_base rncodeatom rnnz "
         "wi32 xi32",
    468: "cconst_base code_base codei codeptr_base cof_base d1 elmi epos md1 mnnz mperm_base msubi "
         "msubj mval ncodeatom nelem nidxs_base nnzi ptr_base rcconst_base rcode_base "
         "rcodeptr_base rcof_base rf64 ri32 ri64 rnidxs_base rptr_base rsp_base sp_base wf64 wi32 "
         "wi64 xi32",
    467: "codeptr_base d1 mnnz mperm_base msubi msubj mval ncodeatom nelem ptr_base rncodeatom "
         "rnelem rnnz sp_base wi32 wi64 xi32",
    466: "d0 erowptr_base mcolptr_base md1 mnnz mperm_base msubj xi32",
}


def run(number, *bindings, **values):
    return call_by_name(number, PARAMETERS[number], *bindings, **values)


class RightProduct(unittest.TestCase):
    def size(self, e, bound, sparse_m):
        """(ncodeatom, nelem, nnz) of R."""
        d0, md1 = bound["d0"], bound["md1"]
        if not sparse_m:
            return (e.ncodeatom + 2 * e.nnz) * md1 if e.ncodeatom else 0, d0 * md1, e.nnz * md1
        start = dict(rncodeatom=10, rnelem=20, rnnz=30)
        if e.hassp:
            ncodeatom, nelem, nnz = run(467, bound, start)
            return ncodeatom - 10, nelem - 20, nnz - 30
        ncodeatom, nnz = run(469, bound, start)
        return ncodeatom - 10, d0 * md1, nnz - 30

    def write(self, e, bound, sparse_m, h, written):
        """Appends R once; takes and gives (codei, elmi, nnzi)."""
        bound = dict(bound, **dict(zip(("codei", "elmi", "nnzi"), written)))
        if sparse_m and e.hassp:
            codei, elmi, epos, nnzi = run(468, bound, epos=0)
            self.assertEqual(epos, e.nelem)
            return codei, elmi, nnzi
        if sparse_m:
            codei, nnzi, relmi = run(470, bound, rncodeatom=h.ncodeatom)
            return codei, relmi, nnzi
        if not e.hassp:
            return run(473, bound)
        call(471, bound["d0"], bound["xi32"], bound["xrowptr_base"])
        return run(472, bound)

    def operands(self, model, matrix, md1, sparse_m, step=1):
        """Puts the operands on stacks and groups a sparse M: (result stack, header of E, values
        of the parameters)."""
        w, r, x = (Stack(2048, step) for _ in range(3))
        e = push(w, model)
        d0, d1 = model.shape
        bound = dict(stack_bindings("w", w), **stack_bindings("r", r), **stack_bindings("x", x))
        bound.update(header_bindings("", e), **matrix_bindings(matrix, step))
        bound.update(md1=md1, d0=d0, d1=d1, xrowptr_base=x.reserve("i", d0 + 1))
        if sparse_m:
            bound.update(mcolptr_base=x.reserve("i", md1 + 1),
                         mperm_base=x.reserve("i", bound["mnnz"]),
                         erowptr_base=x.reserve("i", d0 + 1))
            run(466, bound)
            row = bound["erowptr_base"]
            self.assertEqual(list(x.i32)[row - 1 : row + d0 + 2],
                             [MARKER["i"], *[0] * (d0 + 1), MARKER["i"]])
        return r, e, bound

    def chain(self, model, matrix, md1, sparse_m, step=1):
        """Runs group, size and write; the latter twice, the second time behind the first."""
        r, e, bound = self.operands(model, matrix, md1, sparse_m, step)
        d0, d1 = model.shape
        sizes = self.size(e, bound, sparse_m)
        h = reserve(r, 2, 2 * sizes[1], 2 * sizes[2], 2 * sizes[0], hassp=sparse_m)
        bound.update(header_bindings("r", h))
        before = r.snapshot()
        once = self.write(e, bound, sparse_m, h, (0, 0, 0))
        self.assertEqual(once, sizes)
        twice = self.write(e, bound, sparse_m, h, once)
        self.assertEqual(twice, tuple(2 * n for n in sizes))
        assert_only_sections_written(self, r, before, h)
        halves = split(read(r, h, [d0, md1]), sizes[1])
        self.assertEqual(*halves)
        if not sparse_m and e.hassp:
            rows = [s // d1 for s in model.sp]
            self.assertEqual([bound["xi32"][bound["xrowptr_base"] + k] for k in range(d0 + 1)],
                             prefix(map(rows.count, range(d0))))
        return halves[0]

    def test_value_in_all_forms(self):
        cases = itertools.product((False, True), (False, True), (False, True), (1, 3), range(40))
        for sparse_e, sparse_m, coded, step, seed in cases:
            s = Sampler(seed)
            d0, d1, md1 = (s.rng.randrange(5) for _ in range(3))
            model = s.model([d0, d1], sparse_e, coded)
            matrix = random_matrix(s, d1, md1, sparse_m)
            with self.subTest(sparse_e=sparse_e, sparse_m=sparse_m, coded=coded, seed=seed):
                result = self.chain(model, matrix, md1, sparse_m, step)
                if sparse_e and sparse_m:  # takes the entries above 0 alone
                    matrix = [[v if v is not None and v > 0 else None for v in row]
                              for row in matrix]
                taken = lambda i, c: [j for j in range(d1) if matrix[j][c] is not None
                                      and i * d1 + j in model.linear()]
                places = [(i, c) for i in range(d0) for c in range(md1)]
                values = evaluate(model, s.variables, s.parameters)
                self.assertEqual(
                    evaluate(result, s.variables, s.parameters),
                    [sum(values[i * d1 + j] * matrix[j][c] for j in taken(i, c))
                     for i, c in places])
                if sparse_m:
                    self.assertEqual(result.sp, [i * md1 + c for i, c in places
                                                 if not sparse_e or taken(i, c)])

    def test_terms_of_an_element_stand_in_ascending_row_of_the_matrix(self):
        column = [[2.0], [3.0], [4.0]]
        terms = [[Term(9, 1.0)], [Term(8, 1.0), Term(7, 0.0)], [Term(9, 1.0)]]
        for sp, sparse_m in itertools.product((None, [0, 1, 2]), (False, True)):
            result = self.chain(Model([1, 3], terms, sp), column, 1, sparse_m)
            self.assertEqual(result.elements,
                             [[Term(9, 2.0), Term(8, 3.0), Term(7, 0.0), Term(9, 4.0)]])

    def test_program_gains_factor_and_product_without_operand(self):
        model = Model([1, 1], [[Term(4, 2.0, [(1, 3.0)])]], coded=True)
        for sp, sparse_m in itertools.product((None, [0]), (False, True)):
            model.sp = sp
            self.assertEqual(self.chain(model, [[0.5]], 1, sparse_m).elements,
                             [[Term(4, 1.0, [(1, 3.0), (2, 0.5), (5, MARKER["d"])])]])

    def test_negative_atom_count_is_code_to_470_alone(self):
        model = Model([1, 1], [[Term(4, 2.0, [(2, 7.0)])]], sp=[0], coded=True)
        for number in (473, 472, 470, 468):
            r, e, bound = self.operands(model, [[0.5]], 1, sparse_m=True)
            h = reserve(r, 2, 1, 1, 3, hassp=True)
            call(471, 1, bound["xi32"], bound["xrowptr_base"])
            run(number, bound, header_bindings("r", h), codei=0, elmi=0, epos=0, nnzi=0,
                ncodeatom=-1, rncodeatom=-1)
            self.assertEqual(r.f64[h.cof_base], 1.0)
            self.assertEqual(r.i32[h.code_base], 2 if number == 470 else MARKER["i"])

    def test_linear_index_of_sparse_result_is_64_bit(self):
        i, q, d = i32([0, 0] + [7] * 3), i64([10**12 + 3, 7]), f64([2.0])
        header = header_bindings("", Header(2, 1, 0, 0, True))
        result = header_bindings("r", Header(2, 1, 0, 0, True, ptr_base=2, sp_base=1))
        stacks = dict(wi32=i, wi64=q, wf64=d, ri32=i, ri64=q, rf64=d, xi32=i32([0]))
        matrix = dict(msubi=i32([3]), msubj=i32([999]), mval=f64([1.0]), mnnz=1, mperm_base=0)
        counters = dict(codei=4, elmi=0, epos=0, nnzi=5)
        self.assertEqual(
            run(468, header, result, stacks, matrix, counters, d1=1000, md1=2000),
            (4, 1, 1, 5))
        self.assertEqual((q[1], i[3]), (10**9 * 2000 + 999, 5))

    def test_nothing_to_do_leaves_counters_and_arrays_alone(self):
        for number in (473, 472, 470, 469, 468, 467):
            zeros = {name: None if name[0] in "rwx" and name[-2:] in ("32", "64") or
                     name in ("msubi", "msubj", "mval") else 0
                     for name in PARAMETERS[number].split()}
            counters = dict(codei=4, elmi=5, epos=6, nnzi=7, rncodeatom=8, rnelem=9, rnnz=10)
            expected = {470: (4, 7, 5), 469: (8, 10), 468: (4, 5, 6, 7), 467: (8, 9, 10)}
            self.assertEqual(run(number, zeros, counters), expected.get(number, (4, 5, 7)))
        x = i32([7, 7, 7])
        call(471, -1, x, 1)
        self.assertEqual(list(x), [7, 7, 7])
        call(471, 0, x, 1)
        self.assertEqual(list(x), [7, 0, 7])

    def test_matrix_tests(self):
        def bad_order(msubi, msubj, flag=False):
            return call(475, flag, len(msubi), i32(msubi), i32(msubj))

        def bad_index(msubi, msubj, flag=False):
            return call(474, flag, 2, 3, len(msubi), i32(msubi), i32(msubj))

        self.assertIs(bad_order([0, 0, 1], [0, 2, 1]), False)
        for msubi, msubj in (([0, 0], [1, 1]), ([0, 0], [1, 0]), ([1, 0], [0, 1])):
            self.assertIs(bad_order(msubi, msubj), True)
        self.assertIs(bad_index([0, 1], [0, 2]), False)
        for i, j in ((2, 0), (-1, 0), (0, 3), (0, -1)):
            self.assertIs(bad_index([0, i], [0, j]), True)
        self.assertIs(call(475, True, 5, None, None), True)
        self.assertIs(call(474, True, 2, 3, 5, None, None), True)


if __name__ == "__main__":
    unittest.main()
