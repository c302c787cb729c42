"""How large a product with a sparse factor becomes, told before its closures count in 32 bits.

An entry of the factor copies what the other one has in a row or a column of it: that is the key of
the entry. The sums are exact wherever a bound that is quick to tell doesn't fit.
"""

from collections import Counter
from typing import Any, Iterable, Iterator, Sequence, Tuple

from ..closures import closure
from ..data.buffers import LARGEST, require_room, size

Sizes = Tuple[int, ...]


def require_copies(w: Any, e: Any, count: int, keys: Iterable[int], left: bool, added: int,
                   shape: Sequence[int]) -> None:
    """Raises ValueError if a product of this shape has more elements, terms or atoms than a stack
    holds. The `count` keys are rows of the expression `e` on the stack `w` or, if not `left`,
    columns; nobody goes through them where a bound tells enough. The copy of a term has `added`
    atoms more."""
    if count * max(e.nelem, e.nnz, max(e.ncodeatom, 0) + added * e.nnz) <= LARGEST:
        return
    meets = inner_extent(e.shape, True) if left else size(e.shape[:-1])
    longest = closure(390, 0, e.nelem, e.ptr_base, w.i32)
    program = closure(390, 0, e.nnz, e.codeptr_base, w.i32) if e.ncodeatom > 0 else 0
    if count * meets * max(longest, 1) * max(program + added, 1) <= LARGEST:
        return
    elements, nnz, ncodeatom = copied(element_sizes(w, e, added), e.shape, left, keys)
    require_room(min(elements, size(shape)), nnz, ncodeatom)


def require_plain_copies(variable: Any, keys: Sequence[int], left: bool) -> None:
    """The same for a sparse Variable, each element of which is one term."""
    if len(keys) * len(variable) > LARGEST:
        places = ((place, 1) for place in variable.sparsity)
        require_room(*copied(places, variable.shape, left, keys))


def copied(elements: Iterable[Sizes], shape: Sequence[int], left: bool,
           keys: Iterable[int]) -> Sequence[int]:
    """The sums of the sizes of all copies. Elements of the shape are told by their linear index and
    sizes."""
    copies, sums, inner = Counter(keys), [0, 0, 0], inner_extent(shape, left)
    for place, *sizes in elements:
        n = copies[place // inner if left else place % inner]
        sums[:len(sizes)] = [total + n * s for total, s in zip(sums, sizes)]
    return sums


def element_sizes(w: Any, e: Any, added: int) -> Iterator[Sizes]:
    """For each element its linear index, 1, and the numbers of its terms and atoms."""
    ptr = w.i32[e.ptr_base : e.ptr_base + e.nelem + 1]
    places = w.i64[e.sp_base : e.sp_base + e.nelem] if e.hassp else range(e.nelem)
    code = w.i32[e.codeptr_base : e.codeptr_base + e.nnz + 1] if e.ncodeatom > 0 else None
    for place, begin, end in zip(places, ptr, ptr[1:]):
        atoms = code[end] - code[begin] if code else 0
        yield place, 1, end - begin, atoms + added * (end - begin)


def inner_extent(shape: Sequence[int], left: bool) -> int:
    """The number of positions in a row of a matrix or vector, or of columns."""
    if left:
        return shape[1] if len(shape) > 1 else 1
    return shape[-1]
