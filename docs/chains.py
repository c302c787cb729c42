"""The order in which a host calls the closures of one operation, as an expression, and whether the
calls of a host keep to it.

An expression has the numbers of closures in their order; `( | )` for alternatives; `?`, `*` and `+`
behind what may be left out or comes again; and `reserve` where the host makes room for the result:

    482? 476 477 reserve 479

What stands behind `reserve` writes the result and may be called in such a run alone, all of the
chain if there is no `reserve`. What stands before it (tests, sorts, sizes) may also serve something
else, and a host may give up behind it.
"""

import re

NUMBER = re.compile(r"\d+")
TOKEN = re.compile(r"\d+|reserve|[()|?*+]")
FIRST = 0xE000  # closures are characters of the private use area


def character(number):
    return chr(FIRST + int(number))


class Chain:
    def __init__(self, expression):
        """Raises ValueError if the expression isn't one."""
        if TOKEN.sub("", expression).split():
            raise ValueError("no chain of closures: %s" % expression)
        self.tokens = TOKEN.findall(expression)
        before, _, behind = expression.rpartition("reserve")
        self.numbers = {int(n) for n in NUMBER.findall(expression)}
        self.bound = {int(n) for n in NUMBER.findall(behind)}
        text = NUMBER.sub(lambda n: character(n[0]), before + behind)
        try:
            self._pattern = re.compile(re.sub(r"\s+", "", text))
        except re.error as error:
            raise ValueError("no chain of closures: %s: %s" % (expression, error)) from None

    def runs(self, calls):
        """(place of the call, number) of all calls of the chain's closures that stand in one of
        its runs, and the number of runs. Calls of other closures may stand in between."""
        own = [(place, n) for place, n in enumerate(calls) if n in self.numbers]
        text = "".join(character(n) for _, n in own)
        covered, count = set(), 0
        for match in self._pattern.finditer(text):
            if match.end() > match.start():
                covered.update(own[match.start() : match.end()])
                count += 1
        return covered, count


def contradictions(chains, tests):
    """The calls that stand in no run of any chain that binds their closure.

    chains: [Chain]; tests: for each test the numbers of the closures called, in order. Returns
    {number: (calls before it and itself)} with one example for each closure, and for each chain the
    number of its runs.
    """
    found, counts = {}, [0] * len(chains)
    bound = set().union(*(chain.bound for chain in chains))
    for calls in tests:
        covered = set()
        for k, chain in enumerate(chains):
            places, count = chain.runs(calls)
            covered |= places
            counts[k] += count
        for place, number in enumerate(calls):
            if number in bound and (place, number) not in covered:
                found.setdefault(number, calls[max(0, place - 12) : place + 1])
    return found, counts
