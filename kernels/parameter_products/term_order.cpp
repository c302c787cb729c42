// sort_terms, merge_terms: the terms of each element in ascending order of variable index, and
// those of one variable merged.
//
// Operators concatenate terms as they come. 394 and 393 test whether an expression needs tidying;
// 390 and 391, or 392, sort, into a permutation: perm[p] is the term that stands at sorted place p.
// Places and terms of an element share its range of `ptr`. 396 and 399 walk that order by runs of
// equal variable index and size and write one term for each run. Elements stay, also empty ones.

#include <algorithm>
#include <bit>
#include <numeric>
#include <utility>

#include "algorithms.h"
#include "closure_frame.h"
#include "stacked_expression.h"

namespace fragments {

namespace {

/// Merges the ascending runs from `left` and from `mid` up to `end` of `from` into the same places
/// of `to`. Of equal keys those of the left run come first.
template <class S>
void merge_runs(I64<S> key, I32<S> from, int64_t left, int64_t mid, int64_t end, I32Out<S> to)
{
    if (mid == end || key[from[mid - 1]] <= key[from[mid]]) {
        copy_n(from.from(left), end - left, to.from(left)); // in order already
        return;
    }
    int64_t a = left;
    int64_t b = mid;
    int64_t k = left;
    while (a < mid && b < end) to[k++] = key[from[b]] < key[from[a]] ? from[b++] : from[a++];
    copy_n(from.from(a), mid - a, to.from(k));
    copy_n(from.from(b), end - b, to.from(k + mid - a));
}

/// Stable bottom-up merge sort of the n positions in `from` by key, with `to` as the other buffer.
/// Returns the buffer that holds the sorted positions; the other is left as the pass before the
/// last wrote it.
template <class S>
I32<S> merge_sort(I64<S> key, int64_t n, I32Out<S> from, I32Out<S> to)
{
    for (int64_t width = 1; width < n; width *= 2) {
        for (int64_t left = 0; left < n; left += 2 * width)
            merge_runs(key, from, left, std::min(left + width, n), std::min(left + 2 * width, n),
                       to);
        std::swap(from, to);
    }
    return from;
}

/// Stable LSD radix sort of the `n` positions at the front of `work`, of 2n entries, by the low
/// `bits` bits of key(position): calls `sorted(k, position)` for each place k, not in their order.
template <class Key, class S, class Sorted>
void radix_sort(Key key, int bits, int64_t n, I32Out<S> work, Sorted sorted)
{
    constexpr int digit_bits = 8;
    constexpr int digits = 1 << digit_bits;
    const int last = std::max(0, bits - 1) / digit_bits; // of the passes
    const auto digit = [&](int64_t position, int pass) {
        return key(position) >> (pass * digit_bits) & (digits - 1);
    };
    int32_t next[64 / digit_bits][digits];
    for (int pass = 0; pass <= last; ++pass) std::fill_n(next[pass], digits, 0);
    for (int64_t k = 0; k < n; ++k)
        for (int pass = 0; pass <= last; ++pass) ++next[pass][digit(work[k], pass)];
    for (int pass = 0; pass <= last; ++pass)
        std::exclusive_scan(next[pass], next[pass] + digits, next[pass], 0);

    auto from = work;
    auto to = work.from(n);
    for (int pass = 0; pass < last; ++pass) {
        for (int64_t k = 0; k < n; ++k) to[next[pass][digit(from[k], pass)]++] = from[k];
        std::swap(from, to);
    }
    for (int64_t k = 0; k < n; ++k) sorted(next[last][digit(from[k], last)]++, from[k]);
}

/// Number of keys that are sorted at once, as they stay in the cache.
constexpr int64_t near_keys = 8192;

/// radix_sort of the positions 0 to `n` - 1, of which there are many, to `perm`: they are parted by
/// their highest bits, and the parts, which mostly are small, sorted with their keys beside them.
template <class Key, class S>
void radix_sort_parts(Key key, int bits, int64_t n, I32Out<S> perm, I32Out<S> work)
{
    constexpr int most = 12;
    const int size_bits = static_cast<int>(std::bit_width(static_cast<uint64_t>(n)));
    const int high = std::min({bits, size_bits - most, most}); // for parts of some 4096 keys
    const int low = bits - high;
    const auto part_of = [&](int64_t t) { return key(t) >> low & ((1 << high) - 1); };
    int32_t ends[1 << most];
    std::fill_n(ends, 1 << high, 0);
    for (int64_t t = 0; t < n; ++t) ++ends[part_of(t)];
    std::exclusive_scan(ends, ends + (1 << high), ends, 0);
    for (int64_t t = 0; t < n; ++t) perm[ends[part_of(t)]++] = static_cast<int32_t>(t);

    uint64_t keys[near_keys];
    int64_t begin = 0;
    for (int part = 0; part < 1 << high; ++part) {
        const auto places = perm.from(begin);
        const int64_t count = ends[part] - begin;
        begin = ends[part];
        if (count > near_keys || 3 * count > 2 * n) {
            copy_n(I32<S>(places), count, work);
            radix_sort(key, low, count, work,
                       [&](int64_t k, int32_t position) { places[k] = position; });
            continue;
        }
        const auto positions = work.from(2 * count);
        for (int64_t k = 0; k < count; ++k) keys[k] = key(positions[k] = places[k]);
        iota_n(work, count);
        radix_sort([&](int64_t k) { return keys[k]; }, low, count, work,
                   [&](int64_t k, int32_t place) { places[k] = positions[place]; });
    }
}

/// `work` as merge_sort leaves it once `perm` has the sorted positions 0 to `n` - 1: these in the
/// buffer of the last pass, and in the other the two runs that it has merged.
template <class S>
void leave_as_merged(int64_t n, I32<S> perm, I32Out<S> work)
{
    const auto passes = std::bit_width(static_cast<uint64_t>(n - 1));
    const int64_t width = int64_t{1} << (passes - 1);
    const auto last = work.from(passes % 2 == 1 ? n : 0);
    const auto before = work.from(passes % 2 == 1 ? 0 : n);
    int64_t left = 0;
    for (int64_t k = 0; k < n; ++k) {
        const int32_t t = perm[k];
        last[k] = t;
        before[t < width ? left : width + k - left] = t;
        left += t < width;
    }
}

/// Sorts the n terms of an element by key, stable: `perm` gets their positions, counted from
/// `first` on. `work` is scratch of 2n entries.
template <class S>
void sort_element(I64<S> key, int64_t n, int64_t first, I32Out<S> perm, I32Out<S> work)
{
    if (n < 1) return;
    const auto begin = static_cast<int32_t>(first);
    if (n < 3) {
        const bool swapped = n == 2 && key[1] < key[0];
        perm[0] = begin + swapped;
        if (n == 2) perm[1] = begin + !swapped;
        return;
    }
    int64_t lowest = key[0];
    int64_t highest = key[0];
    for (int64_t t = 1; t < n; ++t) {
        lowest = std::min(lowest, key[t]);
        highest = std::max(highest, key[t]);
    }
    const uint64_t span = static_cast<uint64_t>(highest) - static_cast<uint64_t>(lowest);
    if (span < static_cast<uint64_t>(n)) {
        const auto digit = [&](int64_t t) { return key[t] - lowest; };
        const auto digits = static_cast<int64_t>(span) + 1;
        fill_n(work, digits + 1, 0);
        count_keys(n, digit, work);
        running_sum(work, digits);
        place_by_key(
            n, [&](int64_t t) { return first + t; }, [&](int64_t p) { return digit(p - first); },
            work, perm);
        return;
    }
    const int bits = static_cast<int>(std::bit_width(span));
    if (n > 8 * bits) { // the counters of a pass pay from 64 terms on
        const auto distance = [&](int64_t t) {
            return static_cast<uint64_t>(key[t]) - static_cast<uint64_t>(lowest);
        };
        if (n > near_keys) {
            radix_sort_parts(distance, bits, n, perm, work);
        } else {
            iota_n(work, n);
            radix_sort(distance, bits, n, work, [&](int64_t k, int32_t t) { perm[k] = t; });
        }
        leave_as_merged(n, perm, work);
        for (int64_t k = 0; k < n; ++k) perm[k] += begin;
        return;
    }
    iota_n(work, n);
    const auto sorted = merge_sort(key, n, work, work.from(n));
    for (int64_t k = 0; k < n; ++k) perm[k] = sorted[k] + begin;
}

/// Walks the sorted terms of each element: `run(nidx, places)` for each run of equal variable
/// index, then `close()`, also for an element without terms.
template <class S, class Run, class Close>
void walk_runs(int nelem, const Operand<S>& e, I32<S> perm, Run run, Close close)
{
    const auto nidx = [&](int64_t p) { return e.nidxs[perm[p]]; };
    for (int64_t q = 0; q < nelem; ++q) {
        for_each_run(e.ptr[q], e.ptr[q + 1], nidx, run);
        close();
    }
}

/// A run without code stays unless all of its coefficients are 0, whatever their sum.
template <class S>
bool has_nonzero(F64<S> cof, I32<S> perm, Range places)
{
    for (int64_t p = places.begin; p < places.end; ++p)
        if (cof[perm[p]] != 0.0) return true;
    return false;
}

} // namespace

/// Whether `ok` came in true and none of `nnz` terms is a hidden zero: without code (`ncodeatom`
/// not above 0), none has coefficient 0.0; with code, none has coefficient 0.0 and a program that
/// only pushes a constant other than 0.0.
CLOSURE(394, bool,
        (int cconst_base, int code_base, int codeptr_base, int cof_base, bool ok, int ncodeatom,
         int nnz, F64 wf64, I32 wi32))
{
    const auto cof = wf64.from(cof_base);
    if (ncodeatom <= 0) {
        for (int64_t t = 0; ok && t < nnz; ++t) ok = cof[t] != 0.0;
        return ok;
    }
    const auto codeptr = wi32.from(codeptr_base);
    const auto code = wi32.from(code_base);
    const auto cconst = wf64.from(cconst_base);
    const auto is_constant = [&](int64_t t) {
        const int64_t a = codeptr[t];
        return codeptr[t + 1] - a == 1 && code[a] == op_const && cconst[a] != 0.0;
    };
    for (int64_t t = 0; ok && t < nnz; ++t) ok = cof[t] != 0.0 || !is_constant(t);
    return ok;
}

/// Whether `ok` came in true and the variable indexes of each of `nelem` elements ascend strictly.
CLOSURE(393, bool, (bool ok, int nelem, int nidxs_base, int ptr_base, I32 wi32, I64 wi64))
{
    const Operand<Stride> e(wi32, wi64, {}, {.ptr = ptr_base, .nidxs = nidxs_base});
    for (int64_t q = 0; ok && q < nelem; ++q)
        ok = strictly_ascending(ok, e.nidxs.from(e.ptr[q]), e.terms(q));
    return ok;
}

/// Number of terms of the longest of `nelem` elements, or `maxlen` if that is larger.
CLOSURE(390, int, (int maxlen, int nelem, int ptr_base, I32 wi32))
{
    const Operand<Stride> e(wi32, {.ptr = ptr_base});
    for (int64_t q = 0; q < nelem; ++q) maxlen = std::max(maxlen, e.terms(q));
    return maxlen;
}

/// Sorts the terms of each of `nelem` elements by variable index, stable: writes their positions in
/// sorted order to the element's range of places at `perm_base`. Elements of 1 or 2 terms are
/// sorted directly, those whose indexes span less than their number of terms by counting, others of
/// many terms by their digits, and of few by merging. The scratch at `work_base` is as long as two
/// copies of the longest element, and at least 1 more than one.
CLOSURE(391, void,
        (int nelem, int nidxs_base, int perm_base, int ptr_base, I32 wi32, I64 wi64, int work_base,
         I32Out xi32))
{
    const Operand<Stride> e(wi32, wi64, {}, {.ptr = ptr_base, .nidxs = nidxs_base});
    const auto perm = xi32.from(perm_base);
    const auto work = xi32.from(work_base);
    for (int64_t q = 0; q < nelem; ++q) {
        const int64_t first = e.ptr[q];
        sort_element(e.nidxs.from(first), e.terms(q), first, perm.from(first), work);
    }
}

/// Sorts the terms of each of `nelem` elements by variable index, stable, by merging alone, in O(n
/// log n) for an element of n terms: writes the `nnz` positions in sorted order to `perm_base`. The
/// scratch at `permx_base` is as long.
CLOSURE(392, void,
        (int nelem, int nidxs_base, int nnz, int perm_base, int permx_base, int ptr_base,
         I32Out wi32, I64 wi64))
{
    const Operand<Stride> e(wi32, wi64, {}, {.ptr = ptr_base, .nidxs = nidxs_base});
    iota_n(wi32.from(perm_base), nnz);
    for (int64_t q = 0; q < nelem; ++q) {
        const auto perm = wi32.from(perm_base + int64_t{e.ptr[q]});
        const auto permx = wi32.from(permx_base + int64_t{e.ptr[q]});
        const auto sorted = merge_sort(e.nidxs, e.terms(q), perm, permx);
        if (sorted.data() != perm.data()) copy_n(sorted, e.terms(q), perm);
    }
}

/// Sizes the merging of terms from their sorted order at `perm_base`: adds one term for each run of
/// equal variable index, without code (`ncodeatom` not above 0) only if some coefficient of the run
/// isn't 0.0, and with code one atom for each run of 2 terms or more to `rncodeatom`, which comes
/// in with the operand's atoms. Returns (`rncodeatom`, `rnnz`).
CLOSURE(396, results(int, int),
        (int cof_base, int ncodeatom, int nelem, int nidxs_base, int perm_base, int ptr_base,
         int rncodeatom, int rnnz, F64 wf64, I32 wi32, I64 wi64, I32 xi32))
{
    const Operand<Stride> e(wi32, wi64, wf64, {ptr_base, nidxs_base, cof_base});
    const auto perm = xi32.from(perm_base);
    const auto count = [&](int64_t, Range places) { rnnz += has_nonzero(e.cof, perm, places); };
    const auto count_coded = [&](int64_t, Range places) {
        rncodeatom += places.end - places.begin > 1;
        ++rnnz;
    };
    if (ncodeatom > 0)
        walk_runs(nelem, e, perm, count_coded, [] {});
    else
        walk_runs(nelem, e, perm, count, [] {});
    return {rncodeatom, rnnz};
}

/// Merges terms in their sorted order at `perm_base`: writes one term for each run of equal
/// variable index, its coefficient the sum in sorted order, and `ptr` of all `nelem` elements with
/// entry 0. Without code (`ncodeatom` not above 0) a run whose coefficients all are 0.0 gets no
/// term; with code each gets one, its program those of the run with an op_sum behind two or more.
/// Writes entry 0 of `codeptr` if `rncodeatom` is above 0. Returns (`code_pos`, `nnz_pos`), the
/// numbers of atoms and terms written so far.
CLOSURE(399, results(int, int),
        (int cconst_base, int code_base, int code_pos, int codeptr_base, int cof_base,
         int ncodeatom, int nelem, int nidxs_base, int nnz_pos, int perm_base, int ptr_base,
         int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64,
         I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base, F64 wf64,
         I32 wi32, I64 wi64, I32 xi32))
{
    const auto e = STACKED_OPERAND();
    auto r = STACKED_RESULT(code_pos, 0, nnz_pos);
    const auto perm = xi32.from(perm_base);
    const auto sum = [&](Range places) {
        double total = 0.0;
        for (int64_t p = places.begin; p < places.end; ++p) total += e.cof[perm[p]];
        return total;
    };
    const auto merge = [&](int64_t nidx, Range places) {
        if (has_nonzero(e.cof, perm, places)) r.append_term(nidx, sum(places));
    };
    const auto merge_coded = [&](int64_t nidx, Range places) {
        for (int64_t p = places.begin; p < places.end; ++p) r.append_program(e, perm[p]);
        const int64_t n = places.end - places.begin;
        if (n > 1) r.append_atom(op_sum, static_cast<double>(n));
        r.codeptr[r.nnzi + 1] = r.codei;
        r.append_term(nidx, sum(places));
    };
    const auto close = [&] { r.close_element(); };

    r.start(rncodeatom > 0);
    if (ncodeatom > 0)
        walk_runs(nelem, e, perm, merge_coded, close);
    else
        walk_runs(nelem, e, perm, merge, close);
    return {r.codei, r.nnzi};
}

} // namespace fragments
