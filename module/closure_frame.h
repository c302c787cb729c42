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

/// What the frame tests of an array parameter.
struct ArraySpec
{
    const char* name;
    char kind;       ///< 'i' for i32, 'l' for i64, 'd' for f64, 'O' for a list of arrays
    char entry_kind; ///< kind of a list's entries, else 0
    int rank;
};

/// The views of one call, taken left to right and released in reverse.
class Views
{
public:
    explicit Views(PyObject** memoryviews) : memoryviews_(memoryviews) {}
    ~Views() { release(); }
    Views(const Views&) = delete;
    Views& operator=(const Views&) = delete;

    /// Takes a view of each object, or none for None. On failure sets the exception, releases all
    /// and returns false.
    bool acquire(PyObject* const* objects, const ArraySpec* specs, size_t count);
    void release();

    /// Null for None.
    const Py_buffer* operator[](size_t k) const
    {
        return memoryviews_[k] == nullptr ? nullptr : PyMemoryView_GET_BUFFER(memoryviews_[k]);
    }
    bool contiguous() const { return contiguous_; }

    int64_t entry_count() const { return entry_count_; }
    const Py_buffer* entry(int64_t k) const
    {
        return entries_[k] == nullptr ? nullptr : PyMemoryView_GET_BUFFER(entries_[k]);
    }

private:
    bool acquire_entries(const Py_buffer& list, const ArraySpec& spec);
    void release_entries();

    PyObject** memoryviews_; // owned references, null for None
    size_t count_ = 0;
    PyObject** entries_ = nullptr; // the same for the entries of the list parameter
    int64_t entry_count_ = 0;
    size_t list_ = 0; // which array the list is, while entries are held
    bool contiguous_ = true;
};

/// Turns the exception in flight, out of a body, into the interpreter's. Returns null.
PyObject* report_failure(int number);

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

template <class T>
constexpr char kind_of = std::is_same_v<T, int32_t>   ? 'i'
                         : std::is_same_v<T, int64_t> ? 'l'
                                                      : 'd';

/// How a parameter type passes: its format letter, its slot for PyArg_ParseTuple and, for arrays,
/// its spec and its value made from the view.
template <class P>
struct Parameter;

template <class P, char Letter, class SlotType = P>
struct Scalar
{
    static constexpr bool is_array = false;
    static constexpr char letter = Letter;
    using Slot = SlotType;
};
template <>
struct Parameter<int> : Scalar<int, 'i'>
{
};
template <>
struct Parameter<long long> : Scalar<long long, 'L'>
{
};
template <>
struct Parameter<double> : Scalar<double, 'd'>
{
};
template <>
struct Parameter<bool> : Scalar<bool, 'p', int>
{
};

struct ArrayParameter
{
    static constexpr bool is_array = true;
    static constexpr char letter = 'O';
    using Slot = PyObject*;
};

/// A byte count or stride in elements of type T.
template <class T>
constexpr int64_t elements(Py_ssize_t bytes)
{
    // NOLINTNEXTLINE(bugprone-sizeof-expression): T may be a pointer, in a list of objects.
    return static_cast<int64_t>(static_cast<uint64_t>(bytes) / sizeof(T));
}

template <class T, class S>
Array<T, S> make_array(const Py_buffer* view, const char* name)
{
    if (view == nullptr) return {nullptr, S{}, 0, name};
    return {static_cast<T*>(view->buf), S{elements<T>(view->strides[0])}, elements<T>(view->len),
            name};
}

template <class T, class S>
struct Parameter<Array<T, S>> : ArrayParameter
{
    static constexpr ArraySpec spec(const char* name) { return {name, kind_of<T>, 0, 1}; }
    static Array<T, S> make(const Views& views, size_t k, const char* name)
    {
        return make_array<T, S>(views[k], name);
    }
};

template <class T, class S>
struct Parameter<Matrix<T, S>> : ArrayParameter
{
    static constexpr ArraySpec spec(const char* name) { return {name, kind_of<T>, 0, 2}; }
    static Matrix<T, S> make(const Views& views, size_t k, const char* name)
    {
        const Py_buffer* view = views[k];
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
    ArrayList(const Views& views, const char* name) : views_(views), name_(name) {}

    int64_t length() const { return views_.entry_count(); }

    Array<T, Strided> operator[](int64_t i) const
    {
#ifdef FRAGMENTS_CHECKED
        check(name_, i, length());
#endif
        return make_array<T, Strided>(views_.entry(i), name_);
    }

private:
    const Views& views_;
    const char* name_;
};

template <class T>
struct Parameter<ArrayList<T>> : ArrayParameter
{
    static constexpr ArraySpec spec(const char* name) { return {name, 'O', kind_of<T>, 1}; }
    static ArrayList<T> make(const Views& views, size_t, const char* name) { return {views, name}; }
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

template <class Function>
struct SignatureOf;
template <class R, class... P>
struct SignatureOf<R (*)(P...)>
{
    using Result = R;
    using Slots = std::tuple<typename Parameter<P>::Slot...>;
    static constexpr size_t count = sizeof...(P);
    static constexpr size_t array_count = (0 + ... + size_t{Parameter<P>::is_array});
    static constexpr std::array<char, count + 1> format{Parameter<P>::letter..., '\0'};
    static constexpr std::array<bool, count> is_array{Parameter<P>::is_array...};
};

/// Runs the call of one closure; `Body<S>::run` is its body for stride S.
template <int Number, template <class> class Body>
class Frame
{
    using Signature = SignatureOf<decltype(&Body<Strided>::run)>;
    using Slots = typename Signature::Slots;
    using Result = typename Signature::Result;
    static constexpr size_t count = Signature::count;
    static constexpr size_t array_count = Signature::array_count;
    static constexpr auto indexes = std::make_index_sequence<count>{};

    /// For the k-th parameter, how many arrays stand before it.
    static constexpr size_t arrays_before(size_t k)
    {
        size_t n = 0;
        for (size_t i = 0; i < k; ++i) n += Signature::is_array[i] ? 1 : 0;
        return n;
    }

    template <class... P>
    static constexpr std::array<ArraySpec, array_count> specs_of(Result (*)(P...))
    {
        std::array<ArraySpec, array_count> specs{};
        size_t k = 0;
        size_t n = 0;
        const auto add = [&]<class Q>(std::type_identity<Q>) {
            if constexpr (Parameter<Q>::is_array)
                specs[n++] = Parameter<Q>::spec(Body<Strided>::names[k]);
            ++k;
        };
        (add(std::type_identity<P>{}), ...);
        return specs;
    }
    static constexpr auto specs = specs_of(&Body<Strided>::run);

    static constexpr bool names_ascend()
    {
        for (size_t n = 0; n + 1 < array_count; ++n)
            if (!precedes(specs[n].name, specs[n + 1].name)) return false;
        return true;
    }
    static_assert(names_ascend(), "array names must stand in ascending byte order");

    template <class P, size_t K>
    static P argument(const Slots& slots, const Views& views)
    {
        if constexpr (Parameter<P>::is_array) {
            constexpr size_t n = arrays_before(K);
            return Parameter<P>::make(views, n, specs[n].name);
        } else {
            return static_cast<P>(std::get<K>(slots));
        }
    }

    template <class... P, size_t... K>
    static Result run(Result (*body)(P...), const Slots& slots, const Views& views,
                      std::index_sequence<K...>)
    {
        return body(argument<P, K>(slots, views)...);
    }

    template <size_t... K>
    static bool acquire(Views& views, const Slots& slots, std::index_sequence<K...>)
    {
        PyObject* objects[array_count + 1];
        size_t n = 0;
        const auto add = [&](const auto& slot) {
            if constexpr (std::is_same_v<decltype(slot), PyObject* const&>) objects[n++] = slot;
        };
        (add(std::get<K>(slots)), ...);
        return views.acquire(objects, specs.data(), array_count);
    }

    static Result run(const Slots& slots, const Views& views)
    {
        return views.contiguous() ? run(&Body<Contiguous>::run, slots, views, indexes)
                                  : run(&Body<Strided>::run, slots, views, indexes);
    }

public:
    static PyObject* call(PyObject* arguments)
    {
        Slots slots{};
        const auto parse = [&](auto&... slot) {
            return PyArg_ParseTuple(arguments, Signature::format.data(), &slot...);
        };
        if (!std::apply(parse, slots)) return nullptr;

        PyObject* memoryviews[array_count + 1]; // one more, as a closure may have no array
        Views views(memoryviews);
        if (!acquire(views, slots, indexes)) return nullptr;
        try {
            if constexpr (std::is_void_v<Result>) {
                run(slots, views);
                views.release();
                Py_RETURN_NONE;
            } else {
                const Result result = run(slots, views);
                views.release();
                return build(result);
            }
        } catch (...) {
            views.release();
            return report_failure(Number);
        }
    }
};

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
        return ::fragments::Frame<Number, Body##Number>::call(arguments);                          \
    }                                                                                              \
    template <class Stride>                                                                        \
    auto Body##Number<Stride>::run Parameters->::fragments::ResultOf<Declared>::Type

} // namespace fragments
