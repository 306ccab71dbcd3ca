"""The line that shows how far an evaluation has come: in a terminal or a notebook, after half a
second, and cleared at the end."""

import os
import shutil
import sys
from typing import Any

_BAR = 20
_BETWEEN = 0.1


class _Line:
    """The line, and the evaluation that it shows; others that run meanwhile aren't shown."""

    def __init__(self) -> None:
        self.mode: bool | None = None
        self.watch = 0
        self.stream: Any = None
        self.width = 0
        self.last = 0.0


_line = _Line()


def set_mode(shows: bool | None) -> None:
    """True and False show it always and never, None in terminals and notebooks."""
    _line.mode = shows


def _is_notebook() -> bool:
    if "ipykernel" not in sys.modules or "IPython" not in sys.modules:
        return False
    return type(sys.modules["IPython"].get_ipython()).__name__ == "ZMQInteractiveShell"


def _stream() -> Any:
    """Where the line belongs; None for nowhere."""
    if _line.mode is False or (
        _line.mode is None and os.environ.get("KV_PROGRESS", "1") in ("", "0")
    ):
        return None
    if _is_notebook():
        return sys.stdout
    return sys.stderr if _line.mode or (sys.stderr is not None and sys.stderr.isatty()) else None


def text_of(stage: int, units: int, num_units: int, seconds: float) -> str:
    """The line for a stage of which some units are done."""
    done = _BAR * units // max(num_units, 1)
    bar = "#" * done + "-" * (_BAR - done)
    return f"[{bar}] stage {stage}: {units:,} of {num_units:,} partitions, {seconds:.1f} s"


def _write(text: str) -> None:
    width = max(shutil.get_terminal_size().columns - 1, 20)
    text = text[:width]
    _line.stream.write("\r" + text.ljust(_line.width) + ("" if text else "\r"))
    _line.stream.flush()
    _line.width = len(text)


def show(
    watch: int, stage: int = 0, units: int = 0, num_units: int = 0, seconds: float = 0.0
) -> None:
    """Shows how far the evaluation `watch` has come or, without a stage, that it has ended. Called
    by the extension."""
    if _line.watch not in (0, watch):
        return
    if stage == 0:
        if _line.stream is not None:
            _write("")
        _line.watch, _line.stream = 0, None
        return
    if _line.watch == 0:
        _line.watch, _line.stream, _line.width, _line.last = watch, _stream(), 0, 0.0
    if _line.stream is not None and seconds >= _line.last + _BETWEEN:
        _line.last = seconds
        _write(text_of(stage, units, num_units, seconds))
