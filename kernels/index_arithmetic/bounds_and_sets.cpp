// Bounds of a matrix, given as two lists of triplets or as two dense tables, in one form: a list of
// positions with a lower and an upper value at each. The lists ascend strictly by row and then
// column. And sets of integers.

#include "algorithms.h"
#include "closure_frame.h"
#include "subscripts.h"
#include "triplet_matrix.h"

namespace fragments {

namespace {

constexpr int64_t no_entry = -1;

/// Positions as parallel lists of rows and columns.
template <class S>
struct Positions
{
    I32<S> rows;
    I32<S> columns;

    int64_t length() const { return rows.length(); }
};

/// Whether position `a` of one list comes before position `b` of the other.
template <class S>
bool comes_before(Positions<S> one, int64_t a, Positions<S> other, int64_t b)
{
    if (one.rows[a] != other.rows[b]) return one.rows[a] < other.rows[b];
    return one.columns[a] < other.columns[b];
}

/// Calls `position(a, b)` for each position of two lists, in ascending order, with its places in
/// them, or no_entry.
template <class S, class Position>
void merge_positions(Positions<S> lower, Positions<S> upper, Position position)
{
    int64_t a = 0;
    int64_t b = 0;
    while (a < lower.length() && b < upper.length()) {
        if (comes_before(lower, a, upper, b))
            position(a++, no_entry);
        else if (comes_before(upper, b, lower, a))
            position(no_entry, b++);
        else
            position(a++, b++);
    }
    while (a < lower.length()) position(a++, no_entry);
    while (b < upper.length()) position(no_entry, b++);
}

} // namespace

/// Sizes the merged bounds: `nunion` plus the number of distinct positions in the two lists, each
/// of which ascends strictly by row and then column.
CLOSURE(282, long long, (I32 lsubi, I32 lsubj, long long nunion, I32 usubi, I32 usubj))
{
    merge_positions(Positions<Stride>{lsubi, lsubj}, Positions<Stride>{usubi, usubj},
                    [&](int64_t, int64_t) { ++nunion; });
    return nunion;
}

/// Writes the merged bounds in ascending order: a position, row and column, in each row of `inst`,
/// and its lower and upper values in `lbv` and `ubv`, 0.0 at a side without an entry. Both lists
/// ascend strictly by row and then column.
CLOSURE(283, void,
        (I32MatrixOut inst, F64Out lbv, I32 lsubi, I32 lsubj, F64 lval, F64Out ubv, I32 usubi,
         I32 usubj, F64 uval))
{
    int64_t k = 0;
    merge_positions(Positions<Stride>{lsubi, lsubj}, Positions<Stride>{usubi, usubj},
                    [&](int64_t a, int64_t b) {
                        inst(k, 0) = a != no_entry ? lsubi[a] : usubi[b];
                        inst(k, 1) = a != no_entry ? lsubj[a] : usubj[b];
                        lbv[k] = a != no_entry ? lval[a] : 0.0;
                        ubv[k] = b != no_entry ? uval[b] : 0.0;
                        ++k;
                    });
}

/// Scatters triplets (subi[k], subj[k], v[k]) into a row-major array of `n` columns; the length of
/// `subi` counts, and all other entries stay.
CLOSURE_AS(284, void, (int n, F64Out lval, I32 subi, I32 subj, F64 v),
           scatter_triplets(subi.length(), subi, subj, v, n, lval))
CLOSURE_AS(285, void, (int n, I32 subi, I32 subj, F64Out uval, F64 v),
           scatter_triplets(subi.length(), subi, subj, v, n, uval))

/// Dense lower and upper bounds, of `dim0` rows and `dim1` columns, row by row into `lval` and
/// `uval`, from slot `dstpos` on. Returns the slot behind the last.
CLOSURE(286, int,
        (int dim0, int dim1, int dstpos, F64Matrix lb, F64Out lval, F64Matrix ub, F64Out uval))
{
    const int end = dstpos + dim0 * dim1;
    if (is_empty(dim0, dim1)) return end;
    int64_t slot = dstpos;
    for (int64_t i = 0; i < dim0; ++i)
        for (int64_t j = 0; j < dim1; ++j, ++slot) {
            lval[slot] = lb(i, j);
            uval[slot] = ub(i, j);
        }
    return end;
}

/// Positions as the first two columns of the table `inst`; the length of `msubi` counts.
CLOSURE(287, void, (I32MatrixOut inst, I32 msubi, I32 msubj))
{
    for (int64_t k = 0; k < msubi.length(); ++k) {
        inst(k, 0) = msubi[k];
        inst(k, 1) = msubj[k];
    }
}

/// Copies the set `set1` to the start of `r`.
CLOSURE_AS(274, void, (I32Out r, I32 set1), copy_n(set1, set1.length(), r))

/// Concatenates two sets from the start of `r` on; common members are not looked for.
CLOSURE(275, void, (I32Out r, I32 set1, I32 set2))
{
    copy_n(set1, set1.length(), r);
    copy_n(set2, set2.length(), r.from(set1.length()));
}

} // namespace fragments
