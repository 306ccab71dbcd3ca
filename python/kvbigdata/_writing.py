"""Writing rows to files."""

import os
from collections.abc import Sequence
from typing import Any, Literal

from ._checks import path_text, texts
from ._errors import array_error

Path = str | os.PathLike[str]
Mode = Literal["error", "overwrite"]
Keys = str | Sequence[str] | None


class TableWriting:
    """The methods of a table that write its rows.

    A `path` with the ending of the format is one file, in the order of the rows; any other is a
    folder with a file for each partition. It appears whole or not at all.

    mode: "error" refuses a path that exists; "overwrite" replaces what was written there before.
    partition_by: columns whose values name folders, `key=value/`, instead of being in the files.
    compute: False returns an array that writes when it is computed, and shares its pass with others
        in `kv.compute`.

    They return the number of rows.
    """

    __slots__ = ()

    def write_parquet(
        self, path: Path, mode: Mode = "error", partition_by: Keys = None, compute: bool = True
    ) -> Any:
        """Writes Parquet, with zstd and statistics; see `kv.Table`.

        >>> t = kv.read("data/flights.csv")
        >>> late = t.filter("arr_delay > 60").select("origin", "arr_delay")
        >>> late.write_parquet("/tmp/late.parquet", mode="overwrite")
        27789
        >>> done = late.write_csv("/tmp/late.csv", mode="overwrite", compute=False)
        >>> kv.compute(t.arr_delay.max(), done)
        (np.float64(1272.0), np.int64(27789))
        """
        return _write(self, path, "parquet", mode, compute, partition_by)

    def write_csv(
        self, path: Path, mode: Mode = "error", partition_by: Keys = None, compute: bool = True
    ) -> Any:
        """Writes CSV with a header, in UTF-8; missing values are empty fields."""
        return _write(self, path, "csv", mode, compute, partition_by)

    def write_ipc(
        self, path: Path, mode: Mode = "error", partition_by: Keys = None, compute: bool = True
    ) -> Any:
        """Writes Arrow's IPC file format (`.arrow`, `.feather`, `.ipc`), not compressed."""
        return _write(self, path, "ipc", mode, compute, partition_by)

    def write_npy(
        self, path: Path, mode: Mode = "error", partition_by: Keys = None, compute: bool = True
    ) -> Any:
        """Writes columns of one type as an n-by-k array, for `numpy.load`."""
        return _write(self, path, "npy", mode, compute, partition_by)


class ArrayWriting:
    """The method of an array that writes its rows."""

    __slots__ = ()

    def write_npy(self, path: Path, mode: Mode = "error", compute: bool = True) -> Any:
        """Writes NumPy's format: one file, or a folder with a file for each partition.

        mode, compute: as for a table's `write_parquet`. Returns the number of rows.

        >>> kv.arange(5).write_npy("/tmp/five.npy", mode="overwrite")
        5
        >>> np.load("/tmp/five.npy")
        array([0, 1, 2, 3, 4])
        """
        return _write(self, path, "npy", mode, compute)


def _write(
    rows: Any, path: Path, format: str, mode: str, compute: bool, partition_by: Keys = None
) -> Any:
    """The number of rows, or an array that writes them when it is computed."""
    from ._array import Array
    from ._table import Table

    if mode not in ("error", "overwrite"):
        raise array_error("KALVEX:sink:Mode", str(mode))
    session = rows._session
    record = session._native.write_table if isinstance(rows, Table) else session._native.write_array
    keys = [] if partition_by is None else texts(partition_by, "partition_by=")
    file = path_text(path, "The path of a file to write")
    handle = record(rows._handle, file, format, mode == "overwrite", keys)
    written = Array(handle, session)
    return written.item() if compute else written
