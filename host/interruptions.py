"""Changes that are made as a whole or not at all, also where Ctrl-C comes."""

import signal
import threading
from contextlib import contextmanager
from typing import Any, Iterator, List


@contextmanager
def uninterrupted() -> Iterator[None]:
    """Ctrl-C waits for the end of the `with` block, or of the function that this decorates. Other
    threads than the main one never get it."""
    handler = signal.getsignal(signal.SIGINT)
    if not callable(handler) or threading.current_thread() is not threading.main_thread():
        yield
        return
    came: List[Any] = []
    signal.signal(signal.SIGINT, lambda *caught: came.append(caught))
    try:
        yield
    finally:
        signal.signal(signal.SIGINT, handler)
        if came:
            handler(*came[0])
