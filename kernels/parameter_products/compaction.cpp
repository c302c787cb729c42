// compact_terms: an expression without the terms and elements that simplification has emptied.
//
// The operand's `ptr`, `sp`, `nidxs` and `cof` lie on the w stack; its programs are those that the
// simplifier left on the x stack. A term is either a number, with op_folded as its program, or a
// program, with coefficient 0. One that is neither, 0 with op_folded, is dropped, and so is an
// element that has no term left; a dense expression that loses one becomes sparse. 385 sizes, 386
// tells whether the result is to be sparse, 389 writes.

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

template <class S>
bool is_dropped(const Operand<S>& e, int64_t t)
{
    const int64_t begin = e.codeptr[t];
    return e.cof[t] == 0.0 && e.codeptr[t + 1] - begin < 2 && e.code[begin] == op_folded;
}

/// Calls `take(t)` for each term that stays and `close(q)` behind those of each element that has
/// one.
template <class S, class Take, class Close>
void walk_kept(int nelem, const Operand<S>& e, Take take, Close close)
{
    for (int64_t q = 0; q < nelem; ++q) {
        bool kept = false;
        for (int64_t t = e.ptr[q]; t < e.ptr[q + 1]; ++t) {
            if (is_dropped(e, t)) continue;
            take(t);
            kept = true;
        }
        if (kept) close(q);
    }
}

} // namespace

/// Sizes a compaction of `nelem` elements: adds the terms that stay, their atoms, of which a term
/// that is a number has one, and the elements with a term left. Dropped are the terms with
/// coefficient 0 whose program is op_folded alone. Returns (`rncodeatom`, `rnelem`, `rnnz`).
CLOSURE(385, results(int, int, int),
        (int cof_base, int nelem, int ptr_base, int rncodeatom, int rnelem, int rnnz, F64 wf64,
         I32 wi32, int xcode_base, int xcodeptr_base, I32 xi32))
{
    Operand<Stride> e(wi32, {}, wf64, {.ptr = ptr_base, .cof = cof_base});
    e.set_code(xi32, {}, {.codeptr = xcodeptr_base, .code = xcode_base});
    walk_kept(
        nelem, e,
        [&](int64_t t) {
            const int atoms = e.codeptr[t + 1] - e.codeptr[t];
            rncodeatom += e.cof[t] == 0.0 && atoms >= 2 ? atoms : 1;
            ++rnnz;
        },
        [&](int64_t) { ++rnelem; });
    return {rncodeatom, rnelem, rnnz};
}

/// Whether `nelem` elements leave gaps in a shape of `dimcount` extents, so that a result of so
/// many must be sparse.
CLOSURE_AS(386, bool,
           (int dimcount, [[maybe_unused]] bool hassp, int nelem, int shape_base, I32 wi32),
           product(int64_t{1}, wi32.from(shape_base), dimcount) > nelem)

/// Writes a compaction of `nelem` elements: variable index, coefficient and program of each term
/// that stays, a single atom for one that is a number, and `ptr` of the elements with a term left.
/// If the result is to be sparse (`rhassp`), `sp` too: the operand's (`hassp`), or for a dense one
/// the element's number. Entry 0 of `ptr` and of `codeptr` is the host's. Returns (`code_pos`,
/// `elem_pos`, `nnz_pos`), the numbers of what is written so far.
CLOSURE(389, results(int, int, int),
        (int code_pos, int cof_base, int elem_pos, bool hassp, int nelem, int nidxs_base,
         int nnz_pos, int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base,
         int rcof_base, F64Out rf64, bool rhassp, I32Out ri32, I64Out ri64, int rnidxs_base,
         int rptr_base, int rsp_base, int sp_base, F64 wf64, I32 wi32, I64 wi64, int xcconst_base,
         int xcode_base, int xcodeptr_base, F64 xf64, I32 xi32))
{
    Operand<Stride> e(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base, sp_base});
    e.set_code(xi32, xf64, {xcodeptr_base, xcode_base, xcconst_base});
    auto r = SPARSE_RESULT(code_pos, elem_pos, nnz_pos);
    walk_kept(
        nelem, e,
        [&](int64_t t) {
            const double cof = e.cof[t];
            r.nidxs[r.nnzi] = e.nidxs[t];
            r.cof[r.nnzi] = cof;
            if (cof == 0.0) {
                r.append_program(e, t);
            } else {
                const int64_t a = e.codeptr[t];
                r.append_atom(e.code[a], e.cconst[a]);
            }
            r.close_coded_term();
        },
        [&](int64_t q) {
            if (rhassp)
                r.close_element(hassp ? e.sp[q] : q);
            else
                r.close_element();
        });
    return {r.codei, r.elmi, r.nnzi};
}

} // namespace fragments
