// One call of a closure, as far as it doesn't depend on the closure's types: the arguments taken
// apart by what its signature says, the body run, the result built.
//
// There are two ways through the arguments. The way that defines the outcome is PyArg_ParseTuple
// with the closure's format, and a memoryview of each array. Nearly all calls are ordinary: exact
// ints in range, exact floats, truth values, buffers that the closure accepts. Those are read
// directly, in a fraction of the time. What is not ordinary in any way gives back what was taken
// and starts anew on the first way, so that every exception, and the order in which things are
// looked at, are made there alone.

// Python's header asks to stand before all others.
#include <Python.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "division.h"
#include "signature.h"

namespace fragments {

namespace {

/// What is tested of a view: the first character of its format must be `first` or `also`, or the
/// whole format must be "O". `shift` is log2 of the size of an element.
struct KindTest
{
    char first;
    char also;
    int shift;
};
constexpr KindTest kind_tests[] = {{'i', 'i', 2}, {'l', 'q', 3}, {'d', 'd', 3}, {'O', 'O', 3}};
constexpr ArraySpec list_entry{0, 0, Kind::i32, 1, false};

const KindTest& test_of(const ArraySpec& spec)
{
    return kind_tests[static_cast<int>(spec.kind)];
}

bool accepts(const ArraySpec& spec, const Py_buffer& view)
{
    const KindTest& test = test_of(spec);
    const char c = view.format[0];
    return view.ndim == spec.rank && (c == test.first || c == test.also) &&
           (spec.kind != Kind::list_of_i32 || view.format[1] == '\0');
}

/// The entries of a list of arrays: what is held, and the views of it, all null for None.
class EntryList
{
public:
    /// Takes a view of each entry. On failure sets the exception, with the list's name, and returns
    /// false; what has been taken is held until release.
    bool take(const ArrayView& objects, const char* name);
    void release();

    /// The entries as the one array that the body gets.
    ArrayView view() const { return {views_, {0, 0}, {count_, 0}}; }

private:
    PyObject** held_ = nullptr;
    ArrayView* views_ = nullptr;
    int64_t count_ = 0;
};

/// The arguments of one call, and the views that it holds: taken left to right, released in
/// reverse.
class Call
{
public:
    explicit Call(const Signature& signature) : signature_(signature) {}
    ~Call() { release(); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    /// On failure sets the exception and returns false.
    bool take(PyObject* arguments);
    void run(Slot* results) const;
    void release();

private:
    bool read_scalars(PyObject* arguments);
    bool read_arrays();
    bool parse(PyObject* arguments);
    bool take_views();
    bool accept(const ArraySpec& spec, const Py_buffer& view) const;
    void note(int n, const Py_buffer& view);

    const char* name(const ArraySpec& spec) const { return signature_.text + spec.name; }

    const Signature& signature_;
    // Of the arrays below, what counts is written before it is read.
    Slot slots_[most_parameters];
    ArrayView arrays_[most_arrays];
    Py_ssize_t gaps_ = 0; // all distances between neighbouring elements, combined

    bool direct_ = true;                 // which of the two hold the views
    int held_ = 0;                       // how many of them
    Py_buffer buffers_[most_arrays];     // null `obj` for None
    PyObject* memoryviews_[most_arrays]; // owned references, null for None
    int list_ = -1;                      // which of the arrays is a list, if one is
    EntryList entries_;
};

/// What an empty view without memory lies at, so that it is told from None.
char nowhere;

/// A view in elements; bytes are divided as unsigned numbers.
ArrayView in_elements(const Py_buffer& view, const ArraySpec& spec)
{
    const int shift = test_of(spec).shift;
    const auto elements = [shift](Py_ssize_t bytes) {
        return static_cast<int64_t>(static_cast<uint64_t>(bytes) >> shift);
    };
    void* data = view.buf != nullptr ? view.buf : &nowhere;
    if (spec.rank == 1) return {data, {elements(view.strides[0]), 0}, {elements(view.len), 0}};
    return {data,
            {elements(view.strides[0]), elements(view.strides[1])},
            {view.shape[0], view.shape[1]}};
}

/// Reads an ordinary scalar, by its letter, or an object; false if it isn't one.
bool read(char letter, PyObject* object, Slot& slot)
{
    int overflow = 0;
    switch (letter) {
    case 'i': {
        if (!PyLong_CheckExact(object)) return false;
        const long value = PyLong_AsLongAndOverflow(object, &overflow);
        slot.i = static_cast<int>(value);
        return overflow == 0 && value == slot.i;
    }
    case 'L':
        if (!PyLong_CheckExact(object)) return false;
        slot.l = PyLong_AsLongLongAndOverflow(object, &overflow);
        return overflow == 0;
    case 'd':
        if (!PyFloat_CheckExact(object)) return false;
        slot.d = PyFloat_AS_DOUBLE(object);
        return true;
    case 'p':
        if (!PyBool_Check(object) && !PyLong_CheckExact(object)) return false;
        slot.i = PyObject_IsTrue(object);
        return true;
    default:
        slot.object = object;
        return true;
    }
}

/// Whether a buffer can be read as it is. (A memoryview makes up for what an exporter leaves out.)
bool is_ordinary(const Py_buffer& view, const ArraySpec& spec)
{
    return view.format != nullptr && view.shape != nullptr && view.strides != nullptr &&
           view.suboffsets == nullptr && accepts(spec, view) &&
           !(checked && spec.written && view.readonly);
}

void refuse(const char* name)
{
    PyErr_Format(PyExc_ValueError, "Invalid array shape or type for argument '%s'", name);
}

/// Turns the exception in flight, out of a body, into the interpreter's.
void report_failure([[maybe_unused]] int number)
{
    try {
        throw;
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    }
#ifdef FRAGMENTS_CHECKED
    catch (const OutOfView& access) {
        PyErr_Format(PyExc_IndexError,
                     "closure %d: index %lld is outside array '%s' of length %lld", number,
                     static_cast<long long>(access.index), access.name,
                     static_cast<long long>(access.length));
    } catch (const DivisionByZero&) {
        PyErr_Format(PyExc_ZeroDivisionError, "closure %d: division by zero", number);
    } catch (const QuotientOverflow&) {
        PyErr_Format(PyExc_OverflowError, "closure %d: the least integer is divided by -1", number);
    }
#endif
}

PyObject* build(char letter, const Slot& number)
{
    switch (letter) {
    case 'i':
        return PyLong_FromLong(number.i);
    case 'L':
        return PyLong_FromLongLong(number.l);
    default:
        return PyBool_FromLong(number.i);
    }
}

PyObject* build(const Signature& signature, const Slot* results)
{
    const char* letters = signature.results;
    if (letters[0] == '\0') Py_RETURN_NONE;
    if (!signature.tuple) return build(letters[0], results[0]);
    const auto size = static_cast<Py_ssize_t>(std::strlen(letters));
    PyObject* tuple = PyTuple_New(size);
    if (tuple == nullptr) return nullptr;
    for (Py_ssize_t k = 0; k < size; ++k) {
        PyObject* number = build(letters[k], results[k]);
        if (number == nullptr) {
            Py_DECREF(tuple);
            return nullptr;
        }
        PyTuple_SET_ITEM(tuple, k, number);
    }
    return tuple;
}

bool EntryList::take(const ArrayView& objects, const char* name)
{
    const int64_t count = objects.extent[0];
    if (count == 0) return true;
    const auto size = static_cast<size_t>(count);
    held_ = static_cast<PyObject**>(std::calloc(size, sizeof(PyObject*)));
    views_ = static_cast<ArrayView*>(std::calloc(size, sizeof(ArrayView)));
    if (held_ == nullptr || views_ == nullptr) {
        PyErr_NoMemory();
        return false;
    }
    count_ = count;
    for (int64_t k = 0; k < count; ++k) {
        PyObject* object = static_cast<PyObject* const*>(objects.data)[k * objects.stride[0]];
        if (object == nullptr || object == Py_None) continue;
        held_[k] = PyMemoryView_FromObject(object);
        if (held_[k] == nullptr) return false;
        const Py_buffer& view = *PyMemoryView_GET_BUFFER(held_[k]);
        if (!accepts(list_entry, view)) {
            refuse(name);
            return false;
        }
        views_[k] = in_elements(view, list_entry);
    }
    return true;
}

void EntryList::release()
{
    for (int64_t k = count_; k > 0; --k) Py_XDECREF(held_[k - 1]);
    std::free(held_);
    std::free(views_);
}

bool Call::take(PyObject* arguments)
{
    if (read_scalars(arguments) && read_arrays()) return true;
    release();
    return parse(arguments) && take_views();
}

// Ordinary arguments.

bool Call::read_scalars(PyObject* arguments)
{
    if (PyTuple_GET_SIZE(arguments) != signature_.parameters) return false;
    for (int k = 0; k < signature_.parameters; ++k)
        if (!read(signature_.text[k], PyTuple_GET_ITEM(arguments, k), slots_[k])) return false;
    return true;
}

bool Call::read_arrays()
{
    for (int n = 0; n < signature_.array_count; ++n) {
        const ArraySpec& spec = signature_.arrays[n];
        PyObject* object = slots_[spec.parameter].object;
        Py_buffer& view = buffers_[n];
        if (object == Py_None) {
            view.obj = nullptr;
            arrays_[n] = {};
            ++held_;
            continue;
        }
        if (spec.kind == Kind::list_of_i32 || !PyObject_CheckBuffer(object)) return false;
        if (PyObject_GetBuffer(object, &view, PyBUF_FULL_RO) != 0) {
            PyErr_Clear();
            return false;
        }
        ++held_;
        if (!is_ordinary(view, spec)) return false;
        note(n, view);
    }
    return true;
}

// All others.

bool Call::parse(PyObject* arguments)
{
    // The parser takes as many of the pointers as the format has letters.
    const auto parse = [&]<size_t... K>(std::index_sequence<K...>)
    {
        return PyArg_ParseTuple(arguments, signature_.text, &slots_[K]...) != 0;
    };
    return parse(std::make_index_sequence<most_parameters>{});
}

bool Call::take_views()
{
    direct_ = false;
    gaps_ = 0;
    for (int n = 0; n < signature_.array_count; ++n) {
        const ArraySpec& spec = signature_.arrays[n];
        PyObject* object = slots_[spec.parameter].object;
        if (object == Py_None) {
            memoryviews_[held_++] = nullptr;
            arrays_[n] = {};
            continue;
        }
        PyObject* memoryview = PyMemoryView_FromObject(object);
        if (memoryview == nullptr) return false;
        memoryviews_[held_++] = memoryview;
        const Py_buffer& view = *PyMemoryView_GET_BUFFER(memoryview);
        if (!accept(spec, view)) return false;
        note(n, view);
        if (spec.kind == Kind::list_of_i32) {
            list_ = n;
            if (!entries_.take(arrays_[n], name(spec))) return false;
            arrays_[n] = entries_.view();
        }
    }
    return true;
}

bool Call::accept(const ArraySpec& spec, const Py_buffer& view) const
{
    if (!accepts(spec, view)) {
        refuse(name(spec));
        return false;
    }
    if (checked && spec.written && view.readonly) {
        PyErr_Format(PyExc_BufferError,
                     "closure %d: array '%s' is written, and its buffer is read-only",
                     signature_.number, name(spec));
        return false;
    }
    return true;
}

/// Array n as the body takes it.
void Call::note(int n, const Py_buffer& view)
{
    const ArraySpec& spec = signature_.arrays[n];
    arrays_[n] = in_elements(view, spec);
    gaps_ |= view.strides[spec.rank - 1] - (Py_ssize_t{1} << test_of(spec).shift);
}

// The body, and the end.

void Call::run(Slot* results) const
{
    (gaps_ == 0 ? signature_.contiguous : signature_.strided)(slots_, arrays_, results);
}

void Call::release()
{
    while (held_ > 0) {
        --held_;
        if (direct_) {
            PyBuffer_Release(&buffers_[held_]);
        } else {
            if (held_ == list_) entries_.release();
            Py_XDECREF(memoryviews_[held_]);
        }
    }
}

} // namespace

PyObject* run(const Signature& signature, PyObject* arguments)
{
    Call call(signature);
    if (!call.take(arguments)) return nullptr;
    Slot results[most_results];
    try {
        call.run(results);
    } catch (...) {
        call.release();
        report_failure(signature.number);
        return nullptr;
    }
    call.release();
    return build(signature, results);
}

} // namespace fragments
