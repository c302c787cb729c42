"""Files of problems."""

from __future__ import annotations

import os
from typing import Union

from ..solvers.problem import Problem


def write(problem: Problem, path: Union[str, "os.PathLike[str]"]) -> None:
    """Writes a problem into a file, in the format that its suffix tells: .mps or .dat-s. Raises
    ValueError, with no file touched, for another one, and for what the format can't carry."""
    from ..solvers.csdp import sdpa_text  # which takes SDPA's format from this package
    from .mps import mps_text

    name, formats = os.fspath(path), {".mps": mps_text, ".dat-s": sdpa_text}
    text = next((text for suffix, text in formats.items() if name.endswith(suffix)), None)
    if text is None:
        raise ValueError("%s: a problem can be written into files %s"
                         % (name, " and ".join("*" + suffix for suffix in formats)))
    lines = text(problem)
    with open(name, "w", encoding="utf-8") as file:
        file.write(lines)
