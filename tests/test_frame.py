"""The frame that all closures share, tested for every closure."""

import array
import contextlib
import ctypes
import functools
import itertools
import os
import resource
import sys
import unittest
import warnings

from scripts.declarations import Parameter, read_declarations
from support import call, closure, fragments, i32
from test_buffers import Buffer

try:
    import numpy
except ImportError:
    numpy = None

DECLARATIONS = read_declarations()
BY_NUMBER = {d.number: d for d in DECLARATIONS}
SANITIZED = "FRAGMENTS_SANITIZE" in os.environ
CHECKED = "FRAGMENTS_CHECKED" in os.environ

ITEMSIZE = {"I32": 4, "I64": 8, "F64": 8}
FIRST_CHARACTERS = {"I32": "i", "I64": "lq", "F64": "d"}
FORMATS = ["", "b", "B", "?", "c", "h", "H", "i", "I", "l", "L", "q", "Q", "n", "f", "d", "e", "O",
           "OO", "P", "s", "x", "<i", "=i", ">i", "@i", "<l", "<q", "<d", " i"]
EXTREMES = {"int": (-(2**31), 2**31 - 1), "long long": (-(2**63), 2**63 - 1),
            "double": (-1e308, 1e308), "bool": (False, True)}


class Exporter:
    """A Buffer and the memory below it, which has `margin` elements more at each end and starts
    `shift` bytes behind an aligned place. All elements have the bits of the integer `value`."""

    def __init__(self, format, itemsize, rank=1, extent=4, step=1, value=0x5a, margin=0,
                 readonly=False, shift=0):
        strides = [itemsize * step * extent**k for k in reversed(range(rank))]
        self.memory = bytearray(bytes(shift) + value.to_bytes(itemsize, "little")
                                * ((extent**rank + 2 * margin) * step))
        self.before = bytes(self.memory)
        self.buffer = Buffer(self.memory, format, itemsize, (extent,) * rank, tuple(strides),
                             margin * itemsize * step + shift, readonly)
        self.entries = []

    @property
    def unchanged(self):
        return self.memory == self.before


class ListExporter:
    """A Buffer of references to the buffers of `entries`, which are exporters or None."""

    unchanged = True

    def __init__(self, entries, format="O", step=1):
        self.entries = [e for e in entries if e is not None]
        gaps = [None] * (step - 1)
        items = [x for e in entries for x in [e and e.buffer] + gaps]
        self.buffer = Buffer(tuple(items), format, 8, (len(entries),), (8 * step,))


def accepted(parameter, **form):
    """An exporter that the parameter takes."""
    element = parameter.element
    entry = lambda: Exporter(FIRST_CHARACTERS[element][-1], ITEMSIZE[element],
                             parameter.rank, **form)
    return ListExporter([entry(), entry()], step=form.get("step", 1)) if parameter.is_list else entry()


def refused(parameter):
    """Exporters of each wrong rank and of each wrong kind."""
    element = parameter.element
    right = "O" if parameter.is_list else FIRST_CHARACTERS[element][0]
    for rank in {0, 1, 2, 3} - {parameter.rank}:
        yield Exporter(right, ITEMSIZE[element], rank, extent=2)
    for format in FORMATS:
        if parameter.is_list:
            if format != "O":
                yield ListExporter([None], format)
        elif format[:1] not in tuple(FIRST_CHARACTERS[element]):
            yield Exporter(format, ITEMSIZE[element], parameter.rank, extent=2)


# Closures that divide by scalars for each element of an array.
DIVIDING = {103, 163, 164}


class Call:
    """Arguments of one closure: 0 for each scalar, 1 where it divides, an exporter for each
    array."""

    def __init__(self, declaration, **form):
        self.declaration = declaration
        self.scalar = int(declaration.number in DIVIDING)
        self.exporters = {k: accepted(p, **form) for k, p in declaration.arrays}

    def arguments(self, replaced=()):
        """`replaced` gives other values for some places."""
        replaced = dict(replaced)
        values = []
        for k, p in enumerate(self.declaration.parameters):
            scalar = False if p.type == "bool" else self.scalar
            value = replaced.get(k, self.exporters.get(k, scalar))
            values.append(value.buffer if isinstance(value, (Exporter, ListExporter)) else value)
        return values

    def run(self, replaced=()):
        return call(self.declaration.number, *self.arguments(replaced))

    def taken(self):
        return {k: e.buffer.taken for k, e in self.exporters.items()}

    def views(self):
        return sum(x.buffer.views for e in self.exporters.values() for x in [e] + e.entries)


def for_each_closure(*forms):
    """Runs a test once for each closure and form, with a Call whose exporters have the form."""

    def decorate(test):
        @functools.wraps(test)
        def run(self):
            for declaration, form in itertools.product(DECLARATIONS, forms or [{}]):
                with self.subTest(closure=declaration.number, form=form):
                    test(self, Call(declaration, **form))

        return run

    return decorate


# For calls that succeed: with all counts 0, hardly a loop runs, but all of the frame. The margin is
# for closures that loop over an array's length, or look at the last of 0 entries, and extents are 1
# as some divide by them.
ONES = dict(extent=8, value=1, margin=256)


class FrameTest(unittest.TestCase):
    def assert_refused(self, one, replaced, exception, message=None):
        """No view is held afterwards, and the arrays are unchanged. Returns of each array whether
        it was taken: once, or twice where the call started anew."""
        before = one.taken()
        with self.assertRaises(exception) as caught:
            one.run(replaced)
        if message is not None:
            self.assertEqual(str(caught.exception), message)
        caught.exception.__traceback__ = None
        self.assertEqual(one.views(), 0)
        for exporter in list(one.exporters.values()) + list(dict(replaced).values()):
            if isinstance(exporter, (Exporter, ListExporter)):
                self.assertEqual(exporter.buffer.views, 0)
                self.assertTrue(exporter.unchanged)
        times = {k: n - before[k] for k, n in one.taken().items()}
        self.assertLessEqual(set(times.values()), {0, 1, 2})
        return {k: n > 0 for k, n in times.items()}

    def assert_result(self, declaration, result):
        """The result has the declared form."""
        if declaration.result is None:
            self.assertIsNone(result)
        else:
            self.assertIs(type(result), declaration.result)
        if declaration.result is tuple:
            self.assertEqual(tuple(map(type, result)), declaration.slots)

    def assert_succeeds(self, one, replaced=()):
        """A call with counts of 0 has the declared result. The checked build may say instead that
        the closure asks for more."""
        try:
            self.assert_result(one.declaration, one.run(replaced))
        except IndexError as error:
            if not CHECKED:
                raise
            where = r"^closure %d: index -?\d+ is outside array '\w+' of length \d+$"
            self.assertRegex(str(error), where % one.declaration.number)
        self.assertEqual(one.views(), 0)

    def assert_nothing_kept(self, one, run):
        """Calling `run` again and again keeps no reference and no memory."""

        def counts():
            buffers = [x.buffer for e in one.exporters.values() for x in [e] + e.entries]
            return [sys.getrefcount(b) for b in buffers]

        before = counts()
        for _ in range(20):  # the interpreter's free lists fill up once; a leak goes on
            blocks, none = sys.getallocatedblocks(), sys.getrefcount(None)
            for _ in range(200):
                run()
            blocks, none = sys.getallocatedblocks() - blocks, sys.getrefcount(None) - none
            if blocks < 100 and abs(none) < 100:
                break
        self.assertLess(blocks, 100)
        self.assertLess(abs(none), 100)
        self.assertEqual(counts(), before)


def shape_or_type(parameter):
    return "Invalid array shape or type for argument '%s'" % parameter.name


class Table(unittest.TestCase):
    def test_names_in_descending_order(self):
        entries = [name for name in vars(fragments) if not name.startswith("__")]
        self.assertEqual(entries, ["_c_closure_%d" % number for number in range(645, -1, -1)])
        self.assertEqual([d.number for d in DECLARATIONS], list(range(645, -1, -1)))

    def test_module(self):
        self.assertEqual((fragments.__name__, fragments.__doc__), ("fragments", ""))

    def test_entries(self):
        for d in DECLARATIONS:
            entry = closure(d.number)
            self.assertIs(entry.__self__, fragments)
            self.assertIsNone(entry.__doc__)  # how the interpreter shows an empty one
            with self.assertRaisesRegex(TypeError, "takes no keyword arguments"):
                entry(**{d.parameters[0].name: None})


class Refusals(FrameTest):
    @for_each_closure()
    def test_wrong_count(self, one):
        values = one.arguments()
        for wrong in ([], values[:-1], values + [None]):
            with self.assertRaisesRegex(TypeError, "exactly %d argument" % len(values)):
                call(one.declaration.number, *wrong)
        self.assertEqual(sum(one.taken().values()), 0)

    @for_each_closure()
    def test_scalars_come_before_all_arrays(self, one):
        class Undecided:
            def __bool__(self):
                raise ZeroDivisionError

        for k, parameter in one.declaration.scalars:
            low, high = EXTREMES[parameter.type]
            wrong = {
                "int": [(low - 1, OverflowError), (high + 1, OverflowError), (0.5, TypeError)],
                "long long": [(low - 1, OverflowError), (high + 1, OverflowError),
                              (0.5, TypeError)],
                "double": [(10**400, OverflowError), ("0", TypeError)],
                "bool": [(Undecided(), ZeroDivisionError)],
            }
            for value, exception in wrong[parameter.type]:
                taken = self.assert_refused(one, {k: value}, exception)
                self.assertEqual(sum(taken.values()), 0)

    @for_each_closure()
    def test_scalars_at_the_ends_of_their_range_pass(self, one):
        if not one.exporters:
            return
        last, parameter = one.declaration.arrays[-1]
        for end in (0, 1):
            replaced = {k: EXTREMES[p.type][end] for k, p in one.declaration.scalars}
            replaced[last] = next(refused(parameter))
            self.assert_refused(one, replaced, ValueError, shape_or_type(parameter))

    @for_each_closure()
    def test_each_array(self, one):
        gone = memoryview(b"")
        gone.release()
        for k, parameter in one.declaration.arrays:
            to_the_left = {j: j < k for j, _ in one.declaration.arrays}
            for bad in refused(parameter):
                taken = self.assert_refused(one, {k: bad}, ValueError, shape_or_type(parameter))
                self.assertEqual(taken, to_the_left)
                self.assertGreater(bad.buffer.taken, 0)
            self.assertEqual(self.assert_refused(one, {k: object()}, TypeError), to_the_left)
            taken = self.assert_refused(one, {k: gone}, ValueError,
                                        "operation forbidden on released memoryview object")
            self.assertEqual(taken, to_the_left)

    @for_each_closure()
    def test_none_passes_to_the_left_and_right(self, one):
        for k, parameter in one.declaration.arrays:
            replaced = {j: None for j, _ in one.declaration.arrays}
            replaced[k] = next(refused(parameter))
            self.assert_refused(one, replaced, ValueError, shape_or_type(parameter))

    @for_each_closure()
    def test_leftmost_of_two_decides(self, one):
        for (k, first), (m, second) in itertools.combinations(one.declaration.arrays, 2):
            bad, later = next(refused(first)), next(refused(second))
            self.assert_refused(one, {k: bad, m: later}, ValueError, shape_or_type(first))
            self.assert_refused(one, {k: bad, m: object()}, ValueError, shape_or_type(first))
            self.assert_refused(one, {k: object(), m: later}, TypeError)
            self.assertEqual(later.buffer.taken, 0)

    @for_each_closure()
    def test_entries_of_lists(self, one):
        for k, parameter in one.declaration.arrays:
            if not parameter.is_list:
                continue
            entry = type(parameter)("", parameter.type[:3])
            to_the_left = {j: j < k for j, _ in one.declaration.arrays}
            for bad in refused(entry):
                entries = [None, accepted(entry), bad, accepted(entry)]
                wrong = ListExporter(entries)
                taken = self.assert_refused(one, {k: wrong}, ValueError,
                                            shape_or_type(parameter))
                self.assertEqual(taken, to_the_left)
                self.assertEqual([e.buffer.taken for e in wrong.entries], [1, 1, 0])
                self.assertEqual([e.buffer.views for e in wrong.entries], [0, 0, 0])
            wrong = Buffer((None, accepted(entry).buffer, object()), "O", 8, (3,), (8,))
            self.assertEqual(self.assert_refused(one, {k: wrong}, TypeError), to_the_left)
            self.assertEqual(wrong.views, 0)

    @for_each_closure()
    def test_references_stay(self, one):
        if not one.exporters:
            return
        k, parameter = one.declaration.arrays[-1]
        bad = next(refused(parameter)).buffer

        def fail():
            for value, exception in ((bad, ValueError), (0, TypeError)):
                with contextlib.suppress(exception):
                    one.run({k: value})

        self.assert_nothing_kept(one, fail)


class Successes(FrameTest):
    @for_each_closure(*(dict(ONES, **form) for form in (
        {}, {"step": 2}, {"shift": 1}, {"shift": 2}, {"shift": 3, "step": 2})))
    def test_result_and_views(self, one):
        self.assert_succeeds(one)
        # A list comes before its entries when views are taken.
        buffers = [x.buffer for e in one.exporters.values() for x in [e] + e.entries]
        if not any(e.entries for e in one.exporters.values()):
            self.assertEqual(one.taken(), dict.fromkeys(one.exporters, 1))
        taken = [b.taken_at for b in buffers]
        released = [b.released_at for b in buffers]
        self.assertEqual(taken, sorted(taken))
        self.assertEqual(released, sorted(released, reverse=True))
        if buffers:
            self.assertLess(taken[-1], released[-1])

    @for_each_closure(ONES)
    def test_only_the_first_character_of_a_format_counts(self, one):
        for k, parameter in one.declaration.arrays:
            for first in "" if parameter.is_list else FIRST_CHARACTERS[parameter.element]:
                other = Exporter(first + "<x", ITEMSIZE[parameter.element], parameter.rank, **ONES)
                self.assert_succeeds(one, {k: other})
                self.assertEqual(other.buffer.views, 0)

    @for_each_closure(ONES)
    def test_read_only_arrays(self, one):
        """Are refused where the checked build sees that they are written."""
        text = "closure %d: array '%s' is written, and its buffer is read-only"
        guarded = {k: accepted(p, readonly=True, **ONES) for k, p in one.declaration.arrays}
        for k, parameter in one.declaration.arrays:
            if CHECKED and parameter.is_written:
                self.assert_refused(one, {k: guarded.pop(k)}, BufferError,
                                    text % (one.declaration.number, parameter.name))
        self.assert_succeeds(one, guarded)

    @for_each_closure()
    def test_list_without_entries(self, one):
        for k, parameter in one.declaration.arrays:
            if parameter.is_list:
                for empty in (ListExporter([]), None):
                    self.assert_succeeds(one, {k: empty})
                    self.assertTrue(all(e.unchanged for e in one.exporters.values()))

    @for_each_closure(ONES)
    def test_references_stay(self, one):
        self.assert_nothing_kept(one, lambda: self.assert_succeeds(one))


class Strides(unittest.TestCase):
    def test_each_array_has_its_own(self):
        for steps in itertools.product((1, 3), (1, 2)):
            source, target = (i32(range(4 * step)) for step in steps)
            call(599, 4, memoryview(source)[:: steps[0]], memoryview(target)[:: steps[1]])
            expected = list(range(4 * steps[1]))
            expected[:: steps[1]] = range(0, 4 * steps[0], steps[0])
            self.assertEqual(list(target), expected)

    def test_rows_and_columns(self):
        for step in (1, 2):
            memory = i32([0] * 40)
            # 3 rows of 4, 12 places from row to row.
            matrix = Buffer(memory, "i", 4, (3, 4), (48, 4 * step), offset=8)
            call(591, 2, 4, matrix, i32([0]))
            ones = [2 + 24 + step * k for k in (1, 2, 3)]
            self.assertEqual([k for k, x in enumerate(memory) if x == 1], ones)


class Unaligned(unittest.TestCase):
    def test_long_lists(self):
        def zeros(kind, shift):
            size = 300 * array.array(kind).itemsize
            return memoryview(bytearray(shift + size))[shift:].cast(kind)

        for shift in range(4):
            ones, source, copy, sevens = (zeros(kind, shift) for kind in "iiiq")
            call(600, 300, 0, ones)
            call(598, 298, 2, source)
            call(599, 299, source, copy)
            call(109, 300, sevens, 7)
            self.assertEqual([*map(list, (ones, source, copy, sevens))], [
                [1] * 300, [0, 0] + [1] * 296 + [0, 0], source.tolist(), [7] * 300])


class EmptyArrays(unittest.TestCase):
    def test_without_memory(self):
        """An array without elements is one, wherever it lies."""
        nowhere = Buffer(None, "q", 8, (0,), (8,))
        for empty in (nowhere, memoryview(nowhere), array.array("q")):
            idxs = array.array("q", [7] * 6)
            call(170, idxs[:], idxs, i32([2, 3]), None, empty)
            self.assertEqual(list(idxs), [7] * 6)


class Exporters(unittest.TestCase):
    """Buffers that no library makes: what a memoryview shows of them decides."""

    FULL = dict(data=i32([3, 4, 5, 6]), format="i", itemsize=4, shape=(4,), strides=(4,))

    def outcome(self, *arguments):
        """Of closure 599, which copies all but one of 4 entries: the exception's type and text."""
        try:
            call(599, 3, *arguments)
        except Exception as error:
            error.__traceback__ = None
            return type(error), str(error)
        return None

    def test_forms(self):
        refused = ValueError, "Invalid array shape or type for argument 'sh'"
        ranks = ValueError, "memoryview: number of dimensions must not exceed 64"
        for form, expected in (
                ({}, None), ({"strides": None}, None), ({"shapeless": True}, None),
                ({"strides": None, "shapeless": True}, None), ({"suboffsets": (-1,)}, None),
                ({"format": None}, refused), ({"shape": (), "strides": ()}, refused),
                ({"shape": (), "strides": None, "shapeless": True}, refused),
                ({"shape": (1,) * 64, "strides": (4,) * 64}, refused),
                ({"shape": (1,) * 65, "strides": (4,) * 65}, ranks)):
            target, first = i32([9] * 4), accepted(Parameter("", "I32"))
            source = Buffer(**{**self.FULL, **form})
            self.assertEqual(self.outcome(source, target), expected, form)
            self.assertEqual(list(target), [9] * 4 if expected else [3, 4, 5, 9], form)
            self.assertEqual((source.views, sys.getrefcount(source)), (0, 2), form)

    @for_each_closure(ONES)
    def test_that_raise(self, one):
        def refuse():
            raise KeyError("no view")

        for k, parameter in one.declaration.arrays:
            if not parameter.is_list:
                form = dict(self.FULL, shape=(4,) * parameter.rank, strides=(4,) * parameter.rank)
                with self.assertRaisesRegex(KeyError, "no view"):
                    one.run({k: Buffer(hook=refuse, **form)})
                self.assertEqual(one.views(), 0)

    def test_that_call_a_closure(self):
        target = i32([9] * 4)
        inner = Buffer(**self.FULL)
        outer = Buffer(hook=lambda: call(599, 2, inner, target[:]), **self.FULL)
        self.assertIsNone(self.outcome(outer, target))
        self.assertEqual((list(target), inner.views, outer.views), ([3, 4, 5, 9], 0, 0))

    def test_one_for_all_arrays(self):
        both = Buffer(**self.FULL)
        for arguments in ((both, both), (memoryview(both), both)):
            self.assertIsNone(self.outcome(*arguments))
        del arguments
        self.assertEqual((both.taken, both.views), (4, 0))

    def test_that_release_another(self):
        view, target = memoryview(Buffer(**self.FULL)), Buffer(hook=lambda: view.release(),
                                                               **dict(self.FULL, data=i32([9] * 4)))
        self.assertIsNone(self.outcome(view, target))
        self.assertEqual(memoryview(target).tolist(), [3, 4, 5, 9])
        self.assertEqual(self.outcome(view, target),
                         (ValueError, "operation forbidden on released memoryview object"))


class Numbers(unittest.TestCase):
    """Scalars are taken as the interpreter's own parser takes them."""

    PARSED = {"i": ctypes.c_int, "L": ctypes.c_longlong, "d": ctypes.c_double, "p": ctypes.c_int}

    def parsed(self, letter, value):
        slot = self.PARSED[letter]()
        ctypes.pythonapi.PyArg_ParseTuple(ctypes.py_object((value,)), letter.encode(),
                                          ctypes.byref(slot))
        return slot.value

    def taken(self, letter, value):
        """What a closure gets of a scalar."""
        if letter == "d":
            scaled = array.array("d", [0.0])
            call(610, scaled, value, 1, array.array("d", [1.0]))
            return scaled[0]
        if letter == "p":
            return call(620, value, None, 0, 0)
        return call({"i": 193, "L": 619}[letter], None, value)

    def outcome(self, take, letter, value):
        with warnings.catch_warnings(record=True) as warned:
            warnings.simplefilter("always")
            try:
                result = repr(take(letter, value) + 0)
            except Exception as error:
                error.__traceback__ = None
                result = type(error), str(error)
        return result, [(w.category, str(w.message)) for w in warned]

    def test_values(self):
        def kind(name, base=object, **methods):
            return type(name, (base,), {"__%s__" % m: f for m, f in methods.items()})

        def fail(self):
            raise KeyError("no number")

        values = [True, False, None, "1", b"", 1j, [], object(),
                  float("nan"), -0.0, 0.5, 3.0, 1e400,
                  kind("Whole", int)(5), kind("Whole", int, index=lambda s: 6)(5),
                  kind("Real", float)(2.5), kind("Real", float, float=lambda s: 3.5)(2.5),
                  kind("Flag", bool=fail)(), kind("Flag", bool=lambda s: False)(),
                  kind("Flag", bool=lambda s: 2)(), kind("Sized", len=lambda s: 0)()]
        values += [sign * 2**bits + d for bits in (0, 31, 32, 63, 64, 2000) for sign in (1, -1)
                   for d in (-1, 0, 1)]
        values += [kind("Odd", **{method: returned})()
                   for method in ("index", "int", "float")
                   for returned in (lambda s: 7, lambda s: 2**40, lambda s: 7.5, lambda s: True,
                                    lambda s: "7", fail)]
        if numpy:
            values += [numpy.array(3), numpy.array([3])] + [
                numpy.dtype(name).type(3) for name in ("i1", "i4", "u4", "i8", "f4", "f8", "?")]
        for letter, value in itertools.product("iLdp", values):
            expected = self.outcome(self.parsed, letter, value)
            self.assertEqual(self.outcome(self.taken, letter, value), expected, (letter, value))

    def test_each_is_asked_once_and_in_order(self):
        asked = []

        class Number:
            def __index__(self):
                asked.append(self)
                return 0

            def __float__(self):
                return float(self.__index__())

            def __bool__(self):
                return bool(self.__index__())

        for one in map(Call, DECLARATIONS):
            scalars = {k: Number() for k, _ in one.declaration.scalars}
            if not scalars:
                continue
            bad = {k: next(refused(p)) for k, p in one.declaration.arrays[-1:]}
            del asked[:]
            with contextlib.suppress(ValueError, ZeroDivisionError):
                one.run({**scalars, **bad})
            self.assertEqual(asked, list(scalars.values()), one.declaration.number)
            self.assertLessEqual(set(one.taken().values()), {0, 1})
            self.assertEqual(one.views(), 0)


class MemoryFailure(FrameTest):
    @contextlib.contextmanager
    def little_memory(self):
        """Less than 8 GiB for the process; the sanitizer's own limit is set as low."""
        soft, hard = resource.getrlimit(resource.RLIMIT_AS)
        if not SANITIZED:
            resource.setrlimit(resource.RLIMIT_AS, (2**32, hard))
        try:
            yield
        finally:
            resource.setrlimit(resource.RLIMIT_AS, (soft, hard))

    def test_scratch(self):
        for number in (512, 523):  # cursors for each of n operands
            one = Call(BY_NUMBER[number])
            n = [k for k, p in one.declaration.scalars if p.name == "n"][0]
            with self.little_memory():
                self.assert_refused(one, {n: 2**31 - 1}, MemoryError)

    def test_list(self):
        one = Call(BY_NUMBER[444])
        endless = Buffer((None,), "O", 8, (2**44,), (0,))
        self.assert_refused(one, {2: endless}, MemoryError)
        self.assertEqual(endless.views, 0)


@unittest.skipUnless(CHECKED, "needs the checked build")
class CheckedBuild(FrameTest):
    def assert_outside(self, number, arguments, index, name, length):
        text = "closure %d: index %d is outside array '%s' of length %d"
        with self.assertRaises(IndexError) as caught:
            call(number, *arguments)
        self.assertEqual(str(caught.exception), text % (number, index, name, length))

    def test_message_and_release(self):
        target = i32([0] * 8)
        source = Exporter("i", 4, extent=3)
        self.assert_outside(599, (5, source.buffer, target), 3, "sh", 3)
        self.assertEqual((source.buffer.taken, source.buffer.views), (1, 0))
        self.assertEqual(list(target), [0x5A] * 3 + [0] * 5)

    def test_sections_count_from_the_start_of_the_view(self):
        self.assert_outside(608, (i32([0] * 4), 2, 3), 4, "i32", 4)
        self.assert_outside(608, (memoryview(i32([0] * 8))[::2], 2, 3), 4, "i32", 4)
        self.assert_outside(608, (i32([0] * 4), 2, -1), -1, "i32", 4)
        self.assert_outside(608, (None, 1, 7), 7, "i32", 0)

    def test_lists_and_matrices(self):
        entry = Exporter("i", 4, extent=2)
        shapes = ListExporter([None, entry])
        self.assert_outside(444, (9, i32([0] * 10), shapes.buffer), 9, "shapes", 2)
        self.assertEqual((shapes.buffer.views, entry.buffer.views), (0, 0))
        matrix = Buffer(i32([0] * 6), "i", 4, (2, 3), (12, 4))
        self.assert_outside(591, (2, 1, matrix, None), 2, "shapes", 2)
        self.assert_outside(591, (0, 4, matrix, None), 3, "shapes", 3)

    def test_division(self):
        for divisor, dividend, exception, text in (
                (0, 5, ZeroDivisionError, "closure 163: division by zero"),
                (-1, -(2**63), OverflowError, "closure 163: the least integer is divided by -1")):
            sparsity = Exporter("q", 8, extent=1, value=dividend % 2**64)
            with self.assertRaisesRegex(exception, "^%s$" % text):
                call(163, 2, 2, 0, divisor, divisor, sparsity.buffer)
            self.assertEqual(sparsity.buffer.views, 0)

    @for_each_closure(ONES)
    def test_none_for_each_array(self, one):
        """A closure doesn't reach an absent array, or says that it did."""
        places = [k for k, _ in one.declaration.arrays]
        for absent in [places] + [[k] for k in places]:
            self.assert_succeeds(one, {k: None for k in absent})


@unittest.skipIf(numpy is None, "needs NumPy")
class NumPyArrays(unittest.TestCase):
    def test_contiguous_and_strided(self):
        for source in (numpy.arange(6, dtype="i4"), numpy.arange(12, dtype="i4")[::2] // 2,
                       numpy.arange(12, dtype="i4")[1::2] // 2):
            target = numpy.full((6, 3), -1, dtype="i4")
            call(599, 6, source, target[:, 1])
            self.assertEqual(target[:, 1].tolist(), list(range(6)))
            self.assertTrue((target[:, [0, 2]] == -1).all())

    def test_two_dimensions(self):
        whole = numpy.zeros((4, 10), dtype="i4")
        call(591, 1, 3, whole[::2, ::3], numpy.zeros(1, dtype="i4"))
        expected = numpy.zeros((4, 10), dtype="i4")
        expected[2, [3, 6]] = 1
        self.assertEqual(whole.tolist(), expected.tolist())

    def test_object_array(self):
        shape = numpy.array([1, 2], dtype="i4")
        entries = numpy.empty(3, dtype=object)
        entries[:] = [None, numpy.array([0, 3], dtype="i4"), numpy.array([0, 0, 4], dtype="i4")[::2]]
        call(444, 1, shape, entries)
        self.assertEqual(shape.tolist(), [1, 9])

    def test_other_kinds_are_refused(self):
        target = numpy.zeros(2, dtype="i4")
        for dtype in ("i8", ">i4", "f8", "u4", object):
            with self.assertRaisesRegex(ValueError, "'sh'"):
                call(599, 2, numpy.zeros(2, dtype=dtype), target)
        with self.assertRaisesRegex(ValueError, "'shape'"):
            call(599, 1, target, numpy.zeros((1, 1), dtype="i4"))


if __name__ == "__main__":
    unittest.main()
