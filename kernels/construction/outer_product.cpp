// outer_product: a constant vector `a` times a vector of variables or an expression, in the host's
// row-wise form: rows `ptrb` of `subj` and `cof`, a fixed term `bfix` for each row, and `inst`, the
// ascending linear indexes of the stored elements.
//
// `a` may be sparse: then it has fewer than `dim` entries, and `sub` holds their positions. The
// expression's arrays have the same names with e in front.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

/// `n` plus the number of extents above 1.
CLOSURE(581, int, (I32 eshape, int n))
{
    for (int64_t k = 0; k < eshape.length(); ++k) n += eshape[k] >= 2;
    return n;
}

/// The product with the variables 0 to `varsize` - 1: one term in each row, the variable outermost,
/// or the entry of `a` if `transposed`. Writes `inst` only for a sparse `a`, and `ptrb` from entry
/// 1 on.
CLOSURE(586, void,
        (F64 a, F64Out cof, int dim, I64Out inst, I64Out ptrb, I32 sub, I64Out subj,
         bool transposed, int varsize))
{
    const int64_t na = a.length();
    const bool sparse = na != dim;
    int64_t k = 0;
    const auto append = [&](int64_t i, int64_t j) {
        if (sparse) inst[k] = transposed ? int64_t{sub[j]} * varsize + i : i * dim + sub[j];
        subj[k] = i;
        cof[k] = a[j];
        ++k;
        ptrb[k] = k;
    };
    if (transposed) {
        for (int64_t j = 0; j < na; ++j)
            for (int64_t i = 0; i < varsize; ++i) append(i, j);
    } else {
        for (int64_t i = 0; i < varsize; ++i)
            for (int64_t j = 0; j < na; ++j) append(i, j);
    }
}

/// The product with an expression, entries of `a` outermost: rows `ia` * ne onward are the ne
/// elements times a[ia]. Writes the row starts for entry `ia`, behind ptrb[n], and the linear
/// indexes of these rows in place of the expression's in `einst`. Returns the next n.
///
/// As `einst` is overwritten, the host passes a copy of the expression's list, which lies where the
/// result's entries for `ia` go. The variable indexes of the rows are copies of the expression's.
CLOSURE(584, long long,
        (int dim, I64Out einst, I64 eptrb, int ia, long long n, I64Out ptrb, I32 sub))
{
    for (int64_t e = 0; e < einst.length(); ++e, ++n) {
        einst[e] = einst[e] * dim + sub[ia];
        ptrb[n + 1] = ptrb[n] + eptrb[e + 1] - eptrb[e];
    }
    return n;
}

/// The coefficients of these rows, from entry `t` on.
CLOSURE(583, void, (F64 a, F64Out cof, F64 ecof, int enz, int ia, long long t))
{
    for (int64_t i = 0; i < enz; ++i) cof[t + i] = ecof[i] * a[ia];
}

/// All fixed terms; `einst` only counts the elements. Without `bfix` nothing is written.
CLOSURE(585, void, (F64 a, F64Out bfix, F64 ebfix, I64 einst))
{
    if (!bfix.given()) return;
    const int64_t ne = einst.length();
    for (int64_t i = 0; i < a.length(); ++i)
        for (int64_t j = 0; j < ne; ++j) bfix[i * ne + j] = a[i] * ebfix[j];
}

/// The product with an expression, its elements outermost: row e * len(a) + j is element e times
/// a[j]. `subj` and `cof` are filled from entry 0 on, `ptrb` from entry 1 on, and `bfix` if given.
///
/// `einst` counts the elements and stays as it is; the result's linear indexes are not written. The
/// host forms that list before: entries j, j + len(a), j + 2 len(a), ... get a copy of `einst`, and
/// 584 for entry j of `a`, called on the strided view of them, turns them into the result's. What
/// 584 leaves in `ptrb` is overwritten here.
CLOSURE(582, void,
        (F64 a, F64Out bfix, F64Out cof, [[maybe_unused]] int dim, F64 ebfix, F64 ecof, I64 einst,
         I64 eptrb, I64 esubj, I64Out ptrb, [[maybe_unused]] I32 sub, I64Out subj))
{
    const int64_t ne = einst.length();
    const int64_t na = a.length();
    int64_t k = 0;
    int64_t t = 0;
    for (int64_t e = 0; e < ne; ++e) {
        for (int64_t j = 0; j < na; ++j, ++k) {
            ptrb[k + 1] = ptrb[k] + eptrb[e + 1] - eptrb[e];
            for (int64_t q = eptrb[e]; q < eptrb[e + 1]; ++q, ++t) {
                subj[t] = esubj[q];
                cof[t] = ecof[q] * a[j];
            }
        }
    }
    if (!bfix.given()) return;
    for (int64_t e = 0; e < ne; ++e)
        for (int64_t j = 0; j < na; ++j) bfix[e * na + j] = a[j] * ebfix[e];
}

} // namespace fragments
