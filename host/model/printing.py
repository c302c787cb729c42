"""A model as a text to read, long ones shortened."""

from __future__ import annotations

import itertools
import math
from typing import Any, Dict, Iterator, List, Tuple

from ..data.buffers import size
from ..formulas.printing import TERMS, clipped, element, held, joined, short, subscripts
from ..formulas.leaves import Parameter, Variable
from .building import Building
from .constraints import Constraint

LINES = 12  # of a kind that are shown


class Printing(Building):
    """What a model says of itself."""

    def __str__(self) -> str:
        goal = "no objective" if self.goal is None else "%s %s" % (
            "maximize" if self.is_maximized else "minimize", short(self.goal))
        lines = ["%s: %s" % (self.name, goal)]
        for what, items in (("variables", self.variables), ("parameters", self.parameters),
                            ("constraints", self.constraints)):
            count = len(items)  # type: ignore[arg-type]
            if count > 0:
                lines.append("  %d %s" % (count, what[:-1] if count == 1 else what))
                some = itertools.islice(items.values(), LINES)  # type: ignore[attr-defined]
                lines.extend("    " + self.line(item) for item in some)
            if count > LINES:
                lines.append("    ...")
        return "\n".join(lines)

    def line(self, item: Any) -> str:
        """A line that tells what that is."""
        if isinstance(item, Variable):
            return self._variable(item)
        if isinstance(item, Parameter):
            return "%s%s = %s" % (item.name, shape(item), clipped(str(item.value)))
        return "%s: %s" % (item.name, self._row(item) if item.said is None else item.said)

    def _variable(self, x: Variable) -> str:
        (root,) = x.roots
        if root.semidefinite:
            return "%s%s semidefinite" % (x.name, shape(x))
        integer = any(self.columns.integer[j] for j in root.map.nativeidxs)
        bounds = []
        for table in (self.columns.lower, self.columns.upper):
            held = sorted({table[j] for j in root.map.nativeidxs})
            bounds.append("%g" % held[0] if len(held) == 1 else "...")
        return "%s%s from %s to %s%s" % (x.name, shape(x), *bounds, ", integer" if integer else "")

    def _row(self, c: Constraint) -> str:
        """A row that was recorded, or a view."""
        if len(c.codes) != 1 or c.cones is not None:
            return "%d elements" % len(c.codes)
        (row,), terms = c.codes, self.rows.terms
        first = terms.subi.index(row) if row in terms.subi else 0
        own = itertools.takewhile(lambda term: term[0] == row, zip(
            terms.subi[first:], terms.subj[first:], terms.cof[first:]))
        roots = [x.roots[0] for x in self.variables.values()]
        named = [(cof, element(roots, j)) for _, j, cof in itertools.islice(own, TERMS + 1)]
        offset, lower, upper = (table.at(c.codes)[0] for table in self.rows.numbers)
        return held(joined(named + [(offset, "")] * (offset != 0.0)),
                    *("" if math.isinf(side) else "%.6g" % side for side in (lower, upper)))

    def native_names(self) -> Tuple[List[str], List[str]]:
        """The names of all rows and columns, without blanks; those of none are told by number."""
        rows = ["r%d" % k for k in range(len(self.rows))]
        columns = ["x%d" % k for k in range(len(self.columns) + 1)]
        for c in self.constraints.values():
            if c.cones is None:
                for name, row in zip(elements(c.name, c.shape), c.codes):
                    rows[row] = name
        for x in self.variables.values():
            (root,) = x.roots
            names = list(elements(root.name, root.shape))
            places: Any = root.map.sparsity or range(len(names))
            for place, column in zip(places, root.map.nativeidxs):
                if column > 0:
                    columns[column] = names[place]
        return unique(rows), unique(columns)


def elements(name: str, extents: Any) -> Iterator[str]:
    base = "_".join(name.split()) or "_"
    return (base + subscripts(extents, k).replace(" ", "") for k in range(size(extents)))


def unique(names: List[str]) -> List[str]:
    """The names, those that stand before with their number."""
    seen: Dict[str, int] = {}
    return [name if seen.setdefault(name, k) == k else "%s#%d" % (name, k)
            for k, name in enumerate(names)]


def shape(f: Any) -> str:
    return " (%s)" % " x ".join(map(str, f.shape)) if f.shape else ""

