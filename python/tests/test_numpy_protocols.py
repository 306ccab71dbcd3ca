"""No function of NumPy loads an array without being asked to."""

import collections
import types

import kvbigdata as kv
import numpy as np
import pytest
from kvbigdata._session import Session
from numpy.testing import overrides

FORMS = [
    lambda f, x: f(x),
    lambda f, x: f(x, x),
    lambda f, x: f(x, 1),
    lambda f, x: f(1, x),
    lambda f, x: f(x, x, x),
    lambda f, x: f(x > 0, x, 0),
    lambda f, x: f("a", x),
    lambda f, x: f(x, 0, 1),
    lambda f, x: f(x, [1], 0, 1),
    lambda f, x: f(lambda v: v, 0, x),
    lambda f, x: f(3, like=x),
    lambda f, x: f("3", (1,), like=x),
]

# Functions in C make an array of a list, as np.asarray does: that is what was asked of them.
LISTS = [lambda f, x: f([x, x]), lambda f, x: f((x, x))]
FORMS += LISTS

# What computes: the functions whose purpose is to make an ndarray, and one that needs numbers.
LOADING = {"asarray", "array", "asanyarray", "ascontiguousarray", "asfortranarray", "arange"}


def outcome(function, form, x, loads):
    """How a call ends: "right", "refused", or "wrong use" if NumPy itself refuses the arguments."""
    before = len(loads)
    try:
        result = form(function, x)
    except kv.Error:
        result = "refused"
    except Exception:
        result = "wrong use"
    if len(loads) > before:
        return "silent"
    return result if isinstance(result, str) and result in ("refused", "wrong use") else "right"


@pytest.fixture
def loads(monkeypatch):
    """A list that grows with every evaluation."""
    made = []
    real = Session.evaluate
    monkeypatch.setattr(
        Session, "evaluate", lambda self, handles: made.append(1) or real(self, handles)
    )
    return made


@pytest.fixture
def x(tmp_path, arrays):
    path = tmp_path / "x.csv"
    path.write_text("x\n1\n2\n3\n")
    return kv.read(path).x


def functions():
    overridable = (
        overrides.get_overridable_numpy_array_functions() | overrides.get_overridable_numpy_ufuncs()
    )
    return sorted(overridable, key=lambda f: f.__name__)


def test_no_function_loads_an_array_silently(x, loads):
    counts = collections.Counter()
    silent, unreached = [], []
    for function in functions():
        if function.__name__ in LOADING:
            continue
        implementation = getattr(function, "_implementation", None)
        takes_lists = isinstance(implementation, types.FunctionType) or function is np.concatenate
        forms = [form for form in FORMS if takes_lists or form not in LISTS]
        ends = {outcome(function, form, x, loads) for form in forms}
        if "silent" in ends:
            silent.append(function.__name__)
        elif ends == {"wrong use"}:
            unreached.append(function.__name__)
        counts["right" if "right" in ends else "refused"] += 1
    assert silent == []
    assert unreached == [
        "fromstring",
        "ravel_multi_index",
    ]  # they refuse these arguments themselves
    assert counts["right"] >= 60


def test_refusals_name_the_nearest_alternative(x):
    cases = {
        lambda: np.isclose(x, x): "kv.abs(a - b)",
        lambda: np.median(x): "np.asarray",
        lambda: np.fmod(x, 2): "a % b",
        lambda: np.add.outer(x, x): "map_chunks",
        lambda: np.add(x, x, out=np.zeros(3)): "x = np.f(x)",
        lambda: np.sum(x, keepdims=True): "Leave it out",
    }
    for call, advice in cases.items():
        with pytest.raises(TypeError) as caught:
            call()
        assert isinstance(caught.value, kv.Error) and advice in str(caught.value)
