"""The shortest tour by cutting planes: a model that gains a row for each subtour that its solution
has, and loses the rows that don't bind."""

import itertools
import math

from host import Model

CITIES = [(0, 0), (1, 0), (0, 1), (8, 0), (9, 0), (9, 1), (8, 8), (9, 8), (8, 9), (0, 8), (1, 9),
          (0, 9), (4, 4), (5, 4), (4, 5)]


def subtour(n, used):
    """The cities that can be reached from the first by the edges that a tour uses."""
    seen, stack = {0}, [0]
    while stack:
        i = stack.pop()
        for j in range(n):
            if j not in seen and used.get((min(i, j), max(i, j)), 0.0) > 0.5:
                seen.add(j)
                stack.append(j)
    return seen


def shortest(cities):
    """The length of the tour, its edges, and how many rows were added and removed."""
    n, edges = len(cities), list(itertools.combinations(range(len(cities)), 2))
    m = Model("tour")
    x = m.variable("x", len(edges), lower=0, upper=1, integer=True)
    edge = dict(zip(edges, x))
    for i in range(n):
        m.constrain("city %d" % i, sum(edge[e] for e in edges if i in e) == 2)
    m.minimize([math.dist(cities[i], cities[j]) for i, j in edges] @ x)
    cuts, added, removed = [], 0, 0
    while True:
        m.solve()
        part = subtour(n, dict(zip(edges, x.level)))
        if len(part) == n:
            return m.objective, [e for e in edges if edge[e].level > 0.5], added, removed
        slack = [cut for cut in cuts if cut.level > 3]
        for cut in slack:
            m.remove(cut)
            cuts.remove(cut)
        leaving = sum(edge[e] for e in edges if (e[0] in part) != (e[1] in part))
        cuts.append(m.constrain(leaving >= 2))
        added, removed = added + 1, removed + len(slack)


def main():
    length, tour, added, removed = shortest(CITIES)
    print("the shortest tour has length %.3f and %d edges" % (length, len(tour)))
    print("%d rows were added and %d removed on the way" % (added, removed))


if __name__ == "__main__":
    main()
