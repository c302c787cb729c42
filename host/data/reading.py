"""Numbers read from whatever holds them densely."""

from array import array
from collections.abc import Mapping, Set
from itertools import count
from numbers import Number
from typing import Any, Iterable, List, Tuple

from .buffers import Array, items

Path = Tuple[int, ...]
NUMBERLESS = (str, bytes, Mapping, Set)  # what can be gone through and is no list of numbers


def read(data: Any, what: str, path: Path = ()) -> Tuple[Path, Array]:
    """Shape and numbers of what stands at `path` in `what`."""
    if isinstance(data, Number):
        return (), numbers([data], what, [path])
    if isinstance(data, NUMBERLESS):
        raise no_number(data, what, path)
    if hasattr(data, "mask") and hasattr(data, "tolist"):  # NumPy's masked arrays: as None
        data = data.tolist()
    try:
        with memoryview(data) as view:
            shape, held = tuple(view.shape or ()), items(view)
        if held is not view:
            return shape, held if held.typecode == "d" else array("d", held)
    except (TypeError, ValueError, BufferError):
        pass
    for name in "tolist", "__array__":
        if hasattr(data, name) and not isinstance(data, memoryview):
            return read(getattr(data, name)(), what, path)
    try:
        rows = None if isinstance(data, memoryview) else list(data)
    except TypeError:
        rows = None
    if rows is None:
        raise no_number(data, what, path)
    return level(rows, what, path)


def level(rows: List[Any], what: str, path: Path) -> Tuple[Path, Array]:
    """Shape and numbers of a list of numbers, or of arrays of one shape."""
    if not rows or not hasattr(rows[0], "__len__"):
        return (len(rows),), numbers(rows, what, (path + (k,) for k in count()))
    parts = [read(row, what, path + (k,)) for k, row in enumerate(rows)]
    inner, result = parts[0][0], array("d")
    for k, (shape, part) in enumerate(parts):
        result.extend(part)
        if shape != inner:
            raise ValueError("%s%s has the shape %s, and %s the shape %s"
                             % (what, place(path + (0,)), list(inner), list(path + (k,)),
                                list(shape)))
    return (len(rows), *inner), result


def numbers(values: List[Any], what: str, paths: Iterable[Path]) -> Array:
    """The values (f64), which stand at these paths. The first that is no number is named."""
    try:
        return array("d", values)
    except (TypeError, ValueError, OverflowError):
        pass
    for path, value in zip(paths, values):
        try:
            array("d", [value])
        except OverflowError:
            raise ValueError("%s%s is too large: %s" % (what, place(path), shortened(value))) \
                from None
        except (TypeError, ValueError):
            raise no_number(value, what, path) from None
    raise ValueError("%s can't be read as numbers" % what)


def no_number(data: Any, what: str, path: Path) -> ValueError:
    return ValueError("%s%s is no number: %s" % (what, place(path), shortened(data)))


def place(path: Path) -> str:
    return " at %s" % list(path) if path else ""


def shortened(data: Any) -> str:
    text = repr(data)
    return text if len(text) <= 60 else text[:56] + " ..."
