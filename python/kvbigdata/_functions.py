"""NumPy's functions on arrays (`__array_function__`): what each means here, or what to use instead.

Nothing that isn't here is passed on to NumPy, so no function of NumPy loads an array unasked.
"""

from collections.abc import Callable
from typing import Any

import numpy as np

from . import _reduce
from ._errors import array_error


def _memory() -> Any:
    from . import _memory as module

    return module


_SAME: dict[Callable[..., Any], Callable[..., Any]] = {
    np.sum: _reduce.sum,
    np.mean: _reduce.mean,
    np.min: _reduce.min,
    np.amin: _reduce.min,
    np.max: _reduce.max,
    np.amax: _reduce.max,
    np.std: _reduce.std,
    np.var: _reduce.var,
    np.any: _reduce.any,
    np.all: _reduce.all,
    np.ptp: _reduce.ptp,
    np.count_nonzero: _reduce.count_nonzero,
    np.nansum: _reduce.nansum,
    np.nanmean: _reduce.nanmean,
    np.nanmin: _reduce.nanmin,
    np.nanmax: _reduce.nanmax,
    np.nanstd: _reduce.nanstd,
    np.nanvar: _reduce.nanvar,
    np.round: _reduce.round,
    np.around: _reduce.round,
    np.clip: _reduce.clip,
    np.zeros_like: lambda a, dtype=None: _memory().zeros_like(a, dtype),
    np.ones_like: lambda a, dtype=None: _memory().ones_like(a, dtype),
    np.empty_like: lambda a, dtype=None: _memory().empty_like(a, dtype),
    np.full_like: lambda a, value, dtype=None: _memory().full_like(a, value, dtype),
    np.shape: lambda a: a.shape,
    np.ndim: lambda a: a.ndim,
    np.array_repr: lambda arr, *_, **__: repr(arr),
    np.array_str: lambda a, *_, **__: repr(a),
    np.array2string: lambda a, *_, **__: repr(a),
}

_COMPUTE = "np.asarray(x) computes the array."
_NEAREST: dict[str, str] = {
    "where": "kv.where(condition, x, y) takes all three.",
    "average": "Use (x * w).sum() / w.sum(), or x.mean().",
    "prod": "Use kv.exp(kv.log(x).sum()) for positive numbers.",
    "isclose": "Use kv.abs(a - b) <= tolerance.",
    "allclose": "Use (kv.abs(a - b) <= tolerance).all().",
    "array_equal": "Use (a == b).all().",
    "array_equiv": "Use (a == b).all().",
    "nan_to_num": "Use kv.where(kv.isnan(x), 0, x).",
    "compress": "Use x[mask].",
    "extract": "Use x[mask].",
    "copyto": "Use x = kv.where(mask, v, x).",
    "putmask": "Use x = kv.where(mask, v, x).",
    "place": "Use x = kv.where(mask, v, x).",
    "put": "Use x = kv.where(mask, v, x).",
    "fill_diagonal": "Use x = kv.where(mask, v, x).",
    "size": "x.count_rows() counts the rows.",
    "dot": "Use (a * b).sum().",
    "vdot": "Use (a * b).sum().",
    "inner": "Use (a * b).sum().",
    "square": "Use x * x.",
    "save": "kv.save(path, x=x) saves what was recorded; np.save(path, x.compute()) the values.",
    "savez": "kv.save(path, x=x) saves what was recorded.",
    "copy": "Arrays never change, so x itself will do; x.compute().copy() is an ndarray.",
}


def _where(condition: Any, *values: Any) -> Any:
    if len(values) != 2:
        raise _refusal(np.where)
    return _reduce.where(condition, *values)


_FUNCTIONS: dict[Callable[..., Any], Callable[..., Any]] = {**_SAME, np.where: _where}


def refuse_function(module: str, name: str) -> Exception:
    """What is raised for a function of NumPy that isn't here."""
    advice = _NEAREST.get(name, _COMPUTE)
    return array_error("KALVEX:array:NotSupported", f"{module}.{name}", advice)


def _refusal(function: Callable[..., Any]) -> Exception:
    return refuse_function(function.__module__.replace("numpy", "np", 1), function.__name__)


def call_function(
    function: Callable[..., Any], args: tuple[Any, ...], kwargs: dict[str, Any]
) -> Any:
    """What `Array.__array_function__` does."""
    if function not in _FUNCTIONS:
        raise _refusal(function)
    if kwargs.get("out") is not None:
        name = f"out= of np.{function.__name__}"
        raise array_error("KALVEX:array:NotSupported", name, "Use x = np.f(x).")
    return _FUNCTIONS[function](*args, **kwargs)
