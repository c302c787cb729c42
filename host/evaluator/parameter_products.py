"""Products of expressions with arrays of parameters: one method per operation.

An array of parameters is an IndexArray of their indexes in the model's table of values. Operands
stand in the order of the formula: `mul_param_right(e, p)` is e * p. Each term becomes a program,
for its coefficient times the parameter, and no terms are merged. The results are sparse, but where
a dense matrix meets a dense expression. An array that is dense goes by the list of all its places.
"""

from dataclasses import replace
from typing import Any, Tuple

from ..closures import closure
from ..data.buffers import Shape, as_array, require_room, size
from ..index_maps.arrays import IndexArray
from .copies import require_copies
from .stacks import Expression
from .workspace import Workspace


class ParameterProducts(Workspace):
    """The products of an Evaluator with parameters. All raise ValueError if the shapes don't fit or
    an index is no parameter's."""

    # The full product.

    def mul_param_left(self, p: IndexArray, e: Expression) -> Expression:
        """p * e, for an `e` of shape (columns of p,) or (columns of p, d1). A dense `e` gives the
        elements in each row of `p` that stores some element, a sparse one the elements where a
        stored element of `p` meets one of `e`."""
        r, w, x = self.r, self.w, self.x
        self._require(p, e, matrix(p) and e.nd in (1, 2) and e.shape[0] == p.shape[1])
        d1, pnnz, pdim1 = size(e.shape[1:]), len(p.indexes), p.shape[1]
        shape = (p.shape[0],) + e.shape[1:]
        places = range(pnnz) if p.sparsity is None else p.sparsity
        require_copies(self.w, e, pnnz, (k % pdim1 for k in places), True, added(e), shape)
        with x.scratch():
            psp, pidx = self._put_parameters(p)
            if e.hassp:
                eperm = self._group_elements(e, d1)
                sizes = closure(375, e.codeptr_base, d1, e.ncodeatom, e.nelem, pdim1, pnnz,
                                e.ptr_base, 0, 0, 0, e.sp_base, w.i32, w.i64, x.i32, x.i64, eperm,
                                psp)
            else:
                sizes = closure(371, e.codeptr_base, d1, e.ncodeatom, pdim1, pnnz, e.ptr_base, 0, 0,
                                0, w.i32, x.i64, psp)
            h = self._reserve_product(shape, *sizes)
            head = (e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d1, 0)
            body = (h.cconst_base, h.code_base, h.codeptr_base, r.f64, r.i32, r.i64, h.nidxs_base,
                    h.ptr_base, h.sp_base)
            tail = (w.f64, w.i32, w.i64, x.i32, x.i64)
            if e.hassp:
                closure(376, r.i32, h.nelem, h.ptr_base)
                closure(377, h.cof_base, r.f64, h.nnz)
                r.i32[h.ptr_base] = 0
                closure(378, *head, e.ncodeatom, e.nelem, e.nidxs_base, 0, pdim1, pidx, pnnz, 0,
                        e.ptr_base, *body, e.sp_base, *tail, eperm, psp)
            else:
                closure(372, h.cof_base, r.f64, h.nnz)
                closure(373, *head, 0, e.ncodeatom, e.nidxs_base, 0, pdim1, pidx, pnnz, e.ptr_base,
                        *body, *tail, psp)
        return as_dense_as(p, e, h)

    def mul_param_right(self, e: Expression, p: IndexArray) -> Expression:
        """e * p, for an `e` of shape (rows of p,) or (d0, rows of p); as mul_param_left, by the
        columns of `p`."""
        w, x = self.w, self.x
        self._require(p, e, matrix(p) and e.nd in (1, 2) and e.shape[-1] == p.shape[0])
        d0, (d1, pdim1), pnnz = size(e.shape[:-1]), p.shape, len(p.indexes)
        shape = e.shape[:-1] + (pdim1,)
        places = range(pnnz) if p.sparsity is None else p.sparsity
        require_copies(self.w, e, pnnz, (k // pdim1 for k in places), False, added(e),
                       shape)
        with x.scratch():
            psp, pidx = self._put_parameters(p)
            pperm = self._group_parameters(p, psp, 363)
            if e.hassp:
                sizes = closure(368, e.codeptr_base, d1, e.ncodeatom, e.nelem, pdim1, pnnz, pperm,
                                psp, e.ptr_base, 0, 0, 0, e.sp_base, w.i32, w.i64, x.i32, x.i64)
            else:
                sizes = closure(367, e.codeptr_base, d0, d1, e.ncodeatom, pdim1, pnnz, pperm, psp,
                                e.ptr_base, 0, 0, 0, w.i32, x.i32, x.i64)
            h = self._reserve_product(shape, *sizes)
            closure(369, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d0, d1, 0,
                    e.hassp, e.ncodeatom, e.nelem, e.nidxs_base, 0, pdim1, pidx, pnnz, pperm, psp,
                    e.ptr_base, *self._sections(h), e.sp_base, w.f64, w.i32, w.i64, x.i32, x.i64)
        return as_dense_as(p, e, h)

    # The diagonal of a product.

    def diag_param_left(self, p: IndexArray, e: Expression) -> Expression:
        """The diagonal of p * e, for an `e` of shape (columns of p, rows of p): sparse, for a dense
        `e` with an element for each row of `p` that stores some, and for a sparse one where a
        stored element of `p` meets one of `e`."""
        r, w, x = self.r, self.w, self.x
        self._require(p, e, matrix(p) and e.shape == tuple(p.shape)[::-1])
        (dim1, pdim1), pnnz, nelem = p.shape, len(p.indexes), e.nelem
        require_room(max(e.ncodeatom, 0) + added(e) * e.nnz)
        with x.scratch():
            psp, pidx = self._put_parameters(p)
            if e.hassp:
                eptr, eperm = x.reserve("i32", dim1 + 1), x.reserve("i32", nelem)
                closure(338, dim1, eptr, x.i32)
                closure(339, dim1, eptr, nelem, e.sp_base, w.i64, x.i32)
                closure(340, dim1, eptr, x.i32)
                closure(341, dim1, eperm, eptr, nelem, e.sp_base, w.i64, x.i32)
                sizes = closure(342, e.codeptr_base, dim1, eperm, e.ncodeatom, nelem, pdim1, pnnz,
                                psp, e.ptr_base, 0, 0, 0, e.sp_base, w.i32, w.i64, x.i32, x.i64)
            else:
                sizes = closure(344, e.codeptr_base, dim1, e.ncodeatom, pdim1, pnnz, psp,
                                e.ptr_base, 0, 0, 0, w.i32, x.i64)
            h = self._reserve_product((dim1,), *sizes)
            head = (e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, dim1)
            product = (dim1, pdim1, pidx, pnnz, psp, e.ptr_base, h.cconst_base, h.code_base,
                       h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64)
            tail = (w.f64, w.i32, w.i64, x.i32, x.i64)
            if e.hassp:
                closure(343, *head, eperm, e.ncodeatom, nelem, e.nidxs_base, *product, h.nelem,
                        h.nidxs_base, h.ncodeatom, h.ptr_base, h.shape_base, h.sp_base, e.sp_base,
                        *tail)
            else:
                closure(345, *head, e.ncodeatom, e.nidxs_base, *product, h.ncodeatom, h.nidxs_base,
                        h.ptr_base, h.shape_base, h.sp_base, *tail)
        return h

    def diag_param_right(self, e: Expression, p: IndexArray) -> Expression:
        """The diagonal of e * p, for an `e` of shape (columns of p, rows of p); as diag_param_left,
        by the columns of `p`."""
        w, x = self.w, self.x
        self._require(p, e, matrix(p) and e.shape == tuple(p.shape)[::-1])
        (d1, pdim1), pnnz = p.shape, len(p.indexes)
        require_room(max(e.ncodeatom, 0) + added(e) * e.nnz)
        with x.scratch():
            psp, pidx = self._put_parameters(p)
            pperm = self._group_parameters(p, psp, 346)
            if e.hassp:
                _, _, *sizes = closure(350, e.codeptr_base, d1, 0, 0, e.ncodeatom, e.nelem, pdim1,
                                       pnnz, pperm, psp, e.ptr_base, 0, 0, 0, e.sp_base, w.i32,
                                       w.i64, x.i32, x.i64)
            else:
                _, *sizes = closure(352, e.codeptr_base, d1, 0, e.ncodeatom, pdim1, pnnz, pperm,
                                    psp, e.ptr_base, 0, 0, 0, w.i32, x.i32, x.i64)
            h = self._reserve_product((pdim1,), *sizes)
            head = (e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d1, 0)
            product = (0, pdim1, pidx, pnnz, pperm, psp, e.ptr_base, *self._sections(h))
            tail = (w.f64, w.i32, w.i64, x.i32, x.i64)
            if e.hassp:
                closure(351, *head, 0, 0, e.ncodeatom, e.nelem, e.nidxs_base, *product, e.sp_base,
                        *tail)
            else:
                closure(353, *head, 0, e.ncodeatom, e.nidxs_base, *product, *tail)
        return h

    # Products without a contraction.

    def mul_param_elem(self, p: IndexArray, e: Expression) -> Expression:
        """The elementwise product with an array of e's shape: sparse, with an element for each one
        that `p` stores, if `e` is sparse only where it meets one of `e`."""
        r, w, x = self.r, self.w, self.x
        self._require(p, e, e.shape == tuple(p.shape))
        pnnz = len(p.indexes)
        require_room(max(e.ncodeatom, 0) + added(e) * e.nnz)
        with x.scratch():
            psp, pidx = self._put_parameters(p)
            ncodeatom, nelem, nnz = closure(
                358, e.codeptr_base, e.hassp, e.ncodeatom, e.nelem, pnnz, psp, e.ptr_base, 0, 0, 0,
                e.sp_base, w.i32, w.i64, x.i64)
            h = r.reserve_expression(e.shape, nelem, nnz, ncodeatom, hassp=True)
            closure(360, e.nd, r.i32, h.shape_base, e.shape_base, w.i32)
            head = (e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base)
            tail = (w.f64, w.i32, w.i64, x.i32, x.i64)
            if e.hassp:
                closure(361, *head, 0, 0, e.ncodeatom, e.nelem, e.nidxs_base, 0, 0, pidx, pnnz, psp,
                        e.ptr_base, *self._sections(h), e.sp_base, *tail)
            else:
                closure(362, *head, e.ncodeatom, e.nidxs_base, 0, pidx, pnnz, psp, e.ptr_base,
                        *self._sections(h), *tail)
        return h

    def dot_param(self, p: IndexArray, e: Expression) -> Expression:
        """The sum of the elementwise product, as an expression of shape (1,)."""
        r, w, x = self.r, self.w, self.x
        self._require(p, e, e.shape == tuple(p.shape))
        pnnz = len(p.indexes)
        require_room(max(e.ncodeatom, 0) + added(e) * e.nnz)
        with x.scratch():
            psp, pidx = self._put_parameters(p)
            ncodeatom, nnz = closure(354, e.codeptr_base, e.hassp, e.ncodeatom, e.nelem, pnnz, psp,
                                     e.ptr_base, 0, 0, e.sp_base, w.i32, w.i64, x.i64)
            h = self._reserve((1,), 1, nnz, ncodeatom)
            head = (e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base)
            body = (h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64,
                    h.nidxs_base)
            tail = (w.f64, w.i32, w.i64, x.i32, x.i64)
            if e.hassp:
                closure(356, *head, 0, e.ncodeatom, e.nelem, e.nidxs_base, 0, 0, pidx, pnnz, psp,
                        e.ptr_base, *body, e.sp_base, *tail)
            else:
                closure(357, *head, e.ncodeatom, e.nidxs_base, 0, pidx, pnnz, psp, e.ptr_base,
                        *body, *tail)
            r.i32[h.ptr_base + 1] = nnz
        return h

    def mul_param_scalar(self, param: int, e: Expression) -> Expression:
        """parameter * e; `param` is the parameter's index in the model's table of values. Raises
        ValueError if it is no parameter's."""
        r, w = self.r, self.w
        self.w.operand(e)
        self._require_parameters(as_array("i32", [param]))
        # A term becomes the program of (coefficient + its program) * parameter.
        ncodeatom = e.ncodeatom + 4 * e.nnz if e.ncodeatom > 0 else 3 * e.nnz
        require_room(ncodeatom)
        h = r.reserve_expression(e.shape, e.nelem, e.nnz, ncodeatom, e.hassp)
        closure(337, e.cconst_base, e.code_base, e.cof_base, e.ncodeatom, e.nidxs_base, e.nnz,
                param, e.ptr_base, e.codeptr_base, h.cconst_base, h.code_base, h.codeptr_base,
                h.cof_base, r.f64, h.hassp, r.i32, r.i64, h.ncodeatom, h.nd, h.nelem, h.nidxs_base,
                h.nnz, h.ptr_base, h.shape_base, h.sp_base, e.shape_base, e.sp_base, w.f64, w.i32,
                w.i64)
        return h

    # What these have in common.

    def _require(self, p: IndexArray, e: Expression, fits: bool) -> None:
        self.w.operand(e)
        if not fits:
            raise ValueError("parameters of shape %s don't fit the shape %s"
                             % (list(p.shape), list(e.shape)))
        self._require_parameters(p.indexes)

    def _put_parameters(self, p: IndexArray) -> Tuple[int, int]:
        """Positions on the x stack of the stored places and of the indexes."""
        x, n = self.x, len(p.indexes)
        psp, pidx = x.reserve("i64", n), x.reserve("i32", n)
        closure(316, x.i64, p.indexes, psp, p.sparsity)
        closure(325, x.i32, p.indexes, pidx)
        return psp, pidx

    def _group_parameters(self, p: IndexArray, psp: int, first: int) -> int:
        """The position on the x stack of the parameters by column, by the four closures from number
        `first` on."""
        x, n, columns = self.x, len(p.indexes), p.shape[1]
        pptr, pperm = x.reserve("i32", columns + 1), x.reserve("i32", n)
        closure(first, columns, pptr, x.i32)
        closure(first + 1, columns, n, pptr, psp, x.i32, x.i64)
        closure(first + 2, columns, pptr, x.i32)
        closure(first + 3, columns, n, pperm, pptr, psp, x.i32, x.i64)
        return pperm

    def _group_elements(self, e: Expression, d1: int) -> int:
        """The position on the x stack of the elements of `e` by column."""
        w, x = self.w, self.x
        eptr, eperm = x.reserve("i32", d1 + 1), x.reserve("i32", e.nelem)
        with w.scratch():
            shape = w.reserve("i32", 2)  # of two extents, as the closure needs them
            w.i32[shape + 1] = d1
            closure(374, e.nelem, shape, e.sp_base, w.i32, w.i64, x.i32, eperm, eptr)
        return eperm

    def _reserve_product(self, shape: Shape, ncodeatom: int, nelem: int, nnz: int) -> Expression:
        """Room for a sparse result of the sizes that a closure told."""
        return self._reserve(shape, nelem, nnz, ncodeatom, hassp=True)

    def _sections(self, h: Expression) -> Tuple[Any, ...]:
        r = self.r
        return (h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64,
                h.nidxs_base, h.ptr_base, h.sp_base)


def added(e: Expression) -> int:
    """The atoms that a term of `e` times a parameter has more."""
    return 4 if e.ncodeatom > 0 else 3


def matrix(p: IndexArray) -> bool:
    return len(p.shape) == 2


def as_dense_as(p: IndexArray, e: Expression, h: Expression) -> Expression:
    """`h`, dense if `p` and `e` are: with all elements listed, `sp` tells nothing more."""
    return replace(h, hassp=p.sparsity is not None or e.hassp or h.nelem != size(h.shape))
