"""What is done before an expression enters a model: terms put in order and merged, parameter code
simplified."""

from dataclasses import replace
from typing import Tuple

from ..closures import closure
from .stacks import Expression
from .workspace import Workspace


class Finishing(Workspace):
    """The last operations of an Evaluator."""

    def finish(self, e: Expression) -> Expression:
        """`e` as a model takes it: the terms of each element in ascending order of their variable,
        each variable once, and each coefficient either a number or a program. Parameter code that
        came out as a number is gone, and so are terms and elements of nothing but zeros where there
        is code. The result is no operand any more."""
        if self.w.held(e).finished:
            return e
        with self.r.undone_on_error():
            merged = self.merge_terms(e)
            return self.compact_terms(merged) if e.ncodeatom > 0 else replace(merged, finished=True)

    def merge_terms(self, e: Expression) -> Expression:
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

    def sort_terms(self, e: Expression) -> int:
        """Position on the x stack of the permutation that puts the terms of each element in
        ascending order of their variable."""
        w, x = self.w, self.x
        longest = closure(390, 0, e.nelem, e.ptr_base, w.i32)
        perm = x.reserve("i32", e.nnz)
        with x.scratch():
            work = x.reserve("i32", 2 * longest + 1)
            closure(391, e.nelem, e.nidxs_base, perm, e.ptr_base, w.i32, w.i64, work, x.i32)
        return perm

    def compact_terms(self, e: Expression) -> Expression:
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

    def simplify_code(self, e: Expression) -> Tuple[int, int, int, int]:
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
