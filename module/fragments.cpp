// Python's header asks to stand before all others.
#include <Python.h>

#include "closure_frame.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace fragments {

namespace {

constexpr int closure_count = 646;

/// "_c_closure_<number>".
struct MethodName
{
    constexpr explicit MethodName(int number)
    {
        constexpr char stem[] = "_c_closure_";
        char* end = std::copy(stem, stem + sizeof stem - 1, text);
        for (int unit = number < 10 ? 1 : number < 100 ? 10 : 100; unit > 0; unit /= 10)
            *end++ = static_cast<char>('0' + number / unit % 10);
    }
    char text[16]{};
};

template <int Number>
constexpr MethodName method_name{Number};

template <int... Ascending>
constexpr std::array<PyMethodDef, closure_count + 1>
make_methods(std::integer_sequence<int, Ascending...>)
{
    constexpr int last = closure_count - 1;
    return {{{method_name<last - Ascending>.text, closure<last - Ascending>, METH_VARARGS, ""}...,
             {nullptr, nullptr, 0, nullptr}}};
}

/// All closures, in descending order of their numbers, and the closing entry.
constinit std::array<PyMethodDef, closure_count + 1> FragmentsMethods =
    make_methods(std::make_integer_sequence<int, closure_count>{});

PyModuleDef FragmentsModule = {
    .m_base = PyModuleDef_HEAD_INIT,
    .m_name = "fragments",
    .m_doc = "",
    .m_size = -1,
    .m_methods = FragmentsMethods.data(),
    .m_slots = nullptr,
    .m_traverse = nullptr,
    .m_clear = nullptr,
    .m_free = nullptr,
};

} // namespace

} // namespace fragments

extern "C" [[gnu::visibility("default")]] PyObject* PyInit_fragments()
{
    using namespace fragments;
    return PyModule_Create2(&FragmentsModule, PYTHON_API_VERSION);
}
