// New expressions from data that the host holds: unit coefficients (500), a sparse matrix (499), a
// vector of constants (400 to 403); and the tests of such data.

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"
#include "subscripts.h"
#include "triplet_matrix.h"

namespace fragments {

/// The shape of an expression, from one stack to another.
CLOSURE_AS(501, void, (I32Out ri32, int rnd, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), rnd, ri32.from(rshape_base)))

/// push_unit_terms: one term of coefficient 1.0 in each element. The variable indexes are the
/// host's to write.
CLOSURE(500, void,
        (int cof_base, F64Out f64, I32Out i32, int nd, int nelem, int nnz, int ptr_base,
         int rshape_base, I32 shape))
{
    copy_n(shape, nd, i32.from(rshape_base));
    iota_n(i32.from(ptr_base), int64_t{nelem} + 1);
    fill_n(f64.from(cof_base), nnz, 1.0);
}

/// push_sparse_matrix: one term for each entry, all with the index `varidx`. The shape is the
/// host's to write.
CLOSURE(499, void,
        (int cof_base, F64Out f64, bool hassp, I32Out i32, I64Out i64, F64 mcof, int md1, I32 msubi,
         I32 msubj, int nelem, int nidxs_base, int nnz, int ptr_base, int sp_base,
         long long varidx))
{
    copy_n(mcof, nnz, f64.from(cof_base));
    fill_n(i64.from(nidxs_base), nnz, varidx);
    const auto sp = i64.from(sp_base);
    for (int64_t k = 0; hassp && k < nelem; ++k) sp[k] = msubi[k] * md1 + msubj[k];
    iota_n(i32.from(ptr_base), int64_t{nelem} + 1);
}

/// Tests of a matrix with as many entries as `msubi` has: whether the order is broken (498), an
/// index out of range (497), neither of the two (496). A flag that tells of a fault stays.
CLOSURE_AS(498, bool, (bool badorder, I32 msubi, I32 msubj),
           badorder || has_bad_order(msubi.length(), msubi, msubj))
CLOSURE_AS(497, bool, (bool badidx, int md0, int md1, I32 msubi, I32 msubj),
           badidx || has_bad_index(md0, md1, msubi.length(), msubi, msubj))
CLOSURE_AS(496, bool, (int md0, int md1, I32 msubi, I32 msubj, bool valid),
           valid && !has_bad_index(md0, md1, msubi.length(), msubi, msubj) &&
               !has_bad_order(msubi.length(), msubi, msubj))

/// Whether some linear index lies outside a shape of `total` positions.
CLOSURE_AS(404, bool, (bool badidx, I64 sparsity, long long total),
           badidx || has_bad_index(total, sparsity, sparsity.length()))

/// Sizes a constant vector: `count` plus the entries that aren't 0.0. A NaN counts.
CLOSURE(400, int, (F64 bfix, int count))
{
    for (int64_t i = 0; i < bfix.length(); ++i) count += bfix[i] != 0.0;
    return count;
}

/// The shape, from an array of the host's own.
CLOSURE_AS(401, void, (int nd, I32Out ri32, int rshape_base, I32 shape),
           copy_n(shape, nd, ri32.from(rshape_base)))

/// Elements of a constant vector: each has one term with index 0, or none if its value is 0 (also
/// -0). Returns `nnzi`.
CLOSURE(403, int,
        (F64 bfix, int nelem, int nnzi, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rnidxs_base, int rptr_base))
{
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base}, {}, {0, 0, nnzi});
    for (int64_t i = 0; i < nelem; ++i) {
        if (bfix[i] != 0.0) r.append_term(0, bfix[i]);
        r.close_element();
    }
    return r.nnzi;
}

/// Linear indexes of a sparse constant vector.
CLOSURE(402, void, (bool hassp, int nelem, I64Out ri64, int rsp_base, I64 sparsity))
{
    if (hassp) copy_n(sparsity, nelem, ri64.from(rsp_base));
}

} // namespace fragments
