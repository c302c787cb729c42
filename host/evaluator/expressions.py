"""Affine expressions on the work stacks: one method per operation.

Every method runs the closures of its operation in their order, in the form of size, reserve, write:
a sizing closure tells how large the result is, room is reserved for it, and the writing closures
fill it. The operands are left as they are, and a method that raises has reserved and written
nothing.
"""

from dataclasses import replace

from ..closures import closure
from .construction import Construction
from .copies import require_copies
from ..data.matrices import DenseMatrix, SparseMatrix
from .parameter_products import ParameterProducts
from .products import Products, require_shape
from .stacks import OperandList, Stack
from ..data.buffers import as_array, require_room, size, zeros
from .structure import Structure
from .sums import Sums, scaled_atoms, sum_sizes


class Evaluator(Construction, Sums, Products, ParameterProducts, Structure):
    """Builds expressions. A result stands on the r stack and operands are taken from the w stack;
    the two are the same arrays here, so that a result is the next operand where it stands. The x
    stack is scratch between the closures of one operation.

    What a formula leaves behind is freed by the host that began it:

        with evaluator.w.scratch():
            model.constrain(formula(evaluator), ...)

    With `param_value`, the table of a model's parameter values, an index beyond it is refused.
    `name` tells in errors whose expressions these are. An operand that stands on another stack, or
    was freed, is refused by each method.
    """

    def __init__(self, param_value=None, name=None):
        self.r = self.w = Stack(name=name)
        self.x = Stack()
        self._param_value = param_value

    # Getting expressions onto the stack.

    def push_expression(self, shape, bfix, ptrb=None, subj=None, cof=None):
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

    def push_variable(self, variable):
        """A variable as an expression: one term of coefficient 1.0 in each stored element, sparse
        as the variable is. Raises ValueError if a model has removed it."""
        variable.require_kept()
        r, nnz, hassp = self.r, len(variable), variable.sparsity is not None
        e = self._reserve(variable.shape, nnz, nnz, hassp=hassp)
        closure(146, variable.nativeidxs, e.cof_base, hassp, e.nidxs_base, nnz, e.ptr_base, r.f64,
                r.i32, r.i64, e.sp_base, variable.sparsity)
        return e

    # Products and sums.

    def mul_left(self, matrix, e):
        """matrix * e, for an `e` of shape (matrix.columns,) or (matrix.columns, d1).

        A sparse matrix gives a sparse result: the elements that one of its entries reaches. A dense
        matrix gives a dense one, unless `e` is dense too: there is no chain for that pair, and the
        matrix goes as a sparse one with all entries. Raises ValueError, with nothing written, if
        the shapes don't fit or the matrix is out of order.
        """
        self.w.operand(e)
        if e.nd not in (1, 2) or e.shape[0] != matrix.columns:
            raise ValueError("a %d x %d matrix can't be multiplied by the shape %s"
                             % (matrix.rows, matrix.columns, list(e.shape)))
        shape = (matrix.rows,) + e.shape[1:]
        require_shape(shape)
        if isinstance(matrix, DenseMatrix) and not e.hassp:
            matrix = matrix.entries()
        d1 = size(e.shape[1:])
        if isinstance(matrix, SparseMatrix):
            matrix.test()
            require_copies(self.w, e, matrix.mnnz, lambda: matrix.msubj, True,
                           2 if e.ncodeatom > 0 else 0, shape)
        else:
            require_room(max(e.nnz, scaled_atoms(e)) * matrix.rows)
        with self.x.scratch():
            columns = self._group_columns(e, d1) if e.hassp else None
            ncodeatom, nelem, nnz = self._size_left(matrix, e, d1, columns)
            result = self._reserve(shape, nelem, nnz, ncodeatom, isinstance(matrix, SparseMatrix))
            self._write_left(matrix, e, d1, columns, result)
        return result

    def _group_columns(self, e, d1):
        """The stored elements of `e` by column, on the x stack."""
        x, w = self.x, self.w
        eptr, eperm = x.reserve("i32", d1 + 1), x.reserve("i32", e.nelem)
        closure(476, d1, eperm, eptr, e.nelem, e.sp_base, w.i64, x.i32)
        return eptr, eperm

    def _size_left(self, m, e, d1, columns):
        """(ncodeatom, nelem, nnz) of the product."""
        w, x = self.w, self.x
        entries = (True, m.mnnz, m.msubi, m.msubj) if isinstance(m, SparseMatrix) else (
            False, 0, None, None)
        if not e.hassp:
            return closure(478, e.codeptr_base, d1, m.rows, *entries, e.ncodeatom, e.nnz,
                           e.ptr_base, 0, 0, 0, w.i32)
        eptr, eperm = columns
        return closure(477, e.codeptr_base, d1, eperm, eptr, m.rows, *entries, e.ncodeatom, e.nnz,
                       e.ptr_base, 0, 0, 0, e.sp_base, w.i32, w.i64, x.i32)

    def _write_left(self, m, e, d1, columns, h):
        r, w, x = self.r, self.w, self.x
        if not e.hassp:
            closure(481, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d1, 0, m.mnnz,
                    0, m.msubi, m.msubj, m.mval, e.nidxs_base, 0, e.ptr_base, h.cconst_base,
                    h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom,
                    h.nidxs_base, h.ptr_base, h.sp_base, w.f64, w.i32, w.i64)
            return
        eptr, eperm = columns
        if isinstance(m, DenseMatrix):
            closure(480, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, d1, 0, eperm,
                    eptr, m.rows, m.columns, m.mval, e.nidxs_base, 0, e.ptr_base, h.cconst_base,
                    h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom,
                    h.nidxs_base, h.ptr_base, e.sp_base, w.f64, w.i32, w.i64, x.i32)
        else:
            closure(479, e.cconst_base, e.code_base, e.codeptr_base, e.cof_base, d1, eperm, eptr,
                    m.mnnz, m.msubi, m.msubj, m.mval, e.nidxs_base, e.ptr_base, h.cconst_base,
                    h.code_base, h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom,
                    h.nidxs_base, h.ptr_base, h.sp_base, e.sp_base, w.f64, w.i32, w.i64, x.i32)

    def weighted_sum(self, operands, weights):
        """The sum of weights[k] * operands[k], for one operand or more of one shape.

        Sparse if all operands are (the merge path), else dense (the scatter path). Raises
        ValueError if the shapes differ or there are not as many weights as operands.
        """
        operands, weights = [self.w.operand(e) for e in operands], as_array("f64", weights)
        if not operands or len(operands) != len(weights):
            raise ValueError("a sum needs an operand, and a weight for each: %d, %d"
                             % (len(operands), len(weights)))
        sum_sizes(operands)
        h = OperandList(operands)
        if not closure(509, h.n, h.nd, True, h.shape_base, self.w.i32):
            raise ValueError("a sum needs equal shapes: %s"
                             % ", ".join(str(list(e.shape)) for e in operands))
        anycode = closure(510, False, h.n, h.ncodeatom)
        add = self._merge if all(e.hassp for e in operands) else self._scatter
        return add(operands, h, weights, anycode)

    def _merge(self, operands, h, weights, anycode):
        r, w = self.r, self.w
        rncodeatom, rnelem, rnnz = closure(512, anycode, h.n, h.ncodeatom, h.nelem, h.nnz, 0, 0, 0,
                                           h.sp_base, w.i64)
        s = r.reserve_expression(operands[0].shape, rnelem, rnnz, rncodeatom, hassp=True)
        closure(513, h.nd, r.i32, s.shape_base, h.shape_base, w.i32)
        closure(523, anycode, h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, h.n,
                h.ncodeatom, h.nelem, h.nidxs_base, h.ptr_base, s.cconst_base, s.code_base,
                s.codeptr_base, s.cof_base, r.f64, r.i32, r.i64, s.nidxs_base, s.ptr_base,
                s.sp_base, h.sp_base, weights, w.f64, w.i32, w.i64)
        return s

    def _scatter(self, operands, h, weights, anycode):
        r, w, x = self.r, self.w, self.x
        rnelem = size(operands[0].shape)
        rncodeatom, rnnz = closure(511, anycode, h.n, h.ncodeatom, h.nnz, 0, 0)
        s = r.reserve_expression(operands[0].shape, rnelem, rnnz, rncodeatom)
        closure(513, h.nd, r.i32, s.shape_base, h.shape_base, w.i32)
        with x.scratch():
            xcode = x.reserve("i32", rnelem + 1)
            closure(514, r.i32, rnelem, s.ptr_base)
            closure(515, rncodeatom, rnelem, xcode, x.i32)
            for k, e in enumerate(operands):
                if e.hassp:
                    closure(516, anycode, h.codeptr_base, k, h.ncodeatom, h.nelem, h.ptr_base,
                            r.i32, s.ptr_base, h.sp_base, w.i32, w.i64, xcode, x.i32)
                else:
                    closure(517, anycode, h.codeptr_base, k, h.ncodeatom, h.nelem, h.ptr_base,
                            r.i32, s.ptr_base, w.i32, xcode, x.i32)
            closure(518, r.i32, rnelem, s.ptr_base)
            closure(519, rncodeatom, rnelem, xcode, x.i32)
            for k, e in enumerate(operands):
                head = (anycode, h.cconst_base, h.code_base, h.codeptr_base, h.cof_base, k,
                        h.ncodeatom, h.nelem, h.nidxs_base, h.ptr_base, s.cconst_base, s.code_base,
                        s.codeptr_base, s.cof_base, r.f64, r.i32, r.i64, s.nidxs_base, s.ptr_base)
                tail = (weights, w.f64, w.i32, w.i64, xcode, x.i32)
                if e.hassp:
                    closure(520, *head, h.sp_base, *tail)
                else:
                    closure(521, *head, *tail)
        closure(522, r.i32, rnelem, s.ptr_base)
        r.i32[s.ptr_base] = 0
        return s

    def mul_param_scalar(self, param, e):
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

    # Before an expression enters a model.

    def finish(self, e):
        """`e` as a model takes it: the terms of each element in ascending order of their variable,
        each variable once, and each coefficient either a number or a program. Parameter code that
        came out as a number is gone, and so are terms and elements of nothing but zeros where there
        is code. The result is no operand any more."""
        if self.w.held(e).finished:
            return e
        with self.r.undone_on_error():
            merged = self.merge_terms(e)
            return self.compact_terms(merged) if e.ncodeatom > 0 else replace(merged, finished=True)

    def merge_terms(self, e):
        """`e` with one term for each variable of an element, in ascending order; `e` itself if that
        is so already. Without code, variables with nothing but zeros are dropped."""
        r, w, x = self.r, self.w, self.x
        self.w.operand(e)
        if closure(393, True, e.nelem, e.nidxs_base, e.ptr_base, w.i32, w.i64) and (
                e.ncodeatom > 0 or closure(394, e.cconst_base, e.code_base, e.codeptr_base,
                                           e.cof_base, True, e.ncodeatom, e.nnz, w.f64, w.i32)):
            return e
        with x.scratch():
            perm = self.sort_terms(e)
            ncodeatom, nnz = closure(396, e.cof_base, e.ncodeatom, e.nelem, e.nidxs_base, perm,
                                     e.ptr_base, e.ncodeatom, 0, w.f64, w.i32, w.i64, x.i32)
            h = r.reserve_expression(e.shape, e.nelem, nnz, ncodeatom, e.hassp)
            closure(397, e.nd, r.i32, h.shape_base, e.shape_base, w.i32)
            closure(398, e.hassp, e.nelem, r.i64, h.sp_base, e.sp_base, w.i64)
            closure(399, e.cconst_base, e.code_base, 0, e.codeptr_base, e.cof_base, e.ncodeatom,
                    e.nelem, e.nidxs_base, 0, perm, e.ptr_base, h.cconst_base, h.code_base,
                    h.codeptr_base, h.cof_base, r.f64, r.i32, r.i64, h.ncodeatom, h.nidxs_base,
                    h.ptr_base, w.f64, w.i32, w.i64, x.i32)
        return h

    def sort_terms(self, e):
        """Position on the x stack of the permutation that puts the terms of each element in
        ascending order of their variable."""
        w, x = self.w, self.x
        longest = closure(390, 0, e.nelem, e.ptr_base, w.i32)
        perm = x.reserve("i32", e.nnz)
        with x.scratch():
            work = x.reserve("i32", 2 * longest + 1)
            closure(391, e.nelem, e.nidxs_base, perm, e.ptr_base, w.i32, w.i64, work, x.i32)
        return perm

    def compact_terms(self, e):
        """`e`, which has code, with that code simplified: a term is either a number or a program,
        and terms and elements that came out empty are dropped."""
        r, w, x = self.r, self.w, self.x
        self.w.operand(e)
        with r.undone_on_error(), x.scratch():
            cof, code, codeptr, cconst = self.simplify_code(e)
            sizes = closure(385, cof, e.nelem, e.ptr_base, 0, 0, 0, w.f64, w.i32, code, codeptr,
                            x.i32)
            ncodeatom, nelem, nnz = sizes
            hassp = closure(386, e.nd, e.hassp, nelem, e.shape_base, w.i32)
            h = r.reserve_expression(e.shape, nelem, nnz, ncodeatom, hassp, finished=True)
            closure(387, e.nd, r.i32, h.shape_base, e.shape_base, w.i32)
            closure(389, 0, cof, 0, e.hassp, e.nelem, e.nidxs_base, 0, e.ptr_base, h.cconst_base,
                    h.code_base, h.codeptr_base, h.cof_base, r.f64, h.hassp, r.i32, r.i64,
                    h.nidxs_base, h.ptr_base, h.sp_base, e.sp_base, w.f64, w.i32, w.i64, cconst,
                    code, codeptr, x.f64, x.i32)
        return h

    def simplify_code(self, e):
        """Positions of the simplified code of `e`: its coefficients on the w stack, and its
        opcodes, pointers and operands on the x stack. The coefficients are a copy, as
        simplification moves numbers between them and the programs."""
        w, x = self.w, self.x
        cof = w.reserve("f64", e.nnz)
        closure(383, e.cof_base, e.nnz, cof, w.f64, w.f64)
        # A program can grow by two atoms: the number that it takes over, and the addition.
        with w.section("f64", cof, e.nnz) as numbers:
            most = e.ncodeatom + 2 * closure(400, numbers, 0)
        code, cconst = x.reserve("i32", most), x.reserve("f64", most)
        codeptr = x.reserve("i32", e.nnz + 1)
        x.i32[codeptr] = 0
        # Room for the tree of the longest program; a sum may take two nodes.
        longest = closure(390, 0, e.nnz, e.codeptr_base, w.i32)
        with x.scratch():
            kind, const = x.reserve("i32", 2 * longest), x.reserve("f64", 2 * longest)
            childptr, child = x.reserve("i32", 2 * longest + 1), x.reserve("i32", 2 * longest)
            nodes = x.reserve("i32", longest)
            _, errpos, _, _ = closure(379, child, childptr, w.i32, e.code_base, w.f64,
                                      e.cconst_base, 0, -1, w.f64, cof, e.nnz, w.i32,
                                      e.codeptr_base, nodes, 0, x.i32, code, x.f64, cconst, x.i32,
                                      codeptr, const, kind, 0, x.f64, x.i32)
        if errpos >= 0:
            raise ValueError("the parameter code of an expression is malformed (%d)" % errpos)
        return cof, code, codeptr, cconst

    def _reserve(self, shape, nelem, nnz, ncodeatom=0, hassp=False):
        """Room for a result of these sizes, with its shape written."""
        e = self.r.reserve_expression(shape, nelem, nnz, ncodeatom, hassp)
        self._write_shape(e)
        return e

    def _write_shape(self, e):
        closure(570, self.r.i32, as_array("i32", e.shape), e.shape_base)
