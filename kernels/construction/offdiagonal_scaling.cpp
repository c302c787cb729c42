// scale_offdiag: the elements off the diagonal of axes `xdim` and `ydim` times a factor, those on
// it as they are.
//
// The extents d0 to d4 of the view around the two axes are 64-bit scalars here. The host has copied
// the expression to the r stack; 543 scales its coefficients there, and 544 writes its programs.

#include <algorithm>

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "five_dimensional_view.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// Calls `visit(elements, on_diagonal)` for the stored elements, a range of positions at a time.
template <class S, class Visit>
void for_each_block(const Extents& d, bool hassp, int nelem, I64<S> sp, Visit visit)
{
    if (!hassp) {
        if (*std::min_element(d.begin(), d.end()) < 1) return;
        // Neighbours that are on the diagonal together, or off it, make a block.
        int64_t e = 0;
        const auto next = [&](int64_t size, bool on_diagonal) {
            visit(Range{e, e + size}, on_diagonal);
            e += size;
        };
        for (int64_t a = 0; a < d[0]; ++a)
            for (int64_t i = 0; i < d[1]; ++i) {
                if (d[3] == 1) {
                    next(d[2] * d[4], i == 0);
                    continue;
                }
                for (int64_t m = 0; m < d[2]; ++m)
                    for (int64_t j = 0; j < d[3]; ++j) next(d[4], i == j);
            }
        return;
    }
    for (int e = 0; e < nelem; ++e) {
        const int64_t j = remainder(quotient(sp[e], d[4]), d[3]);
        const int64_t i = remainder(quotient(sp[e], d[2] * d[3] * d[4]), d[1]);
        visit(Range{e, int64_t{e} + 1}, i == j);
    }
}

} // namespace

/// A shape without axis `n`, in two parts: the extents before it, and those behind it.
CLOSURE_AS(538, void, (int n, I32Out r, I32 shape), copy_n(shape, n, r))
CLOSURE_AS(539, void, (int n, I32Out r, I32 shape),
           copy_n(shape.from(int64_t{n} + 1), shape.length() - 1 - n, r.from(n)))

/// d0, d2 and d4 of the view, each times what comes in.
CLOSURE_AS(540, long long, (long long d0, int shape_base, I32 wi32, int xdim),
           product(d0, wi32.from(shape_base), xdim))
CLOSURE_AS(541, long long, (long long d2, int shape_base, I32 wi32, int xdim, int ydim),
           product_behind(d2, wi32.from(shape_base), xdim, ydim))
CLOSURE_AS(542, long long, (long long d4, int nd, int shape_base, I32 wi32, int ydim),
           product_behind(d4, wi32.from(shape_base), ydim, nd))

/// Scales the coefficients off the diagonal in place, on the r stack.
CLOSURE(543, void,
        (long long d0, long long d1, long long d2, long long d3, long long d4, bool hassp,
         int nelem, int rcof_base, F64Out rf64, I32 ri32, int rptr_base, double scale, int sp_base,
         I64 wi64))
{
    const auto ptr = ri32.from(rptr_base);
    const auto cof = rf64.from(rcof_base);
    if (!hassp && d1 == 1 && d3 == 1) return; // all on the diagonal
    for_each_block({d0, d1, d2, d3, d4}, hassp, nelem, wi64.from(sp_base),
                   [&](Range elements, bool on_diagonal) {
                       if (on_diagonal) return;
                       for (int64_t e = elements.begin; e < elements.end; ++e) {
                           const int64_t end = ptr[e + 1];
                           for (int64_t t = ptr[e]; t < end; ++t) cof[t] *= scale;
                       }
                   });
}

/// Writes the programs, entry 0 of `codeptr` with them: each is the operand's times `scale`, or
/// times 1.0 on the diagonal, so that every term has two more atoms. Without code nothing is
/// written.
CLOSURE(544, void,
        (int cconst_base, int code_base, int codeptr_base, long long d0, long long d1, long long d2,
         long long d3, long long d4, bool hassp, int ncodeatom, int nelem, int ptr_base,
         int rcconst_base, int rcode_base, int rcodeptr_base, F64Out rf64, I32Out ri32,
         double scale, int sp_base, F64 wf64, I32 wi32, I64 wi64))
{
    if (ncodeatom == 0) return;
    const Operand<Stride> operand(wi32, {}, wf64, {ptr_base, 0, 0},
                                  {codeptr_base, code_base, cconst_base});
    Result<Stride> r(ri32, {}, rf64, {0, 0, 0}, {rcodeptr_base, rcode_base, rcconst_base});
    r.codeptr[0] = 0;
    for_each_block({d0, d1, d2, d3, d4}, hassp, nelem, wi64.from(sp_base),
                   [&](Range elements, bool on_diagonal) {
                       const double factor = on_diagonal ? 1.0 : scale;
                       for (int64_t e = elements.begin; e < elements.end; ++e) {
                           const int end = operand.ptr[e + 1];
                           for (r.nnzi = operand.ptr[e]; r.nnzi < end;) {
                               r.append_scaled_program(operand, r.nnzi, factor);
                               r.close_coded_term();
                           }
                       }
                   });
}

} // namespace fragments
