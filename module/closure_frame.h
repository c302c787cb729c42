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
/// doesn't depend on types stands once for all closures, in call.h.

#include "call.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "array.h"
#include "parameter_names.h"

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

    static constexpr ArraySpec spec(const char* name, int parameter)
    {
        constexpr bool is_i64 = std::is_same_v<T, int64_t>;
        constexpr char kind = std::is_same_v<T, int32_t> ? 'i' : is_i64 ? 'l' : 'd';
        return {name,    parameter, Rank, kind, is_i64 ? 'q' : kind, sizeof(T) == 4 ? 2 : 3,
                Written, nullptr};
    }
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
        : entries_(static_cast<const Entry*>(list.data)), length_(list.extent[0]), name_(name)
    {
    }

    int64_t length() const { return length_; }

    Array<T, Strided> operator[](int64_t i) const
    {
#ifdef FRAGMENTS_CHECKED
        check(name_, i, length_);
#endif
        return Parameter<Array<T, Strided>>::argument(entries_[i].view, name_);
    }

private:
    const Entry* entries_;
    int64_t length_;
    const char* name_;
};

template <class T>
struct Parameter<ArrayList<T>> : ArrayParameter<T, 1, false>
{
    static constexpr ArraySpec entry = ArrayParameter<T, 1, false>::spec(nullptr, 0);
    static constexpr ArraySpec spec(const char* name, int parameter)
    {
        return {name, parameter, 1, 'O', 'O', 3, false, &entry};
    }
    static ArrayList<T> argument(const ArrayView& list, const char* name) { return {list, name}; }
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
    static constexpr char letters[] = {std::is_same_v<R, bool> ? 'p' : Parameter<R>::letter, '\0'};
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
    static constexpr char letters[] = {'\0'};
    static constexpr bool is_tuple = false;
};
template <class... R>
struct Returned<std::tuple<R...>>
{
    static constexpr char letters[] = {Parameter<R>::letter..., '\0'};
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
    static constexpr char format[] = {Parameter<P>::letter..., '\0'};

    /// For the k-th parameter, how many arrays stand before it.
    static constexpr size_t arrays_before(size_t k)
    {
        constexpr bool is_array[] = {Parameter<P>::is_array..., false};
        return static_cast<size_t>(std::count(is_array, is_array + k, true));
    }
    static constexpr size_t array_count = arrays_before(sizeof...(P));
    static_assert(sizeof...(P) <= most_parameters && array_count <= most_arrays);

    template <size_t... K>
    static constexpr auto make_specs(std::index_sequence<K...>)
    {
        std::array<ArraySpec, array_count> specs{};
        const auto add = [&]<class Q>(std::type_identity<Q>, size_t k) {
            if constexpr (Parameter<Q>::is_array)
                specs[arrays_before(k)] =
                    Parameter<Q>::spec(Body<Strided>::names[k], static_cast<int>(k));
        };
        (add(std::type_identity<P>{}, K), ...);
        return specs;
    }
    static constexpr std::array<ArraySpec, array_count> specs =
        make_specs(std::index_sequence_for<P...>{});

    static constexpr bool names_ascend()
    {
        for (size_t n = 0; n + 1 < array_count; ++n)
            if (!precedes(specs[n].name, specs[n + 1].name)) return false;
        return true;
    }
    static_assert(names_ascend(), "array names must stand in ascending byte order");

    /// Parameter K as the body takes it.
    template <class Q, size_t K>
    static Q argument(const Call& call)
    {
        if constexpr (Parameter<Q>::is_array) {
            constexpr size_t n = arrays_before(K);
            return Parameter<Q>::argument(call.array(n), specs[n].name);
        } else {
            return Parameter<Q>::argument(call.slot(K));
        }
    }

    /// Runs the body for stride S, whose parameters are Q.
    template <class S, class... Q, size_t... K>
    static void run_body(Result (*)(Q...), const Call& call, Slot* results,
                         std::index_sequence<K...>)
    {
        if constexpr (std::is_void_v<Result>)
            Body<S>::run(argument<Q, K>(call)...);
        else
            Returned<Result>::store(Body<S>::run(argument<Q, K>(call)...), results);
    }
    template <class S>
    static void body(const Call& call, Slot* results)
    {
        run_body<S>(&Body<S>::run, call, results, std::index_sequence_for<P...>{});
    }

    static constexpr Signature signature{.number = Number,
                                         .format = format,
                                         .parameters = sizeof...(P),
                                         .arrays = specs.data(),
                                         .array_count = array_count,
                                         .results = Returned<Result>::letters,
                                         .tuple = Returned<Result>::is_tuple,
                                         .contiguous = body<Contiguous>,
                                         .strided = body<Strided>};
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
        static constexpr ::fragments::ParameterNames names{#Parameters};                           \
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
