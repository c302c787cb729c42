#include "closure_frame.h"

#include <cstdlib>

namespace fragments {

namespace {

constexpr Py_ssize_t item_size(char kind)
{
    return kind == 'i' ? 4 : 8;
}

bool has_kind(const char* format, char kind)
{
    if (kind == 'l') return format[0] == 'l' || format[0] == 'q';
    if (kind == 'O') return format[0] == 'O' && format[1] == '\0';
    return format[0] == kind;
}

/// A new reference to a memoryview of `object`, tested for rank and kind; null with the
/// interpreter's exception set.
PyObject* take_view(PyObject* object, const char* name, char kind, int rank)
{
    PyObject* memoryview = PyMemoryView_FromObject(object);
    if (memoryview == nullptr) return nullptr;
    const Py_buffer& view = *PyMemoryView_GET_BUFFER(memoryview);
    if (view.ndim == rank && has_kind(view.format, kind)) return memoryview;
    PyErr_Format(PyExc_ValueError, "Invalid array shape or type for argument '%s'", name);
    Py_DECREF(memoryview);
    return nullptr;
}

} // namespace

bool Views::acquire(PyObject* const* objects, const ArraySpec* specs, size_t count)
{
    for (; count_ < count; ++count_) {
        const ArraySpec& spec = specs[count_];
        memoryviews_[count_] = nullptr;
        if (objects[count_] == Py_None) continue;
        PyObject* memoryview = take_view(objects[count_], spec.name, spec.kind, spec.rank);
        if (memoryview == nullptr) {
            release();
            return false;
        }
        memoryviews_[count_] = memoryview;
        const Py_buffer& view = *PyMemoryView_GET_BUFFER(memoryview);
        if (spec.kind == 'O') {
            if (acquire_entries(view, spec)) continue;
            ++count_; // the list's own view is held
            release();
            return false;
        }
        contiguous_ = contiguous_ && view.strides[spec.rank - 1] == item_size(spec.kind);
    }
    return true;
}

bool Views::acquire_entries(const Py_buffer& list, const ArraySpec& spec)
{
    const int64_t count = elements<PyObject*>(list.len);
    if (count == 0) return true;
    entries_ = static_cast<PyObject**>(std::calloc(static_cast<size_t>(count), sizeof(PyObject*)));
    if (entries_ == nullptr) {
        PyErr_NoMemory();
        return false;
    }
    entry_count_ = count;
    list_ = count_;
    const auto* objects = static_cast<PyObject* const*>(list.buf);
    const int64_t stride = elements<PyObject*>(list.strides[0]);
    for (int64_t k = 0; k < count; ++k) {
        PyObject* object = objects[k * stride];
        if (object == nullptr || object == Py_None) continue;
        entries_[k] = take_view(object, spec.name, spec.entry_kind, 1);
        if (entries_[k] == nullptr) return false;
    }
    return true;
}

void Views::release()
{
    while (count_ > 0) {
        --count_;
        if (entries_ != nullptr && count_ == list_) release_entries();
        Py_XDECREF(memoryviews_[count_]);
    }
}

void Views::release_entries()
{
    for (int64_t k = entry_count_; k > 0; --k) Py_XDECREF(entries_[k - 1]);
    std::free(entries_);
    entries_ = nullptr;
    entry_count_ = 0;
}

PyObject* report_failure([[maybe_unused]] int number)
{
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return PyErr_NoMemory();
    }
#ifdef FRAGMENTS_CHECKED
    catch (const OutOfView& access) {
        return PyErr_Format(PyExc_IndexError,
                            "closure %d: index %lld is outside array '%s' of length %lld", number,
                            static_cast<long long>(access.index), access.name,
                            static_cast<long long>(access.length));
    }
#endif
}

} // namespace fragments
