"""Calls each closure rightly and wrongly, and says what came of it.

    python fuzz.py DIRECTORY [--calls 100000] [--seed 0] [--closure N [--trial K]]

The right calls are those that the tests made (see recorder.py), on aligned and on shifted arrays,
while each allocation fails once, and over and over without a growth of memory. The wrong ones are
the same with some arguments changed: they return, or raise what the checked build raises; they
don't end the process or run on, they write only into elements of arrays that they may write, and
they keep no view and no reference. Each trial has its own random numbers, from the seed, closure
and number of the trial, which repeat it alone. Exit status 1 says that something else happened.
"""

import argparse
import collections
import contextlib
import ctypes
import functools
import itertools
import mmap
import os
import pathlib
import random
import resource
import signal
import struct
import sys
import time
import zlib
from dataclasses import replace

import test_buffers
from scripts.declarations import read_declarations
from recorder import Entries, View, recorded_calls
from support import MARKER, closure
from test_buffers import Buffer, call_without_memory

EXPECTED = (IndexError, ZeroDivisionError, OverflowError, MemoryError, BufferError, ValueError)
# What a trial came to, by the byte that it leaves. All behind what is expected are faults.
OUTCOMES = ["not run", "returned"] + [kind.__name__ for kind in EXPECTED] + [
    "ended the process", "ran on", "wrote elsewhere", "kept a view", "kept a reference",
    "kept memory", "other exception", "right call raised", "other result than recorded",
    "other outcome on shifted arrays", "other outcome without memory"]
FAULTS = OUTCOMES[2 + len(EXPECTED) :]
CODES = {name: code for code, name in enumerate(OUTCOMES)}
STARTED = 255

SECONDS, LONG = 10, 0.5  # of processor time that a call may take, and from where on it is told
MEMORY = 2**32  # bytes of address space for a process
MARGIN = 64  # bytes around each memory, which nothing may write
LARGE = {"int": (1000, 2**16, 2**30, 2**31 - 2, 2**31 - 1, -(2**31)),
         "long long": (1000, 2**31, 2**40, 2**63 - 1, -(2**63)),
         "double": (1e308, float("inf"), float("nan"), 0.5)}
LIMITS = {"int": 2**31, "i": 2**31}


@functools.lru_cache(maxsize=64)
def decompressed(memory):
    return zlib.decompress(memory)


# --- wrong arguments


def wrong_number(rng, kind, value):
    """A number of the kind that is near, far or on the other side."""
    if kind == "bool":
        return not value
    large = rng.choice(LARGE[kind])
    value = rng.choice((value + 1, value - 1, value + 1, value - 1, -value, 0, large))
    limit = LIMITS.get(kind, 2**63)
    return value if kind == "double" else max(-limit, min(limit - 1, value))


def change_entry(rng, view, memories):
    """Changes an element of the view, one that a test has set if one is met."""
    for _ in range(20):
        if 0 in view.shape:
            return
        place = sum(rng.randrange(n) * step for n, step in zip(view.shape, view.strides))
        place, format = place + view.offset, {"l": "q"}.get(view.format, view.format)
        (old,) = struct.unpack_from(format, memories[view.memory], place)
        if old != MARKER[format]:
            break
    kind = {"i": "int", "q": "long long", "d": "double"}[format]
    struct.pack_into(format, memories[view.memory], place, wrong_number(rng, kind, old))


def cut(rng, array):
    """The array without some of its last elements, along one dimension."""
    shape = [len(array.views)] if isinstance(array, Entries) else list(array.shape)
    dim = rng.randrange(len(shape))
    n = shape[dim]
    shape[dim] = rng.choice((0, min(1, n), n // 2, max(n - 1, 0)))
    if isinstance(array, Entries):
        return replace(array, views=array.views[: shape[0]])
    return replace(array, shape=tuple(shape))


def wrong_array(rng, array, others, memories):
    """Another array in its place; or itself, with an element changed."""
    how = rng.choice(("absent", "cut", "swapped", "read-only", "entry", "entry", "entry"))
    if how == "absent" or array is None:
        return None
    if how == "cut":
        return cut(rng, array)
    if how == "swapped":
        return rng.choice(others)
    if isinstance(array, Entries):
        entries = list(array.views)
        if entries:
            entries[rng.randrange(len(entries))] = None
        return replace(array, views=tuple(entries))
    if how == "read-only":
        return replace(array, readonly=True)
    change_entry(rng, array, memories)
    return array


def make_wrong(rng, parameters, arguments, memories):
    """Changes up to three of the arguments."""
    arrays = [arguments[k] for k, p in enumerate(parameters) if p.element]
    for _ in range(rng.choice((1, 1, 1, 2, 3))):
        k = rng.randrange(len(parameters))
        arguments[k] = (
            wrong_array(rng, arguments[k], arrays, memories) if parameters[k].element
            else wrong_number(rng, parameters[k].type, arguments[k]))


# --- one call


class Fault(Exception):
    """What a closure must not do: one of FAULTS."""


def moved(argument, distance):
    if isinstance(argument, Entries):
        return replace(argument, views=tuple(moved(v, distance) for v in argument.views))
    if isinstance(argument, View):
        return replace(argument, offset=argument.offset + distance)
    return argument


def write_elements(view, target, source):
    """What the view shows of the source, put into the target."""
    rows = [view]
    if len(view.shape) == 2:
        rows = [replace(view, shape=view.shape[1:], strides=view.strides[1:],
                        offset=view.offset + i * view.strides[0]) for i in range(view.shape[0])]
    for row in rows:
        if 0 not in row.shape:
            row = replace(row, readonly=False)
            memoryview(row.buffer(target))[:] = memoryview(row.buffer(source))


def parted(arguments, memories):
    """The same with a memory of its own for each array."""
    own, apart = [], []
    for argument in arguments:
        if isinstance(argument, View):
            own.append(memories[argument.memory])
            argument = replace(argument, memory=len(own) - 1 + len(memories))
        apart.append(argument)
    return apart, memories + own


class Prepared:
    """A call ready to be made, on copies of the memories which start `shift` bytes later."""

    def __init__(self, declaration, arguments, memories, shift=0):
        margin = bytes([0xA5]) * MARGIN
        self.declaration = declaration
        self.start = MARGIN + shift
        self.before = [margin + bytes(shift) + bytes(m) + margin for m in memories]
        self.after = list(map(bytearray, self.before))
        self.places = [moved(a, self.start) for a in arguments]
        self.buffers = tuple(a.buffer(self.after) if isinstance(a, (View, Entries)) else a
                             for a in self.places)
        self.method = closure(declaration.number)
        self.references = self.count_references()

    def count_references(self):
        return [sys.getrefcount(b) for b in self.buffers if isinstance(b, Buffer)]

    def check(self):
        """Raises Fault if more has changed than elements of arrays that may be written, or
        something is held."""
        allowed = list(map(bytearray, self.before))
        for k, parameter in self.declaration.arrays:
            if parameter.is_written and self.places[k] is not None and allowed != self.after:
                write_elements(self.places[k], allowed, self.after)
        if allowed != self.after:
            raise Fault("wrote elsewhere")
        if any(b.views for b in self.buffers if isinstance(b, Buffer)):
            raise Fault("kept a view")
        if self.count_references() != self.references:
            raise Fault("kept a reference")

    def restore(self):
        for memory, before in zip(self.after, self.before):
            memory[:] = before

    def contents(self):
        return [m[self.start :] for m in self.after]


def run(*call):
    """The result and the memories after a call that keeps to the rules."""
    prepared = Prepared(*call)
    signal.setitimer(signal.ITIMER_PROF, SECONDS)
    try:
        result = prepared.method(*prepared.buffers)
    finally:
        signal.setitimer(signal.ITIMER_PROF, 0)
        prepared.check()
    return result, prepared.contents()


class Whole(int):
    """Arguments with such a number aren't ordinary ones, which the frame takes directly."""


def run_without_memory(prepared, expected):
    """Makes the call again and again, and each time another allocation fails. It raises
    MemoryError, or finds another way."""
    failed = True
    for n in itertools.count():
        if not failed:
            return
        prepared.restore()
        with contextlib.suppress(MemoryError):
            result, failed = call_without_memory(n, prepared.method, prepared.buffers)
            if (result, prepared.contents()) != expected:
                raise Fault("other outcome without memory")
        prepared.check()


class AllocatorInformation(ctypes.Structure):
    _fields_ = [(name, ctypes.c_size_t) for name in (
        "arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks", "fsmblks", "uordblks",
        "fordblks", "keepcost")]


information = ctypes.CDLL(None).mallinfo2
information.restype = AllocatorInformation


def run_often(prepared, times):
    """Makes the call so often that what it kept of memory each time would show."""
    for count in (20, times):  # the first ones fill the interpreter's free lists
        used = information().uordblks
        for _ in range(count):
            prepared.restore()
            prepared.method(*prepared.buffers)
        used = information().uordblks - used
    if used > 8 * times + 1000:
        raise Fault("kept memory")
    prepared.check()


def run_right(rng, declaration, call, times):
    memories = list(map(decompressed, call.memories))
    try:
        outcome = run(declaration, call.arguments, memories)
        shifted = run(declaration, call.arguments, memories, rng.choice((1, 2, 3)))
    except EXPECTED:
        raise Fault("right call raised") from None
    if outcome[0] != call.result:
        raise Fault("other result than recorded")
    if outcome != shifted:
        raise Fault("other outcome on shifted arrays")
    with contextlib.suppress(EXPECTED):  # it may have needed the arrays that were one
        run(declaration, *parted(call.arguments, memories))
    whole = [Whole(a) if type(a) is int else a for a in call.arguments]
    for arguments in (call.arguments, whole):
        prepared = Prepared(declaration, arguments, memories)
        run_without_memory(prepared, outcome)
        if times > 0:
            run_often(prepared, times)


def run_wrong(rng, declaration, call, show):
    memories = [bytearray(decompressed(m)) for m in call.memories]
    arguments, memories = rng.choice((parted, lambda *both: both))(list(call.arguments), memories)
    make_wrong(rng, declaration.parameters, arguments, memories)
    show(declaration, arguments, memories)
    run(declaration, arguments, memories)


# --- trials


class Trials:
    """`count` trials of each closure: right calls up to a quarter, else wrong ones. What they came
    to stands in memory that the processes share."""

    def __init__(self, calls, numbers, count, times, seed):
        self.calls = calls
        self.declarations = [d for d in read_declarations() if d.number in numbers]
        self.count = count
        self.times = times
        self.seed = seed
        self.size = len(self.declarations) * count
        self.codes = memoryview(mmap.mmap(-1, self.size))
        self.statuses = {}  # of processes that a trial has ended
        self.seconds = memoryview(mmap.mmap(-1, 8 * self.size)).cast("d")

    def number_and_trial(self, place):
        return self.declarations[place // self.count].number, place % self.count

    def right_call(self, number, trial):
        """The recorded call that the trial repeats, or None: every fourth does, while there are."""
        calls = self.calls[number]
        return calls[trial // 4] if trial % 4 == 0 and trial // 4 < len(calls) else None

    def attempt(self, place, show=lambda *call: None):
        """The name of what a trial came to."""
        declaration = self.declarations[place // self.count]
        number, trial = self.number_and_trial(place)
        rng = random.Random("%d %d %d" % (self.seed, number, trial))
        right = self.right_call(number, trial)
        try:
            if right:
                run_right(rng, declaration, right, self.times if trial == 0 else 0)
            else:
                run_wrong(rng, declaration, rng.choice(self.calls[number]), show)
        except Fault as fault:
            return str(fault)
        except Exception as error:
            return type(error).__name__ if type(error) in EXPECTED else "other exception"
        return "returned"

    def run_share(self, places):
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        for place in places:
            self.codes[place] = STARTED
            start = time.process_time()
            self.codes[place] = CODES[self.attempt(place)]
            self.seconds[place] = time.process_time() - start

    def run(self, processes):
        """Runs all trials; the share of a process that ends early goes on in another one."""
        shares = {}

        def start(places):
            child = os.fork()
            if child == 0:
                try:
                    self.run_share(places)
                    os._exit(0)
                finally:
                    os._exit(1)
            shares[child] = places

        for k in range(processes):
            start(range(k, self.size, processes))
        while shares:
            child, status = os.wait()
            places = shares.pop(child)
            if status != 0:
                done = next(k for k, place in enumerate(places) if self.codes[place] == STARTED)
                ran_on = status == signal.SIGPROF
                self.codes[places[done]] = CODES["ran on" if ran_on else "ended the process"]
                self.statuses[places[done]] = status
                start(places[done + 1 :])


def report(trials):
    """Prints what the trials came to; returns whether there was a fault."""
    outcomes = collections.Counter(OUTCOMES[code] for code in trials.codes)
    least = min(len(trials.calls[d.number]) for d in trials.declarations)
    seldom = [d.number for d in trials.declarations if len(trials.calls[d.number]) == least]
    places = range(trials.size)
    right = sum(trials.right_call(*trials.number_and_trial(k)) is not None for k in places)
    print("closures  %d, each in %d trials" % (len(trials.declarations), trials.count))
    print("recorded  at least %d calls of each; no more of %s"
          % (least, ", ".join(map(str, seldom))))
    print("trials    %d, %d of them right calls; seed %d" % (trials.size, right, trials.seed))
    for name in OUTCOMES[1:]:
        print("    %-34s %d" % (name, outcomes[name]))
    for place, seconds in enumerate(trials.seconds):
        if seconds > LONG:
            print("LONG      closure %d, trial %d: %.1f s" % (
                *trials.number_and_trial(place), seconds))
    for place, code in enumerate(trials.codes):
        if OUTCOMES[code] in FAULTS:
            status = trials.statuses.get(place, 0)
            print("FAULT     closure %d, trial %d: %s%s" % (
                *trials.number_and_trial(place), OUTCOMES[code],
                ", " + signal.Signals(os.WTERMSIG(status)).name if os.WIFSIGNALED(status) else ""))
    return any(outcomes[name] for name in FAULTS)


def show_call(declaration, arguments, memories):
    """Prints the arguments of a call, and what its arrays hold."""
    print("closure %d" % declaration.number)
    for parameter, argument in zip(declaration.parameters, arguments):
        print("    %s %s = %s" % (parameter.type, parameter.name, argument))
        if isinstance(argument, View) and 0 not in argument.shape:
            content = memoryview(argument.buffer(list(map(bytearray, memories))))
            print("        %s" % (content.tolist(),))
    sys.stdout.flush()


def load_allocator():
    """Starts this program anew with the tests' allocator, unless it has that one."""
    library = pathlib.Path(test_buffers.__file__).with_name("test_allocator.so")
    if "LD_PRELOAD" not in os.environ:
        environment = {"LD_PRELOAD": str(library), "PYTHONMALLOC": "malloc", **os.environ}
        os.execve(sys.executable, [sys.executable] + sys.argv, environment)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("directory", help="where the recorded calls lie")
    parser.add_argument("--calls", type=int, default=100000, help="trials of all closures together")
    parser.add_argument("--seed", type=int, default=0)
    parser.add_argument("--closure", type=int, help="this one alone")
    parser.add_argument("--trial", type=int, help="this one alone, in this process")
    options = parser.parse_args()
    if options.trial is not None and options.closure is None:
        parser.error("--trial: of which --closure?")
    if options.calls < 1 or (options.trial or 0) < 0:
        parser.error("--calls is above 0, --trial not below")
    load_allocator()
    calls = recorded_calls(options.directory)
    numbers = {d.number for d in read_declarations()}
    never = sorted(n for n in numbers if not calls.get(n))
    if never:
        sys.exit("%s: no calls of %d closures are recorded, of %d for one; run the tests of the "
                 "checked build first" % (options.directory, len(never), never[0]))
    count = max(-(-options.calls // len(calls)), (options.trial or 0) + 1)
    if options.closure is not None:
        if options.closure not in numbers:
            parser.error("--closure: there is no closure %d" % options.closure)
        numbers = {options.closure}
    trials = Trials(calls, numbers, count, 5 * count, options.seed)
    if options.trial is not None:
        print(trials.attempt(options.trial, show_call))
        return
    trials.run(os.cpu_count())
    sys.exit(report(trials))


if __name__ == "__main__":
    main()
