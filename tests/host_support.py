"""What the tests of the host share: an evaluator whose stacks tell what is written outside."""

from array import array

from host.evaluator import expressions
from host.closures import Closures
from host.evaluator.stacks import Expression, Hold, Stack
from support import MARKER, gaps, push, strided

KINDS = {"i": "i32", "q": "i64", "d": "f64"}


class GuardedStack(Stack):
    """Has a marker behind each section, which nothing may write, and grows at each turn."""

    def __init__(self):
        super().__init__(capacity=1)
        self.guards = []

    def reserve(self, kind, count):
        base = super().reserve(kind, count + 1)
        getattr(self, kind)[base + count] = 77777
        self.guards.append((kind, base + count))
        return base

    def release(self, mark):
        assert self.intact()
        self.guards = [(kind, place) for kind, place in self.guards if place < mark[kind]]
        super().release(mark)

    def intact(self):
        return all(getattr(self, kind)[place] == 77777 for kind, place in self.guards)

    def put(self, kind, values):
        base = self.reserve(KINDS[kind], len(values))
        getattr(self, KINDS[kind])[base : base + len(values)] = array(kind, values)
        return base

    def reserved(self):
        """The content of all that is reserved."""
        return {kind: list(getattr(self, kind)[:top]) for kind, top in self.mark().items()}


class Evaluator(expressions.Evaluator):
    def __init__(self):
        super().__init__()
        self.r = self.w = GuardedStack()
        self.x = GuardedStack()

    def push(self, model):
        """A `Model` on the stack."""
        header = vars(push(self.w, model))
        header.pop("nd")
        hold = Hold(self.w, header["shape_base"])
        return Expression(shape=tuple(model.shape), finished=False, hold=hold, **header)


def call_spread(closures, number, *arguments, call=Closures.__call__):
    """Calls a closure with the elements of each array apart in a larger one."""
    plain = lambda a: isinstance(a, array) or isinstance(a, memoryview) and a.ndim == 1
    spread = {id(a): (a, strided(a)) for a in arguments if plain(a) and len(a) > 0}
    result = call(closures, number, *(spread.get(id(a), (a, a))[1] for a in arguments))
    for a, view in spread.values():
        a[:] = array(view.format, view)
        assert not set(gaps(view)) - {MARKER[view.format]}, number
    return result
