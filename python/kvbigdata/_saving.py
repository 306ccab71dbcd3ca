"""Saving what was recorded, and opening it: files of arrays, and pickles."""

import os
import warnings
from pathlib import Path
from typing import TYPE_CHECKING

from ._checks import path_text
from ._errors import wrong_input
from ._host import table_of
from ._session import Session, current

if TYPE_CHECKING:
    from ._array import Array
    from ._table import Table


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
    _write(path_text(path, "The path of kv.save"), arrays)


def _write(path: str, arrays: "dict[str, Array]") -> None:
    session = next((each._session for each in arrays.values()), current())
    session._native.save(path, list(arrays), [each._handle for each in arrays.values()])


def open(path: "str | os.PathLike[str]", trust: bool = False) -> "dict[str, Array]":
    """The arrays that `kv.save` saved, by name. Their files aren't opened yet.

    trust: whether they may be computed, which reads the files and calls the functions that they
        name. Without it they can be looked at, used in new arrays and saved again.
    """
    return _opened(path_text(path, "The path of kv.open"), trust, current())


def _opened(path: str, trust: bool, session: Session) -> "dict[str, Array]":
    from ._array import Array

    arrays, notes = session._native.open(path, trust)
    for note in notes:
        warnings.warn(note, stacklevel=3)
    return {name: Array(handle, session) for name, handle in arrays}


def to_bytes(arrays: "dict[str, Array]") -> bytes:
    """The saved form of arrays."""
    import tempfile  # only here: it takes long to import

    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder, "arrays.kv")
        _write(str(path), arrays)
        return path.read_bytes()


def from_bytes(data: bytes) -> "dict[str, Array]":
    """The arrays of a saved form, in the current session. Who loads a pickle trusts it."""
    import tempfile

    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder, "arrays.kv")
        path.write_bytes(data)
        return _opened(str(path), True, current())


def array_from_bytes(data: bytes) -> "Array":
    """The array that was pickled."""
    return from_bytes(data)["array"]


def table_from_bytes(data: bytes) -> "Table":
    """The table that was pickled."""
    from ._table import Table

    columns = from_bytes(data)
    handles = [column._handle for column in columns.values()]
    return Table(table_of(list(columns), handles), current())
