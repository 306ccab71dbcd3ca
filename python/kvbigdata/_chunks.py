"""Users' functions, called chunk by chunk."""

import functools
from collections.abc import Callable, Mapping
from typing import TYPE_CHECKING, Any, NamedTuple, TypeVar, overload

import numpy as np
import numpy.typing as npt

from ._errors import InvalidTypeError, array_error, in_function, wrong_input
from ._host import map_chunks as native_map_chunks
from ._host import map_table as native_map_table
from ._results import from_arrow_column, from_numpy, to_arrow, to_numpy
from ._types import name_of

if TYPE_CHECKING:
    from ._array import Array
    from ._table import Table


F = TypeVar("F", bound=Callable[..., Any])

_ATTRIBUTE = "__kv_function__"


class _Settings(NamedTuple):
    """How a function is called."""

    name: str
    serial: bool = False


def _settings(function: Callable[..., Any]) -> _Settings:
    name = getattr(function, "__qualname__", type(function).__name__)
    settings: _Settings = getattr(function, _ATTRIBUTE, _Settings(name))
    return settings


@overload
def function(f: F, /) -> F: ...


@overload
def function(*, name: str | None = None, serial: bool = False) -> Callable[[F], F]: ...


def function(f: Any = None, /, *, name: str | None = None, serial: bool = False) -> Any:
    """Sets how a function is called on chunks; as a decorator or directly.

    name: its name in plans and messages.
    serial: calls it in the thread that computes, one chunk at a time. Without it, threads call it
        on several chunks at once: that takes less time where it releases the interpreter's lock,
        as NumPy does, and needs a function that several threads may call.

    >>> @kv.function(serial=True)
    ... def kilometres(miles):
    ...     return miles * 1.609344
    >>> kv.read("data/flights.csv").distance.map_chunks(kilometres).max().compute()
    np.float64(8019.361152)
    """
    if f is None:
        return functools.partial(_set, name=name, serial=serial)
    return _set(f, name=name, serial=serial)


def _set(f: Any, *, name: str | None, serial: bool) -> Any:
    _require_function(f, "Input of kv.function")
    settings = _Settings(name or _settings(f).name, serial)
    try:
        setattr(f, _ATTRIBUTE, settings)
    except (AttributeError, TypeError):  # a method of an object, a built-in function, a class
        f = functools.partial(f)
        setattr(f, _ATTRIBUTE, settings)
    return f


def call(function: Callable[..., Any], values: list[Any], kind: str) -> tuple[str, Any]:
    """What `function` returns for chunks, as the extension takes it. Called by the extension."""
    result = np.asarray(function(*(to_numpy(value) for value in values)))
    if result.ndim == 0:
        result = result.reshape(1)
    if kind == "string" and result.dtype == object:
        result = result.astype(np.dtypes.StringDType(na_object=None))
    try:
        return from_numpy(result)
    except InvalidTypeError:
        name = _settings(function).name
        raise in_function("KALVEX:array:WrongType", name, result.dtype, kind) from None


def _arrow_table(result: Any, name: str) -> Any:
    """What a function of batches returned, as a table."""
    import pyarrow as pa

    if isinstance(result, Mapping):
        return pa.table(dict(result))
    if hasattr(result, "__arrow_c_stream__") or hasattr(result, "__arrow_c_array__"):
        return pa.table(result)
    expected = "an Arrow table or batch, or a dict of arrays"
    raise in_function("KALVEX:array:WrongResult", name, expected, type(result).__name__)


def call_on_table(
    function: Callable[..., Any],
    values: list[Any],
    kinds: tuple[list[str], list[tuple[str, str]]],
) -> list[tuple[str, Any]]:
    """The columns that `function` returns for a batch. Called by the extension."""
    import pyarrow as pa

    names, expected = kinds
    name = _settings(function).name
    batch = pa.RecordBatch.from_arrays([to_arrow(value) for value in values], names=names)
    made = _arrow_table(function(batch), name)
    wanted = [column for column, _ in expected]
    if sorted(made.column_names) != sorted(wanted):
        returned = ", ".join(made.column_names)
        raise in_function("KALVEX:array:WrongColumns", name, returned, ", ".join(wanted))
    columns = []
    for column, kind in expected:
        try:
            columns.append(from_arrow_column(made.column(column)))
        except InvalidTypeError:
            returned = made.schema.field(column).type
            what = f"{name}, column {column},"
            raise in_function("KALVEX:array:WrongType", what, returned, kind) from None
    return columns


def _require_function(given: Any, what: str) -> None:
    if not callable(given):
        raise wrong_input(what, "a function", given)


def _row_shape(shape: Any) -> list[int]:
    """The dimensions of a row, where they are given."""
    sizes = (shape,) if isinstance(shape, int | np.integer) else shape
    is_shape = isinstance(sizes, tuple | list) and all(
        isinstance(size, int | np.integer) and size > 0 for size in sizes
    )
    if not is_shape:
        shown = str(shape) if isinstance(shape, tuple | list) else shape
        expected = "the shape of a row, such as (3,), or () for a column"
        raise wrong_input("shape= of map_chunks", expected, shown)
    return [int(size) for size in sizes]


def _has_same_rows(rows: str) -> bool:
    if rows not in ("same", "any"):
        raise array_error(
            "KALVEX:array:NotSupported", f"rows={rows!r} of map_chunks", 'Use "same" or "any".'
        )
    return rows == "same"


def map_chunks(
    x: "Array",
    function: Callable[..., Any],
    *more: Any,
    dtype: npt.DTypeLike | None = None,
    shape: tuple[int, ...] | None = None,
    rows: str = "same",
) -> "Array":
    """What a function of your own returns for the rows, chunk by chunk.

    function: is called with an ndarray of some rows of this array and of each in `more`, arrays
        or ndarrays of the same rows or scalars, and returns an array of as many rows. A chunk is what is left of 32,768 rows of the source.
        Several threads call it at once unless `kv.function(serial=True)` says otherwise.
    dtype: the type of what it returns; the type of this array unless given.
    shape: the shape of a row of what it returns, such as (3,), or () for a column; that of a row
        of this array unless given.
    rows: "any" if it returns any number of rows. Then a chunk has 32,768 rows, the last of a
        partition fewer, whatever was filtered, and the result has rows of its own.

    >>> t = kv.read("data/flights.csv")
    >>> t.distance.map_chunks(lambda miles: miles * 1.609344).max().compute()
    np.float64(8019.361152)
    >>> longest = t.distance.map_chunks(lambda miles: np.sort(miles)[-2:], rows="any")
    >>> longest.count_rows().compute(), longest.max().compute()
    (np.int64(22), np.float64(4983.0))
    """
    from ._array import Array, operand_array

    _require_function(function, "Input of map_chunks")
    same_rows = _has_same_rows(rows)
    inputs = [x, *(operand_array(each, x._session, "map_chunks", (x,)) for each in more)]
    kind = x._handle.type if dtype is None else name_of(dtype, "The result")
    trailing = x._handle.trailing if shape is None else _row_shape(shape)
    name, serial = _settings(function)
    handles = [each._handle for each in inputs]
    made = native_map_chunks(name, function, handles, kind, serial, trailing, same_rows)
    return Array(made, x._session)


def map_table_chunks(
    table: "Table",
    function: Callable[..., Any],
    dtypes: Mapping[str, npt.DTypeLike] | None = None,
    rows: str = "same",
) -> "Table":
    """What a function of your own returns for the rows of the table, batch by batch.

    function: is called with a `pyarrow.RecordBatch` of all columns, and returns a table or batch
        of Arrow, of anything with Arrow's protocol such as a data frame, or a dict of arrays.
        Several threads call it at once unless `kv.function(serial=True)` says otherwise.
    dtypes: the names and types of the columns that it returns; those of this table unless given.
    rows: "same" if it returns as many rows as it gets: then its columns go with those of this
        table. "any" if it returns any number; then they have rows of their own.

    >>> t = kv.read("data/flights.csv", columns=["distance", "air_time"])
    >>> speed = lambda batch: {"speed": pc.divide(batch["distance"], batch["air_time"])}
    >>> t.map_chunks(speed, dtypes={"speed": "float64"}).speed.max().compute()
    np.float64(11.723076923076922)
    >>> far = t.map_chunks(lambda batch: batch.filter(pc.field("distance") > 4970), rows="any")
    >>> far.distance.count().compute()
    np.int64(342)
    """
    from ._table import Table

    _require_function(function, "Input of map_chunks")
    same_rows = _has_same_rows(rows)
    given = table.dtypes if dtypes is None else dtypes
    if not isinstance(given, Mapping):
        raise wrong_input("dtypes= of map_chunks", "a dict of types by column", given)
    columns = [(name, name_of(dtype, f"Column {name}")) for name, dtype in given.items()]
    name, serial = _settings(function)
    made = native_map_table(name, function, table._handle, columns, serial, same_rows)
    return Table(made, table._session)
