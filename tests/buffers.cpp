// For the tests only: Buffer, which exports the memory of another object as a buffer of any form,
// also of forms that no library makes, and counts the views held; address(object), where the memory
// of an object's buffer starts; and call_without_memory(n, function, arguments), which calls the
// function while the allocation after n others fails, and returns its result and whether it made so
// many. (It needs the tests' allocator.)
//
//     Buffer(data, format, itemsize, shape, strides, offset=0, readonly=False, hook=None,
//            shapeless=False, suboffsets=())
//
// `data` is a writable bytes-like object, or a tuple, whose items then are the memory: references
// of 8 bytes each; or None, for no memory at all. A format or strides of None are left out of the
// views, and so is the shape with `shapeless`. `hook()` is called before each view is given; what
// it raises refuses the view. Nothing is tested: strides and offset, in bytes, are the caller's to
// get right.

#include <Python.h>

#include <array>
#include <cstddef>

#include <structmember.h>

extern "C" [[gnu::weak]] long allocations_before_failure;

namespace {

constexpr Py_ssize_t max_rank = 65; // one above what the interpreter takes

using Extents = std::array<Py_ssize_t, max_rank>;

struct Buffer
{
    PyObject head;
    PyObject* format; // bytes, or null
    PyObject* tuple;  // or null, and `memory` holds the data
    PyObject* hook;   // or None
    Py_buffer memory;
    Py_ssize_t itemsize;
    Py_ssize_t rank;
    Extents shape, strides, suboffsets;
    bool has_strides, has_suboffsets;
    Py_ssize_t offset;
    int readonly;
    int shapeless;

    Py_ssize_t views;       // held now
    Py_ssize_t taken;       // ever
    Py_ssize_t taken_at;    // when the last view was taken, by a clock of takes and releases
    Py_ssize_t released_at; // when the last view was released
};

Py_ssize_t time_now = 0;

Buffer* buffer(PyObject* object)
{
    return reinterpret_cast<Buffer*>(object);
}

/// Reads as many extents as the buffer has dimensions; returns whether there are so many.
bool read_extents(const Buffer& self, PyObject* sequence, Extents& extents)
{
    if (!PyTuple_Check(sequence) || PyTuple_GET_SIZE(sequence) != self.rank) {
        PyErr_SetString(PyExc_ValueError, "strides and suboffsets: as many entries as the shape");
        return false;
    }
    for (Py_ssize_t k = 0; k < self.rank; ++k)
        extents.at(static_cast<size_t>(k)) = PyLong_AsSsize_t(PyTuple_GET_ITEM(sequence, k));
    return PyErr_Occurred() == nullptr;
}

int initialise(PyObject* object, PyObject* arguments, PyObject* keywords)
{
    static std::array names{const_cast<char*>("data"),      const_cast<char*>("format"),
                            const_cast<char*>("itemsize"),  const_cast<char*>("shape"),
                            const_cast<char*>("strides"),   const_cast<char*>("offset"),
                            const_cast<char*>("readonly"),  const_cast<char*>("hook"),
                            const_cast<char*>("shapeless"), const_cast<char*>("suboffsets"),
                            static_cast<char*>(nullptr)};
    Buffer& self = *buffer(object);
    PyObject* data = nullptr;
    const char* format = nullptr;
    PyObject* shape = nullptr;
    PyObject* strides = nullptr;
    PyObject* suboffsets = nullptr;
    self.hook = Py_None;
    if (!PyArg_ParseTupleAndKeywords(arguments, keywords, "OznO!O|npOpO", names.data(), &data,
                                     &format, &self.itemsize, &PyTuple_Type, &shape, &strides,
                                     &self.offset, &self.readonly, &self.hook, &self.shapeless,
                                     &suboffsets)) {
        self.hook = nullptr;
        return -1;
    }
    Py_INCREF(self.hook);
    self.rank = PyTuple_GET_SIZE(shape);
    self.has_strides = strides != Py_None;
    self.has_suboffsets = suboffsets != nullptr;
    if (self.rank > max_rank) {
        PyErr_SetString(PyExc_ValueError, "shape: up to 65 entries");
        return -1;
    }
    if (!read_extents(self, shape, self.shape) ||
        (self.has_strides && !read_extents(self, strides, self.strides)) ||
        (self.has_suboffsets && !read_extents(self, suboffsets, self.suboffsets)))
        return -1;
    if (format != nullptr) {
        self.format = PyBytes_FromString(format);
        if (self.format == nullptr) return -1;
    }
    if (PyTuple_CheckExact(data)) {
        Py_INCREF(data);
        self.tuple = data;
        return 0;
    }
    return data == Py_None ? 0 : PyObject_GetBuffer(data, &self.memory, PyBUF_WRITABLE);
}

void destroy(PyObject* object)
{
    Buffer& self = *buffer(object);
    PyTypeObject* type = Py_TYPE(object);
    Py_XDECREF(self.format);
    Py_XDECREF(self.tuple);
    Py_XDECREF(self.hook);
    PyBuffer_Release(&self.memory);
    type->tp_free(object);
    Py_DECREF(type);
}

int take(PyObject* object, Py_buffer* view, int)
{
    Buffer& self = *buffer(object);
    *view = {};
    if (self.hook != Py_None) {
        PyObject* result = PyObject_CallObject(self.hook, nullptr);
        if (result == nullptr) return -1;
        Py_DECREF(result);
    }
    char* data = self.tuple == nullptr ? static_cast<char*>(self.memory.buf)
                                       : reinterpret_cast<char*>(&PyTuple_GET_ITEM(self.tuple, 0));
    Py_INCREF(object);
    view->obj = object;
    view->buf = data == nullptr ? nullptr : data + self.offset;
    view->itemsize = self.itemsize;
    view->len = self.itemsize;
    for (size_t k = 0; k < static_cast<size_t>(self.rank); ++k) view->len *= self.shape.at(k);
    view->readonly = self.readonly;
    view->ndim = static_cast<int>(self.rank);
    view->format = self.format == nullptr ? nullptr : PyBytes_AS_STRING(self.format);
    view->shape = self.shapeless ? nullptr : self.shape.data();
    view->strides = self.has_strides ? self.strides.data() : nullptr;
    view->suboffsets = self.has_suboffsets ? self.suboffsets.data() : nullptr;
    ++self.views;
    ++self.taken;
    self.taken_at = ++time_now;
    return 0;
}

void release(PyObject* object, Py_buffer*)
{
    --buffer(object)->views;
    buffer(object)->released_at = ++time_now;
}

PyObject* address(PyObject*, PyObject* object)
{
    Py_buffer view;
    if (PyObject_GetBuffer(object, &view, PyBUF_FULL_RO) != 0) return nullptr;
    void* start = view.buf;
    PyBuffer_Release(&view);
    return PyLong_FromVoidPtr(start);
}

PyObject* call_without_memory(PyObject*, PyObject* arguments)
{
    long before = 0;
    PyObject* function = nullptr;
    PyObject* passed = nullptr;
    if (!PyArg_ParseTuple(arguments, "lOO!", &before, &function, &PyTuple_Type, &passed))
        return nullptr;
    if (&allocations_before_failure == nullptr) {
        PyErr_SetString(PyExc_RuntimeError, "the tests' allocator isn't loaded");
        return nullptr;
    }
    allocations_before_failure = before;
    PyObject* result = PyObject_CallObject(function, passed);
    const bool failed = allocations_before_failure < 0;
    allocations_before_failure = -1;
    return result == nullptr ? nullptr : Py_BuildValue("NN", result, PyBool_FromLong(failed));
}

PyObject* make_type()
{
    static std::array members{
        PyMemberDef{"views", T_PYSSIZET, offsetof(Buffer, views), READONLY, nullptr},
        PyMemberDef{"taken", T_PYSSIZET, offsetof(Buffer, taken), READONLY, nullptr},
        PyMemberDef{"taken_at", T_PYSSIZET, offsetof(Buffer, taken_at), READONLY, nullptr},
        PyMemberDef{"released_at", T_PYSSIZET, offsetof(Buffer, released_at), READONLY, nullptr},
        PyMemberDef{nullptr, 0, 0, 0, nullptr}};
    static std::array slots{PyType_Slot{Py_tp_init, reinterpret_cast<void*>(initialise)},
                            PyType_Slot{Py_tp_dealloc, reinterpret_cast<void*>(destroy)},
                            PyType_Slot{Py_tp_members, members.data()}, PyType_Slot{0, nullptr}};
    static PyType_Spec spec{"test_buffers.Buffer", sizeof(Buffer), 0, Py_TPFLAGS_DEFAULT,
                            slots.data()};
    PyObject* type = PyType_FromSpec(&spec);
    if (type == nullptr) return nullptr;
    // There are no slots for these before CPython 3.9.
    PyBufferProcs& procs = *reinterpret_cast<PyTypeObject*>(type)->tp_as_buffer;
    procs.bf_getbuffer = take;
    procs.bf_releasebuffer = release;
    return type;
}

} // namespace

extern "C" [[gnu::visibility("default")]] PyObject* PyInit_test_buffers()
{
    static std::array functions{
        PyMethodDef{"address", address, METH_O, nullptr},
        PyMethodDef{"call_without_memory", call_without_memory, METH_VARARGS, nullptr},
        PyMethodDef{nullptr, nullptr, 0, nullptr}};
    static PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                                     "test_buffers",
                                     nullptr,
                                     -1,
                                     functions.data(),
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr};
    PyObject* module = PyModule_Create(&definition);
    if (module == nullptr) return nullptr;
    if (PyObject* type = make_type(); type == nullptr || PyModule_AddObject(module, "Buffer", type))
        Py_CLEAR(module);
    return module;
}
