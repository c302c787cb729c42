// bucket_columns: the positions of a sparse operand by ascending column, ties in ascending
// position, by a stable counting sort. The operand is a list of linear indexes with `dim1` columns.
//
// The steps: `n` + 1 counters for `n` columns are zeroed, the positions counted one entry above
// their column, the counts summed up, so that counter c is where column c begins, and the positions
// placed, which leaves counter c at the column's end. 374 takes all of them for an expression; else
// there is a closure for each, 363 to 366 and 346 to 349 for an array of parameters, 338 to 341 for
// an expression.

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"

namespace fragments {

namespace {

template <class S>
auto column_of(I64<S> linear, int columns)
{
    return [=, row_of = RunningQuotient(columns)](int64_t k) mutable {
        return row_of.remainder(linear[k]);
    };
}

} // namespace

/// Groups the `nelem` elements of a sparse expression by column: all steps. Reads the number of
/// columns as the second extent of its shape, and writes as many counters and one more at
/// `xptr_base`, which are left as the ends of the columns, and the positions at `xperm_base`.
CLOSURE(374, void,
        (int nelem, int shape_base, int sp_base, I32 wi32, I64 wi64, I32Out xi32, int xperm_base,
         int xptr_base))
{
    const int dim1 = wi32[int64_t{shape_base} + 1];
    counting_sort(nelem, each_position, column_of(wi64.from(sp_base), dim1), dim1,
                  xi32.from(xptr_base), xi32.from(xperm_base));
}

/// Zeroes the `n` + 1 counters for `n` columns.
CLOSURE_AS(363, void, (int n, int pptr_base, I32Out xi32),
           fill_n(xi32.from(pptr_base), int64_t{n} + 1, 0))
CLOSURE_AS(346, void, (int n, int pptr_base, I32Out xi32),
           fill_n(xi32.from(pptr_base), int64_t{n} + 1, 0))
CLOSURE_AS(338, void, (int n, int pptr_base, I32Out xi32),
           fill_n(xi32.from(pptr_base), int64_t{n} + 1, 0))

/// Counts the first `n` linear indexes of an array of parameters with `dim1` columns: adds 1 to the
/// counter one entry above the column of each.
CLOSURE_AS(364, void, (int dim1, int n, int pptr_base, int psp_base, I32Out xi32, I64 xi64),
           count_keys(n, column_of(xi64.from(psp_base), dim1), xi32.from(pptr_base)))
CLOSURE_AS(347, void, (int dim1, int n, int pptr_base, int psp_base, I32Out xi32, I64 xi64),
           count_keys(n, column_of(xi64.from(psp_base), dim1), xi32.from(pptr_base)))

/// The same for the first `n` elements of a sparse expression.
CLOSURE_AS(339, void, (int dim1, int eptr_base, int n, int sp_base, I64 wi64, I32Out xi32),
           count_keys(n, column_of(wi64.from(sp_base), dim1), xi32.from(eptr_base)))

/// Sums up the counts of `n` columns, each into the entry above: counter c is then where column c
/// begins.
CLOSURE_AS(365, void, (int n, int pptr_base, I32Out xi32), running_sum(xi32.from(pptr_base), n))
CLOSURE_AS(340, void, (int n, int pptr_base, I32Out xi32), running_sum(xi32.from(pptr_base), n))

/// Sums up the counts of `n` columns but for the last entry: the start of the last column is the
/// last that placing needs.
CLOSURE_AS(348, void, (int n, int pptr_base, I32Out xi32),
           running_sum(xi32.from(pptr_base), int64_t{n} - 1))

/// Places the first `n` positions of an array of parameters with `dim1` columns by column: each
/// goes to the entry of `pperm_base` that its column's counter tells, which moves on by one.
CLOSURE_AS(366, void,
           (int dim1, int n, int pperm_base, int pptr_base, int psp_base, I32Out xi32, I64 xi64),
           place_by_key(n, each_position, column_of(xi64.from(psp_base), dim1),
                        xi32.from(pptr_base), xi32.from(pperm_base)))
CLOSURE_AS(349, void,
           (int dim1, int n, int pperm_base, int pptr_base, int psp_base, I32Out xi32, I64 xi64),
           place_by_key(n, each_position, column_of(xi64.from(psp_base), dim1),
                        xi32.from(pptr_base), xi32.from(pperm_base)))

/// The same for the first `n` elements of a sparse expression, to the entries of `eperm_base`.
CLOSURE_AS(341, void,
           (int dim1, int eperm_base, int eptr_base, int n, int sp_base, I64 wi64, I32Out xi32),
           place_by_key(n, each_position, column_of(wi64.from(sp_base), dim1), xi32.from(eptr_base),
                        xi32.from(eperm_base)))

} // namespace fragments
