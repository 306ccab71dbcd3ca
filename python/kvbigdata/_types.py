"""Element types: the names that the library uses, and NumPy's and Arrow's types."""

from collections.abc import Mapping
from typing import Any

import numpy as np
import numpy.typing as npt

from ._errors import array_error, wrong_input

TEXT = np.dtypes.StringDType(na_object=None)

_NAMES = {
    "double": np.dtype(np.float64),
    "single": np.dtype(np.float32),
    "logical": np.dtype(np.bool_),
    **{
        f"{sign}int{bits}": np.dtype(f"{sign}int{bits}")
        for sign in ("", "u")
        for bits in (8, 16, 32, 64)
    },
    "datetime": np.dtype("datetime64[us]"),
    "duration": np.dtype("timedelta64[us]"),
    "string": TEXT,
}
_TIMES = {"M": "datetime", "m": "duration"}
_BY_DTYPE = {dtype: name for name, dtype in _NAMES.items() if name != "string"}


def dtype_of(name: str) -> Any:
    """NumPy's type for the name of an element type."""
    return _NAMES[name]


def name_of(dtype: npt.DTypeLike, what: str) -> str:
    """The name of the element type that holds NumPy's `dtype`.

    Raises InvalidTypeError, with `what` it is the type of, if there is none.
    """
    given = _given_dtype(dtype, what) if dtype is not str else TEXT
    if given.kind in "UT":
        return "string"
    if given.kind in _TIMES:
        return _TIMES[given.kind]
    native = given.newbyteorder("=")
    if native not in _BY_DTYPE:
        raise array_error("KALVEX:array:UnsupportedType", what, given)
    return _BY_DTYPE[native]


def _given_dtype(given: Any, what: str) -> Any:
    try:
        return np.dtype(given)
    except (TypeError, ValueError):
        raise array_error("KALVEX:array:UnsupportedType", what, given) from None


def shown_type(name: str) -> str:
    """An element type as `repr` shows it: NumPy's name of it."""
    return name if name in ("string", "unknown") else str(dtype_of(name))


def types_by_name(types: Any) -> dict[str, str]:
    """Types of columns as the library names them; those of NumPy and Python are accepted."""
    if types is not None and not isinstance(types, Mapping):
        raise wrong_input("types=", 'a dict of types by column, such as {"id": "int64"}', types)
    return {
        column: kind
        if isinstance(kind, str) and _is_name(kind)
        else name_of(kind, f"Column '{column}'")
        for column, kind in (types or {}).items()
    }


def _is_name(kind: str) -> bool:
    """Whether a text is a name of the library, or of moments with their pattern."""
    return kind in _NAMES or kind.startswith("datetime(")
