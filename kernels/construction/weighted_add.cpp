// weighted_add: the sum mul1 * A + mul2 * B of two expressions of equal shape.
//
// There is a writing closure for each pair of forms: both dense (502), A dense and B sparse (504),
// both sparse (508). Within a result element the terms of A come before those of B; none are
// merged. A term without a program gets the one that pushes 0.0 if the result has code, whatever
// its factor.

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"

namespace fragments {

/// Number of positions of a shape, times `size`.
CLOSURE_AS(505, long long, (int nd, int shape_base, long long size, I32 wi32),
           product(size, wi32.from(shape_base), nd))

/// Sizes the sum of two sparse expressions: adds the number of distinct linear indexes to `rnelem`.
CLOSURE(506, int, (int nelem1, int nelem2, int rnelem, int sp1_base, int sp2_base, I64 wi64))
{
    const auto sp1 = wi64.from(sp1_base);
    const auto sp2 = wi64.from(sp2_base);
    Range list1{0, nelem1};
    Range list2{0, nelem2};
    merge_elements(
        list1, [&](int64_t p) { return sp1[p]; }, list2, [&](int64_t q) { return sp2[q]; },
        [&](bool, bool) { ++rnelem; });
    return rnelem;
}

/// Copies the shape.
CLOSURE_AS(503, void, (I32Out ri32, int rnd, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), rnd, ri32.from(rshape_base)))
CLOSURE_AS(507, void, (I32Out ri32, int rnd, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), rnd, ri32.from(rshape_base)))

/// Both dense: writes all `rnelem` elements. Returns (codei, cofi).
CLOSURE(502, results(int, int),
        (int cconst1_base, int cconst2_base, int code1_base, int code2_base, int codei,
         int codeptr1_base, int codeptr2_base, int cof1_base, int cof2_base, int cofi, double mul1,
         double mul2, int ncodeatom1, int ncodeatom2, int nidxs1_base, int nidxs2_base,
         int ptr1_base, int ptr2_base, int rcconst_base, int rcode_base, int rcodeptr_base,
         int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom, int rnelem,
         int rnidxs_base, int rptr_base, F64 wf64, I32 wi32, I64 wi64))
{
    const Operand<Stride> e1(wi32, wi64, wf64, {ptr1_base, nidxs1_base, cof1_base},
                             {codeptr1_base, code1_base, cconst1_base});
    const Operand<Stride> e2(wi32, wi64, wf64, {ptr2_base, nidxs2_base, cof2_base},
                             {codeptr2_base, code2_base, cconst2_base});
    const Code form1 = form_of(ncodeatom1, rncodeatom > 0);
    const Code form2 = form_of(ncodeatom2, rncodeatom > 0);
    auto r = STACKED_RESULT(codei, 0, cofi);
    for (int e = 0; e < rnelem; ++e) {
        r.append_scaled(e1, e, mul1, form1);
        r.append_scaled(e2, e, mul2, form2);
        r.close_element();
    }
    return {r.codei, r.nnzi};
}

/// A dense, B sparse: appends an element for each one of A to a dense result, from element `i1` of
/// A and `i2` of B on. Returns (codei, eli, i1, i2, nnzi).
CLOSURE(504, results(int, int, int, int, int),
        (int cconst1_base, int cconst2_base, int code1_base, int code2_base, int codei,
         int codeptr1_base, int codeptr2_base, int cof1_base, int cof2_base, int eli, int i1,
         int i2, double mul1, double mul2, int ncodeatom1, int ncodeatom2, int nelem1, int nelem2,
         int nidxs1_base, int nidxs2_base, int nnzi, int ptr1_base, int ptr2_base, int rcconst_base,
         int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rncodeatom, int rnidxs_base, int rptr_base, int sp2_base, F64 wf64, I32 wi32,
         I64 wi64))
{
    const Operand<Stride> e1(wi32, wi64, wf64, {ptr1_base, nidxs1_base, cof1_base},
                             {codeptr1_base, code1_base, cconst1_base});
    const Operand<Stride> e2(wi32, wi64, wf64, {ptr2_base, nidxs2_base, cof2_base},
                             {codeptr2_base, code2_base, cconst2_base});
    const Code form1 = form_of(ncodeatom1, rncodeatom > 0);
    const Code form2 = form_of(ncodeatom2, rncodeatom > 0);
    auto r = STACKED_RESULT(codei, eli, nnzi);
    const auto sp2 = wi64.from(sp2_base);
    Range list1{i1, nelem1};
    Range list2{i2, nelem2};
    merge_elements(
        list1, [](int64_t p) { return p; }, list2, [&](int64_t q) { return sp2[q]; },
        [&](bool in1, bool in2) {
            if (in1) r.append_scaled(e1, list1.begin, mul1, form1);
            if (in2) r.append_scaled(e2, list2.begin, mul2, form2);
            r.close_element();
        });
    return {r.codei, r.elmi, static_cast<int>(list1.begin), static_cast<int>(list2.begin), r.nnzi};
}

/// Both sparse: writes a sparse result, entries 0 of `ptr` and `codeptr` included.
CLOSURE(508, void,
        (int cconst1_base, int cconst2_base, int code1_base, int code2_base, int codeptr1_base,
         int codeptr2_base, int cof1_base, int cof2_base, double mul1, double mul2, int ncodeatom1,
         int ncodeatom2, int nelem1, int nelem2, int nidxs1_base, int nidxs2_base, int ptr1_base,
         int ptr2_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base,
         int rsp_base, int sp1_base, int sp2_base, F64 wf64, I32 wi32, I64 wi64))
{
    const Operand<Stride> e1(wi32, wi64, wf64, {ptr1_base, nidxs1_base, cof1_base},
                             {codeptr1_base, code1_base, cconst1_base});
    const Operand<Stride> e2(wi32, wi64, wf64, {ptr2_base, nidxs2_base, cof2_base},
                             {codeptr2_base, code2_base, cconst2_base});
    const Code form1 = form_of(ncodeatom1, rncodeatom > 0);
    const Code form2 = form_of(ncodeatom2, rncodeatom > 0);
    auto r = SPARSE_RESULT();
    r.ptr[0] = 0;
    if (rncodeatom > 0) r.codeptr[0] = 0;
    const auto sp1 = wi64.from(sp1_base);
    const auto sp2 = wi64.from(sp2_base);
    Range list1{0, nelem1};
    Range list2{0, nelem2};
    merge_elements(
        list1, [&](int64_t p) { return sp1[p]; }, list2, [&](int64_t q) { return sp2[q]; },
        [&](bool in1, bool in2) {
            if (in1) r.append_scaled(e1, list1.begin, mul1, form1);
            if (in2) r.append_scaled(e2, list2.begin, mul2, form2);
            r.close_element(in1 ? sp1[list1.begin] : sp2[list2.begin]);
        });
}

} // namespace fragments
