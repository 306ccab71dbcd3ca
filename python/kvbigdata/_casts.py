"""`x.astype(dtype)`."""

from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt

from . import _chunks, _ufuncs
from ._operands import apply
from ._types import TEXT, dtype_of, name_of

if TYPE_CHECKING:
    from ._array import Array


def _is_promotion(source: Any, target: Any) -> bool:
    return {source.kind, target.kind} <= set("biuf") and np.promote_types(source, target) == target


def astype(x: "Array", dtype: npt.DTypeLike) -> "Array":
    """The values of `x` as `dtype`."""
    kind = name_of(dtype, "The result")
    if kind == x._handle.type:
        return x
    source, target = x.dtype, dtype_of(kind)
    if kind == "logical" and source.kind in "iuf":
        return _ufuncs.not_equal(x, 0)
    if _is_promotion(source, target):
        return apply("times", x, target.type(1))

    def converted(values: Any) -> Any:
        with np.errstate(invalid="raise"):
            return values.astype(TEXT if kind == "string" else target)

    converted.__qualname__ = f"astype({target})"
    return _chunks.map_chunks(x, converted, dtype=str if kind == "string" else target)
