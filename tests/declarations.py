"""What each closure promises at the boundary, read from its CLOSURE declaration in the sources."""

import pathlib
import re
from dataclasses import dataclass
from typing import List, Optional, Tuple

SOURCES = pathlib.Path(__file__).resolve().parent.parent / "kernels"
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.DOTALL)
DECLARATION = re.compile(
    r"\bCLOSURE(?:_AS)?\(\s*(\d+)\s*,\s*(results\([^)]*\)|[\w ]+?)\s*,\s*\(([^)]*)\)\s*[,)]"
)
ARRAY = re.compile(r"(I32|I64|F64)(Matrix|List)?(Out)?")
RESULT = {"void": None, "int": int, "long long": int, "bool": bool}


@dataclass(frozen=True)
class Parameter:
    name: str
    type: str

    @property
    def element(self):
        """"I32", "I64" or "F64" for an array or a list of arrays, else None."""
        match = ARRAY.fullmatch(self.type)
        return match and match[1]

    @property
    def is_list(self):
        return "List" in self.type

    @property
    def is_written(self):
        return self.type.endswith("Out")

    @property
    def rank(self):
        return 2 if "Matrix" in self.type else 1


@dataclass(frozen=True)
class Declaration:
    number: int
    result: Optional[type]  # None, int, bool or tuple
    slots: Tuple[type, ...]  # of a tuple
    parameters: List[Parameter]

    @property
    def arrays(self):
        """(place among the parameters, parameter) for each array."""
        return [(k, p) for k, p in enumerate(self.parameters) if p.element]

    @property
    def scalars(self):
        return [(k, p) for k, p in enumerate(self.parameters) if not p.element]


def parse(number, result, parameters):
    found = []
    for text in parameters.replace("[[maybe_unused]]", "").split(","):
        kind, name = re.fullmatch(r"\s*([\w ]+?)\s+(\w+)\s*", text).groups()
        found.append(Parameter(name, " ".join(kind.split())))
    slots = ()
    if result.startswith("results"):
        slots = tuple(RESULT[slot.strip()] for slot in result[len("results(") : -1].split(","))
    return Declaration(int(number), tuple if slots else RESULT[result], slots, found)


def read_declarations():
    """All declarations, by descending number."""
    texts = (COMMENT.sub("", path.read_text()) for path in SOURCES.glob("*/*.cpp"))
    found = [parse(*match.groups()) for text in texts for match in DECLARATION.finditer(text)]
    return sorted(found, key=lambda d: -d.number)
