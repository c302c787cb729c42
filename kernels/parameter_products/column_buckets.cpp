// bucket_columns: the positions of a sparse operand by ascending column, ties in ascending
// position, by a stable counting sort. The operand is a list of linear indexes with `dim1` columns.
//
// The steps: `n` + 1 counters for `n` columns are zeroed, the positions counted one entry above
// their column, the counts summed up, so that counter c is where column c begins, and the positions
// placed, which leaves counter c at the column's end.

#include "algorithms.h"
#include "closure_frame.h"

namespace fragments {

namespace {

template <class S>
auto column_of(I64<S> linear, int columns)
{
    return [=](int64_t k) { return linear[k] % columns; };
}

} // namespace

/// All steps for E, whose columns are the second extent of its shape.
CLOSURE(374, void,
        (int nelem, int shape_base, int sp_base, I32 wi32, I64 wi64, I32Out xi32, int xperm_base,
         int xptr_base))
{
    const int dim1 = wi32[int64_t{shape_base} + 1];
    counting_sort(nelem, each_position, column_of(wi64.from(sp_base), dim1), dim1,
                  xi32.from(xptr_base), xi32.from(xperm_base));
}

// One step each: 363 to 366 and 346 to 349 for P, 338 to 341 for E.

CLOSURE_AS(363, void, (int n, int pptr_base, I32Out xi32),
           fill_n(xi32.from(pptr_base), int64_t{n} + 1, 0))
CLOSURE_AS(346, void, (int n, int pptr_base, I32Out xi32),
           fill_n(xi32.from(pptr_base), int64_t{n} + 1, 0))
CLOSURE_AS(338, void, (int n, int pptr_base, I32Out xi32),
           fill_n(xi32.from(pptr_base), int64_t{n} + 1, 0))

CLOSURE_AS(364, void, (int dim1, int n, int pptr_base, int psp_base, I32Out xi32, I64 xi64),
           count_keys(n, column_of(xi64.from(psp_base), dim1), xi32.from(pptr_base)))
CLOSURE_AS(347, void, (int dim1, int n, int pptr_base, int psp_base, I32Out xi32, I64 xi64),
           count_keys(n, column_of(xi64.from(psp_base), dim1), xi32.from(pptr_base)))
CLOSURE_AS(339, void, (int dim1, int eptr_base, int n, int sp_base, I64 wi64, I32Out xi32),
           count_keys(n, column_of(wi64.from(sp_base), dim1), xi32.from(eptr_base)))

CLOSURE_AS(365, void, (int n, int pptr_base, I32Out xi32), running_sum(xi32.from(pptr_base), n))
CLOSURE_AS(340, void, (int n, int pptr_base, I32Out xi32), running_sum(xi32.from(pptr_base), n))
/// One step shorter: the start of the last column is the last that placing needs.
CLOSURE_AS(348, void, (int n, int pptr_base, I32Out xi32),
           running_sum(xi32.from(pptr_base), int64_t{n} - 1))

CLOSURE_AS(366, void,
           (int dim1, int n, int pperm_base, int pptr_base, int psp_base, I32Out xi32, I64 xi64),
           place_by_key(n, each_position, column_of(xi64.from(psp_base), dim1),
                        xi32.from(pptr_base), xi32.from(pperm_base)))
CLOSURE_AS(349, void,
           (int dim1, int n, int pperm_base, int pptr_base, int psp_base, I32Out xi32, I64 xi64),
           place_by_key(n, each_position, column_of(xi64.from(psp_base), dim1),
                        xi32.from(pptr_base), xi32.from(pperm_base)))
CLOSURE_AS(341, void,
           (int dim1, int eperm_base, int eptr_base, int n, int sp_base, I64 wi64, I32Out xi32),
           place_by_key(n, each_position, column_of(wi64.from(sp_base), dim1), xi32.from(eptr_base),
                        xi32.from(eperm_base)))

} // namespace fragments
