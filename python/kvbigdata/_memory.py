"""Arrays over memory that exists already, and generated arrays."""

from collections.abc import Mapping
from typing import Any

import numpy as np
import numpy.typing as npt

from ._array import Array
from ._errors import array_error
from ._host import table_of
from ._operands import operand
from ._session import Session, current
from ._table import Table
from ._types import dtype_of, name_of


def from_numpy(x: npt.ArrayLike, chunk_rows: int | None = None, copy: bool = False) -> Array:
    """An array over the memory of an ndarray.

    The memory is borrowed: it must not change until everything is computed, unless `copy` is true.

    chunk_rows: rows of a partition, the pieces on which threads work.
    """
    return over(np.array(x) if copy else np.asarray(x), current(), chunk_rows or 0)


def over(array: npt.NDArray[Any], session: Session, chunk_rows: int = 0) -> Array:
    """An array over the memory of `array`, of one dimension; 0 rows: as many as usual."""
    if array.ndim > 1:
        advice = "Make one of each column: kv.from_numpy(x[:, 0])."
        raise array_error(
            "KALVEX:array:NotSupported", f"An ndarray of {array.ndim} dimensions", advice
        )
    kind = name_of(array.dtype if array.dtype != object else str, "The array")
    if kind == "string":
        return Array(session._native.from_texts(array.tolist(), chunk_rows), session)
    if array.dtype.kind in "mM":
        return _over_times(array.astype(dtype_of(kind)), session)
    native = np.asarray(array, dtype=array.dtype.newbyteorder("="))
    return Array(session._native.from_numpy(native, kind, chunk_rows), session)


def _over_times(array: npt.NDArray[Any], session: Session) -> Array:
    import pyarrow as pa

    stream = pa.table({"times": array}).__arrow_c_stream__()
    times: Array = Table(session._native.from_stream(stream), session)["times"]
    return times


def asarray(x: Any, dtype: npt.DTypeLike | None = None) -> Array:
    """An array of anything that NumPy can make an array of; an array itself.

    >>> kv.asarray([3, 1, 2]).max().compute()
    np.int64(3)
    """
    if isinstance(x, Array):
        return x
    array = np.asarray(x, dtype=dtype)
    if array.ndim == 0:
        session = current()
        return Array(operand(array[()], session, "asarray"), session)
    return from_numpy(array, copy=isinstance(x, np.ndarray))


def from_arrow(obj: Any) -> Table:
    """A table of anything with `__arrow_c_stream__`, such as a `pyarrow.Table`, which is borrowed."""
    session = current()
    return Table(session._native.from_stream(obj.__arrow_c_stream__()), session)


def from_pandas(frame: Any) -> Table:
    """A table of a pandas DataFrame; its index is left out."""
    import pyarrow as pa

    return from_arrow(pa.Table.from_pandas(frame, preserve_index=False))


def table(columns: Mapping[str, Any]) -> Table:
    """A table of arrays, ndarrays or lists of as many rows.

    >>> t = kv.table({"a": [1, 2, 3], "b": np.array([0.5, 1.5, 2.5])})
    >>> t.filter("a > 1").b.sum().compute()
    np.float64(4.0)
    """
    arrays = {name: asarray(column) for name, column in columns.items()}
    handles = [array._handle for array in arrays.values()]
    return Table(table_of(list(arrays), handles), current())


def _type(dtype: npt.DTypeLike | None) -> str:
    return "" if dtype is None else name_of(dtype, "The result")


def arange(
    start: float, stop: float | None = None, step: float = 1, dtype: npt.DTypeLike | None = None
) -> Array:
    """As `numpy.arange`; takes no memory.

    >>> kv.arange(1_000_000).sum().compute()
    np.int64(499999500000)
    """
    session = current()
    first, last = (0, start) if stop is None else (start, stop)
    return Array(session._native.arange(first, last, step, _type(dtype)), session)


def full(n: int, fill_value: Any, dtype: npt.DTypeLike | None = None) -> Array:
    """`n` rows that all have one value."""
    if not isinstance(n, int | np.integer):
        raise array_error("KALVEX:array:NotSupported", f"The shape {n!r}", "Give a number of rows.")
    session = current()
    return Array(session._native.full(n, fill_value, _type(dtype)), session)


def zeros(n: int, dtype: npt.DTypeLike | None = None) -> Array:
    """`n` zeros."""
    return full(n, 0.0, dtype)


def ones(n: int, dtype: npt.DTypeLike | None = None) -> Array:
    """`n` ones."""
    return full(n, 1.0, dtype)
