#pragma once

/// One call of a closure, as far as it doesn't depend on the closure's types: the arguments taken
/// apart by what its signature says, the body run, the result built.
///
/// There are two ways through the arguments. The way that defines the outcome is
/// PyArg_ParseTuple with the closure's format, and a memoryview of each array. Nearly all calls are
/// ordinary: exact ints in range, exact floats, truth values, buffers that the closure accepts.
/// Those are read directly, in a tenth of the time. What is not ordinary in any way gives back what
/// was taken and starts anew on the first way, so that every exception, and the order in which
/// things are looked at, are made there alone.

// Python's header asks to stand before all others.
#include <Python.h>

#include <cstddef>
#include <cstdint>

namespace fragments {

/// What is tested of an array parameter. The first character of the view's format must be `kind` or
/// `also`; a list's format must be "O" alone.
struct ArraySpec
{
    const char* name;
    int parameter; ///< its place among all parameters
    int rank;
    char kind;
    char also;
    int shift;              ///< log2 of the size of an element
    bool written;           ///< in the checked build, a read-only buffer is refused
    const ArraySpec* entry; ///< of a list of arrays: what is tested of each

    bool accepts(const Py_buffer& view) const
    {
        const char c = view.format[0];
        return view.ndim == rank && (c == kind || c == also) &&
               (kind != 'O' || view.format[1] == '\0');
    }
};

/// A scalar or object as PyArg_ParseTuple leaves it, or a number of the result.
union Slot {
    int i; // also for a truth value
    long long l;
    double d;
    PyObject* object;
};

/// An accepted array: where it lies, and its strides and extents in elements. Of rank 1,
/// `extent[0]` is its length; of a list, `data` are its entries. All is 0 for None, and `data` for
/// None alone.
struct ArrayView
{
    void* data;
    int64_t stride[2];
    int64_t extent[2];
};

/// An entry of a list of arrays: all null for None.
struct Entry
{
    PyObject* memoryview;
    ArrayView view;
};

constexpr int most_parameters = 40;
constexpr int most_arrays = 20;
constexpr int most_results = 5;

class Call;

/// What a closure's declaration says, and its body for either kind of stride.
struct Signature
{
    using Body = void (*)(const Call& call, Slot* results);

    int number;
    const char* format; ///< for PyArg_ParseTuple: a letter for each parameter
    int parameters;
    const ArraySpec* arrays;
    int array_count;
    const char* results; ///< a letter for each number of the result
    bool tuple;          ///< whether these come in a tuple
    Body contiguous;
    Body strided;
};

/// The METH_VARARGS function of all closures.
PyObject* run(const Signature& signature, PyObject* arguments);

/// The arguments of one call, and the views that it holds: taken left to right, released in
/// reverse.
class Call
{
public:
    // Not initialised: what counts is written before it is read.
    Call() {} // NOLINT(cppcoreguidelines-pro-type-member-init,modernize-use-equals-default)
    ~Call() { release(); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    /// On failure sets the exception and returns false.
    bool take(const Signature& signature, PyObject* arguments);
    void release();

    const Slot& slot(size_t k) const { return slots_[k]; }
    const ArrayView& array(size_t n) const { return arrays_[n]; }

    /// Whether the elements of each array follow each other, in its last dimension.
    bool contiguous() const { return gaps_ == 0; }

private:
    bool read_scalars(const Signature& signature, PyObject* arguments);
    bool read_arrays(const Signature& signature);
    bool parse(const Signature& signature, PyObject* arguments);
    bool take_views(const Signature& signature);
    bool take_entries(const ArraySpec& list, const Py_buffer& view, int number);
    void release_entries();

    Slot slots_[most_parameters];
    ArrayView arrays_[most_arrays];
    Py_ssize_t gaps_; // all distances between neighbouring elements, combined

    bool direct_;                        // which of the two hold the views
    int held_ = 0;                       // how many of them
    Py_buffer buffers_[most_arrays];     // null `obj` for None
    PyObject* memoryviews_[most_arrays]; // owned references, null for None

    // Which array is a list, if one is, and its entries.
    int list_ = -1;
    int64_t entry_count_ = 0;
    Entry* entries_ = nullptr;
};

} // namespace fragments
