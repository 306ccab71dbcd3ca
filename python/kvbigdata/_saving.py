"""Saving what was recorded, and opening it: files of arrays, and pickles."""

import os
import warnings
from pathlib import Path
from typing import TYPE_CHECKING

from ._errors import wrong_input
from ._session import Session, current

if TYPE_CHECKING:
    from ._array import Array


def save(path: "str | os.PathLike[str]", **arrays: "Array") -> None:
    """Saves arrays with everything that was recorded for them, by name. The file contains no data.

    >>> late = kv.read("data/flights.csv").arr_delay > 60
    >>> kv.save("/tmp/late.kv", late=late.mean())
    >>> kv.open("/tmp/late.kv", trust=True)["late"].compute()
    np.float64(0.08251478727700311)
    """
    from ._array import Array

    for name, each in arrays.items():
        if not isinstance(each, Array):
            expected = "a kv.Array, such as a column of a table or kv.asarray(x)"
            raise wrong_input(f"{name}= of kv.save", expected, each)
    session = next((each._session for each in arrays.values()), current())
    handles = [each._handle for each in arrays.values()]
    session._native.save(os.fspath(path), list(arrays), handles)


def open(path: "str | os.PathLike[str]", trust: bool = False) -> "dict[str, Array]":
    """The arrays that `kv.save` saved, by name. Their files aren't opened yet.

    trust: whether they may be computed, which reads the files and calls the functions that they
        name. Without it they can be looked at, used in new arrays and saved again.
    """
    return _opened(os.fspath(path), trust, current())


def _opened(path: str, trust: bool, session: Session) -> "dict[str, Array]":
    from ._array import Array

    arrays, notes = session._native.open(path, trust)
    for note in notes:
        warnings.warn(note, stacklevel=3)
    return {name: Array(handle, session) for name, handle in arrays}


def to_bytes(array: "Array") -> bytes:
    """The saved form of an array."""
    import tempfile  # only here: it takes long to import

    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder, "array.kv")
        array._session._native.save(str(path), ["array"], [array._handle])
        return path.read_bytes()


def from_bytes(data: bytes) -> "Array":
    """The array of a saved form, in the current session. Who loads a pickle trusts it."""
    import tempfile

    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder, "array.kv")
        path.write_bytes(data)
        return _opened(str(path), True, current())["array"]
