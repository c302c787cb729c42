#pragma once

/// What the frame needs to know of a closure, without its types, to take a call apart and to build
/// its result. See call.cpp.

#include <cstdint>

struct _object; // the interpreter's objects; its header is needed by none of the closures

namespace fragments {

using PyObject = ::_object;

enum class Kind : uint8_t { i32, i64, f64, list_of_i32 };

/// An array parameter.
struct ArraySpec
{
    uint16_t name;     ///< where it stands in Signature::text
    uint8_t parameter; ///< its place among all parameters
    Kind kind;
    uint8_t rank;
    bool written; ///< in the checked build, a read-only buffer is refused
};

/// A scalar or object as PyArg_ParseTuple leaves it, or a number of the result.
union Slot {
    int i; // also for a truth value
    long long l;
    double d;
    PyObject* object;
};

/// An accepted array: where it lies, and its strides and extents in elements. Of rank 1,
/// `extent[0]` is its length. All is 0 for None, and `data` for None alone. Of a list of arrays,
/// `data` are the views of its entries.
struct ArrayView
{
    void* data;
    int64_t stride[2];
    int64_t extent[2];
};

constexpr int most_parameters = 40;
constexpr int most_arrays = 20;
constexpr int most_results = 5;

/// What a closure's declaration says, and its body for either kind of stride.
struct Signature
{
    using Body = void (*)(const Slot* parameters, const ArrayView* arrays, Slot* results);

    const char* text; ///< the format for PyArg_ParseTuple, then the arrays' names, each ended by 0
    const ArraySpec* arrays;
    Body contiguous; ///< if the elements of each array follow each other, in its last dimension
    Body strided;
    int16_t number;
    uint8_t parameters;
    uint8_t array_count;
    bool tuple;                     ///< whether the result's numbers come in a tuple
    char results[most_results + 1]; ///< a letter for each number of the result
};

/// The METH_VARARGS function of all closures.
PyObject* run(const Signature& signature, PyObject* arguments);

} // namespace fragments
