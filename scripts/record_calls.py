"""Runs the host's tests and writes the closures that the host calls, one line for each test, in
the order of the calls.

    python scripts/record_calls.py FILE
"""

import io
import pathlib
import sys
import unittest

from host.closures import Closures

TESTS = pathlib.Path(__file__).resolve().parent.parent / "tests"


class Recorder(unittest.TextTestResult):
    """Keeps the numbers of the closures that each test calls."""

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.lines = []
        self._numbers = []
        self._call = Closures.__call__

    def startTest(self, test):
        super().startTest(test)
        self._numbers.clear()
        # A test may change how closures are called; it changes the recorded way.
        Closures.__call__ = self._record()

    def stopTest(self, test):
        Closures.__call__ = self._call
        self.lines.append(" ".join(map(str, self._numbers)))
        super().stopTest(test)

    def _record(self):
        call, numbers = self._call, self._numbers

        def recorded(closures, number, *arguments):
            numbers.append(number)
            return call(closures, number, *arguments)

        return recorded


def main(path):
    sys.path.insert(0, str(TESTS))
    names = sorted(file.stem for file in TESTS.glob("test_host*.py"))
    log = io.StringIO()
    runner = unittest.TextTestRunner(log, resultclass=Recorder)
    result = runner.run(unittest.defaultTestLoader.loadTestsFromNames(names))
    if not result.wasSuccessful():
        sys.exit("the tests of the host fail:\n" + log.getvalue())
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("\n".join(filter(None, result.lines)) + "\n")


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
