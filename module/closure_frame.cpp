#include "closure_frame.h"

#include <cstdlib>

namespace fragments {

void report_refusal(const char* name)
{
    PyErr_Format(PyExc_ValueError, "Invalid array shape or type for argument '%s'", name);
}

bool EntryViews::take(const Py_buffer& list, const ArraySpec& entry, const char* name)
{
    const int64_t length = elements<PyObject*>(list.len);
    if (length == 0) return true;
    views_ = static_cast<PyObject**>(std::calloc(static_cast<size_t>(length), sizeof(PyObject*)));
    if (views_ == nullptr) {
        PyErr_NoMemory();
        return false;
    }
    length_ = length;
    const auto* objects = static_cast<PyObject* const*>(list.buf);
    const int64_t stride = elements<PyObject*>(list.strides[0]);
    for (int64_t k = 0; k < length; ++k) {
        PyObject* object = objects[k * stride];
        if (object == nullptr || object == Py_None) continue;
        views_[k] = PyMemoryView_FromObject(object);
        if (views_[k] == nullptr) return false;
        if (!entry.accepts(*PyMemoryView_GET_BUFFER(views_[k]))) {
            report_refusal(name);
            return false;
        }
    }
    return true;
}

void EntryViews::release()
{
    for (int64_t k = length_; k > 0; --k) Py_XDECREF(views_[k - 1]);
    std::free(views_);
    views_ = nullptr;
    length_ = 0;
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
