// New expressions from data that the host holds, and tests of such data:
//   push_unit_terms       unit coefficients
//   push_sparse_matrix    a sparse matrix, one term for each entry
//   push_constant_vector  a vector of constants, zeros as elements without terms
//
// 500 is push_unit_terms; 498 and 497, or 496, test and 499 writes for push_sparse_matrix. For
// push_constant_vector 404 tests, and 403 and 402 write what has been sized with the closures that
// prepare constant vectors beside the products with parameters. 501 copies the shape.

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"
#include "subscripts.h"
#include "triplet_matrix.h"

namespace fragments {

/// Copies the `rnd` extents of a shape from the w to the r stack.
CLOSURE_AS(501, void, (I32Out ri32, int rnd, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), rnd, ri32.from(rshape_base)))

/// Writes an expression of `nelem` elements with one term of coefficient 1.0 each: `nd` extents of
/// the shape, `ptr` and `nnz` coefficients. The variable indexes are the host's to write.
CLOSURE(500, void,
        (int cof_base, F64Out f64, I32Out i32, int nd, int nelem, int nnz, int ptr_base,
         int rshape_base, I32 shape))
{
    copy_n(shape, nd, i32.from(rshape_base));
    iota_n(i32.from(ptr_base), int64_t{nelem} + 1);
    fill_n(f64.from(cof_base), nnz, 1.0);
}

/// Tests a sparse matrix with as many entries as `msubi`: whether some entry doesn't come strictly
/// behind the one before it, by row and then column, or `badorder` came in true.
CLOSURE_AS(498, bool, (bool badorder, I32 msubi, I32 msubj),
           badorder || has_bad_order(msubi.length(), msubi, msubj))

/// Tests a sparse matrix with as many entries as `msubi`: whether some row is negative or not below
/// `md0`, or some column negative or not below `md1`, or `badidx` came in true.
CLOSURE_AS(497, bool, (bool badidx, int md0, int md1, I32 msubi, I32 msubj),
           badidx || has_bad_entry(md0, md1, msubi.length(), msubi, msubj))

/// Tests a sparse matrix with as many entries as `msubi` for both: whether all rows and columns are
/// in range and all entries in order, and `valid` came in true.
CLOSURE_AS(496, bool, (int md0, int md1, I32 msubi, I32 msubj, bool valid),
           valid && !has_bad_entry(md0, md1, msubi.length(), msubi, msubj) &&
               !has_bad_order(msubi.length(), msubi, msubj))

/// Writes a sparse matrix with `md1` columns as an expression with one term for each of `nnz`
/// entries, all with the variable index `varidx`: coefficients, variable indexes, `sp` of `nelem`
/// elements if `hassp`, and `ptr`. The shape is the host's to write.
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

/// Whether some linear index of `sparsity` is negative or not below `total`, or `badidx` came in
/// true. The order isn't tested.
CLOSURE_AS(404, bool, (bool badidx, I64 sparsity, long long total),
           badidx || has_bad_index(total, sparsity, sparsity.length()))

/// Writes the `nelem` elements of a constant vector: each has one term with variable index 0 and
/// its value as coefficient, or none if the value equals 0.0; a NaN has one. Writes `ptr` but for
/// entry 0. Returns `nnzi`, the number of terms written so far.
CLOSURE(403, int,
        (F64 bfix, int nelem, int nnzi, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
         int rnidxs_base, int rptr_base))
{
    Result<Stride> r(ri32, ri64, rf64, {rptr_base, rnidxs_base, rcof_base}, {}, {.nnzi = nnzi});
    for (int64_t i = 0; i < nelem; ++i) {
        if (bfix[i] != 0.0) r.append_term(0, bfix[i]);
        r.close_element();
    }
    return r.nnzi;
}

/// Copies the `nelem` linear indexes of a sparse vector (`hassp`) to the r stack.
CLOSURE(402, void, (bool hassp, int nelem, I64Out ri64, int rsp_base, I64 sparsity))
{
    if (hassp) copy_n(sparsity, nelem, ri64.from(rsp_base));
}

} // namespace fragments
