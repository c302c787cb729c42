"""The cheapest diet that covers a demand, and what it costs where the demand grows: a parameter."""

from host import Model

FOODS = ["bread", "milk", "cheese", "potato", "fish", "yogurt"]
COSTS = [2.0, 3.5, 8.0, 1.5, 11.0, 1.0]
NUTRIENTS = ["protein", "fat", "carbohydrate", "energy"]
CONTENT = [[4.0, 8.0, 7.0, 1.3, 8.0, 9.2],
           [1.0, 5.0, 9.0, 0.1, 7.0, 1.0],
           [15.0, 11.7, 0.4, 22.6, 0.0, 17.0],
           [90.0, 120.0, 106.0, 97.0, 130.0, 180.0]]
DEMAND = [10.0, 10.0, 10.0, 300.0]


def build():
    """The model, what is bought of each food, the demand's factor and the rows."""
    m = Model("diet")
    buy = m.variable("buy", len(FOODS), lower=0, upper=4)
    factor = m.parameter("factor", 1.0)
    need = m.constrain("need", CONTENT @ buy >= factor * DEMAND)
    m.minimize(COSTS @ buy)
    return m, buy, factor, need


def main():
    m, buy, factor, need = build()
    for factor.value in (1.0, 1.5, 2.0):
        m.solve()
        print("demand x %.1f costs %6.3f (built: %s)" % (factor.value, m.objective, m.last_build))
        print("    " + ", ".join("%.2f %s" % (level, food) for food, level in
                                 zip(FOODS, buy.level) if level > 1e-9))
        print("    a unit more of %s costs %.3f" % max(zip(NUTRIENTS, need.dual),
                                                       key=lambda pair: pair[1]))


if __name__ == "__main__":
    main()
