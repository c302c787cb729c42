"""The portfolio of the greatest return at a bounded risk: a quadratic cone."""

from host import Model, hstack, quadratic_cone

RETURNS = [0.1073, 0.0737, 0.0627]
FACTOR = [[0.1667, 0.0232, 0.0013],  # times its transpose it is the covariance
          [0.0, 0.1033, -0.0022],
          [0.0, 0.0, 0.0338]]


def build(most):
    """The model, the shares, and the parameter that bounds the standard deviation."""
    m = Model("portfolio")
    x = m.variable("x", 3, lower=0)
    risk = m.parameter("risk", most)
    m.constrain("budget", x.sum() == 1)
    m.constrain("risk", quadratic_cone(hstack([risk, FACTOR @ x])))
    m.maximize(RETURNS @ x)
    return m, x, risk


def main():
    m, x, risk = build(0.05)
    for risk.value in (0.05, 0.1, 0.15):
        m.solve()
        print("risk %.2f: return %.4f with shares %s"
              % (risk.value, m.objective, ", ".join("%.3f" % share for share in x.level)))


if __name__ == "__main__":
    main()
