// weighted_sum: the sum of n expressions of equal shape, operand k times w[k].
//
// The operands' headers arrive as arrays with one entry for each operand; their sections lie on
// the w stack. Operands that are all sparse are merged by their linear indexes (523); as soon as
// one is dense, the terms of each result element are counted, and each operand is scattered to its
// place (514 to 522). Within a result element the terms of operand 0 come first, then those of
// operand 1, and so on; none are merged.

#include "algorithms.h"
#include "closure_frame.h"
#include "operand_list.h"
#include "scratch.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// What becomes of the programs of operand k. The list is read only if some operand has code.
template <class S>
Code code_of_operand(bool anycode, I32<S> ncodeatom, int k)
{
    return anycode ? form_of(ncodeatom[k], true) : Code::none;
}

/// Adds the terms and atoms that all operands bring to the result.
template <class S>
void count_operands(bool anycode, int n, I32<S> ncodeatom, I32<S> nnz, int& rncodeatom, int& rnnz)
{
    for (int k = 0; k < n; ++k) {
        rnnz += nnz[k];
        if (anycode)
            rncodeatom +=
                scaled_atoms(code_of_operand(anycode, ncodeatom, k), nnz[k], ncodeatom[k]);
    }
}

/// Walks the ascending linear indexes of n sparse operands at once. For each distinct index calls
/// `take(k, e)` for each operand k that holds it, as its element e, and then `close(index)`. Costs
/// two passes over the operands for each index.
template <class S, class Take, class Close>
void merge_operands(int n, I32<S> nelem, I32<S> sp_base, I64<S> wi64, Take take, Close close)
{
    const Scratch<int> pos(n);
    const auto next = [&](int k) { return wi64[sp_base[k] + pos[k]]; };
    for (;;) {
        int64_t smallest = -1;
        for (int k = 0; k < n; ++k) {
            if (pos[k] >= nelem[k]) continue;
            const int64_t index = next(k);
            if (smallest < 0 || index < smallest) smallest = index;
        }
        if (smallest < 0) return;
        for (int k = 0; k < n; ++k) {
            if (pos[k] < nelem[k] && next(k) == smallest) {
                take(k, pos[k]);
                ++pos[k];
            }
        }
        close(smallest);
    }
}

/// Counts the terms and atoms of operand k into the entry above that of each target element;
/// `target(e)` is the result element that element e goes to.
template <class S, class Target>
void count_elements(bool anycode, I32<S> codeptr, int k, I32<S> ncodeatom, I32<S> nelem,
                    I32<S> ptr_base, I32Out<S> rptr, I32<S> wi32, I32Out<S> xcode, Target target)
{
    const int n = nelem[k];
    if (n < 1) return;
    const auto ptr = wi32.from(ptr_base[k]);
    for (int e = 0; e < n; ++e) rptr[target(e) + 1] += ptr[e + 1] - ptr[e];
    if (!anycode || ptr[0] >= ptr[n]) return;
    const Code form = code_of_operand(anycode, ncodeatom, k);
    const auto ends = form == Code::scaled ? wi32.from(codeptr[k]) : I32<S>{};
    for (int e = 0; e < n; ++e) {
        const int atoms = form == Code::scaled ? ends[ptr[e + 1]] - ends[ptr[e]] : 0;
        xcode[target(e) + 1] += scaled_atoms(form, ptr[e + 1] - ptr[e], atoms);
    }
}

/// Copies operand k to its places: r.ptr[d] is the next free term of result element d, and xcode[d]
/// its next free atom. Both are left behind what was written.
template <class S, class Target>
void scatter(const OperandList<S>& operands, bool anycode, int k, I32<S> nelem, F64<S> w,
             Result<S> r, I32Out<S> xcode, Target target)
{
    const int n = nelem[k];
    if (n < 1) return;
    const auto ptr = operands.ptr(k);
    if (ptr[0] >= ptr[n]) return;
    const Code form = code_of_operand(anycode, operands.ncodeatom, k);
    const Operand<S> operand = operands.operand(k, form == Code::scaled);
    const double weight = w[k];
    for (int e = 0; e < n; ++e) {
        const int64_t d = target(e);
        r.nnzi = r.ptr[d];
        if (form != Code::none) r.codei = xcode[d];
        r.append_scaled(operand, e, weight, form);
        if (form != Code::none) xcode[d] = r.codei;
        r.ptr[d] = r.nnzi;
    }
}

} // namespace

/// Whether `sameshape`, and all operands have the shape of operand 0.
CLOSURE(509, bool, (int n, I32 nd, bool sameshape, I32 shape_base, I32 wi32))
{
    for (int k = 1; sameshape && k < n; ++k) {
        sameshape = nd[k] == nd[0];
        for (int i = 0; sameshape && i < nd[0]; ++i)
            sameshape = wi32[shape_base[0] + i] == wi32[shape_base[k] + i];
    }
    return sameshape;
}

/// Whether `anycode`, or some operand has parameter code.
CLOSURE_AS(510, bool, (bool anycode, int n, I32 ncodeatom), has_code(anycode, n, ncodeatom))

/// Sizes of the scatter path: (rncodeatom, rnnz), added to.
CLOSURE(511, results(int, int),
        (bool anycode, int n, I32 ncodeatom, I32 nnz, int rncodeatom, int rnnz))
{
    count_operands(anycode, n, ncodeatom, nnz, rncodeatom, rnnz);
    return {rncodeatom, rnnz};
}

/// Sizes of the merge path: (rncodeatom, rnelem, rnnz), added to.
CLOSURE(512, results(int, int, int),
        (bool anycode, int n, I32 ncodeatom, I32 nelem, I32 nnz, int rncodeatom, int rnelem,
         int rnnz, I32 sp_base, I64 wi64))
{
    merge_operands(
        n, nelem, sp_base, wi64, [](int, int) {}, [&](int64_t) { ++rnelem; });
    count_operands(anycode, n, ncodeatom, nnz, rncodeatom, rnnz);
    return {rncodeatom, rnelem, rnnz};
}

/// The result's shape: that of operand 0.
CLOSURE(513, void, (I32 nd, I32Out ri32, int rshape_base, I32 shape_base, I32 wi32))
{
    if (nd[0] > 0) copy_n(wi32.from(shape_base[0]), nd[0], ri32.from(rshape_base));
}

/// Zeroes the result's `ptr`, to count terms in.
CLOSURE_AS(514, void, (I32Out ri32, int rnelem, int rptr_base),
           fill_n(ri32.from(rptr_base), int64_t{rnelem} + 1, 0))

/// Zeroes the counters of atoms if the result has code.
CLOSURE(515, void, (int rncodeatom, int rnelem, int xcode_base, I32Out xi32))
{
    if (rncodeatom > 0) fill_n(xi32.from(xcode_base), int64_t{rnelem} + 1, 0);
}

/// Counts the terms and atoms of sparse operand k.
CLOSURE(516, void,
        (bool anycode, I32 codeptr, int k, I32 ncodeatom, I32 nelem, I32 ptr_base, I32Out ri32,
         int rptr_base, I32 sp_base, I32 wi32, I64 wi64, int xcode_base, I32Out xi32))
{
    count_elements(anycode, codeptr, k, ncodeatom, nelem, ptr_base, ri32.from(rptr_base), wi32,
                   xi32.from(xcode_base), [&](int e) { return wi64[sp_base[k] + e]; });
}

/// Counts the terms and atoms of dense operand k.
CLOSURE(517, void,
        (bool anycode, I32 codeptr, int k, I32 ncodeatom, I32 nelem, I32 ptr_base, I32Out ri32,
         int rptr_base, I32 wi32, int xcode_base, I32Out xi32))
{
    count_elements(anycode, codeptr, k, ncodeatom, nelem, ptr_base, ri32.from(rptr_base), wi32,
                   xi32.from(xcode_base), [](int e) { return e; });
}

/// Counts of terms become offsets.
CLOSURE_AS(518, void, (I32Out ri32, int rnelem, int rptr_base),
           running_sum(ri32.from(rptr_base), rnelem))

/// Counts of atoms become offsets if the result has code.
CLOSURE(519, void, (int rncodeatom, int rnelem, int xcode_base, I32Out xi32))
{
    if (rncodeatom > 0) running_sum(xi32.from(xcode_base), rnelem);
}

/// Scatters sparse operand k.
CLOSURE(520, void,
        (bool anycode, I32 cconst, I32 code, I32 codeptr, I32 cof_base, int k, I32 ncodeatom,
         I32 nelem, I32 nidxs_base, I32 ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, I32 sp_base, F64 w, F64 wf64, I32 wi32, I64 wi64, int xcode_base,
         I32Out xi32))
{
    scatter(OPERAND_LIST(), anycode, k, nelem, w, STACKED_RESULT(), xi32.from(xcode_base),
            [&](int e) { return wi64[sp_base[k] + e]; });
}

/// Scatters dense operand k.
CLOSURE(521, void,
        (bool anycode, I32 cconst, I32 code, I32 codeptr, I32 cof_base, int k, I32 ncodeatom,
         I32 nelem, I32 nidxs_base, I32 ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, F64 w, F64 wf64, I32 wi32, I64 wi64, int xcode_base, I32Out xi32))
{
    scatter(OPERAND_LIST(), anycode, k, nelem, w, STACKED_RESULT(), xi32.from(xcode_base),
            [](int e) { return e; });
}

/// Cursors of terms become `ptr` again; entry 0 is the host's.
CLOSURE_AS(522, void, (I32Out ri32, int rnelem, int rptr_base),
           shift_up(ri32.from(rptr_base), rnelem))

/// The merge path: writes `ptr`, `sp`, the terms and their programs.
CLOSURE(523, void,
        (bool anycode, I32 cconst, I32 code, I32 codeptr, I32 cof_base, int n, I32 ncodeatom,
         I32 nelem, I32 nidxs_base, I32 ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rsp_base, I32 sp_base, F64 w, F64 wf64, I32 wi32, I64 wi64))
{
    const auto operands = OPERAND_LIST();
    auto r = SPARSE_RESULT();
    merge_operands(
        n, nelem, sp_base, wi64,
        [&](int k, int e) {
            const auto ptr = operands.ptr(k);
            if (ptr[e] >= ptr[e + 1]) return;
            const Code form = code_of_operand(anycode, ncodeatom, k);
            r.append_scaled(operands.operand(k, form == Code::scaled), e, w[k], form);
        },
        [&](int64_t index) { r.close_element(index); });
}

} // namespace fragments
