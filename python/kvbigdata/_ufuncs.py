"""Element functions: the operators of arrays, `kv.sqrt` and the like, and NumPy's ufuncs."""

from collections.abc import Callable
from inspect import Parameter, Signature
from typing import TYPE_CHECKING, Any, Protocol

import numpy as np

from ._errors import array_error
from ._host import ArrayHandle, apply_to_one, apply_to_two
from ._operands import apply, is_array, is_logical, made_like

if TYPE_CHECKING:
    from ._array import Array


class ElementFunction(Protocol):
    """A function that works row by row."""

    def __call__(self, *inputs: Any) -> "Array": ...


General = Callable[..., "Array"]
Accepts = Callable[..., bool] | None


def _bitwise(name: str, symbol: str) -> Callable[..., "Array"]:
    """A function of logicals. Of integers NumPy's would work on bits."""

    def function(*inputs: Any) -> "Array":
        if not all(is_logical(each) for each in inputs):
            advice = f"Only logical arrays go with {symbol}; compare with something first."
            raise array_error("KALVEX:array:NotSupported", f"{symbol} of bits", advice)
        return apply(name, *inputs)

    return function


def _not_logical(name: str, symbol: str, advice: str) -> Callable[..., "Array"]:
    """An arithmetic function that NumPy refuses for logicals."""

    def function(*inputs: Any) -> "Array":
        if all(is_logical(each) for each in inputs):
            raise array_error("KALVEX:array:NotSupported", f"{symbol} of logicals", advice)
        return apply(name, *inputs)

    return function


def _isinf(x: Any) -> "Array":
    return apply("not", apply("or", apply("isfinite", x), apply("isnan", x)))


def _square(x: Any) -> "Array":
    number = x.astype(np.int8) if is_logical(x) else x
    return apply("times", number, number)


def _rint(x: Any) -> "Array":
    """The nearest whole number; of integers, the same as a floating-point number."""
    kind = getattr(x, "dtype", np.dtype(float))
    if kind.kind not in "biu":
        return apply("round", x)
    return apply("times", x, np.float32(1) if kind.itemsize < 4 else np.float64(1))


def _positive(x: Any) -> "Array":
    if x.dtype.kind not in "iufm":
        kind = "logicals" if is_logical(x) else f"{x.dtype} values"
        raise array_error("KALVEX:array:NotSupported", f"+ of {kind}", "Leave it out.")
    made: Array = x
    return made


def _is_number(handle: ArrayHandle, *others: Any) -> bool:
    return not handle.is_logical


def _is_logical(handle: ArrayHandle) -> bool:
    return handle.is_logical


def _are_logicals(handle: ArrayHandle, other: Any) -> bool:
    return type(other) is ArrayHandle and handle.is_logical and other.is_logical


def _method(name: str, accepts: Accepts, general: General, is_reflected: bool) -> General:
    """An operator of two operands as a method; quick where both need no conversion."""

    def method(self: Any, other: Any) -> "Array":
        handle, kind = self._handle, type(other)
        if kind is float or kind is int:
            operand = other
        elif kind is type(self):
            operand = other._handle
        elif kind is np.float64 and handle.type == "double":
            operand = float(other)  # whose own type is that of the array
        else:
            return general(other, self) if is_reflected else general(self, other)
        if accepts is not None and not accepts(handle, operand):
            return general(other, self) if is_reflected else general(self, other)
        if is_reflected:
            return made_like(self, apply_to_two(name, operand, handle))
        return made_like(self, apply_to_two(name, handle, operand))

    return method


def _of_one(name: str, accepts: Accepts, general: General) -> General:
    def function(x: Any) -> "Array":
        handle = getattr(x, "_handle", None)
        if type(handle) is not ArrayHandle or not (accepts is None or accepts(handle)):
            return general(x)
        return made_like(x, apply_to_one(name, handle))

    return function


def _of_two(name: str, accepts: Accepts, general: General) -> General:
    method = _method(name, accepts, general, is_reflected=False)
    reflected = _method(name, accepts, general, is_reflected=True)

    def function(a: Any, b: Any) -> "Array":
        if is_array(a):
            return method(a, b)
        return reflected(b, a) if is_array(b) else general(a, b)

    return function


def _plain(name: str) -> General:
    return lambda *inputs: apply(name, *inputs)


# NumPy's ufuncs and the element functions that do the same here.
_NAMES: dict[np.ufunc, str] = {
    np.add: "plus",
    np.multiply: "times",
    np.true_divide: "rdivide",
    np.power: "power",
    np.remainder: "mod",
    np.equal: "eq",
    np.not_equal: "ne",  # "differs", which is true with a missing value, unless of columns
    np.less: "lt",
    np.less_equal: "le",
    np.greater: "gt",
    np.greater_equal: "ge",
    np.logical_and: "and",
    np.logical_or: "or",
    np.logical_xor: "xor",
    np.logical_not: "not",
    np.absolute: "abs",
    np.sign: "sign",
    np.sqrt: "sqrt",
    np.exp: "exp",
    np.log: "log",
    np.log2: "log2",
    np.log10: "log10",
    np.sin: "sin",
    np.cos: "cos",
    np.tan: "tan",
    np.floor: "floor",
    np.ceil: "ceil",
    np.isnan: "isnan",
    np.isfinite: "isfinite",
    np.minimum: "minimum",
    np.maximum: "maximum",
}

# Those that refuse something: with which operands they surely don't, and what they do otherwise.
_REFUSING: dict[np.ufunc, tuple[str, Accepts, General]] = {
    np.subtract: ("minus", _is_number, _not_logical("minus", "-", "Use a ^ b.")),
    np.negative: ("uminus", _is_number, _not_logical("uminus", "-", "Use ~x.")),
    np.bitwise_and: ("and", _are_logicals, _bitwise("and", "&")),
    np.bitwise_or: ("or", _are_logicals, _bitwise("or", "|")),
    np.bitwise_xor: ("xor", _are_logicals, _bitwise("xor", "^")),
    np.invert: ("not", _is_logical, _bitwise("not", "~")),
}

_RECORDED = {
    **{ufunc: (name, None, _plain(name)) for ufunc, name in _NAMES.items()},
    **_REFUSING,
}

# The ufuncs, with those that are made of others.
_FUNCTIONS: dict[np.ufunc, General] = {
    **{ufunc: (_of_one if ufunc.nin == 1 else _of_two)(*row) for ufunc, row in _RECORDED.items()},
    np.positive: _positive,
    np.rint: _rint,
    np.square: _square,
    np.isinf: _isinf,
}

# What `np.add.reduce(x)` and the like mean.
_REDUCTIONS = {
    np.add: "sum",
    np.minimum: "min",
    np.maximum: "max",
    np.logical_and: "all",
    np.logical_or: "any",
}

# Where something near exists for a ufunc that isn't there.
_NEAREST = {
    "floor_divide": "Use kv.floor(a / b).",
    "divmod": "Use kv.floor(a / b) and a % b.",
    "fmod": "Use a % b, which has the sign of b.",
    "float_power": "Use a ** b.",
    "fabs": "Use kv.abs(x).",
    "fmin": "Use kv.minimum(a, b), in which NaN wins.",
    "fmax": "Use kv.maximum(a, b), in which NaN wins.",
    "cbrt": "Use x ** (1 / 3).",
    "exp2": "Use 2.0 ** x.",
    "expm1": "Use kv.exp(x) - 1.",
    "log1p": "Use kv.log(1 + x).",
    "reciprocal": "Use 1 / x.",
    "trunc": "Use kv.sign(x) * kv.floor(kv.abs(x)).",
    "matmul": "Use (a * b).sum().",
    "vecdot": "Use (a * b).sum().",
    "hypot": "Use kv.sqrt(a * a + b * b).",
    "deg2rad": "Use x * (np.pi / 180).",
    "radians": "Use x * (np.pi / 180).",
    "rad2deg": "Use x * (180 / np.pi).",
    "degrees": "Use x * (180 / np.pi).",
}


def refuse_ufunc(ufunc: np.ufunc, method: str) -> Exception:
    name = ufunc.__name__ if method == "__call__" else f"{ufunc.__name__}.{method}"
    advice = _NEAREST.get(ufunc.__name__, "") if method == "__call__" else ""
    return array_error(
        "KALVEX:array:NotSupported",
        f"np.{name}",
        advice or "x.map_chunks(fn) applies any function, np.asarray(x) computes the array.",
    )


def call_ufunc(
    ufunc: np.ufunc, method: str, inputs: tuple[Any, ...], options: dict[str, Any]
) -> Any:
    """What `Array.__array_ufunc__` does."""
    if method == "__call__" and not options and ufunc in _FUNCTIONS:
        return _FUNCTIONS[ufunc](*inputs)
    from ._array import Array

    if options.pop("out", None) is not None:
        raise array_error(
            "KALVEX:array:NotSupported", f"out= of np.{ufunc.__name__}", "Use x = np.f(x)."
        )
    if method == "reduce" and ufunc in _REDUCTIONS and isinstance(inputs[0], Array):
        axis = options.pop("axis", 0 if inputs[0].ndim else None)
        return getattr(inputs[0], _REDUCTIONS[ufunc])(axis, **options)
    if method != "__call__" or ufunc not in _FUNCTIONS:
        raise refuse_ufunc(ufunc, method)
    mask = options.pop("where", True)
    if options or mask is not True:
        name = next(iter(options), "where")
        raise array_error(
            "KALVEX:array:NotSupported",
            f"{name}= of np.{ufunc.__name__}",
            "Use kv.where(mask, np.f(x), x)." if name == "where" else "Leave it out.",
        )
    return _FUNCTIONS[ufunc](*inputs)


def prefix(ufunc: np.ufunc) -> Callable[[Any], "Array"]:
    """The method of an operator of one operand."""
    return _FUNCTIONS[ufunc]


def operator(ufunc: np.ufunc) -> Callable[[Any, Any], "Array"]:
    """The method of an operator of two operands."""
    return _method(*_RECORDED[ufunc], is_reflected=False)


def reflected(ufunc: np.ufunc) -> Callable[[Any, Any], "Array"]:
    """The same with the operands the other way round."""
    return _method(*_RECORDED[ufunc], is_reflected=True)


def refused_operator(ufunc: np.ufunc) -> Callable[[Any, Any], "Array"]:
    """The method of an operator that isn't there: its error names what to use."""

    def method(self: Any, other: Any) -> "Array":
        raise refuse_ufunc(ufunc, "__call__")

    return method


def power_operator() -> Callable[[Any, Any], "Array"]:
    """The method of `**`: of logicals, as in NumPy, `x ** 2` is their square."""
    power = operator(np.power)

    def method(self: Any, other: Any) -> "Array":
        if type(other) is int and other == 2 and self._handle.is_logical:
            return _square(self)
        return power(self, other)

    return method


def _public(ufunc: np.ufunc, name: str) -> ElementFunction:
    function, count = _FUNCTIONS[ufunc], ufunc.nin

    def call(*inputs: Any) -> "Array":
        if len(inputs) != count:
            raise array_error("KALVEX:function:BadArity", name, count, len(inputs))
        if not (is_array(inputs[0]) or any(is_array(each) for each in inputs)):
            raise array_error("KALVEX:array:NoArray")
        return function(*inputs)

    call.__name__ = call.__qualname__ = name
    call.__module__ = "kvbigdata"
    call.__doc__ = f"As `numpy.{name}`, row by row; records the call and reads nothing."
    names = ("x",) if count == 1 else ("x1", "x2")
    parameters = [Parameter(each, Parameter.POSITIONAL_ONLY) for each in names]
    call.__signature__ = Signature(parameters)  # type: ignore[attr-defined]
    return call


# Under NumPy's names.
add = _public(np.add, "add")
subtract = _public(np.subtract, "subtract")
multiply = _public(np.multiply, "multiply")
true_divide = _public(np.true_divide, "true_divide")
power = _public(np.power, "power")
remainder = _public(np.remainder, "remainder")
negative = _public(np.negative, "negative")
positive = _public(np.positive, "positive")
equal = _public(np.equal, "equal")
not_equal = _public(np.not_equal, "not_equal")
less = _public(np.less, "less")
less_equal = _public(np.less_equal, "less_equal")
greater = _public(np.greater, "greater")
greater_equal = _public(np.greater_equal, "greater_equal")
logical_and = _public(np.logical_and, "logical_and")
logical_or = _public(np.logical_or, "logical_or")
logical_xor = _public(np.logical_xor, "logical_xor")
logical_not = _public(np.logical_not, "logical_not")
bitwise_and = _public(np.bitwise_and, "bitwise_and")
bitwise_or = _public(np.bitwise_or, "bitwise_or")
bitwise_xor = _public(np.bitwise_xor, "bitwise_xor")
invert = _public(np.invert, "invert")
absolute = _public(np.absolute, "absolute")
sign = _public(np.sign, "sign")
sqrt = _public(np.sqrt, "sqrt")
square = _public(np.square, "square")
exp = _public(np.exp, "exp")
log = _public(np.log, "log")
log2 = _public(np.log2, "log2")
log10 = _public(np.log10, "log10")
sin = _public(np.sin, "sin")
cos = _public(np.cos, "cos")
tan = _public(np.tan, "tan")
floor = _public(np.floor, "floor")
ceil = _public(np.ceil, "ceil")
rint = _public(np.rint, "rint")
isnan = _public(np.isnan, "isnan")
isfinite = _public(np.isfinite, "isfinite")
isinf = _public(np.isinf, "isinf")
minimum = _public(np.minimum, "minimum")
maximum = _public(np.maximum, "maximum")
abs = _public(np.absolute, "abs")
pow = _public(np.power, "pow")
divide = _public(np.true_divide, "divide")
mod = _public(np.remainder, "mod")
bitwise_invert = _public(np.invert, "bitwise_invert")
