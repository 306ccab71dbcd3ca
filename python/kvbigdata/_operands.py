"""Inputs of operations: arrays, Python's scalars, which adapt, and NumPy's, which don't.

An ndarray is an array in memory: it goes with others of as many rows by position.
"""

from collections.abc import Iterable
from datetime import UTC, date, datetime, timedelta
from typing import TYPE_CHECKING, Any

import numpy as np

from ._errors import array_error
from ._host import ArrayHandle, apply_function, place_beside
from ._results import from_numpy
from ._types import dtype_of, name_of

if TYPE_CHECKING:
    from ._array import Array
    from ._session import Session

_WEAK = (bool, int, float, str)

_new = object.__new__


def _numpy_time(value: date | timedelta) -> Any:
    """A moment in UTC or a duration, in microseconds."""
    if isinstance(value, timedelta):
        return np.timedelta64(value, "us")
    if isinstance(value, datetime) and value.tzinfo is not None:
        value = value.astimezone(UTC).replace(tzinfo=None)
    return np.datetime64(value, "us")


def _over(array: np.ndarray, session: "Session", others: "list[Array]") -> ArrayHandle:
    """An ndarray beside arrays: of as many rows as they, or of one that goes with all of them."""
    from ._memory import row

    has_rows = any(not x._handle.is_scalar for x in others)
    ndim = max((x.ndim for x in others), default=0)
    if has_rows and array.ndim == ndim and array.shape[0] == 1:
        array = array[0]
    in_row = ndim - 1 if has_rows else ndim
    if array.ndim <= in_row:
        return row(array, in_row, session)
    return rows_beside(array, session, others)


def rows_beside(array: np.ndarray, session: "Session", others: "list[Array]") -> ArrayHandle:
    """An ndarray beside arrays of as many rows."""
    from ._memory import over

    for x in others:
        if x._handle.can_place_beside and x._handle.rows == len(array):
            return place_beside(x._handle, from_numpy(array))
    if any(x._handle.rows is None for x in others):
        raise array_error("KALVEX:array:NoPlace", len(array))
    return over(array, session)._handle


def operand(value: Any, session: "Session", function: str, others: "Iterable[Array]" = ()) -> Any:
    """What the extension takes for `value`, an operand beside `others`: a handle or a scalar."""
    if type(value) in _WEAK:
        return value
    handle = getattr(value, "_handle", None)
    if type(handle) is ArrayHandle:
        return handle
    if isinstance(value, np.ndarray) and value.ndim == 0:
        value = value[()]
    if isinstance(value, np.ndarray):
        return _over(value.copy(), session, list(others))
    if isinstance(value, date | timedelta):
        value = _numpy_time(value)
    if isinstance(value, np.str_):
        return str(value)
    if isinstance(value, np.generic):
        kind = name_of(value.dtype, f"an operand of {function}")
        if value.dtype.kind in "mM":
            value = value.astype(dtype_of(kind)).view(np.int64)
        return session._native.scalar(value.item(), kind)
    if isinstance(value, _WEAK):
        return next(base(value) for base in _WEAK if isinstance(value, base))
    raise array_error("KALVEX:array:UnsupportedOperand", function, type(value).__name__)


def made_like(x: "Array", handle: ArrayHandle) -> "Array":
    """An array of the session of `x`; without a call of __init__, which takes longer than this."""
    made: Array = _new(type(x))
    made._handle = handle
    made._session = x._session
    return made


def is_array(value: Any) -> bool:
    return type(getattr(value, "_handle", None)) is ArrayHandle


def is_logical(value: Any) -> bool:
    handle = getattr(value, "_handle", None)
    if type(handle) is ArrayHandle:
        return handle.is_logical
    return value is True or value is False or getattr(value, "dtype", None) == np.bool_


def apply(name: str, *inputs: Any) -> "Array":
    """Records an element function; at least one input is an array."""
    arrays: list[Array] = []
    operands: list[Any] = []
    are_ready = True
    for x in inputs:
        handle = getattr(x, "_handle", None)
        if type(handle) is ArrayHandle:
            arrays.append(x)
            operands.append(handle)
        else:
            operands.append(x)
            are_ready = are_ready and type(x) in _WEAK
    if not arrays:
        raise array_error("KALVEX:array:NoArray")
    if not are_ready:
        operands = [operand(x, arrays[0]._session, name, arrays) for x in inputs]
    return made_like(arrays[0], apply_function(name, operands))
