"""The closures by number, counted and timed in one place."""

import functools
import importlib
import importlib.machinery
import pathlib
import sys
import time
from typing import Any, Callable, Dict

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILDS = (ROOT / "build" / "release", ROOT / "build")


@functools.lru_cache(maxsize=None)
def load() -> Any:
    """The module `fragments`, from the path or from a build below the project's root.

    Raises ImportError, with one line that says what to do, where there is none for this
    interpreter.
    """
    path = list(sys.path)
    sys.path.extend(str(directory) for directory in BUILDS)
    try:
        return importlib.import_module("fragments")
    except ImportError as error:
        raise ImportError(
            "the module fragments can't be imported (%s): build it with `make demo` or put its "
            "directory on PYTHONPATH" % (built_for_another() or error)
        ) from None
    finally:
        sys.path[:] = path


def built_for_another() -> str:
    """Which modules there are for other interpreters than this one, if there are any."""
    mine = {"fragments" + suffix for suffix in importlib.machinery.EXTENSION_SUFFIXES}
    found = [path for directory in sys.path for path in pathlib.Path(directory).glob("fragments.*")
             if path.suffix == ".so" and path.name not in mine]
    return "%s is for another interpreter than this one, CPython %d.%d" % (
        found[0], *sys.version_info[:2]) if found else ""


class Closures:
    """`closure(601, ...)` calls the closure with that number; the arguments stand in the order of
    its declaration. `calls` and `seconds` add up over all calls."""

    def __init__(self) -> None:
        self.calls = 0
        self.seconds = 0.0
        self._methods: Dict[int, Callable[..., Any]] = {}

    def __call__(self, number: int, *arguments: Any) -> Any:
        method = self._methods.get(number) or self._find(number)
        start = time.perf_counter()
        result = method(*arguments)
        self.seconds += time.perf_counter() - start
        self.calls += 1
        return result

    def _find(self, number: int) -> Any:
        method = getattr(load(), "_c_closure_%d" % number)
        self._methods[number] = method
        return method


closure = Closures()
