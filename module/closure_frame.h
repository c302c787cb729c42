#pragma once

/// The frame that all closures share: one typed declaration becomes one METH_VARARGS entry.
///
///     /// What it computes.
///     CLOSURE(644, int, (int item, I32 next, int nitem))
///     {
///         return walk(next, item, nitem - 1);
///     }
///
/// The number, the result and the parameter list are the whole contract at the boundary: format
/// letters, kinds, ranks, array names and result form follow from them at compile time.
///
/// Parameters: `int` (i), `long long` (L), `double` (d), `bool` (p), and the arrays I32, I64, F64,
/// I32Matrix, F64Matrix (rank 2) and I32List (a list of arrays). Array names must stand in
/// ascending byte order. Results: `void` (None), `int`, `long long`, `bool`, or
/// `results(int, ...)` for a tuple.
///
/// The body is compiled twice, for arrays that are all contiguous and for run-time strides.

// Python's header asks to stand before all others.
#include <Python.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>

#include "array.h"

namespace fragments {

/// Entry of the method table for the closure with this number; defined by CLOSURE. Hidden by its
/// declaration as well, so that the linker looks for it in the module alone.
template <int Number>
[[gnu::visibility("hidden")]] PyObject* closure(PyObject* module, PyObject* arguments);

/// What the frame tests of an array parameter. The first character of the view's format must be
/// `kind` or `also`; a list's format must be "O" alone.
struct ArraySpec
{
    const char* name;
    int rank;
    char kind;
    char also;
    Py_ssize_t item_size;

    bool accepts(const Py_buffer& view) const
    {
        const char c = view.format[0];
        return view.ndim == rank && (c == kind || c == also) &&
               (kind != 'O' || view.format[1] == '\0');
    }
};

/// Sets the exception for an array that its spec doesn't accept.
void report_refusal(const char* name);

/// Turns the exception in flight, out of a body, into the interpreter's. Returns null.
PyObject* report_failure(int number);

/// The views of a list's entries, null for None.
class EntryViews
{
public:
    /// Takes a view of each entry of `list`. On failure sets the exception, with the list's name,
    /// and returns false; what has been taken is held until release.
    bool take(const Py_buffer& list, const ArraySpec& entry, const char* name);
    void release();

    int64_t length() const { return length_; }
    const Py_buffer* operator[](int64_t k) const
    {
        return views_[k] == nullptr ? nullptr : PyMemoryView_GET_BUFFER(views_[k]);
    }

private:
    PyObject** views_ = nullptr;
    int64_t length_ = 0;
};

/// The views of one call, taken left to right and released in reverse. `List` is the place of the
/// closure's list of arrays among its `Count` arrays, or `Count`.
template <size_t Count, size_t List>
class Views
{
public:
    Views() = default;
    ~Views() { release(); }
    Views(const Views&) = delete;
    Views& operator=(const Views&) = delete;

    /// Takes a view of the next array, or none for None. On failure sets the exception and returns
    /// false.
    [[gnu::always_inline]] bool take(PyObject* object, const ArraySpec& spec)
    {
        if (object == Py_None) {
            memoryviews_[count_++] = nullptr;
            return true;
        }
        PyObject* memoryview = PyMemoryView_FromObject(object);
        if (memoryview == nullptr) return false;
        memoryviews_[count_++] = memoryview;
        const Py_buffer& view = *PyMemoryView_GET_BUFFER(memoryview);
        if (!spec.accepts(view)) {
            report_refusal(spec.name);
            return false;
        }
        gaps_ |= view.strides[spec.rank - 1] - spec.item_size;
        return true;
    }

    /// The same for the list's entries, once the list itself is taken.
    bool take_entries(const ArraySpec& entry, const char* name)
    {
        const Py_buffer* list = (*this)[List];
        return list == nullptr || entries_.take(*list, entry, name);
    }

    [[gnu::always_inline]] void release()
    {
        while (count_ > 0) {
            --count_;
            if constexpr (List < Count)
                if (count_ == List) entries_.release();
            Py_XDECREF(memoryviews_[count_]);
        }
    }

    /// Null for None.
    const Py_buffer* operator[](size_t k) const
    {
        return memoryviews_[k] == nullptr ? nullptr : PyMemoryView_GET_BUFFER(memoryviews_[k]);
    }
    const EntryViews& entries() const { return entries_; }

    /// Whether the elements of each array follow each other, in its last dimension.
    bool contiguous() const { return gaps_ == 0; }

private:
    PyObject* memoryviews_[Count + 1]; // owned references; one more, as Count may be 0
    size_t count_ = 0;
    Py_ssize_t gaps_ = 0; // all distances between neighbouring elements, combined
    EntryViews entries_;
};

/// Names of the parameters in a stringised parameter list, each ended by a null character.
template <size_t Size>
struct ParameterNames
{
    consteval explicit ParameterNames(const char (&list)[Size])
    {
        size_t count = 0;
        size_t start = 0; // of the identifier read last
        bool inside = false;
        for (size_t i = 0; i < Size; ++i) {
            const char c = list[i];
            const bool word = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                              (c >= '0' && c <= '9') || c == '_';
            if (word && !inside) start = i;
            inside = word;
            if (c == ',' || c == ')') offset[count++] = start;
            text[i] = word ? c : '\0';
        }
    }

    constexpr const char* operator[](size_t k) const { return text + offset[k]; }

    char text[Size]{};
    size_t offset[40]{};
};

constexpr bool precedes(const char* a, const char* b)
{
    while (*a != '\0' && *a == *b) ++a, ++b;
    return static_cast<unsigned char>(*a) < static_cast<unsigned char>(*b);
}

/// How a parameter type passes: its format letter, its slot for PyArg_ParseTuple and, for arrays,
/// its spec and its value made from the view.
template <class P>
struct Parameter;

template <char Letter, class SlotType>
struct Scalar
{
    static constexpr char letter = Letter;
    static constexpr bool is_array = false;
    static constexpr bool is_list = false;
    using Slot = SlotType;
};
template <>
struct Parameter<int> : Scalar<'i', int>
{
};
template <>
struct Parameter<long long> : Scalar<'L', long long>
{
};
template <>
struct Parameter<double> : Scalar<'d', double>
{
};
template <>
struct Parameter<bool> : Scalar<'p', int>
{
};

/// A byte count or stride in elements of type T; the division is unsigned.
template <class T>
constexpr int64_t elements(Py_ssize_t bytes)
{
    // NOLINTNEXTLINE(bugprone-sizeof-expression): T may be a pointer, in a list of objects.
    return static_cast<int64_t>(static_cast<uint64_t>(bytes) / sizeof(T));
}

struct ArrayParameter
{
    static constexpr char letter = 'O';
    static constexpr bool is_array = true;
    static constexpr bool is_list = false;
    using Slot = PyObject*;

    template <class T>
    static constexpr ArraySpec spec_of(const char* name, int rank)
    {
        constexpr char kind = std::is_same_v<T, int32_t>   ? 'i'
                              : std::is_same_v<T, int64_t> ? 'l'
                                                           : 'd';
        return {name, rank, kind, kind == 'l' ? 'q' : kind, sizeof(T)};
    }
};

template <class T, class S>
struct Parameter<Array<T, S>> : ArrayParameter
{
    static constexpr ArraySpec spec(const char* name) { return spec_of<T>(name, 1); }
    static Array<T, S> make(const Py_buffer* view, const char* name)
    {
        if (view == nullptr) return {nullptr, S{}, 0, name};
        return {static_cast<T*>(view->buf), S{elements<T>(view->strides[0])},
                elements<T>(view->len), name};
    }
};

template <class T, class S>
struct Parameter<Matrix<T, S>> : ArrayParameter
{
    static constexpr ArraySpec spec(const char* name) { return spec_of<T>(name, 2); }
    static Matrix<T, S> make(const Py_buffer* view, const char* name)
    {
        if (view == nullptr) return {nullptr, 0, S{}, 0, 0, name};
        return {static_cast<T*>(view->buf),
                elements<T>(view->strides[0]),
                S{elements<T>(view->strides[1])},
                view->shape[0],
                view->shape[1],
                name};
    }
};

/// A list of rank-1 arrays in one parameter, at most one in a closure; an entry may be absent.
template <class T>
class ArrayList
{
public:
    ArrayList(const EntryViews& entries, const char* name) : entries_(entries), name_(name) {}

    int64_t length() const { return entries_.length(); }

    Array<T, Strided> operator[](int64_t i) const
    {
#ifdef FRAGMENTS_CHECKED
        check(name_, i, length());
#endif
        return Parameter<Array<T, Strided>>::make(entries_[i], name_);
    }

private:
    const EntryViews& entries_;
    const char* name_;
};

template <class T>
struct Parameter<ArrayList<T>> : ArrayParameter
{
    static constexpr bool is_list = true;
    static constexpr ArraySpec entry = spec_of<T>(nullptr, 1);
    static constexpr ArraySpec spec(const char* name)
    {
        return {name, 1, 'O', 'O', sizeof(PyObject*)};
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

inline PyObject* build(int value)
{
    return PyLong_FromLong(value);
}
inline PyObject* build(long long value)
{
    return PyLong_FromLongLong(value);
}
inline PyObject* build(bool value)
{
    return PyBool_FromLong(value);
}
template <class... R>
PyObject* build(const std::tuple<R...>& values)
{
    PyObject* tuple = PyTuple_New(sizeof...(R));
    if (tuple == nullptr) return nullptr;
    const bool built = [&]<size_t... K>(std::index_sequence<K...>)
    {
        const auto set = [&](Py_ssize_t k, PyObject* number) {
            PyTuple_SET_ITEM(tuple, k, number);
            return number != nullptr;
        };
        return (set(K, build(std::get<K>(values))) && ...);
    }
    (std::index_sequence_for<R...>{});
    if (built) return tuple;
    Py_DECREF(tuple);
    return nullptr;
}

/// Runs the call of one closure; `Body<S>::run` is its body for stride S.
template <int Number, template <class> class Body, class Signature>
class Frame;

template <int Number, template <class> class Body, class Result, class... P>
class Frame<Number, Body, Result (*)(P...)>
{
    using Slots = std::tuple<typename Parameter<P>::Slot...>;
    using Indexes = std::index_sequence_for<P...>;

    static constexpr char format[] = {Parameter<P>::letter..., '\0'};

    /// For the k-th parameter, how many arrays stand before it.
    static constexpr size_t arrays_before(size_t k)
    {
        constexpr bool is_array[] = {Parameter<P>::is_array..., false};
        return static_cast<size_t>(std::count(is_array, is_array + k, true));
    }
    static constexpr size_t array_count = arrays_before(sizeof...(P));

    /// Where the list of arrays stands among the arrays.
    static constexpr size_t list_place()
    {
        constexpr bool is_list[] = {Parameter<P>::is_list..., true};
        return arrays_before(
            static_cast<size_t>(std::find(is_list, is_list + sizeof...(P), true) - is_list));
    }

    template <size_t... K>
    static constexpr std::array<ArraySpec, array_count> make_specs(std::index_sequence<K...>)
    {
        std::array<ArraySpec, array_count> specs{};
        const auto add = [&]<class Q>(std::type_identity<Q>, size_t k) {
            if constexpr (Parameter<Q>::is_array)
                specs[arrays_before(k)] = Parameter<Q>::spec(Body<Strided>::names[k]);
        };
        (add(std::type_identity<P>{}, K), ...);
        return specs;
    }
    static constexpr std::array<ArraySpec, array_count> specs = make_specs(Indexes{});

    static constexpr bool names_ascend()
    {
        for (size_t n = 0; n + 1 < array_count; ++n)
            if (!precedes(specs[n].name, specs[n + 1].name)) return false;
        return true;
    }
    static_assert(names_ascend(), "array names must stand in ascending byte order");

    using CallViews = Views<array_count, list_place()>;

    /// Takes the view of parameter K, if it is an array.
    template <class Q, size_t K>
    static bool take([[maybe_unused]] CallViews& views, [[maybe_unused]] const Slots& slots)
    {
        if constexpr (Parameter<Q>::is_array) {
            constexpr ArraySpec spec = specs[arrays_before(K)];
            if (!views.take(std::get<K>(slots), spec)) return false;
            if constexpr (Parameter<Q>::is_list)
                return views.take_entries(Parameter<Q>::entry, spec.name);
        }
        return true;
    }

    /// Parameter K as the body takes it.
    template <class Q, size_t K>
    static Q argument([[maybe_unused]] const CallViews& views, [[maybe_unused]] const Slots& slots)
    {
        if constexpr (Parameter<Q>::is_list) {
            return {views.entries(), specs[arrays_before(K)].name};
        } else if constexpr (Parameter<Q>::is_array) {
            constexpr size_t n = arrays_before(K);
            return Parameter<Q>::make(views[n], specs[n].name);
        } else {
            return static_cast<Q>(std::get<K>(slots));
        }
    }

    template <class... Q, size_t... K>
    static Result run(Result (*body)(Q...), const CallViews& views, const Slots& slots,
                      std::index_sequence<K...>)
    {
        return body(argument<Q, K>(views, slots)...);
    }

    static Result run(const CallViews& views, const Slots& slots)
    {
        return views.contiguous() ? run(&Body<Contiguous>::run, views, slots, Indexes{})
                                  : run(&Body<Strided>::run, views, slots, Indexes{});
    }

    template <size_t... K>
    static PyObject* call(PyObject* arguments, std::index_sequence<K...>)
    {
        Slots slots{};
        if (!PyArg_ParseTuple(arguments, format, &std::get<K>(slots)...)) return nullptr;
        CallViews views;
        if (!(take<P, K>(views, slots) && ...)) return nullptr;
        try {
            if constexpr (std::is_void_v<Result>) {
                run(views, slots);
                views.release();
                Py_RETURN_NONE;
            } else {
                const Result result = run(views, slots);
                views.release();
                return build(result);
            }
        } catch (...) {
            views.release();
            return report_failure(Number);
        }
    }

public:
    static PyObject* call(PyObject* arguments) { return call(arguments, Indexes{}); }
};

template <int Number, template <class> class Body>
PyObject* call(PyObject* arguments)
{
    return Frame<Number, Body, decltype(&Body<Strided>::run)>::call(arguments);
}

/// What a body may name without its stride: the array types for the stride that it runs with.
#define FRAGMENTS_ARRAY_NAMES(Stride)                                                              \
    using I32 [[maybe_unused]] = ::fragments::I32<Stride>;                                         \
    using I64 [[maybe_unused]] = ::fragments::I64<Stride>;                                         \
    using F64 [[maybe_unused]] = ::fragments::F64<Stride>;                                         \
    using I32Matrix [[maybe_unused]] = ::fragments::Matrix<int32_t, Stride>;                       \
    using F64Matrix [[maybe_unused]] = ::fragments::Matrix<double, Stride>;                        \
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
        return ::fragments::call<Number, Body##Number>(arguments);                                 \
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
