"""Arrays of the three kinds, and how large they may become."""

import math
from array import array

TYPECODES = {"i32": "i", "i64": "q", "f64": "d"}
CONTENTS = {"i32": "32-bit integers", "i64": "64-bit integers", "f64": "numbers"}
LARGEST = 2 ** 31 - 1  # positions are 32-bit


def zeros(kind, count):
    """An array of `count` zeros; `kind` is "i32", "i64" or "f64"."""
    return array(TYPECODES[kind], [0]) * count


def as_array(kind, values):
    """The values as an array of that kind; one that already is such an array comes back itself.
    Raises ValueError if the kind can't hold a value."""
    if isinstance(values, array) and values.typecode == TYPECODES[kind]:
        return values
    try:
        return array(TYPECODES[kind], values)
    except (TypeError, OverflowError) as error:
        raise ValueError("no list of %s: %s" % (CONTENTS[kind], error)) from None


def size(shape):
    """The number of positions of a shape."""
    return math.prod(shape)
