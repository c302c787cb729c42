"""Numbers of rows or columns that are taken in runs and given back, to be taken again."""

from array import array
from typing import Any

from ..closures import closure
from ..data.buffers import zeros


class Slots:
    """Slots 0, 1, 2 and so on, in two doubly linked lists: the free and the used ones.

    next[i] and prev[i] (i32) are the neighbours of slot i in its list, -1 at either end. Runs go
    from the front of the free list to the front of the used one and, from wherever they stand
    there, back: a run that was taken stays together. Slots that were given back are taken before
    new ones, so that there are never more than were in use at one time.
    """

    def __init__(self, capacity: int = 16) -> None:
        self._next, self._prev = array("i", [-1]) * capacity, array("i", [-1]) * capacity
        closure(639, capacity, self._next, self._prev)
        self._free, self._used = 0, -1  # heads
        self.free, self.used = capacity, 0
        self.top = 0  # above all slots that were ever taken

    def take(self, count: int) -> Any:
        """The numbers (i32) of `count` slots, which are used from now on."""
        slots = zeros("i32", count)
        if count <= 0:
            return slots
        if count > self.free:
            self._grow(count)
        first = self._free
        _, last = closure(643, first, max(first, self.top - 1), self._next, count)
        closure(642, first, self._next, count, 0, slots)
        self._used, self._free, self.used = closure(640, self._used, first, first, self._next,
                                                    self.used, count, self._prev)
        self.free, self.top = self.free - count, last + 1
        return slots

    def give_back(self, slots: Any) -> None:
        """Slots of one `take` are free again, one or some that it gave in this order."""
        count = len(slots)
        if count <= 0:
            return
        self._free, self._used, self.free = closure(640, self._free, self._used, slots[0],
                                                    self._next, self.free, count, self._prev)
        self.used -= count

    def _grow(self, count: int) -> None:
        """Doubles the number of slots until `count` are free; the new ones come last."""
        old = len(self._next)
        new = closure(140, old, self.used + count)
        for links in (self._next, self._prev):
            links.extend(array("i", [-1]) * (new - old))
        closure(645, old, new, self._next, self._prev)
        if self.free > 0:
            tail = closure(644, self._free, self._next, self.free)
            self._next[tail], self._prev[old] = old, tail
        else:
            self._free = old
        self.free += new - old
