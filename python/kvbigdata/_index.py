"""`x[...]`: rows by a mask, the first rows, and places within rows."""

import math
from typing import TYPE_CHECKING, Any

import numpy as np

from ._errors import Error, array_error
from ._host import filter_array, head_array, select_places, with_dimension
from ._operands import is_array, made_like, operand

if TYPE_CHECKING:
    from ._array import Array

_ALL = slice(None)


def _refuse(what: str, advice: str) -> Error:
    return array_error("KALVEX:array:NotSupported", what, advice)


def _shown(part: Any) -> str:
    """A part of an index as it is written."""
    if isinstance(part, tuple):
        return ", ".join(map(_shown, part))
    if isinstance(part, slice):
        ends = ["" if end is None else str(end) for end in (part.start, part.stop, part.step)]
        return ":".join(ends if ends[2] else ends[:2])
    if part is Ellipsis:
        return "..."
    return str(part) if part is None or np.isscalar(part) else type(part).__name__


def _parts(key: Any, ndim: int) -> list[Any]:
    """The parts of an index, with `...` written out, for all dimensions."""
    parts = list(key) if isinstance(key, tuple) else [key]
    spread = [i for i, part in enumerate(parts) if part is Ellipsis]
    given = sum(part is not None and part is not Ellipsis for part in parts)
    if given > ndim or len(spread) > 1:
        raise array_error("KALVEX:array:BadIndex", f"[{_shown(key)}]", f"{ndim} dimension(s)")
    place = spread[0] if spread else len(parts)
    return [*parts[:place], *[_ALL] * (ndim - given), *parts[place + 1 :]]


def _rows(x: "Array", part: Any) -> "Array":
    """The rows that the first part of an index selects."""
    from ._array import Array

    if isinstance(part, slice) and part.step in (None, 1) and part.start in (None, 0):
        if part.stop is None:
            return x
        if isinstance(part.stop, int | np.integer) and part.stop >= 0:
            return Array(head_array(x._handle, int(part.stop)), x._session)
    if isinstance(part, np.ndarray) and part.dtype == np.bool_:
        others = [x] if x.ndim == 1 else []
        part = Array(operand(part, x._session, "x[mask]", others), x._session)
    if isinstance(part, Array):
        return made_like(x, filter_array(x._handle, part._handle))
    advice = "x[:n] takes the first rows, x[mask] those for which a logical array is true"
    raise _refuse(f"x[{_shown(part)}]", f"{advice}, x.compute()[...] any.")


def _places(x: "Array", parts: list[Any]) -> "Array":
    """The places that the other parts select in each row."""
    from ._array import Array

    trailing = tuple(x._handle.trailing)
    if all(part is _ALL or part == _ALL for part in parts):
        return x
    if parts == [_ALL] * len(trailing) + [None]:
        return Array(with_dimension(x._handle), x._session)
    places = np.arange(math.prod(trailing)).reshape(trailing, order="F")
    try:
        picked = np.asarray(places[tuple(parts)])
    except IndexError:
        index = f"[:, {_shown(tuple(parts))}]"
        raise array_error("KALVEX:array:BadIndex", index, f"rows of shape {trailing}") from None
    if picked.size == 0:
        raise _refuse("An index that selects nothing", "Leave it out.")
    made = select_places(x._handle, picked.ravel(order="F").tolist(), list(picked.shape))
    return Array(made, x._session)


def index(x: "Array", key: Any) -> "Array":
    """What `x[key]` means."""
    if is_array(key) and not x._handle.is_scalar:
        return made_like(x, filter_array(x._handle, key._handle))
    parts = _parts(key, x.ndim)
    if x._handle.is_scalar:
        return _places(x, parts)
    if parts[0] is None:
        raise _refuse("A dimension before that of rows", "The first dimension is that of rows.")
    return _places(_rows(x, parts[0]), parts[1:])
