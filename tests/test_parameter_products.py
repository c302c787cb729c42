"""Products with arrays of parameters: closures 338 to 359 and 361 to 378."""

import itertools
import unittest
from collections import defaultdict

from product_support import header_bindings, stack_bindings
from support import (OP_CONST, OP_MUL, OP_PARAM, Sampler, Stack, assert_only_sections_written, call,
                     evaluate, i32, i64, product, push, read, reserve)

# A call is told as the closure's number and the names of its parameters, in any order: they stand
# in ascending order in all of these closures. The result holds those with a + in the same order.
GROUPS = {
    "SUM": "codeptr_base ncodeatom pnnz psp_base ptr_base wi32 xi64 +rncodeatom +rnnz",
    "SIZE": "codeptr_base ncodeatom pnnz ptr_base wi32 xi64 +rncodeatom +rnelem +rnnz",
    "EMIT": "cconst_base code_base codeptr_base cof_base ncodeatom nidxs_base pidx_base ptr_base "
            "rcconst_base rcode_base rcodeptr_base rf64 ri32 ri64 rnidxs_base wf64 wi32 wi64 xi32",
    "STEP": "EMIT +code_pos +nnz_pos",
    "TERMS": "STEP pnnz psp_base rcof_base xi64",
    "LISTED": "TERMS +elem_pos rptr_base rsp_base",
    "XLISTED": "STEP XMATRIX +elem_pos pnnz rptr_base rsp_base xi64",
    "DIAGONAL": "EMIT MATRIX pnnz rcof_base rptr_base rsp_base nrow rshape_base xi64",
    "SPARSE": "nelem sp_base wi64",
    "MATRIX": "dim1 pdim1 psp_base",
    "XMATRIX": "dim1 pdim1 xsp_base",
    "PPERM": "pperm_base xi32",
    "EPERM": "eperm_base xi32",
}
# An operation on a dense (0) or sparse (1) E, what sizes it and what writes it.
TABLE = """
dense_left 0 | 371 SIZE XMATRIX | 370 STEP dim1 i j k pdim1 rcof_base
left 0 | 371 SIZE XMATRIX | 373 XLISTED +ipos
left 1 | 375 SIZE XMATRIX SPARSE xperm_base xi32 | 378 XLISTED SPARSE xperm_base +ppos
right 0 | 367 SIZE MATRIX PPERM dim0 | 369 LISTED MATRIX SPARSE PPERM dim0 hassp
right 1 | 368 SIZE MATRIX SPARSE PPERM | 369 LISTED MATRIX SPARSE PPERM dim0 hassp
elem 0 | 358 SIZE SPARSE hassp psp_base | 362 TERMS rptr_base rsp_base
elem 1 | 358 SIZE SPARSE hassp psp_base | 361 LISTED SPARSE +e_pos +p_pos
dot 0 | 354 SUM SPARSE hassp | 357 TERMS
dot 1 | 354 SUM SPARSE hassp | 356 TERMS SPARSE +e_pos +p_pos
diag_left 0 | 344 SIZE MATRIX | 345 DIAGONAL rncodeatom
diag_left 1 | 342 SIZE MATRIX SPARSE EPERM | 343 DIAGONAL SPARSE EPERM rnelem rnumatom
diag_right 0 | 352 SIZE MATRIX PPERM +ipos | 353 LISTED MATRIX PPERM +ipos
diag_right 1 | 350 SIZE MATRIX SPARSE PPERM +epos +ipos | 351 LISTED MATRIX SPARSE PPERM +epos +ipos
"""
FORMS = {(key[:-2], key[-1] == "1"): calls
         for key, *calls in (line.split(" | ") for line in TABLE.strip().splitlines())}
# What groups P, or a sparse E, by column: zero, count, sum up, place.
P_STEPS = ("%d n pptr_base xi32", "%d dim1 n pptr_base psp_base xi32 xi64",
           "%d n pptr_base xi32", "%d dim1 n pperm_base pptr_base psp_base xi32 xi64")
E_STEPS = ("%d n pptr_base xi32", "%d dim1 eptr_base n sp_base wi64 xi32",
           "%d n pptr_base xi32", "%d dim1 eperm_base eptr_base n sp_base wi64 xi32")
STEPS = {"right": (363, P_STEPS), "diag_right": (346, P_STEPS), "diag_left": (338, E_STEPS),
         "left": (374, ["%d SPARSE shape_base wi32 xi32 xperm_base xptr_base"])}


def expand(text):
    return sum((expand(GROUPS[n]) if n in GROUPS else [n] for n in text.split()), [])


def run(text, bound):
    """Makes the call with what the names are bound to, and binds the result."""
    number, *names = expand(text)
    values = call(int(number), *(bound[n] for n in sorted({n.lstrip("+") for n in names})))
    bound.update(zip(sorted(n[1:] for n in names if n[0] == "+"), values or ()))


def nothing(**values):
    """Binds all arrays to None and all numbers to 0, but for the values."""
    arrays = "rf64 ri32 ri64 wf64 wi32 wi64 xi32 xi64".split()
    return defaultdict(int, {**dict.fromkeys(arrays), **values})


def shapes(s, operation):
    """Random shapes of P and E."""
    a, b, c = s.shape(3)
    if operation in ("elem", "dot"):
        return [a, b], [a, b]
    c = a if operation.startswith("diag") else c
    return ([a, b], [b, c]) if operation.endswith("left") else ([b, c], [a, b])


def meetings(operation, pshape, shape):
    """The result's shape, and for each place of it the (place in P, place in E) that meet there."""
    if operation in ("elem", "dot"):
        pairs = [(k, k) for k in range(product(shape))]
        return ([1], [pairs]) if operation == "dot" else (shape, [[pair] for pair in pairs])
    order = 1 if operation.endswith("left") else -1
    (rows, inner), (_, columns) = (pshape, shape)[::order]
    pairs = [[(i * inner + k, k * columns + j)[::order] for k in range(inner)]
             for i in range(rows) for j in range(columns)]
    diagonal = operation.startswith("diag")
    return [rows] if diagonal else [rows, columns], pairs[:: rows + 1] if diagonal else pairs


class ParameterProducts(unittest.TestCase):
    def group(self, x, operation, bound, columns, linear):
        """Groups the factor with these linear indexes by column; the pointers aren't shifted."""
        n, (first, steps) = len(linear), STEPS[operation]
        ptr, perm = x.reserve("i", columns + 1), x.reserve("i", n)
        for letter in "pex":
            bound.update({letter + "ptr_base": ptr, letter + "perm_base": perm})
        for k, step in enumerate(steps):
            run(step % (first + k), {**bound, "dim1": columns, "n": n if k % 2 else columns})
        ends = [sum(k % columns <= c for k in linear) for c in range(columns)]
        ends.append(n if first != 346 else sum(k % columns == columns - 1 for k in linear))
        self.assertEqual(list(x.i32[ptr : ptr + columns + 1]), ends)

    def chain(self, operation, model, pshape, psp, pidx, step):
        """Groups, sizes and writes; returns the result."""
        w, r, x = (Stack(step=step) for _ in range(3))
        e, (nrow, pdim1), (dim0, dim1) = push(w, model), pshape, model.shape
        bound = nothing(pnnz=len(psp), dim0=dim0, dim1=dim1, pdim1=pdim1, nrow=nrow, rncodeatom=5,
                        rnelem=6, rnnz=7, psp_base=x.put("q", psp), pidx_base=x.put("i", pidx))
        bound.update(header_bindings("", e), xsp_base=bound["psp_base"], **stack_bindings("w", w),
                     **stack_bindings("r", r), **stack_bindings("x", x))
        right = operation.endswith("right")
        if operation in STEPS and (right or e.hassp):
            self.group(x, operation, bound, *((pdim1, psp) if right else (dim1, model.sp)))
        sizing, writing = FORMS[operation, bound["hassp"]]
        run(sizing, bound)
        # A dense elementwise product replaces the number of elements, all others add to it.
        bound["rnelem"] -= 6 * (operation != "elem" or bound["hassp"])
        h = reserve(r, 2, 1 if operation == "dot" else bound["rnelem"], bound["rnnz"] - 7,
                    bound["rncodeatom"] - 5, operation not in ("dot", "dense_left"))
        bound.update(header_bindings("r", h), rnumatom=h.ncodeatom, ipos=0, epos=0)
        before = r.snapshot()
        if operation == "left":
            run("%d rcof_base rf64 rnnz" % (377 if e.hassp else 372), bound)
        if operation == "dense_left":
            for element, bound["k"] in itertools.product(range(h.nelem), range(pdim1)):
                bound["i"], bound["j"] = divmod(element, dim1)
                run(writing, bound)
                r.i32[h.ptr_base + element + 1] = bound["nnz_pos"]
        else:
            # Where a cursor over P comes back, its first row or column can be a call of its own.
            lines = [k % pdim1 if operation == "diag_right" else k // pdim1 for k in psp]
            resumes = {"+ipos", "+ppos", "+p_pos"} & set(writing.split())
            for bound["pnnz"] in [lines.count(0)] * bool(resumes) + [len(psp)]:
                run(writing, bound)
        if operation == "dot":
            r.i32[h.ptr_base + 1] = h.nnz
        if operation != "diag_left":
            self.assertEqual((bound["code_pos"], bound["nnz_pos"]), (h.ncodeatom, h.nnz))
        assert_only_sections_written(self, r, before, h, shape=operation == "diag_left")
        return read(r, h, [])

    def test_values(self):
        for (operation, sparse), coded, step in itertools.product(FORMS, (False, True), (1, 3)):
            for seed in range(30):
                s = Sampler(seed)
                pshape, shape = shapes(s, operation)
                model = s.model(shape, sparse, coded)
                psp = s.pattern(product(pshape), s.rng.choice([0.5, 1.0])
                                if operation != "dense_left" else 1.0)
                p = {a: s.rng.randrange(s.parameter_count) for a in psp}
                with self.subTest(operation=operation, sparse=sparse, coded=coded, seed=seed):
                    result = self.chain(operation, model, pshape, psp, p.values(), step)
                    result.shape, places = meetings(operation, pshape, shape)
                    values, stored = evaluate(model, s.variables, s.parameters), model.linear()
                    self.assertEqual(evaluate(result, s.variables, s.parameters), [
                        sum(s.parameters[p[a]] * values[q] for a, q in pairs if a in p)
                        for pairs in places])
                    if result.sp is not None:
                        met = [any(a in p and q in stored for a, q in pairs) for pairs in places]
                        self.assertEqual(result.sp, [k for k, here in enumerate(met) if here])
                    for t in sum(result.elements, []):
                        ops = [op for op, _ in t.program]
                        self.assertEqual((t.cof, ops[:1] + ops[-2:], len(ops) > 3),
                                         (0.0, [OP_CONST, OP_PARAM, OP_MUL], coded))

    def test_nothing_to_do_reaches_no_array(self):
        came = {"code_pos": 1, "nnz_pos": 2, "rncodeatom": 3, "rnnz": 4}
        for text in itertools.chain(*FORMS.values()):
            if text[:3] not in ("345", "370"):  # which have something to do
                bound = nothing(hassp=True, **came)
                run(text, bound)
                self.assertEqual({name: bound[name] for name in came}, came)

    def test_elements_without_terms_need_no_parameter(self):
        ri32, ri64 = i32([7] * 3), i64([7] * 2)
        bound = nothing(wi32=i32([0] * 6), psp_base=1, xi64=i64([9, 1, 4]), pnnz=2, ri32=ri32,
                        ri64=ri64, nelem=3, wi64=i64([1, 4, 5]))
        run(FORMS["elem", False][1], bound)
        self.assertEqual((list(ri32), list(ri64)), ([7, 0, 0], [1, 4]))
        # Where the last entry of P matches, E's cursor stays.
        run(FORMS["elem", True][1], bound)
        self.assertEqual([bound[name] for name in ("e_pos", "elem_pos", "p_pos")], [1, 2, 2])

    def test_fill_and_product(self):
        for n, expected in ((1, [7, -9999, -9999, 7]), (-1, [7] * 4)):
            target = i32([7] * 4)
            call(376, target, n, 1)
            self.assertEqual(list(target), expected)
        for number in (355, 359):
            self.assertEqual(call(number, 2, 3, 1, i32([9, 2**20, 2**20])), 3 * 2**40)


if __name__ == "__main__":
    unittest.main()
