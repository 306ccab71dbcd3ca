"""Users' functions, called chunk by chunk."""

from collections.abc import Callable
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt

from ._errors import array_error
from ._host import map_chunks as native_map_chunks
from ._results import from_numpy, to_numpy
from ._types import name_of

if TYPE_CHECKING:
    from ._array import Array


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
    rows: str = "same",
) -> "Array":
    """What a function of your own returns for the rows, chunk by chunk.

    function: is called with an ndarray of some rows of this array and of each in `more`, and
        returns an array of as many rows. A chunk is what is left of 32,768 rows of the source.
    dtype: the type of what it returns; the type of this array unless given.

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
    name = getattr(function, "__qualname__", type(function).__name__)
    handles = [each._handle for each in inputs]
    return Array(native_map_chunks(name, function, handles, kind), x._session)
