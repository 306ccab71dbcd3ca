"""NumPy's functions on arrays (`__array_function__`): what each means here, or what to use instead.

Nothing that isn't here is passed on to NumPy, so no function of NumPy loads an array unasked.
"""

import functools
import inspect
import sys
from collections.abc import Callable
from types import FrameType
from typing import Any

import numpy as np

from . import _reduce
from ._errors import array_error


def _like(a: Any, value: Any, dtype: Any, shape: Any) -> Any:
    from . import _memory

    if shape is None:
        return _memory.full_like(a, value, dtype)
    sizes = tuple(shape) if isinstance(shape, list) else shape
    return _memory.full(sizes, value, a.dtype if dtype is None else dtype)


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
    np.zeros_like: lambda a, dtype=None, shape=None: _like(a, 0, dtype, shape),
    np.ones_like: lambda a, dtype=None, shape=None: _like(a, 1, dtype, shape),
    np.empty_like: lambda a, dtype=None, shape=None: _like(a, 0, dtype, shape),
    np.full_like: lambda a, fill_value, dtype=None, shape=None: _like(a, fill_value, dtype, shape),
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


def refuse_function(name: str) -> Exception:
    """What is raised for a function of NumPy that isn't here, such as "np.linalg.norm"."""
    advice = _NEAREST.get(name.rpartition(".")[2], _COMPUTE)
    return array_error("KALVEX:array:NotSupported", name, advice)


def _refusal(function: Callable[..., Any]) -> Exception:
    return refuse_function(_short(f"{function.__module__}.{function.__name__}"))


def _short(name: str) -> str:
    return name.replace("numpy", "np", 1)


def _package(frame: FrameType) -> str:
    name: str = frame.f_globals.get("__name__", "")
    return name.partition(".")[0]


def calling_function(frame: FrameType | None) -> str | None:
    """What the user called of NumPy's functions in Python, such as "np.ma.array" or "np.r_", if
    `frame` is of one; otherwise None."""
    outermost = None
    while frame is not None and _package(frame) in ("numpy", "contextlib"):  # as decorators
        if _package(frame) == "numpy":
            outermost = frame
        frame = frame.f_back
    return None if outermost is None else _public_name(outermost)


def _public_name(frame: FrameType) -> str:
    """The name of a function of NumPy, of a class for its special methods, or of an object."""
    owner, _, method = frame.f_code.co_qualname.partition(".")
    named, instance = frame.f_globals.get(owner), frame.f_locals.get("self")
    suffix = f".{method}" if method and not method.startswith(("__", "<")) else ""
    public = ""
    for part in frame.f_globals["__name__"].split("."):
        public = f"{public}.{part}" if public else part
        module = sys.modules.get(public)
        if named is not None and getattr(module, owner, None) is named:
            return f"{_short(public)}.{owner}{suffix}"
        for name, value in vars(module).items():
            if instance is not None and value is instance:
                return f"{_short(public)}.{name}{suffix}"
    return f"np.{owner}{suffix}"


# Arguments of NumPy's that have another name here, and those that change nothing here.
_RENAMED = {"a_min": "min", "a_max": "max"}
_IDLE = {"order", "subok", "device"}


class _Adapter:
    """Turns calls of a function of NumPy's, whose arguments NumPy has checked, into calls of the
    one here: the first argument, and the others that aren't left at their defaults, by their names
    here."""

    def __init__(self, function: Callable[..., Any]):
        self._function = function
        self._here = _FUNCTIONS[function]
        parameters = inspect.signature(function).parameters.values()
        self._names = [
            each.name
            for each in parameters
            if each.kind in (each.POSITIONAL_ONLY, each.POSITIONAL_OR_KEYWORD)
        ]
        self._defaults = {each.name: each.default for each in parameters}
        accepted = inspect.signature(self._here).parameters.values()
        takes_any = any(each.kind is each.VAR_KEYWORD for each in accepted)
        self._accepted = None if takes_any else {each.name for each in accepted}

    def __call__(self, args: tuple[Any, ...], kwargs: dict[str, Any]) -> Any:
        given = dict(zip(self._names, args, strict=False))
        given.update(kwargs)
        first = given.pop(self._names[0])
        return self._here(first, **self._adapted(given))

    def _adapted(self, given: dict[str, Any]) -> dict[str, Any]:
        adapted = {}
        for name, value in given.items():
            is_default = name in self._defaults and value is self._defaults[name]
            if name in _IDLE or value is np._NoValue or is_default:
                continue
            renamed = _RENAMED.get(name, name)
            if name == "out" or (self._accepted is not None and renamed not in self._accepted):
                advice = "Use x = np.f(x)." if name == "out" else "Leave it out."
                what = f"{name}= of np.{self._function.__name__}"
                raise array_error("KALVEX:array:NotSupported", what, advice)
            adapted[renamed] = value
        return adapted


_adapter = functools.cache(_Adapter)


def call_function(
    function: Callable[..., Any], args: tuple[Any, ...], kwargs: dict[str, Any]
) -> Any:
    """What `Array.__array_function__` does."""
    here = _FUNCTIONS.get(function)
    if here is None:
        raise _refusal(function)
    if here is _where:
        return _where(*args)
    if len(args) == 1 and not kwargs:
        return here(args[0])
    return _adapter(function)(args, kwargs)
