"""Expressions from data of the host: unit terms, matrices, vectors of constants, outer products."""

from typing import Any, Callable, Optional, Tuple, Union

from ..closures import closure
from ..data.buffers import Array, Shape, as_array, require_room, size, zeros
from ..data.constants import Constant
from ..data.matrices import DenseMatrix, Matrix, SparseMatrix, require_order
from ..data.shapes import ascending, stored_places
from ..index_maps.variables import Variable
from .stacks import Expression
from .workspace import Workspace


Lists = Tuple[Array, Array, Array, Array, Optional[Array]]  # of a RowWise, behind its shape


class RowWise:
    """An array of affine forms as the host holds one. Row k is bfix[k] plus the sum of cof[j] *
    variable subj[j] for j from ptrb[k] up to but not including ptrb[k + 1].

    bfix, cof: f64; ptrb, subj: i64. With `inst` (i64, strictly ascending linear indexes) only these
    elements are stored, one for each row.
    """

    def __init__(self, shape: Shape, bfix: Any, ptrb: Any, subj: Array, cof: Any,
                 inst: Any = None) -> None:
        self.shape, self.bfix = as_array("i32", shape), as_array("f64", bfix)
        self.ptrb, self.subj = as_array("i64", ptrb), as_array("i64", subj)
        self.cof = as_array("f64", cof)
        self.inst = None if inst is None else as_array("i64", inst)

    @classmethod
    def of(cls, variable: Variable) -> "RowWise":
        """A variable, with one term of coefficient 1.0 in each row."""
        n = len(variable)
        return cls(variable.shape, zeros("f64", n), ascending(n + 1), variable.nativeidxs,
                   as_array("f64", [1.0]) * n, variable.sparsity)

    @property
    def nelem(self) -> int:
        return len(self.bfix)

    def test(self) -> None:
        """Raises ValueError if the lists don't fit together or `inst` is out of range or order."""
        nelem, total = self.nelem, size(self.shape)
        if len(self.ptrb) != nelem + 1 or len(self.subj) != len(self.cof) or nelem != (
                total if self.inst is None else len(self.inst)):
            raise ValueError("%d rows, %d row starts, %d variables and %d coefficients don't fit "
                             "together, or not the stored elements"
                             % (nelem, len(self.ptrb), len(self.subj), len(self.cof)))
        instok, ptrbok, shapeok = closure(572, self.inst, True, nelem, self.ptrb, True, True, total,
                                          self.shape)
        if not shapeok:
            raise ValueError("%s is no shape" % list(self.shape))
        if not instok:
            raise ValueError("the linear indexes must ascend, without repeats, within the shape %s"
                             % list(self.shape))
        if not ptrbok or self.ptrb[0] < 0 or self.ptrb[nelem] > len(self.subj):
            raise ValueError("the row starts don't fit the terms")


class Construction(Workspace):
    """What an Evaluator makes of data that no stack holds yet."""

    def push_expression(self, shape: Shape, bfix: Any, ptrb: Any = None,
                        subj: Optional[Array] = None, cof: Any = None) -> Expression:
        """The dense expression of `shape` whose element i is bfix[i] plus the sum of
        cof[j] * variable subj[j] for j from ptrb[i] up to but not including ptrb[i + 1]; without
        `ptrb` an array of constants.

        bfix, cof: f64; ptrb, subj: i64. Raises ValueError if the lists don't fit together.
        """
        w, shape, bfix = self.w, as_array("i32", shape), as_array("f64", bfix)
        nelem = len(bfix)
        ptrb = zeros("i64", nelem + 1) if ptrb is None else as_array("i64", ptrb)
        subj, cof = as_array("i64", subj or ()), as_array("f64", cof or ())
        lengths = len(ptrb) == nelem + 1 and len(subj) == len(cof)
        _, ptrbok, shapeok = closure(572, None, True, nelem if lengths else 0, ptrb, True, True, 0,
                                     shape)
        if not shapeok or size(shape) != nelem:
            raise ValueError("%d elements can't have the shape %s" % (nelem, list(shape)))
        if not (lengths and ptrbok and ptrb[0] >= 0 and ptrb[nelem] <= len(subj)):
            raise ValueError("the row starts don't fit the terms, or there are not as many "
                             "variables as coefficients")
        e = w.reserve_expression(shape, nelem, ptrb[nelem] - ptrb[0] + nelem)
        closure(601, bfix, e.cof_base, cof, w.f64, w.i32, w.i64, e.nd, nelem, e.nidxs_base,
                e.ptr_base, ptrb, shape, e.shape_base, subj)
        return e

    def push_variable(self, variable: Variable) -> Expression:
        """A variable as an expression: one term of coefficient 1.0 in each stored element, sparse
        as the variable is."""
        r, nnz, hassp = self.r, len(variable), variable.sparsity is not None
        e = self._reserve(variable.shape, nnz, nnz, hassp=hassp)
        closure(146, variable.nativeidxs, e.cof_base, hassp, e.nidxs_base, nnz, e.ptr_base, r.f64,
                r.i32, r.i64, e.sp_base, variable.sparsity)
        return e

    def push_unit_terms(self, shape: Shape, nidxs: Any, sparsity: Any = None) -> Expression:
        """One term of coefficient 1.0 in each element, nidxs[i] (i64) the variable index of the
        i-th. All elements are stored, or those at the linear indexes `sparsity` (i64). Raises
        ValueError if these lists don't fit the shape."""
        r, shape, nidxs = self.r, as_array("i32", shape), as_array("i64", nidxs)
        nelem, sparsity = len(nidxs), stored_places(shape, len(nidxs), sparsity)
        e = r.reserve_expression(shape, nelem, nelem, hassp=sparsity is not None)
        closure(500, e.cof_base, r.f64, r.i32, e.nd, nelem, nelem, e.ptr_base, e.shape_base, shape)
        with r.section("i64", e.nidxs_base, nelem) as section:
            section[:] = nidxs
        closure(402, e.hassp, nelem, r.i64, e.sp_base, sparsity)
        return e

    def push_sparse_matrix(self, matrix: Matrix, varidx: int = 0) -> Expression:
        """matrix * variable `varidx` (0: the matrix as a constant), one term for each entry. Sparse
        with the elements of a sparse matrix, dense with all of a dense one. Raises ValueError if
        the matrix is out of order."""
        r, m, varidx = self.r, matrix, as_array("i64", [varidx])[0]
        require_room(m.rows * m.columns)
        hassp = isinstance(m, SparseMatrix)
        msubi, msubj = (m.msubi, m.msubj) if isinstance(m, SparseMatrix) else (None, None)
        if not closure(496, m.rows, m.columns, msubi, msubj, True):
            badidx = closure(497, False, m.rows, m.columns, msubi, msubj)
            require_order((m.rows, m.columns), badidx, closure(498, False, msubi, msubj))
        count = len(m.mval)
        e = r.reserve_expression((m.rows, m.columns), count, count, hassp=hassp)
        self._write_shape(e)
        closure(499, e.cof_base, r.f64, hassp, r.i32, r.i64, m.mval, m.columns, msubi, msubj, count,
                e.nidxs_base, count, e.ptr_base, e.sp_base, varidx)
        return e

    def push_constant_vector(self, shape: Shape, bfix: Any, sparsity: Any = None) -> Expression:
        """The numbers `bfix` (f64) as an expression; zeros are elements without a term. All
        elements are stored, or those at the linear indexes `sparsity` (i64). Raises ValueError if
        these lists don't fit the shape."""
        r, shape, bfix = self.r, as_array("i32", shape), as_array("f64", bfix)
        nelem, sparsity = len(bfix), stored_places(shape, len(bfix), sparsity)
        e = r.reserve_expression(shape, nelem, closure(400, bfix, 0), hassp=sparsity is not None)
        closure(401, e.nd, r.i32, e.shape_base, shape)
        closure(403, bfix, nelem, 0, e.cof_base, r.f64, r.i32, r.i64, e.nidxs_base, e.ptr_base)
        closure(402, e.hassp, nelem, r.i64, e.sp_base, sparsity)
        return e

    def push_constant(self, c: Constant) -> Expression:
        """The numbers of a Constant, as push_constant_vector does it."""
        return self.push_constant_vector(c.shape, c.values, c.sparsity)

    def push_parameters(self, shape: Shape, indexes: Any, sparsity: Any = None) -> Expression:
        """The parameters indexes[i] (i32) of a model as an expression, one for each element. All
        elements are stored, or those at the linear indexes `sparsity` (i64). Raises ValueError if
        these lists don't fit the shape, or an index is no parameter's."""
        r, shape, indexes = self.r, as_array("i32", shape), as_array("i32", indexes)
        nelem, sparsity = len(indexes), stored_places(shape, len(indexes), sparsity)
        self._require_parameters(indexes)
        e = r.reserve_expression(shape, nelem, nelem, nelem, sparsity is not None)
        closure(315, e.hassp, e.nd, nelem, indexes, e.cconst_base, e.code_base, e.codeptr_base,
                e.cof_base, r.f64, r.i32, r.i64, e.nidxs_base, e.ptr_base, e.shape_base, e.sp_base,
                shape, sparsity)
        return e

    # Outer products.

    def outer_product(self, vector: Matrix, forms: Union[Variable, RowWise],
                      transposed: bool = False) -> Expression:
        """All products of an element of `forms` and an entry of the constant `vector`: element
        (i, j) is the one of form i and entry j, or of form j and entry i if `transposed`.

        `vector` is a matrix of one row; `forms` is a Variable or a RowWise with at most one extent
        above 1. The result is dense if both are. Raises ValueError if they aren't such, or out of
        order.
        """
        if vector.rows != 1:
            raise ValueError("an outer product needs a vector: a matrix of one row, not %d"
                             % vector.rows)
        if isinstance(vector, DenseMatrix):
            vector = vector.entries()
        vector.test()
        if isinstance(forms, Variable) and forms.sparsity is None:
            multiply: Callable[..., Lists] = outer_variable
        else:
            forms = RowWise.of(forms) if isinstance(forms, Variable) else forms
            forms.test()
            multiply = outer_transposed if transposed else outer_plain
        count, dim = size(forms.shape), vector.columns
        if closure(581, forms.shape, 0) > 1:
            raise ValueError("an outer product needs a vector, not the shape %s"
                             % list(forms.shape))
        require_room(count * dim)
        shape = (dim, count) if transposed else (count, dim)
        return self._push_rows(RowWise(shape, *multiply(vector, forms, transposed)))

    def _push_rows(self, rows: RowWise) -> Expression:
        r, nelem = self.r, rows.nelem
        nnz = len(rows.subj) + nelem
        require_room(nnz)
        e = r.reserve_expression(rows.shape, nelem, nnz, hassp=rows.inst is not None)
        closure(601, rows.bfix, e.cof_base, rows.cof, r.f64, r.i32, r.i64, e.nd, nelem,
                e.nidxs_base, e.ptr_base, rows.ptrb, rows.shape, e.shape_base, rows.subj)
        closure(402, e.hassp, nelem, r.i64, e.sp_base, rows.inst)
        return e


# The rows of an outer product, as the lists of a RowWise behind its shape.


def outer_variable(vector: SparseMatrix, variable: Variable, transposed: bool) -> Lists:
    """With all elements of a variable stored."""
    n = len(variable) * vector.mnnz
    inst = None if vector.mnnz == vector.columns else zeros("i64", n)
    ptrb, numbers, cof = zeros("i64", n + 1), zeros("i64", n), zeros("f64", n)
    closure(586, vector.mval, cof, vector.columns, inst, ptrb, vector.msubj, numbers, transposed,
            len(variable))
    return zeros("f64", n), ptrb, picked(variable.nativeidxs, numbers), cof, inst


def outer_plain(vector: SparseMatrix, forms: RowWise, _: bool) -> Lists:
    """Row by row of `forms`, each times all entries of the vector."""
    na, ne, einst = vector.mnnz, forms.nelem, element_list(forms)
    enz = forms.ptrb[ne] - forms.ptrb[0]
    inst, ptrb, bfix = zeros("i64", na * ne), zeros("i64", na * ne + 1), zeros("f64", na * ne)
    subj, cof = zeros("i64", na * enz), zeros("f64", na * enz)
    dense = is_dense(vector, forms)
    for j in range(0 if dense else na):
        with memoryview(inst)[j::na] as column:
            column[:] = einst
            closure(584, vector.columns, column, forms.ptrb, j, j * ne, ptrb, vector.msubj)
    closure(582, vector.mval, bfix, cof, vector.columns, forms.bfix, forms.cof, einst, forms.ptrb,
            forms.subj, ptrb, vector.msubj, subj)
    return bfix, ptrb, subj, cof, None if dense else inst


def outer_transposed(vector: SparseMatrix, forms: RowWise, _: bool) -> Lists:
    """Entry by entry of the vector, each times all rows of `forms`."""
    na, ne, einst = vector.mnnz, forms.nelem, element_list(forms)
    terms, count = slice(forms.ptrb[0], forms.ptrb[ne]), size(forms.shape)
    ecof, n = forms.cof[terms], 0
    inst, ptrb, bfix = zeros("i64", na * ne), zeros("i64", na * ne + 1), zeros("f64", na * ne)
    subj, cof = forms.subj[terms] * na, zeros("f64", na * len(ecof))
    for i in range(na):
        with memoryview(inst)[n:n + ne] as row:
            row[:] = einst
            # 584 adds an offset to the indexes times a factor: here they stay, in row sub[i].
            offset = as_array("i32", [vector.msubj[i] * count])
            n = closure(584, 1, row, forms.ptrb, 0, n, ptrb, offset)
        closure(583, vector.mval, cof, ecof, len(ecof), i, i * len(ecof))
    closure(585, vector.mval, bfix, forms.bfix, einst)
    return bfix, ptrb, subj, cof, None if is_dense(vector, forms) else inst


def is_dense(vector: SparseMatrix, forms: RowWise) -> bool:
    return vector.mnnz == vector.columns and forms.inst is None


def element_list(forms: RowWise) -> Array:
    """The linear index of each row."""
    return ascending(forms.nelem) if forms.inst is None else forms.inst


# Index lists.


def picked(values: Any, places: Any) -> Array:
    """values[k] for the k in `places`, all i64."""
    result = zeros("i64", len(places))
    closure(165, len(places), result, places, values)
    return result
