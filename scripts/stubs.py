"""Writes `fragments.pyi`: each closure with its parameters, its result and its text.

    python scripts/stubs.py FILE
"""

import keyword
import pathlib
import sys
import textwrap

from declarations import read_declarations

SCALARS = {"int": "int", "long long": "int", "double": "float", "bool": "bool"}

HEAD = '''\
"""The inner loops of a modelling layer for conic optimisation, by number.

All parameters are positional. An array is any buffer object of the parameter's rank and kind, or
None where the closure doesn't get to it: I32 has 32-bit integers, I64 64-bit ones and F64 doubles;
a Matrix has rank 2; a List is an array of arrays. What is called Out is written, and may be read
as well; all else is only read.
"""

import ctypes
from array import array
from typing import Any, Optional, Protocol, Tuple, Union

class Exporter(Protocol):
    """An array of another package, such as NumPy's."""
    @property
    def __array_interface__(self) -> Any: ...

I32 = Optional[Union[array[int], memoryview, Exporter, ctypes.Array[ctypes.c_int32]]]
I64 = Optional[Union[array[int], memoryview, Exporter, ctypes.Array[ctypes.c_int64]]]
F64 = Optional[Union[array[float], memoryview, Exporter, ctypes.Array[ctypes.c_double]]]
I32Matrix = Optional[Union[memoryview, Exporter, ctypes.Array[ctypes.Array[ctypes.c_int32]]]]
F64Matrix = Optional[Union[memoryview, Exporter, ctypes.Array[ctypes.Array[ctypes.c_double]]]]
I32List = Optional[Union[memoryview, Exporter, ctypes.Array[ctypes.py_object[Any]]]]
I32Out = I32
I64Out = I64
F64Out = F64
I32MatrixOut = I32Matrix
F64MatrixOut = F64Matrix
'''


def parameter(p):
    name = p.name + "_" * keyword.iskeyword(p.name)
    return "%s: %s" % (name, SCALARS.get(p.type, p.type))


def result(d):
    if d.slots:
        return "Tuple[%s]" % ", ".join(slot.__name__ for slot in d.slots)
    return d.result.__name__ if d.result else "None"


def stub(d):
    parameters = ", ".join([parameter(p) for p in d.parameters] + ["/"])
    text = textwrap.indent('"""%s"""' % d.comment.replace("\\", "\\\\"), "    ")
    return "def _c_closure_%d(%s) -> %s:\n%s\n" % (d.number, parameters, result(d), text)


if __name__ == "__main__":
    text = "\n".join([HEAD] + [stub(d) for d in read_declarations()])
    pathlib.Path(sys.argv[1]).write_text(text, encoding="utf-8")
