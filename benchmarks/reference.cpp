// What the closures are measured against: the calls of the frame written out by hand, the C
// library's block operations, and plain strided loops with the bodies of some closures.

// Python's header asks to stand before all others.
#include <Python.h>

#include "closure_frame.h"

#include <cstring>

namespace {

using namespace fragments;

// ---- The frame by hand -------------------------------------------------------------------------

/// One array parameter, as each frame by hand takes it; `return nullptr` stands for its failure.
struct HandView
{
    PyObject* view = nullptr;
    void* data = nullptr;
    size_t stride = 0;
};

inline bool take(HandView& array, PyObject* object, const char* text, char kind, int shift)
{
    if (object == Py_None) return true;
    array.view = PyMemoryView_FromObject(object);
    if (array.view == nullptr) return false;
    const Py_buffer* buffer = PyMemoryView_GET_BUFFER(array.view);
    const char c = buffer->format[0];
    if (buffer->ndim != 1 || !(c == kind || (kind == 'l' && c == 'q'))) {
        PyErr_SetString(PyExc_ValueError, text);
        return false;
    }
    array.data = buffer->buf;
    array.stride = static_cast<size_t>(buffer->strides[0]) >> shift;
    return true;
}

/// The frame of closure 518, "Oii", with a body that only looks at its count.
PyObject* hand_frame_3(PyObject*, PyObject* arguments)
{
    PyObject* ri32;
    int rnelem;
    int rptr_base;
    if (!PyArg_ParseTuple(arguments, "Oii", &ri32, &rnelem, &rptr_base)) return nullptr;
    HandView array;
    const bool taken = take(array, ri32, "Invalid array shape or type for argument 'ri32'", 'i', 2);
    if (taken) {
        auto* data = static_cast<int*>(array.data) + static_cast<size_t>(rptr_base) * array.stride;
        for (int i = 0; i < rnelem; ++i)
            data[static_cast<size_t>(i + 1) * array.stride] +=
                data[static_cast<size_t>(i) * array.stride];
    }
    Py_XDECREF(array.view);
    if (!taken) return nullptr;
    Py_RETURN_NONE;
}

/// The frame of closure 480, 30 parameters of which 8 are arrays, and its result of three numbers.
PyObject* hand_frame_30(PyObject*, PyObject* arguments)
{
    int n[22];
    PyObject* o[8];
    if (!PyArg_ParseTuple(arguments, "iiiiiiiiiiiOiiiiiiiOOOiiiiOOOO", n, n + 1, n + 2, n + 3,
                          n + 4, n + 5, n + 6, n + 7, n + 8, n + 9, n + 10, o, n + 11, n + 12,
                          n + 13, n + 14, n + 15, n + 16, n + 17, o + 1, o + 2, o + 3, n + 18,
                          n + 19, n + 20, n + 21, o + 4, o + 5, o + 6, o + 7))
        return nullptr;
    HandView a[8];
    const bool taken =
        take(a[0], o[0], "Invalid array shape or type for argument 'mval'", 'd', 3) &&
        take(a[1], o[1], "Invalid array shape or type for argument 'rf64'", 'd', 3) &&
        take(a[2], o[2], "Invalid array shape or type for argument 'ri32'", 'i', 2) &&
        take(a[3], o[3], "Invalid array shape or type for argument 'ri64'", 'l', 3) &&
        take(a[4], o[4], "Invalid array shape or type for argument 'wf64'", 'd', 3) &&
        take(a[5], o[5], "Invalid array shape or type for argument 'wi32'", 'i', 2) &&
        take(a[6], o[6], "Invalid array shape or type for argument 'wi64'", 'l', 3) &&
        take(a[7], o[7], "Invalid array shape or type for argument 'xi32'", 'i', 2);
    for (int k = 7; k >= 0; --k) Py_XDECREF(a[k].view);
    if (!taken) return nullptr;
    PyObject* result = PyTuple_New(3);
    if (result == nullptr) return nullptr;
    PyTuple_SET_ITEM(result, 0, PyLong_FromLong(n[2]));
    PyTuple_SET_ITEM(result, 1, PyLong_FromLong(n[6]));
    PyTuple_SET_ITEM(result, 2, PyLong_FromLong(n[12]));
    return result;
}

// ---- Block operations of the C library ---------------------------------------------------------

PyObject* block_copy(PyObject*, PyObject* arguments)
{
    Py_buffer target;
    Py_buffer source;
    if (!PyArg_ParseTuple(arguments, "w*y*", &target, &source)) return nullptr;
    std::memcpy(target.buf, source.buf, static_cast<size_t>(target.len));
    PyBuffer_Release(&source);
    PyBuffer_Release(&target);
    Py_RETURN_NONE;
}

PyObject* block_fill(PyObject*, PyObject* arguments)
{
    Py_buffer target;
    if (!PyArg_ParseTuple(arguments, "w*", &target)) return nullptr;
    std::memset(target.buf, 1, static_cast<size_t>(target.len));
    PyBuffer_Release(&target);
    Py_RETURN_NONE;
}

// ---- Plain strided loops -----------------------------------------------------------------------

/// A closure's declaration with a body for run-time strides alone, behind the same frame.
#define PLAIN(Number, Declared, Parameters)                                                        \
    template <class>                                                                               \
    struct Plain##Number                                                                           \
    {                                                                                              \
        FRAGMENTS_ARRAY_NAMES(Strided);                                                            \
        static constexpr const char* parameters = #Parameters;                                     \
        static auto run Parameters->ResultOf<Declared>::Type;                                      \
    };                                                                                             \
    PyObject* plain_##Number(PyObject*, PyObject* arguments)                                       \
    {                                                                                              \
        return run(Declaration<Number, Plain##Number>::signature, arguments);                      \
    }                                                                                              \
    template <class S>                                                                             \
    auto Plain##Number<S>::run Parameters->ResultOf<Declared>::Type

/// The scaled term copy as a plain loop.
struct PlainCopy
{
    I32Out<Strided> ri32;
    I64Out<Strided> ri64;
    F64Out<Strided> rf64;
    I32<Strided> wi32;
    I64<Strided> wi64;
    F64<Strided> wf64;
    int rcconst_base, rcode_base, rcodeptr_base, rcof_base, rnidxs_base;
    int cconst_base, code_base, codeptr_base, cof_base, nidxs_base, ptr_base;
    bool coded;
    int codei, nnzi;

    void append(int e, double v)
    {
        for (int t = wi32[ptr_base + e]; t < wi32[ptr_base + e + 1]; ++t) {
            ri64[rnidxs_base + nnzi] = wi64[nidxs_base + t];
            rf64[rcof_base + nnzi] = wf64[cof_base + t] * v;
            if (coded) {
                for (int a = wi32[codeptr_base + t]; a < wi32[codeptr_base + t + 1]; ++a) {
                    ri32[rcode_base + codei] = wi32[code_base + a];
                    rf64[rcconst_base + codei] = wf64[cconst_base + a];
                    ++codei;
                }
                ri32[rcode_base + codei] = 2;
                rf64[rcconst_base + codei] = v;
                ri32[rcode_base + codei + 1] = 5;
                codei += 2;
                ri32[rcodeptr_base + nnzi + 1] = codei;
            }
            ++nnzi;
        }
    }
};

#define PLAIN_COPY(coded)                                                                          \
    PlainCopy                                                                                      \
    {                                                                                              \
        ri32, ri64, rf64, wi32, wi64, wf64, rcconst_base, rcode_base, rcodeptr_base, rcof_base,    \
            rnidxs_base, cconst_base, code_base, codeptr_base, cof_base, nidxs_base, ptr_base,     \
            coded, codei, nnzi                                                                     \
    }

/// mul_left, sparse M, dense E.
PLAIN(481, results(int, int, int, int),
      (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d1, int elmi,
       int mnnz, int mpos, I32 msubi, I32 msubj, F64 mval, int nidxs_base, int nnzi, int ptr_base,
       int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32,
       I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base, int rsp_base, F64 wf64,
       I32 wi32, I64 wi64))
{
    auto copy = PLAIN_COPY(rncodeatom > 0);
    int k = mpos;
    while (k < mnnz) {
        const int i = msubi[k];
        int last = k;
        while (last + 1 < mnnz && msubi[last + 1] == i) ++last;
        for (int c = 0; c < d1; ++c) {
            for (int m = k; m <= last; ++m) copy.append(d1 * msubj[m] + c, mval[m]);
            ri64[rsp_base + elmi] = d1 * i + c;
            ri32[rptr_base + elmi + 1] = copy.nnzi;
            ++elmi;
        }
        k = last + 1;
    }
    return {copy.codei, elmi, k, copy.nnzi};
}

/// mul_right, dense E, dense M.
PLAIN(473, results(int, int, int),
      (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d0, int d1,
       int elmi, int md1, F64 mval, int ncodeatom, int nidxs_base, int nnzi, int ptr_base,
       int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32,
       I64Out ri64, int rnidxs_base, int rptr_base, F64 wf64, I32 wi32, I64 wi64))
{
    auto copy = PLAIN_COPY(ncodeatom > 0);
    for (int r = 0; r < d0; ++r) {
        for (int c = 0; c < md1; ++c) {
            for (int j = 0; j < d1; ++j) copy.append(d1 * r + j, mval[md1 * j + c]);
            ri32[rptr_base + elmi + 1] = copy.nnzi;
            ++elmi;
        }
    }
    return {copy.codei, elmi, copy.nnzi};
}

/// mul_right, sparse E, dense M.
PLAIN(472, results(int, int, int),
      (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d0, int d1,
       int elmi, int md1, F64 mval, int ncodeatom, int nelem, int nidxs_base, int nnzi,
       int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base,
       F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, int sp_base, F64 wf64,
       I32 wi32, I64 wi64, I32Out xi32, int xrowptr_base))
{
    for (int q = 0; q < nelem; ++q) ++xi32[xrowptr_base + wi64[sp_base + q] / d1 + 1];
    for (int r = 0; r < d0; ++r) xi32[xrowptr_base + r + 1] += xi32[xrowptr_base + r];
    auto copy = PLAIN_COPY(ncodeatom > 0);
    for (int r = 0; r < d0; ++r) {
        for (int c = 0; c < md1; ++c) {
            for (int q = xi32[xrowptr_base + r]; q < xi32[xrowptr_base + r + 1]; ++q)
                copy.append(q, mval[md1 * (wi64[sp_base + q] % d1) + c]);
            ri32[rptr_base + elmi + 1] = copy.nnzi;
            ++elmi;
        }
    }
    return {copy.codei, elmi, copy.nnzi};
}

/// mul_right, dense E, sparse M.
PLAIN(470, results(int, int, int),
      (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d0, int d1,
       int mcolptr_base, int md1, int mperm_base, I32 msubi, F64 mval, int nidxs_base, int nnzi,
       int ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base, int rcof_base, int relmi,
       F64Out rf64, I32Out ri32, I64Out ri64, int rncodeatom, int rnidxs_base, int rptr_base,
       int rsp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32))
{
    auto copy = PLAIN_COPY(rncodeatom != 0);
    for (int r = 0; r < d0; ++r) {
        for (int c = 0; c < md1; ++c) {
            for (int p = xi32[mcolptr_base + c]; p < xi32[mcolptr_base + c + 1]; ++p) {
                const int k = xi32[mperm_base + p];
                copy.append(msubi[k] + d1 * r, mval[k]);
            }
            ri32[rptr_base + relmi + 1] = copy.nnzi;
            ri64[rsp_base + relmi] = r * md1 + c;
            ++relmi;
        }
    }
    return {copy.codei, copy.nnzi, relmi};
}

/// mul_right, sparse E, sparse M.
PLAIN(468, results(int, int, int, int),
      (int cconst_base, int code_base, int codei, int codeptr_base, int cof_base, int d1, int elmi,
       int epos, int md1, int mnnz, int mperm_base, I32 msubi, I32 msubj, F64 mval, int ncodeatom,
       int nelem, int nidxs_base, int nnzi, int ptr_base, int rcconst_base, int rcode_base,
       int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base,
       int rptr_base, int rsp_base, int sp_base, F64 wf64, I32 wi32, I64 wi64, I32 xi32))
{
    auto copy = PLAIN_COPY(ncodeatom > 0);
    for (int first = epos; first < nelem; first = epos) {
        const int64_t row = wi64[sp_base + first] / d1;
        for (epos = first; epos < nelem && wi64[sp_base + epos] / d1 == row;) ++epos;
        for (int start = 0; start < mnnz;) {
            const int column = msubj[xi32[mperm_base + start]];
            int end = start;
            while (end < mnnz && msubj[xi32[mperm_base + end]] == column) ++end;
            bool found = false;
            for (int a = first, b = start; a < epos && b < end;) {
                const int k = xi32[mperm_base + b];
                const int64_t x = wi64[sp_base + a] % d1;
                if (x < msubi[k]) {
                    ++a;
                } else if (x > msubi[k]) {
                    ++b;
                } else {
                    if (mval[k] > 0.0) {
                        found = true;
                        copy.append(a, mval[k]);
                    }
                    ++a;
                    ++b;
                }
            }
            if (found) {
                ri32[rptr_base + elmi + 1] = copy.nnzi;
                ri64[rsp_base + elmi] = md1 * row + column;
                ++elmi;
            }
            start = end;
        }
    }
    return {copy.codei, elmi, epos, copy.nnzi};
}

/// mul_elm.
PLAIN(462, void,
      (int cconst_base, int code_base, int codeptr_base, int cof_base, bool hassp, F64 mcof,
       I64 msp, int ncodeatom, int nelem, int nidxs_base, int ptr_base, int rcconst_base,
       int rcode_base, int rcodeptr_base, int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64,
       int rncodeatom, int rnd, int rnidxs_base, int rptr_base, int rshape_base, int rsp_base,
       int shape_base, int sp_base, F64 wf64, I32 wi32, I64 wi64))
{
    ri32[rptr_base] = 0;
    if (rncodeatom > 0) ri32[rcodeptr_base] = 0;
    for (int i = 0; i < rnd; ++i) ri32[rshape_base + i] = wi32[shape_base + i];
    const int codei = 0;
    const int nnzi = 0;
    auto copy = PLAIN_COPY(ncodeatom > 0);
    int out = 0;
    const auto close = [&](int64_t linear) {
        ri32[rptr_base + out + 1] = copy.nnzi;
        ri64[rsp_base + out] = linear;
        ++out;
    };
    if (!hassp) {
        for (int k = 0; k < msp.length(); ++k) {
            copy.append(static_cast<int>(msp[k]), mcof[k]);
            close(msp[k]);
        }
        return;
    }
    for (int a = 0, b = 0; a < msp.length() && b < nelem;) {
        if (msp[a] < wi64[sp_base + b]) {
            ++a;
        } else if (msp[a] > wi64[sp_base + b]) {
            ++b;
        } else {
            copy.append(b, mcof[a]);
            close(msp[a]);
            ++a;
            ++b;
        }
    }
}

/// weighted_sum, scatter of a dense operand.
PLAIN(521, void,
      (bool anycode, I32 cconst, I32 code, I32 codeptr, I32 cof_base, int k, I32 ncodeatom,
       I32 nelem, I32 nidxs_base, I32 ptr_base, int rcconst_base, int rcode_base, int rcodeptr_base,
       int rcof_base, F64Out rf64, I32Out ri32, I64Out ri64, int rnidxs_base, int rptr_base, F64 w,
       F64 wf64, I32 wi32, I64 wi64, int xcode_base, I32Out xi32))
{
    for (int e = 0; e < nelem[k]; ++e) {
        int c = anycode ? xi32[xcode_base + e] : 0;
        int t = ri32[rptr_base + e];
        const int p = ptr_base[k] + e;
        for (int j = wi32[p]; j < wi32[p + 1]; ++j) {
            ri64[rnidxs_base + t] = wi64[nidxs_base[k] + j];
            rf64[rcof_base + t] = w[k] * wf64[cof_base[k] + j];
            if (anycode) {
                if (ncodeatom[k] < 1) {
                    ri32[rcode_base + c] = 2;
                    rf64[rcconst_base + c] = 0.0;
                    ++c;
                } else {
                    for (int a = wi32[codeptr[k] + j]; a < wi32[codeptr[k] + j + 1]; ++a) {
                        ri32[rcode_base + c] = wi32[code[k] + a];
                        rf64[rcconst_base + c] = wf64[cconst[k] + a];
                        ++c;
                    }
                    ri32[rcode_base + c] = 2;
                    rf64[rcconst_base + c] = w[k];
                    ri32[rcode_base + c + 1] = 5;
                    c += 2;
                }
                ri32[rcodeptr_base + t + 1] = c;
            }
            ++t;
        }
        if (anycode) xi32[xcode_base + e] = c;
        ri32[rptr_base + e] = t;
    }
}

PyMethodDef methods[] = {
    {"frame_3", hand_frame_3, METH_VARARGS, ""},  {"frame_30", hand_frame_30, METH_VARARGS, ""},
    {"block_copy", block_copy, METH_VARARGS, ""}, {"block_fill", block_fill, METH_VARARGS, ""},
    {"plain_481", plain_481, METH_VARARGS, ""},   {"plain_473", plain_473, METH_VARARGS, ""},
    {"plain_472", plain_472, METH_VARARGS, ""},   {"plain_470", plain_470, METH_VARARGS, ""},
    {"plain_468", plain_468, METH_VARARGS, ""},   {"plain_462", plain_462, METH_VARARGS, ""},
    {"plain_521", plain_521, METH_VARARGS, ""},   {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                          "benchmark_reference",
                          "",
                          -1,
                          methods,
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr};

} // namespace

extern "C" [[gnu::visibility("default")]] PyObject* PyInit_benchmark_reference()
{
    return PyModule_Create(&definition);
}
