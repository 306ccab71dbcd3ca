"""Users' functions, called chunk by chunk."""

import functools
from collections.abc import Callable
from typing import TYPE_CHECKING, Any, NamedTuple, TypeVar, overload

import numpy as np
import numpy.typing as npt

from ._errors import array_error
from ._host import map_chunks as native_map_chunks
from ._results import from_numpy, to_numpy
from ._types import name_of

if TYPE_CHECKING:
    from ._array import Array


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
    if not callable(f):
        raise array_error("KALVEX:array:NoFunction")
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
    return from_numpy(result)


def map_chunks(
    x: "Array",
    function: Callable[..., Any],
    *more: "Array",
    dtype: npt.DTypeLike | None = None,
    shape: tuple[int, ...] | None = None,
    rows: str = "same",
) -> "Array":
    """What a function of your own returns for the rows, chunk by chunk.

    function: is called with an ndarray of some rows of this array and of each in `more`, and
        returns an array of as many rows. A chunk is what is left of 32,768 rows of the source.
        Several threads call it at once unless `kv.function(serial=True)` says otherwise.
    dtype: the type of what it returns; the type of this array unless given.
    shape: the shape of a row of what it returns, such as (3,), or () for a column; that of a row
        of this array unless given.

    >>> t = kv.read("data/flights.csv")
    >>> t.distance.map_chunks(lambda miles: miles * 1.609344).max().compute()
    np.float64(8019.361152)
    """
    from ._array import Array

    if not callable(function):
        raise array_error("KALVEX:array:NoFunction")
    if rows != "same":
        raise array_error(
            "KALVEX:array:NotSupported",
            f"rows={rows!r} of map_chunks",
            'With rows="same", the function returns as many rows as it gets.',
        )
    inputs = [x, *more]
    kind = x._handle.type if dtype is None else name_of(dtype, "The result")
    trailing = x._handle.trailing if shape is None else list(shape)
    name, serial = _settings(function)
    handles = [each._handle for each in inputs]
    made = native_map_chunks(name, function, handles, kind, serial, trailing)
    return Array(made, x._session)
