"""Arguments of every kind: what NumPy and users pass, and what is refused with the user's line."""

import collections
import copy
from pathlib import Path
from typing import Any

import kvbigdata as kv
import numpy as np
import pyarrow as pa
import pytest

pytestmark = pytest.mark.usefixtures("arrays")
FLIGHTS = str(Path(__file__).parents[2] / "data" / "flights.csv")

untyped: Any = kv  # what a type checker refuses
VALUES = np.array([3, 1, 2], dtype=np.int16)
FLAGS = np.array([True, False, True])


@pytest.fixture
def x():
    return kv.asarray(VALUES)


@pytest.fixture
def table():
    return kv.table({"a": VALUES, "word": ["x", "y", "z"]})


@pytest.mark.parametrize(
    ("column", "expected"),
    [
        (lambda t: t.a.max(), [3, 3, 3]),
        (lambda t: t.word.max(), ["z", "z", "z"]),
        (lambda t: "max(a) - 1", [2, 2, 2]),
        (lambda t: "7", [7, 7, 7]),
        (lambda t: 7, [7, 7, 7]),
        (lambda t: np.int8(7), [7, 7, 7]),
        (lambda t: lambda t: True, [True, True, True]),
        (lambda t: VALUES * 2, [6, 2, 4]),
        (lambda t: ["p", None, "q"], ["p", None, "q"]),
    ],
)
def test_columns_are_made_of_scalars_and_ndarrays(table, column, expected):
    made = table.assign(z=column(table))
    assert made.compute()["z"].to_pylist() == pa.table(made)["z"].to_pylist() == expected
    assert made.z.shape == (3,) and made[FLAGS].z.compute().tolist() == expected[::2]
    assert kv.table({"a": table.a, "z": made.z}).filter("z == z").z.count().compute() > 1


@pytest.mark.parametrize(
    "call",
    [
        lambda a, np: np.clip(a, a_min=1, a_max=2),
        lambda a, np: np.clip(a, max=2),
        lambda a, np: np.full_like(a, fill_value=3),
        lambda a, np: np.full_like(a, 3, order="C", shape=(2, 2)),
        lambda a, np: np.zeros_like(a, shape=2),
        lambda a, np: np.sum(a=a),
        lambda a, np: np.max(a=a, axis=0),
        lambda a, np: np.mean(a, 0, np.float64),
        lambda a, np: np.mean(a * np.float32(1), dtype=float),
        lambda a, np: np.sum(a, dtype=np.float32),
        lambda a, np: np.std(a, 0, None, None, 1),
        lambda a, np: np.any(a, keepdims=np._NoValue),
        lambda a, np: np.add.reduce(a[:, None] * np.ones(2)),
        lambda a, np: np.rint(a),
        lambda a, np: np.rint(a * 1.5),
        lambda a, np: np.rint(a * np.int64(1)),
        lambda a, np: np.floor(a),
        lambda a, np: np.ceil(a),
        lambda a, np: (a > 1) ** 2,
        lambda a, np: (a > 1) ** True,
        lambda a, np: np.power(a > 1, 2),
    ],
)
def test_calls_in_the_forms_of_numpy_have_its_values_and_types(x, call):
    expected = call(VALUES, np)
    actual = call(x, np).compute()
    assert (actual.dtype, np.shape(actual)) == (expected.dtype, np.shape(expected))
    np.testing.assert_allclose(actual, expected, rtol=1e-7)


def test_arrays_are_converted_where_a_type_or_one_value_is_needed(x):
    assert kv.asarray(x, dtype=float).dtype == np.float64 and kv.asarray(x) is x
    assert kv.asarray("a").compute() == kv.asarray(np.str_("a")).compute() == "a"
    one = kv.asarray([3])
    assert bool(one > 1) is True and float(one) == 3.0 and one[:, None].item() == 3
    scaled = x.map_chunks(lambda a, b, c: a * b + c, VALUES, 3.0, dtype=float)
    assert scaled.compute().tolist() == (VALUES * VALUES + 3.0).tolist()
    assert copy.copy(x) is x and copy.deepcopy([x])[0] is x


def test_containers_keep_their_types(x, table):
    Pair = collections.namedtuple("Pair", "first second")
    given = collections.OrderedDict(b=x.max(), a=[Pair(x.sum(), "kept")])
    made = kv.compute(given)
    assert made == {"b": 3, "a": [(6, "kept")]} and given["b"] is not made["b"]
    assert type(made) is collections.OrderedDict and type(made["a"][0]) is Pair
    assert copy.copy(table) is table and copy.deepcopy(table) is table
    assert table.select(["word", "a"]).drop(["word"]).columns == ["a"]
    assert table.group_by(["word"]).agg(n="count").n.compute().tolist() == [1, 1, 1]


@pytest.mark.parametrize(
    ("call", "base"),
    [
        (lambda t: kv.table({"a": [1, 2], "b": [1]}), kv.RowSpaceError),
        (lambda t: t.assign(z=np.array([1])), kv.RowSpaceError),
        (lambda t: t.assign(z=[1, 2]), kv.RowSpaceError),
        (lambda t: kv.arange(3) + kv.asarray([1]), kv.RowSpaceError),
        (lambda t: t.assign(z=object()), TypeError),
        (lambda t: t.filter(None), TypeError),
        (lambda t: t.filter(VALUES), TypeError),
        (lambda t: t[3], TypeError),
        (lambda t: t.select(3), TypeError),
        (lambda t: t.head("a"), TypeError),
        (lambda t: t.a.map_chunks(abs, None), TypeError),
        (lambda t: kv.from_arrow([1]), TypeError),
        (lambda t: kv.asarray([1, None, 3]), TypeError),
        (lambda t: kv.read(FLIGHTS, columns="orgin"), KeyError),
        (lambda t: kv.read(FLIGHTS, columns=t.a.size), TypeError),
        (lambda t: kv.read([]), TypeError),
        (lambda t: kv.table(t.columns), TypeError),
        (lambda t: kv.arange(t.columns[0]), TypeError),
        (lambda t: t.rename({"a": 3}), TypeError),
        (lambda t: kv.save("/tmp/x.kv", t=t), TypeError),
        (lambda t: kv.save("/tmp/x.kv", t=t.a.compute()), TypeError),
        (lambda t: np.positive(t.a > 1), TypeError),
        (lambda t: +t.word, TypeError),
        (lambda t: np.sum(t.a, 0, None, np.zeros(1)), TypeError),
        (lambda t: np.clip(t.a, 0, 1, casting="no"), TypeError),
        (lambda t: np.max(t.a, initial=3), TypeError),
        (lambda t: np.mean(t.a, dtype=int), TypeError),
        (lambda t: bool(kv.asarray([3, 1]) > 1), ValueError),
        (lambda t: t.a.astype("nope"), TypeError),
        (lambda t: kv.zeros(3, "nope"), TypeError),
        (lambda t: kv.asarray([1], "nope"), TypeError),
        (lambda t: kv.asarray([[1], [2, 3]]), ValueError),
        (lambda t: kv.full_like(t.a, "x"), TypeError),
        (lambda t: kv.sum(t.a, nope=1), TypeError),
        (lambda t: t.a.mean(ddof=1), TypeError),
        (lambda t: t.a.sum(axis="a"), TypeError),
        (lambda t: t.a.sum(axis=3), kv.AxisError),
        (lambda t: t.a.sum(axis=3), IndexError),
        (lambda t: untyped.from_numpy(VALUES, chunk_rows="a"), TypeError),
        (lambda t: kv.from_pandas(3), TypeError),
        (lambda t: untyped.read(3), TypeError),
        (lambda t: untyped.read(FLIGHTS, types=3), TypeError),
        (lambda t: kv.read(FLIGHTS, types={"year": "nope"}), TypeError),
        (lambda t: untyped.read(FLIGHTS, separator=3), TypeError),
        (lambda t: untyped.read(FLIGHTS, missing=3), TypeError),
        (lambda t: untyped.options(threads="a"), TypeError),
        (lambda t: untyped.options(memory_limit=[]), TypeError),
        (lambda t: untyped.options(progress="a"), TypeError),
        (lambda t: untyped.options(scratch=3), TypeError),
        (lambda t: kv.options(scratch=FLIGHTS), OSError),
        (lambda t: untyped.open(3), TypeError),
        (lambda t: t.write_parquet(3), TypeError),
        (lambda t: t.write_parquet("/tmp/x.parquet", partition_by=3), TypeError),
        (lambda t: kv.table({}), TypeError),
        (lambda t: t.select(), TypeError),
        (lambda t: untyped.function(3), TypeError),
        (lambda t: t.a.map_chunks(abs, shape="a"), TypeError),
        (lambda t: t.a.map_chunks(abs, shape=(-3,)), TypeError),
        (lambda t: t.map_chunks(abs, dtypes=3), TypeError),
        (lambda t: t.map_chunks(size).compute(), TypeError),
        (lambda t: t.map_chunks(one).compute(), ValueError),
        (lambda t: kv.where(True, 1, 2), ValueError),
        (lambda t: kv.clip(3, 1, 2), ValueError),
        (lambda t: t.a + 2**70, OverflowError),
        (lambda t: t.a - -(2**70), ValueError),
        (lambda t: t.a + 70_000, OverflowError),
        (lambda t: t.a @ t.a, TypeError),
        (lambda t: t.a << 1, TypeError),
        (lambda t: divmod(7, t.a), TypeError),
    ],
)
def test_what_cant_be_used_is_refused_on_the_users_line(table, call, base):
    with pytest.raises(base) as caught:
        call(table)
    assert isinstance(caught.value, kv.Error)
    assert caught.value.where is not None and caught.value.where.file == __file__


@pytest.mark.parametrize(
    ("call", "identifier", "begin"),
    [
        (lambda t: t.a + "x", "BadTypes", "+ is not defined for int16 and string"),
        (lambda t: np.add(t.a, "x"), "BadTypes", "+ is not defined"),
        (lambda t: t.a > "x", "BadTypes", "> is not defined"),
        (lambda t: -t.word, "BadTypes", "- is not defined"),
        (lambda t: t.word.std(), "BadTypes", "std is not defined"),
        (lambda t: np.maximum(t.a, "x"), "BadTypes", "maximum is not defined"),
        (
            lambda t: (t.a * 1.5).filter(t.a / 2),
            "NotLogical",
            "A filter needs logical values, got float64",
        ),
        (lambda t: (t.a / 2 > 1) + t.word, "BadTypes", "+ is not defined for bool and string"),
        (lambda t: t.a * None, "UnsupportedOperand", "* takes arrays"),
        (lambda t: t.a**-1, "NegativePower", "**: an integer to the power"),
        (lambda t: t.a[1:2], "NotSupported", "x[1:2] isn't"),
        (lambda t: t.a[:, 0], "BadIndex", "The index [:, 0] doesn't fit 1 dimension(s)."),
        (lambda t: t.a.std(nope=1), "UnknownArgument", "std has no argument 'nope'"),
        (lambda t: kv.asarray([[1], [2, 3]]), "NotAnArray", "NumPy makes no array of this list"),
        (lambda t: t.map_chunks(size, rows="any").compute(), "WrongResult", "size must return"),
        (lambda t: t.map_chunks(one, rows="any").compute(), "WrongColumns", "one returned the col"),
    ],
)
def test_messages_name_what_the_user_wrote(table, call, identifier, begin):
    with pytest.raises(kv.Error) as caught:
        call(table)
    assert caught.value.identifier.endswith(f":{identifier}")
    assert str(caught.value).startswith(begin)
    assert not caught.value.arguments or caught.value.arguments[0] in str(caught.value)


def size(batch):
    return batch.num_rows


def one(batch):
    return {"z": [1]}
