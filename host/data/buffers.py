"""Arrays of the three kinds, how large they may become, and the items of any other buffer."""

import math
import struct
import sys
from array import array
from typing import Any, Sequence, Tuple

Array = Any  # an array of numbers: array.array, or a memoryview of one dimension
Triplets = Tuple[Array, Array, Array]  # rows, columns and values
Shape = Sequence[int]

TYPECODES = {"i32": "i", "i64": "q", "f64": "d"}
CONTENTS = {"i32": "32-bit integers", "i64": "64-bit integers", "f64": "numbers"}
LARGEST = 2 ** 31 - 1  # positions are 32-bit

# The letters of a buffer's format by what its items are, and typecodes of arrays by their size.
ITEMS = {"bhilqn": {1: "b", 2: "h", 4: "i", 8: "q"}, "BHILQN": {1: "B", 2: "H", 4: "I", 8: "Q"},
         "fd": {4: "f", 8: "d"}, "?": {1: "b"}}
TRUTH = b"\0" + b"\1" * 255  # of each byte
SWAPPED = (">", "!") if sys.byteorder == "little" else ("<",)


def zeros(kind: str, count: int) -> Array:
    """An array of `count` zeros; `kind` is "i32", "i64" or "f64"."""
    return array(TYPECODES[kind], [0]) * count


def as_array(kind: str, values: Any) -> Array:
    """The values as an array of that kind, any other buffer by its own format; an array of that
    kind comes back itself. Raises ValueError if the kind can't hold a value."""
    typecode = TYPECODES[kind]
    if isinstance(values, array) and values.typecode == typecode:
        return values
    try:
        return array(typecode, values if isinstance(values, (list, tuple, range, array))
                     else items(values))
    except (TypeError, OverflowError, NotImplementedError) as error:
        raise ValueError("no list of %s: %s" % (CONTENTS[kind], error)) from None


def items(values: Any) -> Any:
    """The items of a buffer of numbers, of any strides and byte order, in row-major order as an
    array of their own type; what is no such buffer comes back itself."""
    try:
        view = memoryview(values)
    except (TypeError, ValueError, BufferError):
        return values
    order, letter = view.format[:-1], view.format[-1:]
    raw = view.tobytes()
    if letter == "e" and view.itemsize == 2:
        return array("d", struct.unpack("%s%de" % (order or "@", len(raw) // 2), raw))
    typecode = next((codes.get(view.itemsize) for letters, codes in ITEMS.items()
                     if letter in letters), None)
    if typecode is None or len(order) > 1:
        return values
    result = array(typecode)
    result.frombytes(raw.translate(TRUTH) if letter == "?" else raw)
    if order in SWAPPED:
        result.byteswap()
    return result


def size(shape: Shape) -> int:
    """The number of positions of a shape."""
    return math.prod(shape)


def require_room(*counts: int) -> None:
    """ValueError if a count of positions, elements, terms or atoms doesn't fit 32 bits."""
    if max(counts) > LARGEST:
        raise ValueError("an expression can't have %d positions, terms or atoms: the most is %d"
                         % (max(counts), LARGEST))
