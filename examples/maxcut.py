"""The maximum cut of a graph and the bound of its semidefinite relaxation: a variable that is a
semidefinite matrix, and a cut rounded from it."""

import random

from host import Model

NODES = 9
EDGES = [(i, (i + step) % NODES) for i in range(NODES) for step in (1, 2)]


def build(n, edges):
    """The model and its matrix X: X[i, j] stands for the product of the sides, 1 or -1, of i and j.
    """
    m = Model("maxcut")
    X = m.variable("X", (n, n), semidefinite=True)
    m.constrain("diagonal", X.diagonal() == 1)
    i, j = map(list, zip(*edges))
    m.maximize(0.5 * (1 - X[i, j]).sum())
    return m, X


def cut(X, edges, rng):
    """The number of edges between two sides, told apart by a random combination of columns."""
    weights = [rng.gauss(0.0, 1.0) for _ in X]
    side = [sum(w * entry for w, entry in zip(weights, row)) > 0.0 for row in X]
    return sum(side[i] != side[j] for i, j in edges)


def main():
    m, X = build(NODES, EDGES)
    m.solve()
    rng = random.Random(1)
    print("no cut has more than %.3f of the %d edges" % (m.objective, len(EDGES)))
    print("a cut with %d edges" % max(cut(X.level, EDGES, rng) for _ in range(20)))


if __name__ == "__main__":
    main()
