#pragma once

/// The frame that all closures share: one typed declaration becomes one METH_VARARGS entry.
///
///     /// The place `nitem` - 1 steps behind `item`.
///     CLOSURE(644, int, (int item, I32 next, int nitem))
///     {
///         return walk(next, item, nitem - 1);
///     }
///
///     /// new_vval[i] = scale * vval[i] for i below `size`.
///     CLOSURE(610, void, (F64Out new_vval, double scale, int size, F64 vval))
///     {
///         scaled_copy(vval, size, scale, new_vval);
///     }
///
/// The number, the result and the parameter list are the whole contract at the boundary: format
/// letters, kinds, ranks, array names, what is written and the form of the result follow from them
/// at compile time.
///
/// Parameters: `int` (i), `long long` (L), `double` (d), `bool` (p); the arrays I32, I64, F64, the
/// rank-2 arrays I32Matrix, F64Matrix and the list of arrays I32List, which are read; and I32Out,
/// I64Out, F64Out, I32MatrixOut, F64MatrixOut, which are written, or read and written. Array names
/// must stand in ascending byte order. Results: `void` (None), `int`, `long long`, `bool`, or
/// `results(int, ...)` for a tuple.
///
/// The body is compiled twice, for arrays that are all contiguous and for run-time strides. What
/// doesn't depend on types stands once for all closures, in call.cpp.

#include <array>
#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "array.h"
#include "parameter_names.h"
#include "signature.h"

namespace fragments {

/// Entry of the method table for the closure with this number; defined by CLOSURE. Hidden by its
/// declaration as well, so that the linker looks for it in the module alone.
template <int Number>
[[gnu::visibility("hidden")]] PyObject* closure(PyObject* module, PyObject* arguments);

// How each parameter type passes: its format letter, for an array its spec, and the body's argument
// from what the call has taken.

template <class P>
struct Parameter;

template <char Letter>
struct Scalar
{
    static constexpr char letter = Letter;
    static constexpr bool is_array = false;
};
template <>
struct Parameter<int> : Scalar<'i'>
{
    static int argument(const Slot& slot) { return slot.i; }
};
template <>
struct Parameter<long long> : Scalar<'L'>
{
    static long long argument(const Slot& slot) { return slot.l; }
};
template <>
struct Parameter<double> : Scalar<'d'>
{
    static double argument(const Slot& slot) { return slot.d; }
};
template <>
struct Parameter<bool> : Scalar<'p'>
{
    static bool argument(const Slot& slot) { return slot.i != 0; }
};

template <class T, int Rank, bool Written>
struct ArrayParameter
{
    static constexpr char letter = 'O';
    static constexpr bool is_array = true;
    static constexpr char kind = sizeof(T) == 4 ? 'i' : std::is_same_v<T, double> ? 'd' : 'l';
    static constexpr char also = kind == 'l' ? 'q' : kind;
    static constexpr uint8_t shift = sizeof(T) == 4 ? 2 : 3;
    static constexpr uint8_t rank = Rank;
    static constexpr bool written = Written;
};

template <class T, class S>
struct Parameter<Array<T, S>> : ArrayParameter<T, 1, false>
{
    static Array<T, S> argument(const ArrayView& view, const char* name)
    {
        return {static_cast<T*>(view.data), S{view.stride[0]}, view.extent[0], name};
    }
};
template <class T, class S>
struct Parameter<ArrayOut<T, S>> : ArrayParameter<T, 1, true>
{
    static ArrayOut<T, S> argument(const ArrayView& view, const char* name)
    {
        return {static_cast<T*>(view.data), S{view.stride[0]}, view.extent[0], name};
    }
};

template <class T, class S>
struct Parameter<Matrix<T, S>> : ArrayParameter<T, 2, false>
{
    static Matrix<T, S> argument(const ArrayView& view, const char* name)
    {
        return {static_cast<T*>(view.data),
                view.stride[0],
                S{view.stride[1]},
                view.extent[0],
                view.extent[1],
                name};
    }
};
template <class T, class S>
struct Parameter<MatrixOut<T, S>> : ArrayParameter<T, 2, true>
{
    static MatrixOut<T, S> argument(const ArrayView& view, const char* name)
    {
        return {static_cast<T*>(view.data),
                view.stride[0],
                S{view.stride[1]},
                view.extent[0],
                view.extent[1],
                name};
    }
};

/// A list of rank-1 arrays in one parameter, at most one in a closure; an entry may be absent.
template <class T>
class ArrayList
{
public:
    ArrayList(const ArrayView& list, const char* name)
        : entries_(static_cast<const ArrayView*>(list.data)), length_(list.extent[0]), name_(name)
    {
    }

    int64_t length() const { return length_; }

    Array<T, Strided> operator[](int64_t i) const
    {
#ifdef FRAGMENTS_CHECKED
        check(name_, i, length_);
#endif
        return Parameter<Array<T, Strided>>::argument(entries_[i], name_);
    }

private:
    const ArrayView* entries_;
    int64_t length_;
    const char* name_;
};

template <>
struct Parameter<ArrayList<int32_t>> : ArrayParameter<int32_t, 1, false>
{
    static constexpr char kind = 'O';
    static constexpr char also = 'O';
    static constexpr uint8_t shift = 3;
    static ArrayList<int32_t> argument(const ArrayView& list, const char* name)
    {
        return {list, name};
    }
};

/// The result form that a CLOSURE declaration names.
struct results;
template <class R>
struct ResultOf
{
    using Type = R;
};
template <class... R>
struct ResultOf<results(R...)>
{
    using Type = std::tuple<R...>;
};

/// The letters of a result, and its numbers as the call takes them.
template <class R>
struct Returned
{
    static constexpr char letters[most_results + 1] = {Parameter<R>::letter};
    static constexpr bool is_tuple = false;
    static void store(R number, Slot* slots)
    {
        if constexpr (std::is_same_v<R, long long>)
            slots->l = number;
        else
            slots->i = number;
    }
};
template <>
struct Returned<void>
{
    static constexpr char letters[most_results + 1] = {};
    static constexpr bool is_tuple = false;
};
template <class... R>
struct Returned<std::tuple<R...>>
{
    static constexpr char letters[most_results + 1] = {Parameter<R>::letter...};
    static constexpr bool is_tuple = true;
    static void store(const std::tuple<R...>& numbers, Slot* slots)
    {
        std::apply(
            [&](auto... number) { (Returned<decltype(number)>::store(number, slots++), ...); },
            numbers);
    }
};

/// What a declaration says, as a Signature; `Body<S>::run` is its body for stride S.
template <int Number, template <class> class Body, class Function = decltype(&Body<Strided>::run)>
struct Declaration;

template <int Number, template <class> class Body, class Result, class... P>
struct Declaration<Number, Body, Result (*)(P...)>
{
    static constexpr size_t count = sizeof...(P);
    static constexpr bool is_array[count + 1] = {Parameter<P>::is_array..., false};
    static constexpr ParameterNames names{Body<Strided>::parameters};

    /// For the k-th parameter, how many arrays stand before it.
    static constexpr size_t arrays_before(size_t k)
    {
        size_t arrays = 0;
        for (size_t i = 0; i < k; ++i) arrays += is_array[i];
        return arrays;
    }
    static constexpr size_t array_count = arrays_before(count);
    static_assert(count <= most_parameters && array_count <= most_arrays);

    static constexpr bool names_ascend()
    {
        size_t last = count;
        for (size_t k = 0; k < count; ++k) {
            if (!is_array[k]) continue;
            if (last < count && !names.precedes(last, k)) return false;
            last = k;
        }
        return true;
    }
    static_assert(names_ascend(), "array names must stand in ascending byte order");

    /// Where the name of parameter k, an array, stands in the text.
    static constexpr size_t place_of_name(size_t k)
    {
        size_t place = count + 1;
        for (size_t i = 0; i < k; ++i)
            if (is_array[i]) place += names[i].end - names[i].begin + 1;
        return place;
    }

    static constexpr auto text = [] {
        std::array<char, place_of_name(count)> characters{Parameter<P>::letter...};
        for (size_t k = 0; k < count; ++k)
            if (is_array[k])
                for (size_t i = names[k].begin; i < names[k].end; ++i)
                    characters[place_of_name(k) + i - names[k].begin] = names.list[i];
        return characters;
    }();

    static constexpr auto specs = []<size_t... K>(std::index_sequence<K...>)
    {
        std::array<ArraySpec, array_count> found{};
        const auto add = [&]<class Q>(std::type_identity<Q>, size_t k) {
            if constexpr (Parameter<Q>::is_array)
                found[arrays_before(k)] = {static_cast<uint16_t>(place_of_name(k)),
                                           static_cast<uint8_t>(k),
                                           Parameter<Q>::kind,
                                           Parameter<Q>::also,
                                           Parameter<Q>::shift,
                                           Parameter<Q>::rank,
                                           Parameter<Q>::written};
        };
        (add(std::type_identity<P>{}, K), ...);
        return found;
    }
    (std::index_sequence_for<P...>{});

    /// Parameter K as the body takes it.
    template <class Q, size_t K>
    static Q argument([[maybe_unused]] const Slot* parameters,
                      [[maybe_unused]] const ArrayView* arrays)
    {
        if constexpr (Parameter<Q>::is_array)
            return Parameter<Q>::argument(arrays[arrays_before(K)], &text[place_of_name(K)]);
        else
            return Parameter<Q>::argument(parameters[K]);
    }

    /// Runs the body for stride S, a function of this type.
    template <class S, class... Q, size_t... K>
    static void run_body(std::type_identity<Result (*)(Q...)>, const Slot* parameters,
                         const ArrayView* arrays, [[maybe_unused]] Slot* results,
                         std::index_sequence<K...>)
    {
        if constexpr (std::is_void_v<Result>)
            Body<S>::run(argument<Q, K>(parameters, arrays)...);
        else
            Returned<Result>::store(Body<S>::run(argument<Q, K>(parameters, arrays)...), results);
    }
    template <class S>
    static void body(const Slot* parameters, const ArrayView* arrays, Slot* results)
    {
        run_body<S>(std::type_identity<decltype(&Body<S>::run)>{}, parameters, arrays, results,
                    std::index_sequence_for<P...>{});
    }

    static constexpr Signature signature = [] {
        Signature s{.text = text.data(),
                    .arrays = specs.data(),
                    .contiguous = body<Contiguous>,
                    .strided = body<Strided>,
                    .number = Number,
                    .parameters = count,
                    .array_count = array_count,
                    .tuple = Returned<Result>::is_tuple,
                    .results = {}};
        for (int k = 0; k < most_results; ++k) s.results[k] = Returned<Result>::letters[k];
        return s;
    }();
};

/// What a body may name without its stride: the array types for the stride that it runs with.
#define FRAGMENTS_ARRAY_NAMES(Stride)                                                              \
    using I32 [[maybe_unused]] = ::fragments::I32<Stride>;                                         \
    using I64 [[maybe_unused]] = ::fragments::I64<Stride>;                                         \
    using F64 [[maybe_unused]] = ::fragments::F64<Stride>;                                         \
    using I32Out [[maybe_unused]] = ::fragments::I32Out<Stride>;                                   \
    using I64Out [[maybe_unused]] = ::fragments::I64Out<Stride>;                                   \
    using F64Out [[maybe_unused]] = ::fragments::F64Out<Stride>;                                   \
    using I32Matrix [[maybe_unused]] = ::fragments::Matrix<int32_t, Stride>;                       \
    using F64Matrix [[maybe_unused]] = ::fragments::Matrix<double, Stride>;                        \
    using I32MatrixOut [[maybe_unused]] = ::fragments::MatrixOut<int32_t, Stride>;                 \
    using F64MatrixOut [[maybe_unused]] = ::fragments::MatrixOut<double, Stride>;                  \
    using I32List [[maybe_unused]] = ::fragments::ArrayList<int32_t>

#define CLOSURE(Number, Declared, Parameters)                                                      \
    namespace {                                                                                    \
    template <class Stride>                                                                        \
    struct Body##Number                                                                            \
    {                                                                                              \
        FRAGMENTS_ARRAY_NAMES(Stride);                                                             \
        static constexpr const char* parameters = #Parameters;                                     \
        static auto run Parameters->::fragments::ResultOf<Declared>::Type;                         \
    };                                                                                             \
    }                                                                                              \
    template <>                                                                                    \
    PyObject* closure<Number>(PyObject*, PyObject * arguments)                                     \
    {                                                                                              \
        return ::fragments::run(::fragments::Declaration<Number, Body##Number>::signature,         \
                                arguments);                                                        \
    }                                                                                              \
    template <class Stride>                                                                        \
    auto Body##Number<Stride>::run Parameters->::fragments::ResultOf<Declared>::Type

/// A closure whose body is one expression, which is its result:
///
///     CLOSURE_AS(193, int, (I32 shape, int init), product(init, shape, shape.length()))
#define CLOSURE_AS(Number, Declared, Parameters, ...)                                              \
    CLOSURE(Number, Declared, Parameters)                                                          \
    {                                                                                              \
        return __VA_ARGS__;                                                                        \
    }

} // namespace fragments
