"""`kv.Table`: an ordered set of named arrays of one row space."""

from collections.abc import Callable, Iterable, Iterator, Mapping, Sequence
from datetime import date, timedelta
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt

from . import _saving, _show
from ._array import Array, operand_array
from ._chunks import map_table_chunks
from ._errors import (
    UnknownAttributeError,
    UnknownNameError,
    array_error,
    live_line,
    wrong_input,
)
from ._evaluate import compute
from ._groups import group_by
from ._host import TableHandle, head_table, table_of, table_stream
from ._operands import rows_beside
from ._results import arrow_schema, stream_with
from ._session import check_guard
from ._types import dtype_of
from ._writing import TableWriting

if TYPE_CHECKING:
    from ._session import Session

Scalar = bool | int | float | np.generic | date | timedelta
Column = Array | str | Scalar | npt.NDArray[Any] | Callable[["Table"], Any]
Condition = Array | str | npt.NDArray[np.bool_] | Callable[["Table"], Any]


def names_of(given: Iterable[Any], function: str) -> list[str]:
    """The names that a function was given, one by one or in lists."""
    names = [
        name for each in given for name in (each if isinstance(each, list | tuple) else [each])
    ]
    for name in names:
        if not isinstance(name, str):
            raise wrong_input(f"Input of {function}", "names of columns", name)
    return names


class Table(TableWriting):
    """Named columns with the same rows, read on request.

    A column is `t["name"]` or `t.name`; methods take precedence over columns in `t.name`.

    >>> t = kv.read("data/flights.csv")
    >>> t.columns[:3]
    ['year', 'month', 'day']
    >>> t.filter("dep_delay > 60 & origin == 'JFK'").distance.count().compute()
    np.int64(8401)
    """

    __slots__ = ("__weakref__", "_handle", "_line", "_session")

    def __init__(self, handle: TableHandle, session: "Session"):
        self._handle = handle
        self._session = session
        self._line = live_line()

    @property
    def columns(self) -> list[str]:
        """The names of the columns, in order."""
        return list(self._handle.columns)

    @property
    def dtypes(self) -> dict[str, Any]:
        """NumPy's type of each column; None for a column whose type can't be read."""
        kinds = zip(self._handle.columns, self._handle.types, strict=True)
        return {name: None if kind == "unknown" else dtype_of(kind) for name, kind in kinds}

    @property
    def notes(self) -> dict[str, str]:
        """The types that columns have in the source where they are read as other ones, by name.

        A decimal is read as a double, a timestamp of any zone as a moment in UTC: the note has the
        decimal's digits, or the zone.
        """
        notes = zip(self._handle.columns, self._handle.notes, strict=True)
        return {name: note for name, note in notes if note}

    def __repr__(self) -> str:
        return _show.table_text(self)

    def _repr_html_(self) -> str:
        return _show.table_html(self)

    def __dir__(self) -> list[str]:
        return [*object.__dir__(self), *(name for name in self.columns if name.isidentifier())]

    def _ipython_key_completions_(self) -> list[str]:
        return self.columns

    # Columns and rows.

    def __getattr__(self, name: str) -> Array:
        if name.startswith("__"):
            raise AttributeError(name)
        try:
            return self._column(name)
        except UnknownNameError as error:
            raise UnknownAttributeError.of(error) from None

    def __getitem__(self, key: Any) -> Any:
        """A column by its name, some columns by a list, or the rows for which an array is true."""
        if isinstance(key, str):
            return self._column(key)
        if isinstance(key, Array | np.ndarray):
            return self.filter(key)
        if isinstance(key, list) and all(isinstance(name, str) for name in key):
            return self.select(*key)
        advice = "A name gives a column, a logical array selects rows."
        raise array_error("KALVEX:array:NotSupported", f"t[{type(key).__name__}]", advice)

    def _column(self, name: str) -> Array:
        return Array(self._handle.column(name), self._session)

    def filter(self, condition: Condition) -> "Table":
        """The rows for which `condition` is true; missing is false.

        condition: a logical array or ndarray, a function of the table that returns one, or a
            formula.

        >>> t = kv.read("data/flights.csv")
        >>> kv.compute(
        ...     t.filter(t.month == 1).month.count(),
        ...     t.filter(lambda t: t.month == 1).month.count(),
        ...     t.filter("month == 1").month.count(),
        ... )
        (np.int64(27004), np.int64(27004), np.int64(27004))
        """
        if isinstance(condition, str):
            native = self._session._native.filter_by_text(self._handle, condition)
            return Table(native, self._session)
        keep = condition(self) if callable(condition) else condition
        if isinstance(keep, np.ndarray) and keep.ndim == 1:
            keep = self._beside(keep)
        if not isinstance(keep, Array):
            raise array_error("KALVEX:array:NotLogical", "A filter", type(keep).__name__)
        return Table(self._handle.filter(keep._handle), self._session)

    def select(self, *names: str | Sequence[str]) -> "Table":
        """The columns of these names, in this order; `t[["a", "b"]]` is the same."""
        selected = names_of(names, "select")
        if not selected:
            raise wrong_input("Input of select", "at least one name of a column", "none")
        return self._with({name: self._column(name) for name in selected})

    def drop(self, *names: str | Sequence[str]) -> "Table":
        """All columns but those of these names."""
        dropped = names_of(names, "drop")
        for name in dropped:
            self._column(name)  # refuses an unknown one
        return self._with({n: self._column(n) for n in self.columns if n not in dropped})

    def rename(self, names: Mapping[str, str]) -> "Table":
        """The table with other names for columns: `names` maps old ones to new ones."""
        if not isinstance(names, Mapping):
            raise wrong_input("Input of rename", "a dict of names", names)
        names_of(names.values(), "rename")
        for name in names_of(names, "rename"):
            self._column(name)
        columns = [(names.get(name, name), self._column(name)) for name in self.columns]
        handles = [column._handle for _, column in columns]
        return Table(table_of([name for name, _ in columns], handles), self._session)

    def assign(self, **columns: Column) -> "Table":
        """The table with more columns, or others in the place of those of the same names.

        Each is an array, an ndarray, a scalar for all rows, a function of the table that returns
        one of these, or a formula.

        >>> t = kv.read("data/flights.csv")
        >>> t = t.assign(gain="dep_delay - arr_delay", speed=lambda t: t.distance / t.air_time)
        >>> t.gain.mean().compute()
        np.float64(5.659778949490753)
        """
        made = {name: self._made(column) for name, column in columns.items()}
        return self._with({**{name: self._column(name) for name in self.columns}, **made})

    def head(self, n: int = 5) -> "Table":
        """The first `n` rows; no more is read than these need.

        >>> kv.read("data/flights.csv", columns=["carrier", "flight"]).head(2).compute().to_pylist()
        [{'carrier': 'UA', 'flight': 1545.0}, {'carrier': 'UA', 'flight': 1714.0}]
        """
        if not isinstance(n, int | np.integer):
            raise wrong_input("Input of head", "a number of rows", n)
        return Table(head_table(self._handle, int(n)), self._session)

    map_chunks = map_table_chunks

    group_by = group_by

    def _made(self, column: Column) -> Array:
        if isinstance(column, str):
            return Array(self._session._native.record_text(self._handle, column), self._session)
        made = column(self) if callable(column) else column
        if isinstance(made, list | tuple):
            made = np.asarray(made, dtype=object if None in made else None)
        if isinstance(made, np.ndarray) and made.ndim > 0:
            return self._beside(made)
        return made if isinstance(made, Array) else operand_array(made, self._session, "A column")

    def _beside(self, array: npt.NDArray[Any]) -> Array:
        """An ndarray with the rows of the table."""
        others = [self._column(name) for name in self.columns[:1]]
        return Array(rows_beside(array.copy(), self._session, others), self._session)

    def _with(self, columns: dict[str, Array]) -> "Table":
        handles = [column._handle for column in columns.values()]
        return Table(table_of(list(columns), handles), self._session)

    # Evaluation.

    def compute(self) -> Any:
        """All columns as a `pyarrow.Table`."""
        return compute(self)

    def to_arrow(self) -> Any:
        """The same as `compute()`."""
        return compute(self)

    def to_pandas(self) -> Any:
        """All columns as a `pandas.DataFrame`; texts are strings."""
        return self.compute().to_pandas()

    def to_polars(self) -> Any:
        """All columns as a `polars.DataFrame`."""
        import polars as pl

        return pl.from_arrow(self.compute())

    def explain(self) -> str:
        """The plan that `compute()` would run. Reads no data."""
        handles = [self._column(name)._handle for name in self.columns]
        return self._session._native.explain(handles)

    # Arrow's protocols.

    def _schema(self) -> Any:
        return arrow_schema({name: self._column(name)._handle.type for name in self.columns})

    def __arrow_c_schema__(self) -> Any:
        """The types of the columns. Reads no data."""
        return self._schema().__arrow_c_schema__()

    def __arrow_c_stream__(self, requested_schema: Any = None) -> Any:
        """The rows in batches, computed as they are pulled: however many there are, few are in
        memory at a time.

        >>> t = kv.read("data/flights.csv", columns=["origin", "distance"])
        >>> pa.table(t.filter("distance > 4970")).num_rows
        342
        """
        stream = table_stream(self._handle, check_guard, self._session.note)
        return stream if requested_schema is None else stream_with(self, stream, requested_schema)

    def __reduce__(self) -> tuple[Any, ...]:
        arrays = {name: self._column(name) for name in self.columns}
        return _saving.table_from_bytes, (_saving.to_bytes(arrays),)

    def __copy__(self) -> "Table":
        return self

    def __deepcopy__(self, memo: Any) -> "Table":
        return self

    # What a table isn't.

    def __len__(self) -> int:
        raise array_error(
            "KALVEX:array:NotIterable", "len() of a table", "Use t[name].count_rows()."
        )

    def __iter__(self) -> Iterator[Any]:
        raise array_error(
            "KALVEX:array:NotIterable", "Iteration of a table", "Use for name in t.columns."
        )

    def __contains__(self, value: Any) -> bool:
        raise array_error("KALVEX:array:NotIterable", "in a table", "Use name in t.columns.")

    def __bool__(self) -> bool:
        raise array_error("KALVEX:array:TruthValue", "bool() of a table")

    def __array__(self, dtype: Any = None, copy: bool | None = None) -> Any:
        raise array_error(
            "KALVEX:array:NotIterable", "np.asarray of a table", "Use a column or t.compute()."
        )

    def __setitem__(self, key: Any, value: Any) -> None:
        raise array_error("KALVEX:array:ReadOnly")
