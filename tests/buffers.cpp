// For the tests only: Buffer, which exports the memory of another object as a buffer of any form,
// also of forms that no library makes, and counts the views held.
//
//     Buffer(data, format, itemsize, shape, strides, offset=0, readonly=False)
//
// `data` is a writable bytes-like object, or a tuple, whose items then are the memory: references
// of 8 bytes each. Nothing is tested: strides and offset, in bytes, are the caller's to get right.

#include <Python.h>

#include <array>
#include <cstddef>

#include <structmember.h>

namespace {

constexpr Py_ssize_t max_rank = 4;

struct Buffer
{
    PyObject head;
    PyObject* format; // bytes
    PyObject* tuple;  // or null, and `memory` holds the data
    Py_buffer memory;
    Py_ssize_t itemsize;
    Py_ssize_t rank;
    std::array<Py_ssize_t, max_rank> shape;
    std::array<Py_ssize_t, max_rank> strides;
    Py_ssize_t offset;
    int readonly;

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

bool read_extents(PyObject* sequence, std::array<Py_ssize_t, max_rank>& extents)
{
    for (Py_ssize_t k = 0; k < PyTuple_GET_SIZE(sequence); ++k)
        extents.at(static_cast<size_t>(k)) = PyLong_AsSsize_t(PyTuple_GET_ITEM(sequence, k));
    return PyErr_Occurred() == nullptr;
}

int initialise(PyObject* object, PyObject* arguments, PyObject* keywords)
{
    static std::array names{const_cast<char*>("data"),     const_cast<char*>("format"),
                            const_cast<char*>("itemsize"), const_cast<char*>("shape"),
                            const_cast<char*>("strides"),  const_cast<char*>("offset"),
                            const_cast<char*>("readonly"), static_cast<char*>(nullptr)};
    Buffer& self = *buffer(object);
    PyObject* data = nullptr;
    const char* format = nullptr;
    PyObject* shape = nullptr;
    PyObject* strides = nullptr;
    if (!PyArg_ParseTupleAndKeywords(arguments, keywords, "OsnO!O!|np", names.data(), &data,
                                     &format, &self.itemsize, &PyTuple_Type, &shape, &PyTuple_Type,
                                     &strides, &self.offset, &self.readonly))
        return -1;
    self.rank = PyTuple_GET_SIZE(shape);
    if (self.rank > max_rank || PyTuple_GET_SIZE(strides) != self.rank) {
        PyErr_SetString(PyExc_ValueError, "shape and strides: up to 4 entries, as many of each");
        return -1;
    }
    if (!read_extents(shape, self.shape) || !read_extents(strides, self.strides)) return -1;
    self.format = PyBytes_FromString(format);
    if (self.format == nullptr) return -1;
    if (PyTuple_CheckExact(data)) {
        Py_INCREF(data);
        self.tuple = data;
        return 0;
    }
    return PyObject_GetBuffer(data, &self.memory, PyBUF_WRITABLE);
}

void destroy(PyObject* object)
{
    Buffer& self = *buffer(object);
    PyTypeObject* type = Py_TYPE(object);
    Py_XDECREF(self.format);
    Py_XDECREF(self.tuple);
    PyBuffer_Release(&self.memory);
    type->tp_free(object);
    Py_DECREF(type);
}

int take(PyObject* object, Py_buffer* view, int)
{
    Buffer& self = *buffer(object);
    char* data = self.tuple == nullptr ? static_cast<char*>(self.memory.buf)
                                       : reinterpret_cast<char*>(&PyTuple_GET_ITEM(self.tuple, 0));
    *view = {};
    Py_INCREF(object);
    view->obj = object;
    view->buf = data + self.offset;
    view->itemsize = self.itemsize;
    view->len = self.itemsize;
    for (size_t k = 0; k < static_cast<size_t>(self.rank); ++k) view->len *= self.shape[k];
    view->readonly = self.readonly;
    view->ndim = static_cast<int>(self.rank);
    view->format = PyBytes_AS_STRING(self.format);
    view->shape = self.shape.data();
    view->strides = self.strides.data();
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
    static PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                                     "test_buffers",
                                     nullptr,
                                     -1,
                                     nullptr,
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
