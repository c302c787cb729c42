// sort_terms, merge_terms: the terms of each element in ascending order of variable index, and
// those of one variable merged.
//
// Operators concatenate terms as they come. 393 and 394 test whether an expression needs tidying;
// 391 or 392 sort, into a permutation: perm[p] is the term that stands at sorted place p. Places
// and terms of an element share its range of `ptr`. 396 and 399 walk that order by runs of equal
// variable index and size and write one term for each run. Elements stay, also empty ones.

#include <algorithm>
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

/// merge_terms: one term for each run, its coefficient the sum in sorted order and its program
/// those of the run with an op_sum behind them. Sets entry 0 of `ptr` and, if the result has code,
/// of `codeptr`. Returns (code_pos, nnz_pos).
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
    const auto set_term = [&](int64_t nidx, Range places) {
        double sum = 0.0;
        for (int64_t p = places.begin; p < places.end; ++p) sum += e.cof[perm[p]];
        r.nidxs[r.nnzi] = nidx;
        r.cof[r.nnzi] = sum;
    };
    const auto merge = [&](int64_t nidx, Range places) {
        if (!has_nonzero(e.cof, perm, places)) return;
        set_term(nidx, places);
        ++r.nnzi;
    };
    const auto merge_coded = [&](int64_t nidx, Range places) {
        set_term(nidx, places);
        for (int64_t p = places.begin; p < places.end; ++p) r.append_program(e, perm[p]);
        const int64_t n = places.end - places.begin;
        if (n > 1) r.append_atom(op_sum, static_cast<double>(n));
        r.close_coded_term();
    };
    const auto close = [&] { r.close_element(); };

    r.ptr[0] = 0;
    if (rncodeatom > 0) r.codeptr[0] = 0;
    if (ncodeatom > 0) {
        walk_runs(nelem, e, perm, merge_coded, close);
    } else {
        walk_runs(nelem, e, perm, merge, close);
    }
    return {r.codei, r.nnzi};
}

/// Sizes 399: (rncodeatom, rnnz), added to. `rncodeatom` comes in with the operand's atoms.
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
    if (ncodeatom > 0) {
        walk_runs(nelem, e, perm, count_coded, [] {});
    } else {
        walk_runs(nelem, e, perm, count, [] {});
    }
    return {rncodeatom, rnnz};
}

/// `ok`, and no term is a hidden zero: without code, none has coefficient 0; with code, none has
/// coefficient 0 and a program that only pushes a constant other than 0.
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

/// `ok`, and the variable indexes of each element ascend strictly.
CLOSURE(393, bool, (bool ok, int nelem, int nidxs_base, int ptr_base, I32 wi32, I64 wi64))
{
    const Operand<Stride> e(wi32, wi64, {}, {ptr_base, nidxs_base, 0});
    for (int64_t q = 0; ok && q < nelem; ++q)
        ok = strictly_ascending(ok, e.nidxs.from(e.ptr[q]), e.terms(q));
    return ok;
}

/// sort_terms by merging alone: O(n log n) for each element of n terms. `permx` is a second buffer
/// as long as `perm`.
CLOSURE(392, void,
        (int nelem, int nidxs_base, int nnz, int perm_base, int permx_base, int ptr_base,
         I32Out wi32, I64 wi64))
{
    const Operand<Stride> e(wi32, wi64, {}, {ptr_base, nidxs_base, 0});
    iota_n(wi32.from(perm_base), nnz);
    for (int64_t q = 0; q < nelem; ++q) {
        const auto perm = wi32.from(perm_base + int64_t{e.ptr[q]});
        const auto permx = wi32.from(permx_base + int64_t{e.ptr[q]});
        const auto sorted = merge_sort(e.nidxs, e.terms(q), perm, permx);
        if (sorted.data() != perm.data()) copy_n(sorted, e.terms(q), perm);
    }
}

/// sort_terms, stable: elements of 1 or 2 terms directly, those whose indexes span less than their
/// number of terms by counting, the others by merging. The scratch at `work_base` is as long as two
/// copies of the longest element (390), and at least 1 more than one.
CLOSURE(391, void,
        (int nelem, int nidxs_base, int perm_base, int ptr_base, I32 wi32, I64 wi64, int work_base,
         I32Out xi32))
{
    const Operand<Stride> e(wi32, wi64, {}, {ptr_base, nidxs_base, 0});
    const auto perm = xi32.from(perm_base);
    const auto work = xi32.from(work_base);
    for (int64_t q = 0; q < nelem; ++q) {
        const int64_t first = e.ptr[q];
        sort_element(e.nidxs.from(first), e.terms(q), first, perm.from(first), work);
    }
}

/// Number of terms of the longest element, or `maxlen` if that is larger.
CLOSURE(390, int, (int maxlen, int nelem, int ptr_base, I32 wi32))
{
    const Operand<Stride> e(wi32, {ptr_base, 0, 0});
    for (int64_t q = 0; q < nelem; ++q) maxlen = std::max(maxlen, e.terms(q));
    return maxlen;
}

} // namespace fragments
