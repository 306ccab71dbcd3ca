"""No function of NumPy loads an array without being asked to."""

import collections
import re
import types

import kvbigdata as kv
import numpy as np
import pytest
from kvbigdata import _functions, _ufuncs
from kvbigdata._session import Session
from numpy.testing import overrides

FORMS = [
    lambda f, x: f(x),
    lambda f, x: f(x, x),
    lambda f, x: f(x, 1),
    lambda f, x: f(1, x),
    lambda f, x: f(x, x, x),
    lambda f, x: f(x > 0),
    lambda f, x: f(x > 0, x < 3),
    lambda f, x: f(x > 0, x, 0),
    lambda f, x: f("a", x),
    lambda f, x: f(x, 0, 1),
    lambda f, x: f(x, [1], 0, 1),
    lambda f, x: f(abs, 0, x),
    lambda f, x: f(3, like=x),
    lambda f, x: f("3", (1,), like=x),
]

# Functions in C make an array of a list, as np.asarray does: that is what was asked of them.
LISTS = [lambda f, x: f([x, x]), lambda f, x: f((x, x))]
FORMS += LISTS

# What computes: the functions whose purpose is to make an ndarray, and one that needs numbers.
LOADING = {"asarray", "array", "asanyarray", "ascontiguousarray", "asfortranarray", "arange"}


# What is made of an array that isn't computed: its text, and an array that NumPy's has no values of.
OTHER_VALUES = {"array_repr", "array_str", "array2string", "empty_like"}


def outcome(function, form, x, loads):
    """How a call ends: "right", "wrong" if NumPy's result is another one, "silent", "refused", or
    "wrong use" if NumPy itself refuses the arguments."""
    before = len(loads)
    try:
        result = form(function, x)
    except kv.Error:
        return "silent" if len(loads) > before else "refused"
    except Exception:
        return "silent" if len(loads) > before else "wrong use"
    if len(loads) > before:
        return "silent"
    if function.__name__ in OTHER_VALUES:
        return "right"
    try:
        with np.errstate(all="ignore"):
            expected = form(function, VALUES)
    except Exception:
        return "wrong use"
    return "right" if is_same(kv.compute(result), expected) else "wrong"


def is_same(actual, expected):
    if type(actual) is not type(expected) or np.shape(actual) != np.shape(expected):
        return False
    is_half = isinstance(expected, np.ndarray) and expected.dtype == np.float16
    if is_half:
        return np.allclose(actual, expected, rtol=1e-3, atol=0)  # there is no half precision here
    if isinstance(actual, np.ndarray | np.generic) and actual.dtype != expected.dtype:
        return False
    if np.asarray(expected).dtype.kind not in "biuf":
        return bool(np.all(actual == expected))
    return np.allclose(actual, expected, rtol=1e-14, atol=0, equal_nan=True)


@pytest.fixture
def loads(monkeypatch):
    """A list that grows with every evaluation."""
    made = []
    real = Session.evaluate
    monkeypatch.setattr(
        Session, "evaluate", lambda self, handles: made.append(1) or real(self, handles)
    )
    return made


VALUES = np.array([1.5, -2.0, 0.25, 3.0, np.nan, 7.0, np.inf])


@pytest.fixture
def x(arrays):
    """An array of several partitions."""
    return kv.from_numpy(VALUES, chunk_rows=2)


def functions():
    overridable = (
        overrides.get_overridable_numpy_array_functions() | overrides.get_overridable_numpy_ufuncs()
    )
    return sorted(overridable, key=lambda f: f.__name__)


def test_no_function_loads_an_array_silently(x, loads):
    counts = collections.Counter()
    silent, wrong, unreached = [], [], []
    for function in functions():
        if function.__name__ in LOADING:
            continue
        implementation = getattr(function, "_implementation", None)
        takes_lists = isinstance(implementation, types.FunctionType) or function is np.concatenate
        forms = [form for form in FORMS if takes_lists or form not in LISTS]
        ends = {outcome(function, form, x, loads) for form in forms}
        if "silent" in ends:
            silent.append(function.__name__)
        elif "wrong" in ends:
            wrong.append(function.__name__)
        elif ends == {"wrong use"}:
            unreached.append(function.__name__)
        counts["right" if "right" in ends else "refused"] += 1
    assert silent == []
    assert wrong == []
    assert unreached == [
        "fromstring",
        "ravel_multi_index",
    ]  # they refuse these arguments themselves
    assert counts["right"] >= 78


def test_refusals_name_the_nearest_alternative(x):
    cases = {
        lambda: np.isclose(x, x): "kv.abs(a - b)",
        lambda: np.median(x): "np.asarray",
        lambda: np.fmod(x, 2): "a % b",
        lambda: np.add.outer(x, x): "map_chunks",
        lambda: np.add(x, x, out=np.zeros(3)): "x = np.f(x)",
        lambda: np.sum(x, keepdims=True): "Leave it out",
        lambda: np.testing.assert_allclose(x, 3): "np.testing.assert_allclose isn't",
        lambda: np.testing.assert_array_equal(x, x): "np.testing.assert_array_equal isn't",
        lambda: np.ma.array(x): "np.ma.array isn't",
        lambda: np.vectorize(abs)(x): "np.vectorize isn't",
        lambda: np.r_[x, 1]: "np.r_ isn't",
    }
    for call, advice in cases.items():
        with pytest.raises(TypeError) as caught:
            call()
        assert isinstance(caught.value, kv.Error) and advice in str(caught.value)
        assert caught.value.where.file == __file__


def test_advice_is_code_that_works(arrays):
    values = np.array([1.5, 2.0, 0.25])
    x = a = kv.from_numpy(values)
    made = {"x": x, "a": a, "b": a + 1.0, "w": a, "mask": a > 1}
    names = {**made, "kv": kv, "np": np, "v": 1.0, "tolerance": 0.1}
    checked = 0
    for name, advice in {**_ufuncs._NEAREST, **_functions._NEAREST}.items():
        use = re.match(r"Use (?:x = )?(.*?)(?:, (?:which|in which|or) .*| for .*)?\.$", advice)
        if use is None or " and " in use[1]:
            continue
        result = eval(use[1], names).compute()
        if name in _ufuncs._NEAREST:
            ufunc = getattr(np, name)
            expected = ufunc(*[values, values + 1.0][: ufunc.nin])
            np.testing.assert_allclose(result, expected, rtol=1e-14)
            checked += 1
    assert checked > 15
