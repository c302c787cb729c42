"""Draws the pictures of the pages and the README into docs/static.

    python docs/pictures.py [TABLES]

TABLES is what `make bench` has printed; without it the picture of the speed stays as it is.
"""

import pathlib
import re
import sys

import matplotlib

matplotlib.use("svg")
from matplotlib import pyplot  # noqa: E402

STATIC = pathlib.Path(__file__).resolve().parent / "static"
OURS, THEIRS, LINE = "#2962ff", "#b0bec5", "#546e7a"

# The same file for the same picture.
matplotlib.rcParams.update({"svg.hashsalt": "fragments", "svg.fonttype": "none", "font.size": 9,
                            "font.family": "sans-serif", "axes.spines.top": False,
                            "axes.spines.right": False})


def save(figure, name):
    figure.savefig(STATIC / name, metadata={"Date": None}, bbox_inches="tight", facecolor="white")


def expression():
    """2 x5 + 3 and x7 on a stack, as `writing_a_host.rst` pushes them."""
    figure, axes = pyplot.subplots(figsize=(8.5, 2.6))
    axes.set_axis_off()
    axes.set_xlim(-0.8, 7.2)
    axes.set_ylim(-0.9, 3.9)

    def section(x, y, name, cells, color):
        for k, cell in enumerate(cells):
            axes.add_patch(pyplot.Rectangle((x + k, y), 1, 0.6, facecolor=color, edgecolor=LINE))
            axes.text(x + k + 0.5, y + 0.3, cell, ha="center", va="center")
        axes.text(x + len(cells) + 0.15, y + 0.3, name, va="center", style="italic", color=LINE)

    def arrow(start, end):
        axes.annotate("", end, start, arrowprops={"arrowstyle": "->", "color": LINE,
                                                  "connectionstyle": "arc3,rad=0.05"})

    for y, kind in ((2.8, "i32"), (1.3, "i64"), (0.2, "f64")):
        axes.text(-0.3, y + 0.3, kind, ha="right", va="center", weight="bold")
    section(0, 2.8, "", ["2"], "#fff3e0")
    axes.text(0.5, 3.55, "shape", ha="center", style="italic", color=LINE)
    section(1.5, 2.8, "ptr: where each element begins", ["0", "2", "4"], "#e8f5e9")
    section(1.5, 1.3, "nidxs: variables", ["5", "0", "7", "0"], "#e3f2fd")
    section(1.5, 0.2, "cof: coefficients", ["2.0", "3.0", "1.0", "0.0"], "#e3f2fd")
    arrow((2, 2.8), (1.6, 1.95))
    arrow((3, 2.8), (3.6, 1.95))
    arrow((4, 2.8), (5.5, 1.95))
    for x, text in ((2.5, "element 0:  2 x₅ + 3"), (4.5, "element 1:  x₇ + 0")):
        axes.plot((x - 0.95, x + 0.95), (0.1, 0.1), color=LINE)
        axes.text(x, -0.05, text, ha="center", va="top")
    save(figure, "expression.svg")


def tables(text):
    """{title: rows of cells} of the tables that a run of the benchmarks prints."""
    found = {}
    for block in re.split(r"\n\s*\n", text.strip("\n")):
        title, *lines = block.splitlines()
        found.setdefault(title, [re.split(r"\s{2,}", line.strip()) for line in lines])
    return found


def columns(found, title, *names):
    """The named columns of the table whose title begins so, as texts and then numbers."""
    for full, (heads, *rows) in found.items():
        if full.startswith(title):
            places = [heads.index(name) for name in names]
            texts = ["\n".join(row[: places[0]]) for row in rows]
            return texts, [[float(row[place]) for row in rows] for place in places]
    raise SystemExit("pictures: the benchmarks printed no table %r" % title)


def bars(axes, title, labels, ours, theirs, peer):
    places = range(len(labels))
    axes.barh([p - 0.2 for p in places], ours, 0.38, color=OURS, label="fragments")
    axes.barh([p + 0.2 for p in places], theirs, 0.38, color=THEIRS, label=peer)
    axes.set_yticks(list(places), labels, fontsize=8)
    axes.invert_yaxis()
    axes.set_title(title, fontsize=9, loc="left")
    axes.legend(frameon=False, fontsize=8)


def speed(text):
    found = tables(text)
    figure, (left, right) = pyplot.subplots(1, 2, figsize=(10, 3.2))
    labels, (ours, theirs) = columns(found, "Frame", "ns", "by hand")
    bars(left, "An empty call, ns", labels, ours, theirs, "frame by hand")
    labels, (ours, theirs) = columns(found, "Sparse assembly", "ns/entry", "SciPy")
    bars(right, "Sparse assembly, ns an entry", labels, ours, theirs, "SciPy")
    figure.tight_layout()
    save(figure, "speed.svg")


if __name__ == "__main__":
    expression()
    if len(sys.argv) > 1:
        speed(pathlib.Path(sys.argv[1]).read_text())
