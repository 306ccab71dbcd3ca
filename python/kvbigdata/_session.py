"""The session in which arrays live, options, and evaluation."""

import contextlib
import os
import threading
from collections.abc import Callable, Iterator
from contextvars import ContextVar, Token
from types import TracebackType
from typing import Any, NamedTuple

from . import _progress
from ._checks import path_text, whole_number
from ._errors import array_error, wrong_input
from ._host import ArrayHandle, ArraySession


class Facts(NamedTuple):
    """What an evaluation did.

    `rows` were read in `passes` over the data, and `skipped_rows` were ruled out by statistics of
    the files. `peak_bytes` is the peak resident memory of the process so far, `memory_peak_bytes`
    the most of `memory_limit_bytes` that the session has used so far. `spilled_bytes` were written
    to scratch files because they didn't fit, `spill_levels` times at most for the same rows.
    """

    rows: int = 0
    passes: int = 0
    seconds: float = 0.0
    peak_bytes: int = 0
    memory_peak_bytes: int = 0
    memory_limit_bytes: int = 0
    skipped_rows: int = 0
    spilled_bytes: int = 0
    spill_levels: int = 0


class Session:
    """A session of its own: its arrays can't be combined with those of another.

    As a context manager it is the one in which sources are opened, and it is closed at the end.

    >>> with kv.session():
    ...     print(kv.read("data/flights.csv").dep_delay.max().compute())
    1301.0
    """

    def __init__(self) -> None:
        self._native = ArraySession()
        self._facts = Facts()
        self._settings: dict[str, Any] = {
            "threads": 0,
            "memory_limit": 0,
            "scratch": "",
            "progress": None,
        }
        self._tokens: list[Token[Session | None]] = []

    def __enter__(self) -> "Session":
        self._tokens.append(_current.set(self))
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        _current.reset(self._tokens.pop())
        self.close()

    def close(self) -> None:
        """Frees everything that it holds. Its arrays can't be used any more."""
        self._native.close()

    def set(self, settings: dict[str, Any]) -> dict[str, Any]:
        """Sets options and returns what they were; see `kv.options`."""
        before = {name: self._settings[name] for name in settings}
        setters: dict[str, Callable[[Any], None]] = {
            "threads": self._native.set_threads,
            "memory_limit": self._native.set_memory_limit,
            "scratch": self._native.set_scratch,
            "progress": _progress.set_mode,
        }
        for name, value in settings.items():
            setters[name](value)
            self._settings[name] = value
        return before

    def evaluate(self, handles: list[ArrayHandle]) -> list[Any]:
        """The results of some arrays, as the extension returns them."""
        check_guard()
        values, facts = self._native.compute(handles)
        self.note(facts)
        return values

    def note(self, facts: tuple[Any, ...]) -> None:
        """Keeps what an evaluation did, for `kv.facts()`."""
        self._facts = Facts(*facts)


_current: ContextVar[Session | None] = ContextVar("kvbigdata_session", default=None)
_is_guarded: ContextVar[bool] = ContextVar("kvbigdata_no_compute", default=False)
_lock = threading.Lock()
_default: list[Session] = []


def current() -> Session:
    """The session of the innermost `with kv.session()`, or the default one."""
    session = _current.get()
    if session is not None:
        return session
    if not _default:
        with _lock:
            if not _default:
                _default.append(Session())
    return _default[0]


def check_guard() -> None:
    """Refuses to compute in `kv.no_compute()`."""
    if _is_guarded.get() or os.environ.get("KV_NO_COMPUTE", "0") not in ("", "0"):
        raise array_error("KALVEX:array:NoCompute")


def session() -> Session:
    """A new session. Without one, all arrays live in a default session."""
    return Session()


def facts() -> Facts:
    """What the last evaluation did: rows read, passes over the data, seconds, peak memory.

    >>> kv.read("data/flights.csv").dep_delay.mean().compute()
    np.float64(12.639070257304708)
    >>> kv.facts().rows, kv.facts().passes
    (336776, 1)
    """
    return current()._facts


@contextlib.contextmanager
def no_compute() -> Iterator[None]:
    """Makes every evaluation in the block an error. `KV_NO_COMPUTE=1` does so everywhere.

    >>> with kv.no_compute():
    ...     kv.read("data/flights.csv").dep_delay.mean().compute()
    Traceback (most recent call last):
    kvbigdata.Error: Nothing may be computed here: the call is in kv.no_compute(), or KV_NO_COMPUTE is set.
    """
    token = _is_guarded.set(True)
    try:
        yield
    finally:
        _is_guarded.reset(token)


class _Options:
    """Options that hold from the call on or, as a context manager, until the end of the block."""

    def __init__(self, session: Session, settings: dict[str, Any]):
        self._session = session
        self._before = session.set(settings)

    def __enter__(self) -> None:
        return None

    def __exit__(self, *exception: object) -> None:
        self._session.set(self._before)


def options(
    *,
    threads: int | None = None,
    memory_limit: int | str | None = None,
    scratch: "str | os.PathLike[str] | None" = None,
    progress: bool | None = None,
) -> _Options:
    """Sets options of the current session, for good or as a context manager.

    threads: how many threads evaluations may use; 0 is the default: KV_THREADS or as many as the
        process may use. No answer depends on it.
    memory_limit: how many bytes of memory data and results may use, or a text with a unit, such as
        "512MB" (512 x 10^6) or "2GiB" (2 x 2^30); 0 is the default: KV_MEMORY_LIMIT or half of
        what the process may use.
    scratch: the folder for what doesn't fit in memory; "" is the default: KV_SCRATCH or the
        system's folder for temporary files. The files have no names, so none is ever left.
    progress: whether evaluations of any session that take more than half a second show how far
        they have come. Unless it is given, they do so in terminals and notebooks; KV_PROGRESS=0
        turns it off.

    >>> with kv.options(threads=1, memory_limit="256MB"):
    ...     kv.read("data/flights.csv").dep_delay.max().compute()
    np.float64(1301.0)
    """
    given: dict[str, Any] = {
        "threads": threads,
        "memory_limit": memory_limit,
        "scratch": scratch,
        "progress": progress,
    }
    if threads is not None:
        given["threads"] = whole_number(threads, "threads= of kv.options")
    if not isinstance(memory_limit, int | str | None):
        expected = 'a number of bytes, or a text with a unit such as "512MB"'
        raise wrong_input("memory_limit= of kv.options", expected, memory_limit)
    if scratch is not None:
        given["scratch"] = path_text(scratch, "scratch= of kv.options")
    if not isinstance(progress, bool | None):
        raise wrong_input("progress= of kv.options", "True or False", progress)
    return _Options(current(), {name: value for name, value in given.items() if value is not None})
