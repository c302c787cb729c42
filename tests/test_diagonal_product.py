"""mul_diag_left and mul_diag_right: closures 450 to 458."""

import itertools
import unittest

from product_support import (call_by_name, header_bindings, matrix_bindings, random_matrix,
                             split, stack_bindings)
from support import (MARKER, Model, Sampler, Stack, Term, assert_only_sections_written, call,
                     evaluate, i32, push, read, reserve)

PARAMETERS = {
    457: "cconst_base code_base codei codeptr_base cof_base d1 elmi epos mpos msubi msubj mval "
         "ncodeatom nelem nidxs_base nnzi ptr_base rcconst_base rcode_base rcodeptr_base rcof_base "
         "rf64 ri32 ri64 rnidxs_base rptr_base rsp_base sp_base wf64 wi32 wi64 xcperm_base xi32",
    456: "codeptr_base d1 msubi msubj ncodeatom nelem ptr_base rncodeatom rnelem rnnz sp_base wi32 "
         "wi64 xcolptr_base xcperm_base xi32",
    455: "cconst_base code_base codeptr_base cof_base d1 diaglen msubi msubj mval ncodeatom "
         "nidxs_base ptr_base rcconst_base rcode_base rcodeptr_base rcof_base rf64 ri32 ri64 "
         "rncodeatom rnidxs_base rptr_base rshape_base rsp_base wf64 wi32 wi64",
    454: "codeptr_base d1 mpos msubi msubj ncodeatom ptr_base rncodeatom rnelem rnnz wi32",
    452: "cconst_base code_base codei codeptr_base cof_base d1 elmi hassp md1 mnnz msubi msubj "
         "mval ncodeatom nelem nidxs_base nnzi ptr_base rcconst_base rcode_base rcodeptr_base "
         "rcof_base rf64 ri32 ri64 rnidxs_base rptr_base rsp_base sp_base wf64 wi32 wi64 xi32 "
         "xmperm_base",
    451: "codeptr_base d1 hassp md1 mnnz msubi msubj ncodeatom nelem ptr_base rncodeatom rnelem "
         "rnnz sp_base wi32 wi64 xi32 xmperm_base",
    450: "md1 mnnz msubj xi32 xmcolptr_base xmperm_base",
}


def run(number, *bindings, **values):
    return call_by_name(number, PARAMETERS[number], *bindings, **values)


class DiagonalProduct(unittest.TestCase):
    def operands(self, model, matrix, step=1):
        """Puts E (md1 x md0) on a stack: (result stack, values of the parameters)."""
        w, r, x = (Stack(step=step) for _ in range(3))
        bound = dict(stack_bindings("w", w), **stack_bindings("r", r), **stack_bindings("x", x))
        bound.update(header_bindings("", push(w, model)), **matrix_bindings(matrix, step))
        bound.update(md1=model.shape[0], d1=model.shape[1])
        for name, count in (("xcolptr", bound["d1"] + 1), ("xcperm", bound["nelem"]),
                            ("xmcolptr", bound["md1"] + 1), ("xmperm", bound["mnnz"])):
            bound[name + "_base"] = x.reserve("i", count)
        return r, bound

    def size(self, bound, left):
        """Groups and sizes: (ncodeatom, nelem, nnz)."""
        start = dict(rncodeatom=10, rnelem=20, rnnz=30)
        if not left:
            run(450, bound)
            sizes = run(451, bound, start)
        elif bound["hassp"]:
            sizes = run(456, bound, start)
        else:
            mpos, *sizes = run(454, bound, start, mpos=0)
            self.assertEqual(mpos, bound["mnnz"])
        return tuple(n - s for n, s in zip(sizes, (10, 20, 30)))

    def write(self, bound, left, written=(0, 0, 0)):
        """Appends R once; takes and gives (codei, elmi, nnzi)."""
        bound = dict(bound, **dict(zip(("codei", "elmi", "nnzi"), written)))
        if not left:
            return run(452, bound)
        codei, elmi, epos, mpos, nnzi = run(457, bound, mpos=0, epos=0)
        self.assertTrue(epos == bound["nelem"] or mpos == bound["mnnz"])
        return codei, elmi, nnzi

    def chain(self, model, matrix, left, step=1):
        """Runs group, size and write; the latter twice, the second time behind the first. Returns
        the result and the number of elements that the sizing closure counts."""
        r, bound = self.operands(model, matrix, step)
        diaglen = bound["d1"] if left else bound["md1"]
        ncodeatom, nelem, nnz = self.size(bound, left)
        h = reserve(r, 1, 2 * nelem, 2 * nnz, 2 * ncodeatom, hassp=True)
        bound.update(header_bindings("r", h))
        if bound["ncodeatom"] > 0:
            r.i32[h.codeptr_base] = 0  # 455 stores it also for a result without terms
        before = r.snapshot()
        if left and not bound["hassp"]:
            run(455, bound, diaglen=diaglen)
            self.assertEqual(r.i32[h.shape_base], diaglen)
            assert_only_sections_written(self, r, before, h, shape=True)
            h.nelem = nelem
            return read(r, h), nelem
        codei, elmi, nnzi = self.write(bound, left)
        self.assertEqual((codei, nnzi), (ncodeatom, nnz))
        self.assertEqual(self.write(bound, left, (codei, elmi, nnzi)),
                         (2 * ncodeatom, 2 * elmi, 2 * nnz))
        assert_only_sections_written(self, r, before, h)
        h.nelem = 2 * elmi
        halves = split(read(r, h, [diaglen]), elmi)
        self.assertEqual(*halves)
        return halves[0], nelem

    def test_value_in_all_forms(self):
        cases = itertools.product((False, True), (False, True), (False, True), (1, 3), range(40))
        for left, sparse_e, coded, step, seed in cases:
            s = Sampler(seed)
            md0, md1 = s.rng.randrange(5), s.rng.randrange(5)
            model = s.model([md1, md0], sparse_e, coded)
            matrix = random_matrix(s, md0, md1, True)
            with self.subTest(left=left, sparse_e=sparse_e, coded=coded, step=step, seed=seed):
                result, nelem = self.chain(model, matrix, left, step)
                # For each place of the diagonal, the entries (i, j) that E(j, i) may meet.
                given = lambda i, j: matrix[i][j] is not None
                places = ([[(i, j) for j in range(md1) if given(i, j)] for i in range(md0)] if left
                          else [[(i, j) for i in range(md0) if given(i, j)] for j in range(md1)])
                values = evaluate(model, s.variables, s.parameters)
                self.assertEqual(evaluate(result, s.variables, s.parameters),
                                 [sum(matrix[i][j] * values[j * md0 + i] for i, j in place)
                                  for place in places])
                stored = dict(zip(model.linear(), model.elements))
                met = [[stored[j * md0 + i] for i, j in place if j * md0 + i in stored]
                       for place in places]
                counted = [k for k, place in enumerate(met) if place]
                written = counted
                if not sparse_e:
                    counted = written = [k for k, place in enumerate(places) if place]
                elif left:
                    written = [k for k, place in enumerate(met) if any(place)]
                self.assertEqual((nelem, result.sp), (len(counted), written))

    def test_element_without_terms_that_meets_an_entry(self):
        # By form: the elements that are counted, and the linear indexes that are written.
        for left, sp, expected in ((True, None, [0]), (True, [0], []), (False, None, [0]),
                                   (False, [0], [0])):
            result, nelem = self.chain(Model([1, 1], [[]], sp), [[2.0]], left)
            self.assertEqual((nelem, result.sp), (1, expected))

    def test_program_and_order_of_terms(self):
        program = [(1, 3.0)]
        gained = lambda v: program + [(2, v), (5, MARKER["d"])]
        model = lambda shape, sp: Model(shape, [[Term(9, 2.0, program)], [Term(8, 2.0, program)]],
                                        sp, coded=True)
        terms = [[Term(9, 1.0, gained(0.5)), Term(8, -4.0, gained(-2.0))]]
        for sp in (None, [0, 1]):
            self.assertEqual(self.chain(model([2, 1], sp), [[0.5, -2.0]], True)[0].elements, terms)
            self.assertEqual(self.chain(model([1, 2], sp), [[0.5], [-2.0]], False)[0].elements,
                             terms)

    def test_cursors_of_left_side(self):
        # Column 1 of E holds two elements, column 3 one. What is left of a list stays when the
        # other has been used up, but a run that has met is passed whole.
        model = Model([2, 4], [[Term(1, 1.0)]] * 3, sp=[1, 5, 7])
        full, none = [1.0, 1.0], [None, None]
        for matrix, cursors in (([full, full, full, none], (2, 6)),
                                ([full, full, none, full], (3, 6)),
                                ([none, full, none, none], (2, 2))):
            r, bound = self.operands(model, matrix)
            self.size(bound, True)
            h = reserve(r, 1, 2, 3, hassp=True)
            start = dict(codei=4, elmi=0, nnzi=0, epos=0, mpos=0)
            codei, elmi, epos, mpos, nnzi = run(457, bound, header_bindings("r", h), start)
            self.assertEqual((codei, epos, mpos), (4, *cursors))

    def test_sizing_of_left_side_begins_at_entry(self):
        model = Model([2, 2], [[Term(1, 1.0)] * n for n in (1, 2, 3, 4)])
        r, bound = self.operands(model, [[1.0, 1.0], [1.0, 1.0]])
        sizes = dict(rncodeatom=5, rnelem=0, rnnz=0)
        self.assertEqual(run(454, bound, sizes, mpos=2), (4, 5, 1, 2 + 4))

    def test_left_side_of_empty_matrix_still_writes_shape_and_first_ends(self):
        none = {name: 0 for name in PARAMETERS[455].split()}
        none.update({name: None for name in none if name[-2:] in ("32", "64") or name[:2] == "ms"})
        for ncodeatom, end in ((1, 0), (0, 7)):
            # The code flag of the copy isn't what decides on the end in front of the programs.
            ri32 = i32([7] * 4)
            run(455, none, mval=None, ri32=ri32, rshape_base=0, diaglen=3, rptr_base=1,
                rcodeptr_base=2, ncodeatom=ncodeatom, rncodeatom=1 - ncodeatom)
            self.assertEqual(list(ri32), [3, 0, end, 7])

    def test_copy_of_left_side_has_code_if_the_result_has(self):
        r, bound = self.operands(Model([1, 1], [[Term(1, 1.0, [(2, 7.0)])]], coded=True), [[3.0]])
        h = reserve(r, 1, 1, 1, 3, hassp=True)
        run(455, bound, header_bindings("r", h), rncodeatom=0, diaglen=1)
        self.assertEqual((r.f64[h.cof_base], r.i32[h.code_base]), (3.0, MARKER["i"]))

    def test_right_side_stops_at_the_columns_of_the_matrix(self):
        model = Model([2, 1], [[Term(1, 1.0)], [Term(2, 1.0)]], sp=[0, 1])
        r, bound = self.operands(model, [[1.0, 1.0]])
        self.size(bound, False)
        sizes = dict(rncodeatom=0, rnelem=0, rnnz=0)
        self.assertEqual(run(451, bound, sizes, md1=1), (0, 1, 1))

    def test_matrix_tests(self):
        def flags(msubi, msubj, badidx=False, badorder=False):
            arguments = badidx, badorder, 2, 3, len(msubi), i32(msubi), i32(msubj)
            result = call(458, *arguments)
            self.assertEqual(call(453, *arguments), result)
            return result

        self.assertEqual(flags([0, 0, 1], [0, 2, 1]), (False, False))
        self.assertEqual(flags([0, 0], [1, 1]), (False, True))
        self.assertEqual(flags([1, 0], [-1, 0]), (True, True))
        self.assertEqual(flags([1, 0], [0, 1], True), (True, True))
        self.assertEqual(flags([0, 2], [0, 0], False, True), (True, True))
        self.assertEqual(flags([0, 1], [3, 0]), (True, False))


if __name__ == "__main__":
    unittest.main()
