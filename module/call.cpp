#include "call.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "division.h"

namespace fragments {

namespace {

/// What an empty view without memory lies at, so that it is told from None.
char nowhere;

/// `view` in elements. The division is unsigned, as a shift.
ArrayView in_elements(const Py_buffer& view, int rank, int shift)
{
    const auto elements = [shift](Py_ssize_t bytes) {
        return static_cast<int64_t>(static_cast<uint64_t>(bytes) >> shift);
    };
    void* data = view.buf != nullptr ? view.buf : &nowhere;
    if (rank == 1) return {data, {elements(view.strides[0]), 0}, {elements(view.len), 0}};
    return {data,
            {elements(view.strides[0]), elements(view.strides[1])},
            {view.shape[0], view.shape[1]}};
}

/// The bytes between the end of an element and the start of its neighbour.
Py_ssize_t gap(const Py_buffer& view, const ArraySpec& spec)
{
    return view.strides[spec.rank - 1] - (Py_ssize_t{1} << spec.shift);
}

/// The reading of an ordinary scalar by its letter; false if it isn't one.
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
           view.suboffsets == nullptr && spec.accepts(view) &&
           !(checked && spec.written && view.readonly);
}

/// Tests a memoryview. On failure sets the exception, with the name that stands in `named`.
bool accept(const Py_buffer& view, const ArraySpec& spec, const ArraySpec& named,
            [[maybe_unused]] int number)
{
    if (!spec.accepts(view)) {
        PyErr_Format(PyExc_ValueError, "Invalid array shape or type for argument '%s'", named.name);
        return false;
    }
#ifdef FRAGMENTS_CHECKED
    if (spec.written && view.readonly) {
        PyErr_Format(PyExc_BufferError,
                     "closure %d: array '%s' is written, and its buffer is read-only", number,
                     named.name);
        return false;
    }
#endif
    return true;
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

} // namespace

PyObject* run(const Signature& signature, PyObject* arguments)
{
    Call call;
    if (!call.take(signature, arguments)) return nullptr;
    Slot results[most_results];
    try {
        (call.contiguous() ? signature.contiguous : signature.strided)(call, results);
    } catch (...) {
        call.release();
        report_failure(signature.number);
        return nullptr;
    }
    call.release();
    return build(signature, results);
}

bool Call::take(const Signature& signature, PyObject* arguments)
{
    if (read_scalars(signature, arguments) && read_arrays(signature)) return true;
    release();
    return parse(signature, arguments) && take_views(signature);
}

// Ordinary arguments.

bool Call::read_scalars(const Signature& signature, PyObject* arguments)
{
    if (PyTuple_GET_SIZE(arguments) != signature.parameters) return false;
    for (int k = 0; k < signature.parameters; ++k)
        if (!read(signature.format[k], PyTuple_GET_ITEM(arguments, k), slots_[k])) return false;
    return true;
}

bool Call::read_arrays(const Signature& signature)
{
    direct_ = true;
    gaps_ = 0;
    for (int n = 0; n < signature.array_count; ++n) {
        const ArraySpec& spec = signature.arrays[n];
        PyObject* object = slots_[spec.parameter].object;
        Py_buffer& view = buffers_[n];
        if (object == Py_None) {
            view.obj = nullptr;
            arrays_[n] = {};
            ++held_;
            continue;
        }
        if (spec.entry != nullptr || !PyObject_CheckBuffer(object)) return false;
        if (PyObject_GetBuffer(object, &view, PyBUF_FULL_RO) != 0) {
            PyErr_Clear();
            return false;
        }
        ++held_;
        if (!is_ordinary(view, spec)) return false;
        gaps_ |= gap(view, spec);
        arrays_[n] = in_elements(view, spec.rank, spec.shift);
    }
    return true;
}

// All others.

bool Call::parse(const Signature& signature, PyObject* arguments)
{
    // The parser takes as many pointers as the format has letters.
    const auto parse = [&]<size_t... K>(std::index_sequence<K...>)
    {
        return PyArg_ParseTuple(arguments, signature.format, &slots_[K]...) != 0;
    };
    return parse(std::make_index_sequence<most_parameters>{});
}

bool Call::take_views(const Signature& signature)
{
    direct_ = false;
    gaps_ = 0;
    for (int n = 0; n < signature.array_count; ++n) {
        const ArraySpec& spec = signature.arrays[n];
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
        if (!accept(view, spec, spec, signature.number)) return false;
        if (spec.entry != nullptr) {
            list_ = n;
            if (!take_entries(spec, view, signature.number)) return false;
            continue;
        }
        gaps_ |= gap(view, spec);
        arrays_[n] = in_elements(view, spec.rank, spec.shift);
    }
    return true;
}

bool Call::take_entries(const ArraySpec& list, const Py_buffer& view, int number)
{
    const ArrayView objects = in_elements(view, 1, list.shift);
    const int64_t count = objects.extent[0];
    arrays_[list_] = {};
    if (count == 0) return true;
    entries_ = static_cast<Entry*>(std::calloc(static_cast<size_t>(count), sizeof(Entry)));
    if (entries_ == nullptr) {
        PyErr_NoMemory();
        return false;
    }
    entry_count_ = count;
    for (int64_t k = 0; k < count; ++k) {
        PyObject* object = static_cast<PyObject* const*>(objects.data)[k * objects.stride[0]];
        if (object == nullptr || object == Py_None) continue;
        Entry& entry = entries_[k];
        entry.memoryview = PyMemoryView_FromObject(object);
        if (entry.memoryview == nullptr) return false;
        const Py_buffer& taken = *PyMemoryView_GET_BUFFER(entry.memoryview);
        if (!accept(taken, *list.entry, list, number)) return false;
        entry.view = in_elements(taken, 1, list.entry->shift);
    }
    arrays_[list_] = {entries_, {0, 0}, {count, 0}};
    return true;
}

// At the end.

void Call::release()
{
    while (held_ > 0) {
        --held_;
        if (direct_) {
            PyBuffer_Release(&buffers_[held_]);
        } else {
            if (held_ == list_) release_entries();
            Py_XDECREF(memoryviews_[held_]);
        }
    }
}

void Call::release_entries()
{
    for (int64_t k = entry_count_; k > 0; --k) Py_XDECREF(entries_[k - 1].memoryview);
    std::free(entries_);
    entries_ = nullptr;
    entry_count_ = 0;
    list_ = -1;
}

} // namespace fragments
