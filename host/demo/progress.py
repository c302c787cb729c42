"""Which step long work is in: one line on standard error, gone when the work is done. Nothing is
written where that is not a terminal."""

import sys


class Progress:
    """`progress("reading")` shows a step in place of the one before, `progress.clear()` none."""

    def __init__(self) -> None:
        self._shown = 0

    def __call__(self, step: str) -> None:
        self.clear()
        if sys.stderr is not None and sys.stderr.isatty():
            self._shown = len(step)
            print(step, end="", file=sys.stderr, flush=True)

    def clear(self) -> None:
        if self._shown > 0:
            print("\r" + " " * self._shown, end="\r", file=sys.stderr, flush=True)
            self._shown = 0


progress = Progress()
