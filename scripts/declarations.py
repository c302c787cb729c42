"""What each closure promises, read from its CLOSURE declaration and the comment above it."""

import pathlib
import re
from dataclasses import dataclass
from typing import List, Optional, Tuple

ROOT = pathlib.Path(__file__).resolve().parent.parent
SOURCES = ROOT / "kernels"
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
    def rank(self):
        return 2 if "Matrix" in self.type else 1

    @property
    def is_written(self):
        """Whether the closure may write the array; it may read it as well."""
        return self.type.endswith("Out")


@dataclass(frozen=True)
class Declaration:
    number: int
    result: Optional[type]  # None, int, bool or tuple
    slots: Tuple[type, ...]  # of a tuple
    parameters: List[Parameter]
    comment: str  # its own or that of its group; empty if there is none
    path: pathlib.Path  # of the source, below the project's root
    line: int

    @property
    def arrays(self):
        """(place among the parameters, parameter) for each array."""
        return [(k, p) for k, p in enumerate(self.parameters) if p.element]

    @property
    def scalars(self):
        return [(k, p) for k, p in enumerate(self.parameters) if not p.element]


def parse_parameters(text):
    found = []
    for parameter in text.replace("[[maybe_unused]]", "").split(","):
        kind, name = re.fullmatch(r"\s*([\w ]+?)\s+(\w+)\s*", parameter).groups()
        found.append(Parameter(name, " ".join(kind.split())))
    return found


def parse_result(text):
    """(result, slots) of a Declaration."""
    if not text.startswith("results"):
        return RESULT[text], ()
    return tuple, tuple(RESULT[slot.strip()] for slot in text[len("results(") : -1].split(","))


def comment_above(lines, line):
    """The text of the `///` lines that end right above `line`, which counts from 1."""
    first = line - 1
    while first > 0 and lines[first - 1].startswith("///"):
        first -= 1
    return "\n".join(text[3:].replace(" ", "", 1) for text in lines[first : line - 1])


def parse(text, path):
    """The declarations of one source. Where no empty line stands between two of them, they are a
    group, and the second one has the comment of the first."""
    lines = text.splitlines()
    code = COMMENT.sub(lambda comment: re.sub(r"[^\n]", " ", comment[0]), text)
    comment, end = "", 0
    for match in DECLARATION.finditer(code):
        line = code.count("\n", 0, match.start()) + 1
        grouped = all(between.strip() for between in lines[end : line - 1])
        comment = comment_above(lines, line) or (comment if end and grouped else "")
        number, result, parameters = match.groups()
        yield Declaration(int(number), *parse_result(result), parse_parameters(parameters),
                          comment, path, line)
        end = code.count("\n", 0, match.end()) + 1


def read_declarations():
    """All declarations, by descending number."""
    found = [d for path in SOURCES.glob("*/*.cpp")
             for d in parse(path.read_text(encoding="utf-8"), path.relative_to(ROOT))]
    return sorted(found, key=lambda d: -d.number)
