/* The host of first_host.py in C: an extension module whose `main` gives the rows of A x + b. */

#define PY_SSIZE_T_CLEAN
#include <Python.h>

enum { ROOM = 200 };

/* The three arrays of a stack, and what is taken of each. */
static struct
{
    int32_t i32[ROOM];
    int64_t i64[ROOM];
    double f64[ROOM];
    int top32, top64, topf;
} s;
static PyObject *fragments, *i32, *i64, *f64; /* the module, and views of the arrays */

/* A header; all expressions here have one dimension and no code. */
typedef struct
{
    int nelem, nnz, shape, ptr, sp, nidxs, cof;
} Expression;

static int reserve(int* top, int count)
{
    *top += count;
    return *top - count;
}

static Expression expression(int nelem, int nnz)
{
    const Expression e = {nelem,
                          nnz,
                          reserve(&s.top32, 1),
                          reserve(&s.top32, nelem + 1),
                          reserve(&s.top64, nelem),
                          reserve(&s.top64, nnz),
                          reserve(&s.topf, nnz)};
    s.i32[e.shape] = nelem;
    s.i32[e.ptr] = 0; /* entry 0 is the host's */
    return e;
}

/* A view of `count` elements in memory of the host's own. */
static PyObject* view(void* data, Py_ssize_t count, char* kind)
{
    const Py_ssize_t size = *kind == 'i' ? 4 : 8;
    Py_ssize_t strides[] = {size};
    Py_buffer buffer = {.buf = data,
                        .len = count * size,
                        .itemsize = size,
                        .ndim = 1,
                        .format = kind,
                        .shape = &count,
                        .strides = strides};
    return PyMemoryView_FromBuffer(&buffer);
}

/* Calls a closure and takes the numbers that it gives back, if any. The arguments are as for
 * Py_BuildValue. False if there is an exception. */
static int closure(int* results, int number, const char* format, ...)
{
    char name[16];
    va_list arguments;
    va_start(arguments, format);
    PyOS_snprintf(name, sizeof name, "_c_closure_%d", number);
    PyObject* method = PyObject_GetAttrString(fragments, name);
    PyObject* tuple = method ? Py_VaBuildValue(format, arguments) : NULL;
    PyObject* result = tuple ? PyObject_CallObject(method, tuple) : NULL;
    va_end(arguments);
    if (result && PyLong_Check(result)) results[0] = (int)PyLong_AsLong(result);
    for (Py_ssize_t k = 0; result && PyTuple_Check(result) && k < PyTuple_GET_SIZE(result); ++k)
        results[k] = (int)PyLong_AsLong(PyTuple_GET_ITEM(result, k));
    Py_XDECREF(method);
    Py_XDECREF(tuple);
    Py_XDECREF(result);
    return result != NULL;
}

static PyObject* rows(PyObject* self, PyObject* none)
{
    (void)self, (void)none;
    int32_t subi[] = {0, 0, 1}, subj[] = {0, 1, 2}, shape[] = {2};
    double val[] = {2, 3, 4}, b[] = {10, 20};
    int64_t indexes[] = {7, 5, 6}, none_before[] = {0, 0, 0};
    PyObject *mi = view(subi, 3, "i"), *mj = view(subj, 3, "i"), *mv = view(val, 3, "d");
    PyObject *vx = view(indexes, 3, "l"), *vb = view(b, 2, "d"), *vp = view(none_before, 3, "l");
    PyObject* vs = view(shape, 1, "i");
    PyObject* answer = NULL;
    int n[5]; /* a closure gives back five numbers at most */
    memset(&s, 0, sizeof s);

    /* x and b */
    const Expression x = expression(3, 3), c = expression(2, 2);
    if (!closure(n, 146, "(OiOiiiOOOiO)", vx, x.cof, Py_False, x.nidxs, 3, x.ptr, f64, i32, i64, 0,
                 Py_None))
        goto end;
    if (!closure(n, 601, "(OiOOOOiiiiOOiO)", vb, c.cof, Py_None, f64, i32, i64, 1, 2, c.nidxs,
                 c.ptr, vp, vs, c.shape, Py_None))
        goto end;

    /* A x: size, reserve, write */
    if (!closure(n, 478, "(iiiOiOOiiiiiiO)", 0, 1, 2, Py_True, 3, mi, mj, 0, x.nnz, x.ptr, 0, 0, 0,
                 i32))
        goto end;
    const Expression ax = expression(n[1], n[2]);
    if (!closure(n, 481, "(iiiiiiiiiOOOiiiiiiiOOOiiiiOOO)", 0, 0, 0, 0, x.cof, 1, 0, 3, 0, mi, mj,
                 mv, x.nidxs, 0, x.ptr, 0, 0, 0, ax.cof, f64, i32, i64, 0, ax.nidxs, ax.ptr, ax.sp,
                 f64, i32, i64))
        goto end;

    /* b + A x */
    const Expression sum = expression(2, c.nnz + ax.nnz);
    if (!closure(n, 504, "(iiiiiiiiiiiiddiiiiiiiiiiiiiOOOiiiiOOO)", 0, 0, 0, 0, 0, 0, 0, c.cof,
                 ax.cof, 0, 0, 0, 1.0, 1.0, 0, 0, c.nelem, ax.nelem, c.nidxs, ax.nidxs, 0, c.ptr,
                 ax.ptr, 0, 0, 0, sum.cof, f64, i32, i64, 0, sum.nidxs, sum.ptr, ax.sp, f64, i32,
                 i64))
        goto end;

    /* terms in order */
    if (!closure(n, 390, "(iiiO)", 0, sum.nelem, sum.ptr, i32)) goto end;
    const int perm = reserve(&s.top32, sum.nnz), work = reserve(&s.top32, 2 * n[0] + 1);
    if (!closure(n, 391, "(iiiiOOiO)", sum.nelem, sum.nidxs, perm, sum.ptr, i32, i64, work, i32))
        goto end;
    if (!closure(n, 396, "(iiiiiiiiOOOO)", sum.cof, 0, sum.nelem, sum.nidxs, perm, sum.ptr, 0, 0,
                 f64, i32, i64, i32))
        goto end;
    const Expression e = expression(sum.nelem, n[1]);
    if (!closure(n, 399, "(iiiiiiiiiiiiiiiOOOiiiOOOO)", 0, 0, 0, 0, sum.cof, 0, sum.nelem,
                 sum.nidxs, 0, perm, sum.ptr, 0, 0, 0, e.cof, f64, i32, i64, 0, e.nidxs, e.ptr, f64,
                 i32, i64, i32))
        goto end;

    /* rows out */
    if (!closure(n, 75, "(iOiiiiOOi)", 0, Py_None, 0, e.nelem, e.nidxs, e.ptr, i32, i64, 0))
        goto end;
    double fixed[2] = {0}, cof[ROOM];
    int32_t ptrb[3] = {0}, vars[ROOM];
    PyObject *of = view(fixed, 2, "d"), *oc = view(cof, n[1], "d");
    PyObject *op = view(ptrb, 3, "i"), *ov = view(vars, n[1], "i");
    if (closure(n + 3, 76, "(OOiiiiOOOOO)", of, oc, e.cof, e.nelem, e.nidxs, e.ptr, op, f64, i32,
                i64, ov))
        answer = Py_BuildValue("[NNNN]", PySequence_List(of), PySequence_List(op),
                               PySequence_List(ov), PySequence_List(oc));
    Py_XDECREF(of), Py_XDECREF(oc), Py_XDECREF(op), Py_XDECREF(ov);
end:
    Py_XDECREF(mi), Py_XDECREF(mj), Py_XDECREF(mv), Py_XDECREF(vx);
    Py_XDECREF(vb), Py_XDECREF(vp), Py_XDECREF(vs);
    return answer;
}

static PyMethodDef methods[] = {{"main", rows, METH_NOARGS, ""}, {NULL, NULL, 0, NULL}};
static PyModuleDef module = {PyModuleDef_HEAD_INIT, .m_name = "first_host", .m_size = -1,
                             .m_methods = methods};

PyMODINIT_FUNC PyInit_first_host(void)
{
    fragments = PyImport_ImportModule("fragments");
    i32 = view(s.i32, ROOM, "i");
    i64 = view(s.i64, ROOM, "l");
    f64 = view(s.f64, ROOM, "d");
    return fragments && i32 && i64 && f64 ? PyModule_Create(&module) : NULL;
}
