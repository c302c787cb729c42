"""Work stacks, and the header of an expression that stands on one."""

import contextlib
import itertools
import mmap
from array import array
from dataclasses import dataclass, replace
from typing import Dict, Iterator, List, Optional, Sequence, Tuple

from ..data.buffers import LARGEST, TYPECODES, Array, Shape, as_array
from ..interruptions import uninterrupted


Mark = Dict[str, int]


class Hold:
    """That an expression stands on `stack` from position `base` of its i32 array on, until it is
    `released`."""

    __slots__ = "stack", "base", "released"

    def __init__(self, stack: "Stack", base: int) -> None:
        self.stack, self.base, self.released = stack, base, False


@dataclass(frozen=True)
class Expression:
    """The header of a stacked expression: sizes and the positions of its sections on the stack.

    `shape` repeats the section of that name. `nelem` elements are stored, with `nnz` terms and
    `ncodeatom` atoms of parameter code (0: it has none). `finished` tells that the code is in the
    form that enters a model and can't be an operand any more. `hold` tells where it stands.
    """

    shape: Tuple[int, ...]
    nelem: int
    nnz: int
    ncodeatom: int
    hassp: bool
    finished: bool
    shape_base: int
    ptr_base: int
    sp_base: int
    nidxs_base: int
    cof_base: int
    codeptr_base: int
    code_base: int
    cconst_base: int
    hold: Hold

    @property
    def nd(self) -> int:
        return len(self.shape)


class OperandList:
    """The headers of several operands, as an i32 array for each field: made when it is asked for.
    """

    def __init__(self, operands: Sequence[Expression]) -> None:
        self.n, self._operands = len(operands), operands

    def __getattr__(self, field: str) -> Array:
        values = as_array("i32", [getattr(e, field) for e in self._operands])
        setattr(self, field, values)
        return values


class Stack:
    """Three arrays `i32`, `i64`, `f64` that grow by doubling, with a free position in each.

    They are views of anonymous memory, as that grows in place and pages that nothing was written to
    cost nothing: an array would be filled before it is written. Each growth makes another view, and
    none is possible while a slice of the one before lives: so one taken by `section` has to be
    released before the next reservation.
    """

    _numbers = itertools.count(1)

    def __init__(self, capacity: int = 1024, name: Optional[str] = None) -> None:
        self.name = name or "stack %d" % next(self._numbers)
        self._holds: List[Hold] = []  # of the expressions that stand here
        self._memory = {kind: anonymous(kind, capacity) for kind in TYPECODES}
        self.i32, self.i64, self.f64 = map(self._view, TYPECODES)
        self._top = dict.fromkeys(TYPECODES, 0)

    def reserve(self, kind: str, count: int) -> int:
        """The position of `count` entries that were free, in the array of that kind.

        Raises MemoryError if a position would not fit 32 bits.
        """
        base = self._top[kind]
        top = base + count
        if top > LARGEST:
            raise MemoryError("a work stack can't hold more than %d entries" % LARGEST)
        if top > len(getattr(self, kind)):
            self._grow(kind, top)
        self._top[kind] = top
        return base

    def _view(self, kind: str) -> memoryview:
        return memoryview(self._memory[kind]).cast(TYPECODES[kind])

    @uninterrupted()
    def _grow(self, kind: str, top: int) -> None:
        view, memory = getattr(self, kind), self._memory[kind]
        capacity, itemsize = max(2 * len(view), top), view.itemsize
        view.release()
        try:
            memory.resize(capacity * itemsize)
        except OSError:
            raise MemoryError("a work stack can't grow to %d entries" % capacity) from None
        finally:
            setattr(self, kind, self._view(kind))

    def reserve_expression(self, shape: Shape, nelem: int, nnz: int, ncodeatom: int = 0,
                           hassp: bool = False, finished: bool = False) -> Expression:
        """Room for an expression of these sizes. Entry 0 of `ptr` and of `codeptr` is set to 0, as
        the closures leave that to the host; nothing else is written. Without room for all of it
        none is reserved, and there is a MemoryError."""
        coded = ncodeatom > 0
        with self.undone_on_error():
            hold = Hold(self, self._top["i32"])
            header = Expression(
                shape=tuple(shape),
                nelem=nelem,
                nnz=nnz,
                ncodeatom=ncodeatom,
                hassp=hassp,
                finished=finished,
                shape_base=self.reserve("i32", len(shape)),
                ptr_base=self.reserve("i32", nelem + 1),
                sp_base=self.reserve("i64", nelem if hassp else 0),
                nidxs_base=self.reserve("i64", nnz),
                cof_base=self.reserve("f64", nnz),
                codeptr_base=self.reserve("i32", nnz + 1 if coded else 0),
                code_base=self.reserve("i32", ncodeatom if coded else 0),
                cconst_base=self.reserve("f64", ncodeatom if coded else 0),
                hold=hold,
            )
        self._holds.append(hold)
        self.i32[header.ptr_base] = 0
        if coded:
            self.i32[header.codeptr_base] = 0
        return header

    def share(self, e: Expression, shape: Shape, hassp: bool) -> Expression:
        """Room for another shape of the elements of `e`, which stands here; all else is shared, but
        with `hassp` the places, for which there is room if `e` has none."""
        with self.undone_on_error():
            hold = Hold(self, self._top["i32"])
            shape_base = self.reserve("i32", max(len(shape), 1))  # or two holds have one base
            sp_base = self.reserve("i64", e.nelem) if hassp and not e.hassp else e.sp_base
        self._holds.append(hold)
        return replace(e, shape=tuple(shape), shape_base=shape_base, hassp=hassp, sp_base=sp_base,
                       hold=hold)

    def section(self, kind: str, base: int, count: int) -> memoryview:
        """A memoryview of `count` entries from `base` on, for use in a `with` statement."""
        return memoryview(getattr(self, kind))[base : base + count]

    def mark(self) -> Mark:
        """What `release` needs to free all that is reserved from now on."""
        return dict(self._top)

    def release(self, mark: Mark) -> None:
        """Frees all that was reserved after the mark. An expression among that can't be used any
        more, also when others stand in its place."""
        self._top = dict(mark)
        while self._holds and self._holds[-1].base >= mark["i32"]:
            self._holds.pop().released = True

    def held(self, e: Expression) -> Expression:
        """`e`, if it stands here; else ValueError."""
        if e.hold.stack is not self:
            raise ValueError("an expression of shape %s stands on %s, not on %s where it is to be "
                             "used" % (list(e.shape), e.hold.stack.name, self.name))
        if e.hold.released:
            raise ValueError("an expression of shape %s stands on %s no more: the scratch() block "
                             "in which it was made has ended" % (list(e.shape), self.name))
        return e

    def operand(self, e: Expression) -> Expression:
        """`e`, if it stands here and can be an operand; else ValueError."""
        if self.held(e).finished:
            raise ValueError("an expression that is ready for a model can't be an operand any more")
        return e

    @contextlib.contextmanager
    def scratch(self) -> Iterator[None]:
        """Frees at the end of the `with` block, on every path, what was reserved inside."""
        mark = self.mark()
        try:
            yield
        finally:
            self.release(mark)

    @contextlib.contextmanager
    def undone_on_error(self) -> Iterator[None]:
        """Frees what was reserved inside the `with` block if that raises."""
        mark = self.mark()
        try:
            yield
        except BaseException:
            self.release(mark)
            raise


def anonymous(kind: str, count: int) -> mmap.mmap:
    """Private memory for `count` entries of that kind, all 0."""
    length = max(count, 1) * array(TYPECODES[kind]).itemsize
    return mmap.mmap(-1, length, flags=mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS)
