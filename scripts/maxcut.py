"""maxcut.py GRAPH FILE.dat-s: the semidefinite relaxation of the maximum cut of a graph.

GRAPH has the number of nodes in its first line, that of edges in the second, and then a line with
the two nodes of each edge, counted from 1. The relaxation (Goemans and Williamson, 1995) is to
maximise <L, X> / 4, with L the Laplacian of the graph, where the diagonal of X is 1.
"""

import sys
from array import array

from host.formats.sdpa import SdpaProblem


def relaxation(nodes, edges):
    problem = SdpaProblem.empty([nodes], array("d", [1.0]) * nodes)
    degrees = [0] * nodes
    for i, j in edges:
        degrees[i] += 1
        degrees[j] += 1
    for i, degree in enumerate(degrees):
        problem.append(0, 0, i, i, degree / 4)
    for i, j in edges:
        problem.append(0, 0, i, j, -0.25)
    for i in range(nodes):
        problem.append(i + 1, 0, i, i, 1.0)
    return problem


def main(graph, path):
    try:
        with open(graph, encoding="ascii") as file:
            nodes, count, *ends = map(int, file.read().split())
    except ValueError:
        nodes, count, ends = 0, 0, ()
    if nodes < 1 or len(ends) != 2 * count or not all(1 <= end <= nodes for end in ends):
        sys.exit("maxcut: %s is no graph" % graph)
    with open(path, "w", encoding="ascii") as file:
        relaxation(nodes, [(i - 1, j - 1) for i, j in zip(ends[::2], ends[1::2])]).write(file)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: " + __doc__.split(":")[0])
    try:
        main(*sys.argv[1:])
    except OSError as error:
        sys.exit("maxcut: %s: %s" % (error.filename, error.strerror))
