"""Opening files."""

import os
from collections.abc import Iterable, Mapping
from typing import Any

from . import _host
from ._array import Array
from ._checks import path_text, texts
from ._errors import array_error, wrong_input
from ._session import current
from ._table import Table
from ._types import types_by_name

Path = str | os.PathLike[str]


def _listed(paths: Path | Iterable[Path]) -> list[str]:
    is_one = isinstance(paths, str | bytes) or not isinstance(paths, Iterable)
    given: list[Any] = [paths] if is_one else list(paths)  # type: ignore[arg-type]
    if not given:
        raise array_error("KALVEX:validateattributes:invalidType", "Paths", "at least one", "[]")
    return [path_text(path, "A path") for path in given]


def _options(
    types: Mapping[str, Any] | None,
    separator: str | None,
    header: bool,
    missing: str | Iterable[str] | None,
) -> _host.ReadOptions:
    if not isinstance(separator, str | None):
        raise wrong_input("separator=", "a text of one character", separator)
    markers = None if missing is None else texts(missing, "missing=")
    return _host.ReadOptions(types_by_name(types), separator or "", bool(header), markers)


def _selected(table: Table, columns: str | Iterable[str] | None) -> Table:
    if columns is None:
        return table
    names = columns if isinstance(columns, Iterable) and not isinstance(columns, str) else [columns]
    return table.select(*names)


def read(
    paths: Path | Iterable[Path],
    types: Mapping[str, Any] | None = None,
    columns: str | Iterable[str] | None = None,
    *,
    separator: str | None = None,
    header: bool = True,
    missing: str | Iterable[str] | None = None,
) -> Table:
    """A table over files of CSV, Parquet, Arrow IPC (Feather) or NumPy; the format is recognised.

    paths: a file, a folder, a pattern such as "data/*.csv", or several of these.
    types: types of columns of CSV files by name, such as {"id": "int64"}, where the type that the
        first rows suggest isn't the right one. Moments that aren't written by ISO 8601 have a pattern
        of strptime: {"day": "datetime(%d.%m.%Y)"}, with %f for a fraction of a second.
    columns: names of the columns of the table, in their order; all unless given.
    separator: what separates the fields of CSV files, one ASCII character; comma, tab, semicolon and
        bar are detected.
    header: False for CSV files without names of columns; these are then column_1, column_2 and so on.
    missing: fields of CSV files that are missing values, in all columns, besides empty ones; "NA",
        "NaN" and "null" in columns of numbers and times unless given.

    Reads the headers and the first block, or the footers; nothing else until something is computed.

    >>> t = kv.read("data/flights.csv", types={"flight": "int32"})
    >>> t.flight.dtype
    dtype('int32')
    """
    session = current()
    options = _options(types, separator, header, missing)
    return _selected(Table(session._native.read(_listed(paths), options), session), columns)


def read_csv(
    paths: Path | Iterable[Path],
    types: Mapping[str, Any] | None = None,
    columns: str | Iterable[str] | None = None,
    *,
    separator: str | None = None,
    header: bool = True,
    missing: str | Iterable[str] | None = None,
) -> Table:
    """The same for CSV files, whatever they are called."""
    session = current()
    options = _options(types, separator, header, missing)
    return _selected(Table(session._native.read_csv(_listed(paths), options), session), columns)


def read_parquet(paths: Path | Iterable[Path], columns: str | Iterable[str] | None = None) -> Table:
    """The same for Parquet files, whatever they are called."""
    session = current()
    return _selected(Table(session._native.read_parquet(_listed(paths)), session), columns)


def read_ipc(paths: Path | Iterable[Path], columns: str | Iterable[str] | None = None) -> Table:
    """The same for files of Arrow IPC, also called Feather, and for its streams."""
    session = current()
    return _selected(Table(session._native.read_ipc(_listed(paths)), session), columns)


def read_npy(paths: Path | Iterable[Path]) -> Array:
    """An array over .npy files, whose rows follow one another.

    Rows are positions, as in arrays in memory: the array can be combined with any other of as many
    rows. kv.read makes a table of such files, with the columns column_1, column_2 and so on.

    >>> import numpy as np
    >>> np.save("x.npy", np.arange(6.0).reshape(3, 2))
    >>> kv.read_npy("x.npy").sum(axis=0).compute()
    array([6., 9.])
    """
    session = current()
    return Array(session._native.read_npy(_listed(paths)), session)
