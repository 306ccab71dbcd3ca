"""Inputs of operations: arrays, Python's scalars, which adapt, and NumPy's, which don't.

An ndarray is an array in memory: it goes with others of as many rows by position.
"""

from datetime import UTC, date, datetime, timedelta
from typing import TYPE_CHECKING, Any

import numpy as np

from ._errors import array_error
from ._host import ArrayHandle, apply_function
from ._types import dtype_of, name_of

if TYPE_CHECKING:
    from ._array import Array
    from ._session import Session

_WEAK = (bool, int, float, str)


def _numpy_time(value: date | timedelta) -> Any:
    """A moment in UTC or a duration, in microseconds."""
    if isinstance(value, timedelta):
        return np.timedelta64(value, "us")
    if isinstance(value, datetime) and value.tzinfo is not None:
        value = value.astimezone(UTC).replace(tzinfo=None)
    return np.datetime64(value, "us")


def operand(value: Any, session: "Session", function: str) -> Any:
    """What the extension takes for `value`: a handle or a plain scalar."""
    handle = getattr(value, "_handle", None)
    if type(handle) is ArrayHandle:
        return handle
    if type(value) in _WEAK:
        return value
    if isinstance(value, np.ndarray) and value.ndim == 0:
        value = value[()]
    if isinstance(value, np.ndarray):
        from ._memory import over

        return over(value.copy(), session)._handle
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


def apply(name: str, *inputs: Any) -> "Array":
    """Records an element function; at least one input is an array."""
    from ._array import Array

    session = next(x._session for x in inputs if isinstance(x, Array))
    operands = [operand(x, session, name) for x in inputs]
    return Array(apply_function(name, operands), session)
