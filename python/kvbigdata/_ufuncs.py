"""Element functions: the operators of arrays, `kv.sqrt` and the like, and NumPy's ufuncs."""

from collections.abc import Callable
from typing import TYPE_CHECKING, Any, Protocol

import numpy as np

from ._errors import array_error
from ._host import ArrayHandle, apply_to_two
from ._operands import apply

if TYPE_CHECKING:
    from ._array import Array


class ElementFunction(Protocol):
    """A function that works row by row."""

    def __call__(self, *inputs: Any) -> "Array": ...


def _is_logical(value: Any) -> bool:
    return value is True or value is False or getattr(value, "dtype", None) == np.bool_


def _bitwise(name: str, symbol: str) -> Callable[..., "Array"]:
    """A function of logicals. Of integers NumPy's would work on bits."""

    def function(*inputs: Any) -> "Array":
        if not all(_is_logical(each) for each in inputs):
            advice = f"Only logical arrays go with {symbol}; compare with something first."
            raise array_error("KALVEX:array:NotSupported", f"{symbol} of bits", advice)
        return apply(name, *inputs)

    return function


def _not_logical(name: str, symbol: str, advice: str) -> Callable[..., "Array"]:
    """An arithmetic function that NumPy refuses for logicals."""

    def function(*inputs: Any) -> "Array":
        if all(_is_logical(each) for each in inputs):
            raise array_error("KALVEX:array:NotSupported", f"{symbol} of logicals", advice)
        return apply(name, *inputs)

    return function


def _not_equal(a: Any, b: Any) -> "Array":
    """In arrays a missing value differs from everything, as NaN does in NumPy."""
    if any(getattr(getattr(x, "_handle", None), "is_column", False) for x in (a, b)):
        return apply("ne", a, b)
    return apply("not", apply("eq", a, b))


def _isinf(x: Any) -> "Array":
    return apply("not", apply("or", apply("isfinite", x), apply("isnan", x)))


def _square(x: Any) -> "Array":
    number = x.astype(np.int8) if _is_logical(x) else x
    return apply("times", number, number)


def _rint(x: Any) -> "Array":
    """The nearest whole number; of integers, the same as a floating-point number."""
    kind = getattr(x, "dtype", np.dtype(float))
    if kind.kind not in "biu":
        return apply("round", x)
    return apply("times", x, np.float32(1) if kind.itemsize < 4 else np.float64(1))


def _positive(x: Any) -> "Array":
    if x.dtype.kind not in "iufm":
        kind = "logicals" if _is_logical(x) else f"{x.dtype} values"
        raise array_error("KALVEX:array:NotSupported", f"+ of {kind}", "Leave it out.")
    made: Array = x
    return made


def _plain(name: str) -> Callable[..., "Array"]:
    return lambda *inputs: apply(name, *inputs)


# NumPy's ufuncs and the element functions that do the same here.
_NAMES: dict[np.ufunc, str] = {
    np.add: "plus",
    np.multiply: "times",
    np.true_divide: "rdivide",
    np.power: "power",
    np.remainder: "mod",
    np.equal: "eq",
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

# The ufuncs, with those that are made of others or refuse something.
_FUNCTIONS: dict[np.ufunc, Callable[..., "Array"]] = {
    **{ufunc: _plain(name) for ufunc, name in _NAMES.items()},
    np.subtract: _not_logical("minus", "-", "Use a ^ b."),
    np.negative: _not_logical("uminus", "-", "Use ~x."),
    np.positive: _positive,
    np.rint: _rint,
    np.not_equal: _not_equal,
    np.bitwise_and: _bitwise("and", "&"),
    np.bitwise_or: _bitwise("or", "|"),
    np.bitwise_xor: _bitwise("xor", "^"),
    np.invert: _bitwise("not", "~"),
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


def call_ufunc(ufunc: np.ufunc, method: str, *inputs: Any, **options: Any) -> Any:
    """What `Array.__array_ufunc__` does."""
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


def _has_number(handle: ArrayHandle, other: Any) -> bool:
    return handle.type != "logical"


def _are_logicals(handle: ArrayHandle, other: Any) -> bool:
    return handle.type == "logical" and type(other) is ArrayHandle and other.type == "logical"


# Operators of ufuncs that refuse something, and which operands they surely accept.
_ACCEPTED: dict[np.ufunc, tuple[str, Callable[[ArrayHandle, Any], bool]]] = {
    np.subtract: ("minus", _has_number),
    np.bitwise_and: ("and", _are_logicals),
    np.bitwise_or: ("or", _are_logicals),
    np.bitwise_xor: ("xor", _are_logicals),
}


def _operator(ufunc: np.ufunc, is_reflected: bool) -> Callable[[Any, Any], "Array"]:
    """The method of an operator of two operands; quick where both need no conversion."""
    function = _FUNCTIONS[ufunc]

    def convert(self: Any, other: Any) -> "Array":
        return function(other, self) if is_reflected else function(self, other)

    if ufunc not in _NAMES and ufunc not in _ACCEPTED:
        return convert
    name, accepts = _ACCEPTED.get(ufunc) or (_NAMES[ufunc], None)
    make = object.__new__

    def method(self: Any, other: Any) -> "Array":
        kind = type(self)
        if type(other) is float or type(other) is int:
            operand = other
        elif type(other) is kind:
            operand = other._handle
        else:
            return convert(self, other)
        handle = self._handle
        if accepts is not None and not accepts(handle, operand):
            return convert(self, other)
        made: Array = make(kind)  # without a call of __init__, which takes as long as all of this
        made._handle = (
            apply_to_two(name, operand, handle)
            if is_reflected
            else apply_to_two(name, handle, operand)
        )
        made._session = self._session
        made._first = None
        return made

    return method


def operator(ufunc: np.ufunc) -> Callable[[Any, Any], "Array"]:
    """The method of an operator of two operands."""
    return _operator(ufunc, is_reflected=False)


def refused_operator(ufunc: np.ufunc) -> Callable[[Any, Any], "Array"]:
    """The method of an operator that isn't there: its error names what to use."""

    def method(self: Any, other: Any) -> "Array":
        raise refuse_ufunc(ufunc, "__call__")

    return method


def power_operator() -> Callable[[Any, Any], "Array"]:
    """The method of `**`: of logicals, as in NumPy, `x ** 2` is their square."""
    power = operator(np.power)

    def method(self: Any, other: Any) -> "Array":
        if type(other) is int and other == 2 and self._handle.type == "logical":
            return _square(self)
        return power(self, other)

    return method


def reflected(ufunc: np.ufunc) -> Callable[[Any, Any], "Array"]:
    """The same with the operands the other way round."""
    return _operator(ufunc, is_reflected=True)


def _public(ufunc: np.ufunc, name: str) -> ElementFunction:
    function = _FUNCTIONS[ufunc]

    def call(*inputs: Any) -> "Array":
        from ._array import Array

        if len(inputs) != ufunc.nin:
            raise array_error("KALVEX:function:BadArity", name, ufunc.nin, len(inputs))
        if not any(isinstance(each, Array) for each in inputs):
            raise array_error("KALVEX:array:NoArray")
        return function(*inputs)

    call.__name__ = call.__qualname__ = name
    call.__module__ = "kvbigdata"
    call.__doc__ = f"As `numpy.{name}`, row by row; records the call and reads nothing."
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
