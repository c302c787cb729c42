// sum_axis: removes dimension `dim` of an expression by adding up its elements along it.
//
// The operand is read as a three-dimensional array d0 x d1 x d2: d1 is the extent of `dim`, d0 and
// d2 are the products of the extents before and behind it, and `slab` is d1 * d2. Result element
// (a, b), with linear index a * d2 + b, gets all terms of the elements (a, c, b), in ascending c,
// and their programs, unchanged; none are merged.
//
// A dense operand is walked directly (537). The elements of a sparse one are first put in the order
// of (a, b) and then c by an LSD radix sort of their places (525, 526); each run of equal (a, b) is
// then a result element, counted by 529 and written by 532.

#include <utility>

#include "algorithms.h"
#include "closure_frame.h"
#include "division.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// The result element that an element of the operand goes to.
struct Target
{
    int64_t a;
    int64_t b;

    bool operator==(const Target&) const = default;
};

/// The targets of a sparse operand's elements, in the order of the sorted places.
template <class S>
struct Targets
{
    I64<S> sp;
    I32<S> perm;
    int64_t slab;
    int64_t d0;
    int64_t d2;

    Target operator[](int64_t t) const
    {
        const int64_t linear = sp[perm[t]];
        return {remainder(quotient(linear, slab), d0), remainder(linear, d2)};
    }
};

} // namespace

/// `d0` times the extents before dimension `dim`, in 32 bits.
CLOSURE_AS(527, int, (int d0, int dim, int shape_base, I32 wi32),
           product(d0, wi32.from(shape_base), dim))
CLOSURE_AS(533, int, (int d0, int dim, int shape_base, I32 wi32),
           product(d0, wi32.from(shape_base), dim))

/// `d2` times the extents behind dimension `dim`, in 32 bits.
CLOSURE_AS(528, int, (int d2, int dim, int nd, int shape_base, I32 wi32),
           product_behind(d2, wi32.from(shape_base), dim, nd))
CLOSURE_AS(534, int, (int d2, int dim, int nd, int shape_base, I32 wi32),
           product_behind(d2, wi32.from(shape_base), dim, nd))

/// The extents before dimension `dim` to the result's shape.
CLOSURE_AS(530, void, (int dim, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), dim, ri32.from(rshape_base)))
CLOSURE_AS(535, void, (int dim, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_n(wi32.from(shape_base), dim, ri32.from(rshape_base)))

/// The extents behind dimension `dim` to the result's shape, each one place further in front.
CLOSURE_AS(531, void, (int dim, int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_behind(dim, nd, wi32.from(shape_base), -1, ri32.from(rshape_base)))
CLOSURE_AS(536, void, (int dim, int nd, I32Out ri32, int rshape_base, int shape_base, I32 wi32),
           copy_behind(dim, nd, wi32.from(shape_base), -1, ri32.from(rshape_base)))

/// Writes the sum of a dense operand; element (a, c, b) is st0 * a + st1 * c + b. `j` elements and
/// `m` terms stand in the result already. Returns (codei, j, m).
CLOSURE(537, results(int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d0, int d1,
         int d2, int j, int m, int nidxs_base, int ptr_base, int rcconst_base, int rcode_base,
         int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom,
         int rnidxs_base, int rptr_base, int st0, int st1, F64 wf64, I32 wi32, I64 wi64))
{
    const auto e = STACKED_OPERAND();
    auto r = STACKED_RESULT(codei, j, m);
    // Neighbours along the last dimension are copied as one block.
    const int64_t block = st1 == 1 ? d1 : 1;
    for (int64_t a = 0; a < d0; ++a) {
        for (int64_t b = 0; b < d2; ++b) {
            for (int64_t c = 0; c < d1; c += block)
                r.append(e, st1 * c + st0 * a + b, rncodeatom > 0, block);
            r.close_element();
        }
    }
    return {r.codei, r.elmi, r.nnzi};
}

/// The largest of `maxd` and the extents: the counters of 526 take one entry more.
CLOSURE_AS(524, int, (int maxd, int nd, int shape_base, I32 wi32),
           greatest(maxd, wi32.from(shape_base), nd))

/// The identity permutation.
CLOSURE_AS(525, void, (int curperm_base, int nelem, I32Out xi32),
           iota_n(xi32.from(curperm_base), nelem))

/// Sorts the places of the elements by all subscripts but that of `dim`, row-major: a stable
/// counting pass for each dimension, last one first, from one permutation to the other. `counter`
/// at `radix_base` has room for the largest extent and one more. Nothing to do for the last
/// dimension. Returns (curperm_base, tmpperm_base), the sorted permutation's position first.
CLOSURE(526, results(int, int),
        (int curperm_base, int dim, int nd, int nelem, int radix_base, int shape_base, int sp_base,
         int tmpperm_base, I32 wi32, I64 wi64, I32Out xi32))
{
    if (dim >= nd - 1) return {curperm_base, tmpperm_base};
    const auto shape = wi32.from(shape_base);
    const auto sp = wi64.from(sp_base);
    uint64_t stride = 1;
    for (int axis = nd - 1; axis >= 0; --axis) {
        const auto extent = static_cast<uint64_t>(int64_t{shape[axis]});
        if (axis != dim) {
            const auto digit = [&](int64_t p) {
                const auto linear = static_cast<uint64_t>(sp[p]);
                return static_cast<int64_t>(remainder(quotient(linear, stride), extent));
            };
            radix_pass(xi32.from(curperm_base), nelem, digit, shape[axis], xi32.from(radix_base),
                       xi32.from(tmpperm_base));
            std::swap(curperm_base, tmpperm_base);
        }
        stride *= extent;
    }
    return {curperm_base, tmpperm_base};
}

/// Counts the result elements of the sorted places: each change of target adds 1 to `rnelem`, from
/// the target (prev0, prev2) on. Returns (prev0, prev2, rnelem), with the last target.
CLOSURE(529, results(long long, long long, int),
        (int curperm_base, int d0, int d2, int nelem, long long prev0, long long prev2, int rnelem,
         int slab, int sp_base, I64 wi64, I32 xi32))
{
    const Targets<Stride> targets{wi64.from(sp_base), xi32.from(curperm_base), slab, d0, d2};
    Target previous{prev0, prev2};
    for (int64_t t = 0; t < nelem; ++t) {
        const Target target = targets[t];
        if (target != previous) ++rnelem;
        previous = target;
    }
    return {previous.a, previous.b, rnelem};
}

/// Writes the sum of a sparse operand from the sorted places, from place `i` on, `sp` included. `j`
/// elements and `m` terms stand in the result already. Returns (codei, i, j, m).
CLOSURE(532, results(int, int, int, int),
        (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base,
         int curperm_base, int d0, int d2, int i, int j, int m, int nelem, int nidxs_base,
         int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
         F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base,
         int rsp_base, int slab, int sp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32))
{
    const auto e = STACKED_OPERAND();
    auto r = SPARSE_RESULT(codei, j, m);
    const auto perm = xi32.from(curperm_base);
    const Targets<Stride> targets{wi64.from(sp_base), perm, slab, d0, d2};
    const int64_t end = for_each_run(
        i, nelem, [&](int64_t t) { return targets[t]; },
        [&](const Target& target, Range run) {
            for_each_run(
                run.begin, run.end, [&](int64_t t) { return perm[t] - t; },
                [&](int64_t, Range block) {
                    r.append(e, perm[block.begin], rncodeatom > 0, block.end - block.begin);
                });
            r.close_element(target.a * d2 + target.b);
        });
    return {r.codei, static_cast<int>(end), r.elmi, r.nnzi};
}

} // namespace fragments
