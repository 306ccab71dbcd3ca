"""Arrays over memory that exists already, and generated arrays."""

import numbers
import sys
from collections.abc import Mapping
from typing import Any

import numpy as np
import numpy.typing as npt

from ._array import Array, operand_array
from ._checks import whole_number
from ._errors import Error, array_error, wrong_input
from ._host import ArrayHandle, table_of
from ._operands import apply, operand
from ._results import from_numpy as from_elements
from ._session import Session, current
from ._table import Table, names_of
from ._types import dtype_of, name_of

Shape = int | tuple[int, ...]


def from_numpy(x: npt.ArrayLike, chunk_rows: int | None = None, copy: bool = False) -> Array:
    """An array over the memory of an ndarray.

    The memory is borrowed: it must not change until everything is computed, unless `copy` is true.

    chunk_rows: rows of a partition, the pieces on which threads work.
    """
    rows = 0 if chunk_rows is None else whole_number(chunk_rows, "chunk_rows= of kv.from_numpy")
    return over(np.array(x) if copy else np.asarray(x), current(), rows)


def over(array: npt.NDArray[Any], session: Session, chunk_rows: int = 0) -> Array:
    """An array over the memory of `array`; 0 rows: as many as usual."""
    kind = name_of(array.dtype if array.dtype != object else str, "The array")
    if array.ndim == 0 or (kind == "string" and array.ndim > 1):
        what = f"An ndarray of {array.ndim} dimensions and type {array.dtype}"
        advice = "Texts are columns of one dimension." if array.ndim else "Use kv.asarray(x)."
        raise array_error("KALVEX:array:NotSupported", what, advice)
    if kind == "string":
        if array.dtype == object and not all(x is None or isinstance(x, str) for x in array):
            other = next(x for x in array if x is not None and not isinstance(x, str))
            expected = "texts or None (missing numbers are NaN)"
            raise wrong_input("Elements of an ndarray of objects", expected, other)
        return Array(session._native.from_texts(array.tolist(), chunk_rows), session)
    if array.dtype.kind in "mM":
        native = array.astype(dtype_of(kind), copy=False).view(np.int64)
    else:
        native = np.asarray(array, dtype=array.dtype.newbyteorder("="))
    return Array(session._native.from_numpy(native, kind, chunk_rows), session)


def row(array: npt.NDArray[Any], ndim: int, session: Session) -> ArrayHandle:
    """A row of `ndim` dimensions that goes with any rows."""
    shaped = array.reshape((1,) * (1 + ndim - array.ndim) + array.shape)
    return session._native.row(from_elements(shaped))


def asarray(x: Any, dtype: npt.DTypeLike | None = None) -> Array:
    """An array of anything that NumPy can make an array of; an array itself.

    >>> kv.asarray([3, 1, 2]).max().compute()
    np.int64(3)
    """
    if isinstance(x, Array):
        return x if dtype is None else x.astype(dtype)
    if dtype is not None:
        name_of(dtype, "The array")
    try:
        array = np.asarray(x, dtype=dtype)
    except Error:
        raise
    except (TypeError, ValueError) as error:
        raise array_error("KALVEX:array:NotAnArray", type(x).__name__, error) from error
    if array.ndim == 0:
        return operand_array(array[()], current(), "asarray")
    return from_numpy(array, copy=isinstance(x, np.ndarray))


def from_arrow(obj: Any) -> Table:
    """A table of anything with `__arrow_c_stream__`, which is taken at once and whole.

    Tables of pyarrow, Polars and pandas are borrowed: their memory isn't copied. The rows of other
    streams, such as those of a query or a reader, are collected within the memory limit.

    Raises kv.Error, also a MemoryError, if they don't fit.

    >>> import pyarrow
    >>> kv.from_arrow(pyarrow.table({"a": [1, 2, 3]})).a.sum().compute()
    np.int64(6)
    """
    session = current()
    if not hasattr(obj, "__arrow_c_stream__"):
        expected = "an object with __arrow_c_stream__ (kv.table takes a dict of lists)"
        raise wrong_input("Input of kv.from_arrow", expected, obj)
    stream = obj.__arrow_c_stream__()
    return Table(session._native.from_stream(stream, not _holds_its_rows(obj)), session)


def _holds_its_rows(obj: Any) -> bool:
    library = type(obj).__module__.partition(".")[0]
    return library in {"pyarrow", "polars", "pandas"} and hasattr(obj, "__len__")


def from_pandas(frame: Any) -> Table:
    """A table of a pandas DataFrame; its index is left out."""
    import pyarrow as pa

    pandas = sys.modules.get("pandas")  # a frame has loaded it
    if pandas is None or not isinstance(frame, pandas.DataFrame):
        raise wrong_input("Input of kv.from_pandas", "a pandas.DataFrame", frame)
    return from_arrow(pa.Table.from_pandas(frame, preserve_index=False))


def table(columns: Mapping[str, Any]) -> Table:
    """A table of arrays, ndarrays or lists of as many rows; scalars are repeated.

    >>> t = kv.table({"a": [1, 2, 3], "b": np.array([0.5, 1.5, 2.5])})
    >>> t.filter("a > 1").b.sum().compute()
    np.float64(4.0)
    """
    if not isinstance(columns, Mapping) or not columns:
        raise wrong_input("Input of kv.table", "a dict of columns by name, at least one", columns)
    names_of(columns, "kv.table")
    arrays = {name: asarray(column) for name, column in columns.items()}
    handles = [array._handle for array in arrays.values()]
    return Table(table_of(list(arrays), handles), current())


def _type(dtype: npt.DTypeLike | None) -> str:
    return "" if dtype is None else name_of(dtype, "The result")


def require_number(given: Any, function: str) -> None:
    if not isinstance(given, numbers.Real):
        raise wrong_input(f"Input of {function}", "numbers", given)


def arange(
    start: float, stop: float | None = None, step: float = 1, dtype: npt.DTypeLike | None = None
) -> Array:
    """As `numpy.arange`; takes no memory.

    >>> kv.arange(1_000_000).sum().compute()
    np.int64(499999500000)
    """
    session = current()
    first, last = (0, start) if stop is None else (start, stop)
    for number in (first, last, step):
        require_number(number, "kv.arange")
    return Array(session._native.arange(first, last, step, _type(dtype)), session)


def linspace(
    start: float,
    stop: float,
    num: int = 50,
    endpoint: bool = True,
    *,
    dtype: npt.DTypeLike | None = None,
) -> Array:
    """As `numpy.linspace`; takes no memory."""
    session = current()
    for number in (start, stop):
        require_number(number, "kv.linspace")
    made = Array(session._native.linspace(float(start), float(stop), num, endpoint), session)
    return made if dtype is None else made.astype(dtype)


def full(shape: Shape, fill_value: Any, dtype: npt.DTypeLike | None = None) -> Array:
    """An array that has one value everywhere; takes no memory.

    shape: a number of rows, or a tuple of it and other dimensions.

    >>> kv.full((2, 3), 7).compute()
    array([[7, 7, 7],
           [7, 7, 7]])
    """
    sizes = shape if isinstance(shape, tuple) else (shape,)
    if not sizes or not all(isinstance(size, int | np.integer) for size in sizes):
        advice = "Give a number of rows, or a tuple of it and other dimensions."
        raise array_error("KALVEX:array:NotSupported", f"The shape {shape!r}", advice)
    session = current()
    value = operand(fill_value, session, "full")
    rows, *trailing = (int(size) for size in sizes)
    if not isinstance(value, ArrayHandle):
        return Array(session._native.full(rows, value, _type(dtype), trailing), session)
    return full_like(full(shape, False), fill_value, dtype)


def zeros(shape: Shape, dtype: npt.DTypeLike | None = None) -> Array:
    """An array of zeros."""
    return full(shape, 0.0, dtype)


def ones(shape: Shape, dtype: npt.DTypeLike | None = None) -> Array:
    """An array of ones."""
    return full(shape, 1.0, dtype)


def empty(shape: Shape, dtype: npt.DTypeLike | None = None) -> Array:
    """The same as `kv.zeros`: arrays never change, so they have a value from the beginning."""
    return zeros(shape, dtype)


def full_like(x: Array, fill_value: Any, dtype: npt.DTypeLike | None = None) -> Array:
    """An array with the rows and the shape of `x` that has one value everywhere.

    >>> x = kv.read("data/flights.csv").dep_delay
    >>> (x - kv.full_like(x, 3)).max().compute()
    np.float64(1298.0)
    """
    if not isinstance(x, Array):
        raise array_error("KALVEX:array:NoArray")
    if np.ndim(fill_value) > 0 or isinstance(fill_value, Array):
        raise array_error("KALVEX:array:NotSupported", "A fill value of rows", "Use x * 0 + value.")
    value = fill_value
    if dtype is None and not isinstance(fill_value, np.generic):
        dtype = x.dtype
    if dtype is not None and name_of(dtype, "The result") != "string":
        scalar: Any = np.dtype(dtype).type
        try:
            value = scalar(fill_value)
        except (TypeError, ValueError):
            expected = f"a value of type {np.dtype(dtype)}"
            raise wrong_input("The fill value", expected, fill_value) from None
    return apply("where", apply("ismissing", x), value, value)


def zeros_like(x: Array, dtype: npt.DTypeLike | None = None) -> Array:
    """Zeros with the rows and the shape of `x`."""
    return full_like(x, 0, dtype)


def ones_like(x: Array, dtype: npt.DTypeLike | None = None) -> Array:
    """Ones with the rows and the shape of `x`."""
    return full_like(x, 1, dtype)


def empty_like(x: Array, dtype: npt.DTypeLike | None = None) -> Array:
    """The same as `kv.zeros_like`."""
    return zeros_like(x, dtype)
