"""Calls of closures that the tests make, kept so that they can be made again.

Where the environment names a directory FRAGMENTS_CALLS, `support` records the calls of whatever
runs, and leaves them there in a file per program. Of each closure it keeps some, drawn evenly from
all calls that returned.
"""

import atexit
import bisect
import ctypes
import functools
import os
import pathlib
import pickle
import random
import sys
import zlib
from dataclasses import dataclass
from typing import Any, List, Optional, Tuple

from scripts.declarations import read_declarations
from test_buffers import Buffer, address

KEPT = 12  # calls of one closure in one program


@dataclass(frozen=True)
class View:
    """Where an array lies in one of the memories of its call."""

    memory: int
    offset: int
    format: str
    itemsize: int
    shape: Tuple[int, ...]
    strides: Tuple[int, ...]
    readonly: bool = False

    def buffer(self, memories):
        return Buffer(memories[self.memory], self.format, self.itemsize, self.shape, self.strides,
                      self.offset, self.readonly)


@dataclass(frozen=True)
class Entries:
    """A list of arrays, each a View or None; between them stand `step` - 1 references to None."""

    views: Tuple[Optional[View], ...]
    step: int

    def buffer(self, memories):
        gap = [None] * (self.step - 1)
        items = [x for v in self.views for x in [v and v.buffer(memories)] + gap]
        return Buffer(tuple(items), "O", 8, (len(self.views),), (8 * self.step,))


@dataclass
class RecordedCall:
    """Arguments as they were before the call: scalars, None, Views and Entries."""

    number: int
    arguments: List[Any]
    memories: List[bytes]  # compressed; arrays that shared memory do so here
    result: Any


def entries_of(array):
    """The objects in a list of arrays, None where there is no reference."""
    view = memoryview(array)
    start = address(array)
    places = (start + k * view.strides[0] for k in range(view.shape[0]))
    pointers = [ctypes.c_void_p.from_address(place).value for place in places]
    return [p and ctypes.cast(p, ctypes.py_object).value for p in pointers]


def span(view):
    """The bytes before and behind a view's start, as far as its elements reach."""
    if 0 in view.shape:
        return 0, 0
    reaches = [(n - 1) * step for n, step in zip(view.shape, view.strides)]
    return sum(r for r in reaches if r < 0), sum(r for r in reaches if r > 0) + view.itemsize


def freeze(declaration, arguments):
    """The arguments as a RecordedCall without a result."""
    spans = []  # of all arrays, (first byte, last byte + 1)
    found = {}  # by the identity of the array

    def look_at(array):
        view, start = memoryview(array), address(array)
        before, behind = span(view)
        spans.append((start + before, start + behind))
        found[id(array)] = (start, view)

    lists = {k: entries_of(arguments[k]) for k, p in declaration.arrays
             if p.is_list and arguments[k] is not None}
    arrays = [arguments[k] for k, p in declaration.arrays if not p.is_list]
    for array in arrays + [x for entries in lists.values() for x in entries]:
        if array is not None and id(array) not in found:
            look_at(array)

    blocks = []
    for first, end in sorted(spans):
        first -= first % 8  # what was aligned stays aligned
        if blocks and first < blocks[-1][1]:
            blocks[-1][1] = max(end, blocks[-1][1])
        else:
            blocks.append([first, end])

    def frozen(array):
        if array is None:
            return None
        start, view = found[id(array)]
        memory = bisect.bisect_right([first for first, _ in blocks], start + span(view)[0]) - 1
        return View(memory, start - blocks[memory][0], view.format, view.itemsize, view.shape,
                    view.strides, view.readonly)

    def argument(k, parameter):
        if k in lists:
            step = memoryview(arguments[k]).strides[0] // 8
            return Entries(tuple(map(frozen, lists[k])), step)
        return frozen(arguments[k]) if parameter.element else arguments[k]

    memories = [zlib.compress(ctypes.string_at(first, end - first), 1) for first, end in blocks]
    places = enumerate(declaration.parameters)
    return RecordedCall(declaration.number, [argument(k, p) for k, p in places], memories, None)


class Recorder:
    def __init__(self):
        self.kept = {}
        self.rng = random.Random(0)

    def method(self, declaration, method):
        """What stands in for the method in the module."""
        kept = self.kept[declaration.number] = []
        seen = 0

        @functools.wraps(method, assigned=("__name__",), updated=())
        def record(*arguments):
            nonlocal seen
            seen += 1
            place = len(kept) if len(kept) < KEPT else self.rng.randrange(seen)
            if place >= KEPT:
                return method(*arguments)
            frozen = freeze(declaration, arguments)
            frozen.result = method(*arguments)
            kept[place : place + 1] = [frozen]
            return frozen.result

        return record

    def save(self, path):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(pickle.dumps(self.kept))


def record_into(module, directory):
    """Puts a recorder in the place of the module's methods; it saves its calls at the end."""
    recorder = Recorder()
    for declaration in read_declarations():
        name = "_c_closure_%d" % declaration.number
        setattr(module, name, recorder.method(declaration, getattr(module, name)))
    program = pathlib.Path(sys.argv[-1]).stem
    atexit.register(recorder.save, pathlib.Path(directory) / (program + ".pickle"))


def recorded_calls(directory):
    """All calls recorded in a directory, by closure, in a random order that stays."""
    calls = {}
    for path in sorted(pathlib.Path(directory).glob("*.pickle")):
        for number, some in pickle.loads(path.read_bytes()).items():
            calls.setdefault(number, []).extend(some)
    for some in calls.values():
        random.Random(0).shuffle(some)
    return calls
