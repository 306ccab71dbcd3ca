"""Reductions of all rows to one, and a few functions made from others.

Each is a function of the package and a method of arrays. `skipna` says whether missing values are
skipped; unless it is given, columns of tables skip them and other arrays propagate them.
"""

from collections.abc import Callable
from typing import TYPE_CHECKING, Any

import numpy as np

from . import _ufuncs
from ._errors import array_error, wrong_input
from ._host import ArrayHandle, filter_array, reduce, reduce_rows
from ._operands import apply, is_logical, made_like
from ._types import dtype_of

if TYPE_CHECKING:
    from ._array import Array


_POPULATION = {"varp": "var", "stdp": "std"}


def _refuse(name: str, argument: str, advice: str) -> Exception:
    what = f"{argument}= of {_POPULATION.get(name, name)}"
    return array_error("KALVEX:array:NotSupported", what, advice)


def _wrong(name: str, argument: str, expected: str, given: Any) -> Exception:
    return wrong_input(f"{argument}= of {_POPULATION.get(name, name)}", expected, given)


def _check(name: str, options: dict[str, Any]) -> None:
    """Refuses arguments of NumPy's that don't exist here, unless they have no effect."""
    for option, value in options.items():
        if option not in ("dtype", "out", "keepdims", "initial", "mean", "correction"):
            known = "axis, where, skipna, keepdims, dtype" + ", ddof" * (name in _SPREADS)
            shown = _POPULATION.get(name, name)
            raise array_error("KALVEX:array:UnknownArgument", shown, option, known)
        if value is not None and value is not False:
            raise _refuse(name, option, "Leave it out.")


_ROWS, _ALL = "rows", "all"
_SPREADS = {"var", "varp", "std", "stdp"}
_TYPED = {"sum", "mean"} | _SPREADS  # whose sums may have a type of their own


def _places(name: str, x: "Array", axis: Any) -> str | list[int]:
    """What is reduced: the rows, all elements, or some dimensions of each row, counted from 1."""
    ndim = x.ndim
    has_rows = not x._handle.is_scalar
    if axis is None:
        return _ALL if ndim > 1 or not has_rows else _ROWS
    given = axis if isinstance(axis, tuple) else (axis,)
    whole = [int(a) for a in given if isinstance(a, int | np.integer)]
    if len(whole) != len(given):
        raise _wrong(name, "axis", "None, a whole number or a tuple of these", axis)
    places = {a + ndim if a < 0 else a for a in whole}
    if len(places) != len(given) or not places <= set(range(ndim)):
        raise array_error("KALVEX:array:BadAxis", _POPULATION.get(name, name), axis, ndim)
    if len(places) == ndim:
        return _ALL if ndim > 1 or not has_rows else _ROWS
    if has_rows and places == {0}:
        return _ROWS
    if has_rows and 0 in places:
        raise _refuse(name, "axis", "Reduce the rows, axis=0, and the others one after the other.")
    return sorted(place + (not has_rows) for place in places)


def _reduced(
    name: str, x: Any, axis: Any, where: Any, skipna: bool | None, options: dict[str, Any]
) -> "Array":
    handle = getattr(x, "_handle", None)
    if type(handle) is not ArrayHandle:
        raise array_error("KALVEX:array:NoArray")
    if axis is None and where is True and not options:
        return made_like(x, reduce(name, handle, skipna))
    return _reduced_by(name, x, axis, where, skipna, options)


def _reduced_by(
    name: str, x: Any, axis: Any, where: Any, skipna: bool | None, options: dict[str, Any]
) -> "Array":
    from ._array import Array

    dtype = options.pop("dtype", None) if name in _TYPED else None
    if dtype is not None:
        x = x.astype(dtype)
    places = _places(name, x, axis)
    keeps = isinstance(places, list) and options.pop("keepdims", False) is True
    _check(name, options)
    handle = x._handle
    if isinstance(where, Array):
        if x.ndim > 1:
            raise _refuse(name, "where", "Select the rows first: x[where].")
        handle = filter_array(handle, where._handle)
    elif where is not True:
        raise _wrong(name, "where", "a logical array with the same rows", where)
    skip = handle.is_column if skipna is None else skipna
    made = (
        reduce_rows(name, handle, places, keeps, skip)
        if isinstance(places, list)
        else reduce(name, handle, skip, places == _ALL)
    )
    if dtype is not None and dtype_of(made.type) != np.dtype(dtype):
        raise _refuse(name, "dtype", f"The result is of type {dtype_of(made.type)}.")
    return Array(made, x._session)


def sum(
    x: Any, axis: Any = None, *, where: Any = True, skipna: bool | None = None, **options: Any
) -> "Array":
    """The sum. Of integers and logicals it is exact, and an error if it doesn't fit 64 bits."""
    return _reduced("sum", x, axis, where, skipna, options)


def mean(
    x: Any, axis: Any = None, *, where: Any = True, skipna: bool | None = None, **options: Any
) -> "Array":
    """The mean.

    >>> t = kv.read("data/flights.csv")
    >>> kv.mean(t.dep_delay).compute() == np.mean(t.dep_delay).compute() == t.dep_delay.mean().compute()
    np.True_
    """
    return _reduced("mean", x, axis, where, skipna, options)


def min(
    x: Any, axis: Any = None, *, where: Any = True, skipna: bool | None = None, **options: Any
) -> "Array":
    """The least value or, of texts, the first. Of no rows it is a ValueError when computed."""
    return _reduced("min", x, axis, where, skipna, options)


def max(
    x: Any, axis: Any = None, *, where: Any = True, skipna: bool | None = None, **options: Any
) -> "Array":
    """The greatest value or, of texts, the last. Of no rows it is a ValueError when computed."""
    return _reduced("max", x, axis, where, skipna, options)


def any(
    x: Any, axis: Any = None, *, where: Any = True, skipna: bool | None = None, **options: Any
) -> "Array":
    """Whether a value is true; a number is if it isn't zero."""
    return _reduced("any", _as_logical(x), axis, where, skipna, options)


def all(
    x: Any, axis: Any = None, *, where: Any = True, skipna: bool | None = None, **options: Any
) -> "Array":
    """Whether all values are true; a number is if it isn't zero."""
    return _reduced("all", _as_logical(x), axis, where, skipna, options)


def var(
    x: Any,
    axis: Any = None,
    *,
    ddof: int = 0,
    where: Any = True,
    skipna: bool | None = None,
    **options: Any,
) -> "Array":
    """The variance; the sum of squares is divided by the number of values less `ddof`, 0 or 1."""
    return _spread("var", x, axis, ddof, where, skipna, options)


def std(
    x: Any,
    axis: Any = None,
    *,
    ddof: int = 0,
    where: Any = True,
    skipna: bool | None = None,
    **options: Any,
) -> "Array":
    """The standard deviation, the root of `kv.var`.

    >>> t = kv.read("data/flights.csv")
    >>> t.dep_delay.std(ddof=1).compute()
    np.float64(40.21006089212995)
    """
    return _spread("std", x, axis, ddof, where, skipna, options)


def _spread(
    name: str, x: Any, axis: Any, ddof: Any, where: Any, skipna: bool | None, options: Any
) -> "Array":
    correction = options.pop("correction", None)
    if isinstance(correction, (int, float)):
        ddof = correction
    if ddof not in (0, 1):
        raise _refuse(name, "ddof", "0 and 1 are available.")
    return _reduced(name if ddof == 1 else f"{name}p", x, axis, where, skipna, options)


def count(x: Any, axis: Any = None, *, where: Any = True) -> "Array":
    """The number of values that aren't missing."""
    return _reduced("count", x, axis, where, True, {})


def count_nonzero(x: Any, axis: Any = None, *, keepdims: bool = False) -> "Array":
    """The number of values that aren't zero."""
    options = {"keepdims": keepdims} if keepdims else {}
    return _reduced("sum", _as_logical(x), axis, True, True, options)


def ptp(x: Any, axis: Any = None, *, skipna: bool | None = None, **options: Any) -> "Array":
    """The greatest value less the least."""
    return _ufuncs.subtract(
        max(x, axis, skipna=skipna, **options), min(x, axis, skipna=skipna, **options)
    )


def _skipping(name: str) -> Any:
    reduction: Callable[..., Array] = globals()[name]

    def function(x: Any, axis: Any = None, **options: Any) -> "Array":
        return reduction(x, axis, skipna=True, **options)

    function.__name__ = function.__qualname__ = f"nan{name}"
    function.__doc__ = f"As `kv.{name}`, and missing values are skipped."
    return function


nansum, nanmean, nanmin, nanmax = (_skipping(name) for name in ("sum", "mean", "min", "max"))
nanstd, nanvar = (_skipping(name) for name in ("std", "var"))


def _as_logical(x: Any) -> Any:
    return x if is_logical(x) else _ufuncs.not_equal(x, 0)


def where(condition: Any, x: Any, y: Any) -> "Array":
    """For each row, `x` where `condition` is true, otherwise `y`.

    >>> t = kv.read("data/flights.csv")
    >>> kv.where(t.dep_delay > 0, t.dep_delay, 0).mean().compute()
    np.float64(15.015271278238354)
    """
    return apply("where", condition, x, y)


def round(x: Any, decimals: int = 0) -> "Array":
    """The nearest whole numbers, halves to even."""
    if is_logical(x):
        return _ufuncs.rint(x)
    if decimals != 0:
        raise _refuse("round", "decimals", "Use kv.round(x * 10 ** n) / 10 ** n.")
    return apply("round", x)


def clip(x: Any, min: Any = None, max: Any = None) -> "Array":
    """The values, those below `min` and above `max` replaced by these."""
    above = x if min is None else _ufuncs.maximum(x, min)
    return above if max is None else _ufuncs.minimum(above, max)
