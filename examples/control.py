"""A cart is driven to rest with the least effort: slices, transposes and stacks of the states, and
a matrix of parameters for what moves the cart."""

from host import Model, concatenate, hstack

STEPS = 12
LOOSE = [[1.0, 1.0], [0.0, 1.0]]  # place and speed of the next step, by those of this one
BRAKED = [[1.0, 1.0], [0.0, 0.8]]
START = [4.0, 1.0]


def build():
    """The model, the states (a column for each time), the pushes and the matrix of the cart."""
    m = Model("control")
    x = m.variable("x", (2, STEPS + 1))
    u = m.variable("u", STEPS, lower=-1, upper=1)
    effort = m.variable("effort", STEPS)
    A = m.parameter("A", LOOSE)
    # The pushes as a matrix beside the states: they change the speed alone.
    push = concatenate([[[0.0] * STEPS], u.reshape(1, -1)])
    m.constrain("motion", x[:, 1:] == A @ x[:, :-1] + push)
    m.constrain("ends", x.T[[0, -1]] == [START, [0.0, 0.0]])
    m.constrain("effort", hstack([effort - u, effort + u]) >= 0)
    m.minimize(effort.sum())
    return m, x, u, A


def main():
    m, x, u, A = build()
    for name, A.value in (("loose", LOOSE), ("braked", BRAKED)):
        m.solve()
        print("%s: effort %.3f, built: %s" % (name, m.objective, m.last_build))
        print("    places " + " ".join("%.2f" % place for place in x[0].level))
        print("    pushes " + " ".join("%.2f" % push for push in u.level))


if __name__ == "__main__":
    main()
