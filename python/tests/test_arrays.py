"""Arrays and tables as a user of NumPy meets them."""

import contextvars
import io
import itertools
import operator
import os
import pickle
import re
import signal
import sys
import threading
import time
import warnings
from datetime import date, datetime, timedelta, timezone

import duckdb
import kvbigdata as kv
import numpy as np
import polars as pl
import pyarrow as pa
import pyarrow.parquet as pq
import pytest

ROWS = {
    "x": [1.0, 4.0, None, -2.5],
    "n": [3, 0, -7, 100],
    "b": [True, False, None, True],
    "word": ["a", None, "", "ü"],
}
TYPES = {"x": pa.float64(), "n": pa.int8(), "b": pa.bool_(), "word": pa.string()}


pytestmark = pytest.mark.usefixtures("arrays")


@pytest.fixture
def arrow():
    return pa.table({name: pa.array(ROWS[name], kind) for name, kind in TYPES.items()})


@pytest.fixture
def table(arrow, tmp_path, arrays):
    path = tmp_path / "rows.parquet"
    pq.write_table(arrow, path)
    return kv.read(path)


X = np.array([1.0, 4.0, np.nan, -2.5])
N = np.array([3, 0, -7, 100], dtype=np.int8)


def check(actual, expected):
    assert actual.dtype == expected.dtype
    np.testing.assert_array_equal(actual, expected)


@pytest.mark.parametrize(
    "function",
    [
        lambda x, n: x + n,
        lambda x, n: 2 - n,
        lambda x, n: n * np.float32(1.5),
        lambda x, n: n / np.int8(4),
        lambda x, n: n % 7,
        lambda x, n: n**2,
        lambda x, n: -n,
        lambda x, n: abs(n),
        lambda x, n: 1 / x,
        lambda x, n: (x > 0) & ~(n == 3),
        lambda x, n: (x > 0) | np.logical_not(n),
        lambda x, n: np.array([True])[0] ^ (n > 0),
        lambda x, n: np.sqrt(abs(x)) + np.exp(x) - np.square(n),
        lambda x, n: np.isinf(1 / n),
        lambda x, n: np.where(n > 0, x, 0),
        lambda x, n: np.clip(n, -1, 50),
        lambda x, n: np.maximum(x, n).round(),
        lambda x, n: np.add(np.int64(3), n),
    ],
)
def test_element_functions_have_the_values_and_types_of_numpy(table, function):
    with np.errstate(all="ignore"):
        expected = function(X, N)
    actual = function(table.x, table.n)
    assert isinstance(actual, kv.Array)
    assert actual.dtype == expected.dtype
    check(actual.compute(), expected)


REDUCTIONS = ["sum", "mean", "min", "max", "std", "var", "ptp", "any", "all"]


@pytest.mark.parametrize("name", REDUCTIONS)
def test_reductions_are_functions_methods_and_those_of_numpy(table, name):
    n = table.n
    expected = getattr(np, name)(N)
    results = kv.compute(getattr(kv, name)(n), getattr(n, name)(), getattr(np, name)(n))
    for result in results:
        assert type(result) is type(expected) and result == pytest.approx(expected, rel=1e-15)


def test_columns_skip_missing_values_and_propagate_them_on_request(table):
    x = table.x
    skipped, kept, squares = kv.compute(x.mean(), x.mean(skipna=False), np.nanvar(x))
    assert skipped == np.nanmean(X) and np.isnan(kept)
    assert squares == pytest.approx(np.nanvar(X))
    assert x.std(ddof=1).compute() == pytest.approx(np.nanstd(X, ddof=1))
    assert kv.compute(x.count(), table.b.sum(), table.word.count()) == (3, 2, 3)
    assert x.max(where=table.n > 50).compute() == -2.5
    assert np.add.reduce(table.n).compute() == 96


def test_values_keep_their_types_and_what_is_missing(table, arrow):
    computed = kv.compute(table, {"all": [table.b, table.word, 7]}, table.n.max())
    assert computed[0].drop(["x"]) == arrow.drop(["x"])
    check(computed[0]["x"].to_numpy(), X)
    b, word, seven = computed[1]["all"]
    assert b.tolist() == ROWS["b"] and seven == 7
    assert word.tolist() == ROWS["word"] and isinstance(word.dtype, np.dtypes.StringDType)
    assert type(computed[2]) is np.int8
    assert table.word.max().compute() == "ü" and table.b.all().compute() is np.False_
    assert kv.facts().passes >= 1
    widened = table.filter("n == 0").b.min()
    assert widened.compute() is np.False_
    assert table.b[table.n == -7].min().compute() is None


def test_rows_are_selected_by_masks_functions_and_formulas(table):
    for chosen in (
        table[table.n > 0],
        table.filter(lambda t: t.n > 0),
        table.filter("n > 0"),
    ):
        assert chosen.columns == table.columns
        check(chosen["n"].compute(), N[N > 0])
    check(table.x[table.n > 0].compute(), X[N > 0])
    with pytest.raises(kv.FormulaError, match="no column") as caught:
        table.filter("m > 0")
    assert caught.value.where is not None and caught.value.where.text == 'table.filter("m > 0")'
    refused("BadFormula", ValueError, lambda: table.filter("n"))


def test_tables_are_made_from_columns_of_the_same_rows(table):
    made = table.assign(double=lambda t: t.n * 2, sum="n + x", x=table.x + 1)
    assert made.columns == ["x", "n", "b", "word", "double", "sum"]
    made = made.drop("b", "word").rename({"double": "two"}).filter("two > 0")[["two", "x", "sum"]]
    computed = made.compute()
    assert computed.to_pydict() == {"two": [6], "x": [2.0], "sum": [4.0]}
    assert made.sum.compute().tolist() == [4.0] and made["x"].sum().compute() == 2
    refused("UnknownColumn", KeyError, lambda: table.drop("no"))
    refused("RowsDiffer", ValueError, lambda: table.assign(y=table.x[table.n > 0]))
    refused("UnsupportedOperand", TypeError, lambda: table.assign(y=lambda t: {}))


def test_arrays_are_made_of_memory_and_generated(arrow):
    values = np.array([[1, 2, 3], [4, 5, 6]], dtype=np.int16)[:, 1]
    memory = kv.from_numpy(values)
    assert memory.shape == (2,) and len(memory) == 2 and memory.dtype == np.int16
    check((memory + kv.asarray([1.5, 2.5])).compute(), np.array([3.5, 7.5]))
    check((memory - np.array([1, 1])).compute(), np.array([1, 4]))
    check((np.array([1, 1]) - memory).compute(), np.array([-1, -4]))
    days = np.array(["2024-02-29", "NaT", "1969-12-31"], dtype="M8[D]")
    check(kv.from_numpy(days).compute(), days.astype("M8[us]"))
    check((kv.arange(2, 9, 3) - kv.ones(3, dtype=int)).compute(), np.array([1, 4, 7]))
    check(kv.arange(0.0, 1.0, 0.25).compute(), np.arange(0, 1, 0.25))
    check(kv.full(3, 7).compute(), np.full(3, 7))
    words = kv.asarray(["a", None, "ü"])
    assert words.compute().tolist() == ["a", None, "ü"]
    assert np.isnan(kv.asarray([1.0, np.nan]).sum().compute()), "arrays propagate NaN"
    made = kv.table({"a": [1.0, np.nan], "b": kv.zeros(2)})
    assert made.a.sum().compute() == 1 and made.columns == ["a", "b"]
    check(kv.from_arrow(arrow).n.compute(), N)
    refused("DifferentSources", kv.RowSpaceError, lambda: kv.arange(3) + kv.arange(4))
    refused("DifferentSources", kv.RowSpaceError, lambda: kv.arange(3) + np.arange(4))
    refused("UnsupportedType", TypeError, lambda: kv.asarray(np.array([1j])))
    refused("NotSupported", TypeError, lambda: kv.from_numpy(np.array([["a"]])))
    refused("NotSupported", TypeError, lambda: kv.zeros(2.5))
    for made, like in (
        (kv.full(2, np.datetime64("2024-02-29")), np.full(2, np.datetime64("2024-02-29", "us"))),
        (kv.linspace(0, 9, 4, dtype=int), np.linspace(0, 9, 4, dtype=int)),
        (np.full_like(memory, 2.7), np.full_like(values, 2.7)),
        (kv.ones_like(memory, dtype=float), np.ones(2)),
        (kv.zeros((2, 3), dtype=np.int8), np.zeros((2, 3), dtype=np.int8)),
    ):
        check(made.compute(), like)
    with pytest.raises(TypeError, match="a path"):
        kv.read(5)


MATRIX = np.array([[1, -2, 3], [4, 5, -6], [7, 8, 9], [-128, 0, 100]], dtype=np.int8)


@pytest.mark.parametrize(
    "function",
    [
        lambda x, v: x - x.mean(axis=0),
        lambda x, v: np.sqrt(abs(x) * 1.0) + v[:, None],
        lambda x, v: x * np.array([1, 2, 3]) + np.array([[0.5]]),
        lambda x, v: (x + np.ones(x.shape)) / MATRIX[:1],
        lambda x, v: x[v > 1],
        lambda x, v: x[v > 9].sum(axis=0),
        lambda x, v: np.sum(x, axis=(0, 1)) - x.min(axis=-2),
        lambda x, v: x.max(axis=0).std(),
        lambda x, v: np.nanvar(x / (x - 4), axis=None),
        lambda x, v: (x > 3).any(axis=0),
        lambda x, v: np.count_nonzero(x, axis=0) + np.ptp(x),
        lambda x, v: x[..., None] - v[:, None][..., None],
        lambda x, v: np.where(x > v[:, None], x, 0),
    ],
)
def test_arrays_of_several_dimensions_are_those_of_numpy(function):
    v = np.arange(4.0)
    with np.errstate(all="ignore"):
        expected = function(MATRIX, v)
    actual = function(kv.from_numpy(MATRIX, chunk_rows=3), kv.from_numpy(v))
    assert (actual.ndim, actual.dtype) == (expected.ndim, expected.dtype)
    assert actual.shape[1:] == expected.shape[1:]
    actual = actual.compute()
    assert actual.shape == expected.shape
    np.testing.assert_allclose(actual, expected, rtol=1e-14)


def test_what_several_dimensions_dont_allow_is_refused_with_advice(tmp_path):
    x = kv.from_numpy(MATRIX)
    v = kv.arange(4)
    assert "x[:, None]" in str(refused("NotBroadcast", ValueError, lambda: x * v))
    refused("BadAxis", IndexError, lambda: x.sum(axis=2))
    refused("SizesDiffer", ValueError, lambda: x + np.ones((4, 2)))
    refused("NeedsColumn", TypeError, lambda: x[x > 1])
    refused("NeedsColumn", TypeError, lambda: kv.table({"x": x}))
    refused("NotSupported", TypeError, lambda: x.sum(where=v > 1))
    error = refused("WrongShape", ValueError, x.map_chunks(lambda c: c[:, 0]).compute)
    assert error.arguments[1:] == ["(3,)", "()"]
    sums = x.map_chunks(lambda c: c.sum(axis=1), shape=(), dtype=int)
    check(sums.compute(), MATRIX.sum(axis=1))
    pairs = v.map_chunks(lambda c: np.stack([c, c], axis=1), shape=(2,))
    check(pairs.compute(), np.stack([np.arange(4)] * 2, axis=1))
    kv.save(tmp_path / "x.kv", x=kv.ones((4, 3)), y=kv.arange(4)[v > 1])
    opened = kv.open(tmp_path / "x.kv", trust=True)
    assert opened["x"].shape == (4, 3) and opened["y"].shape == (None,)
    assert x[v > 1].count_rows().compute() == 2 == len((opened["y"] + 1).settle())


def test_the_edges_are_those_of_numpy():
    x = np.array([1.0, np.nan, 0.0])
    lazy = kv.from_numpy(x, chunk_rows=1)
    check((lazy != 1).compute(), x != 1)
    for one in (lazy != 1, np.float64(1) - lazy, -lazy, np.sqrt(lazy), lazy.clip(0)):
        assert one.explain().count("\n  #") == 2, "one step after the source"
    check((kv.table({"x": x}).x != 1).compute(), np.array([False, False, True]))
    assert lazy.any().compute() and np.count_nonzero(lazy).compute() == 2
    for dtype in (np.float32, np.int64, bool, str):
        cast = lazy[lazy == lazy].astype(dtype).compute()
        assert cast.tolist() == x[[0, 2]].astype(dtype).tolist()
    with pytest.raises(FloatingPointError, match="invalid value"):
        lazy.astype(int).compute()
    for none in (lazy[lazy > 5], kv.zeros(0), kv.zeros((0, 2))):
        refused("NoRows", ValueError, none.min().compute)
        refused("NoRows", ValueError, none.max(axis=0).compute)
    assert np.isnan(np.nanmax(lazy[lazy != lazy]).compute()), "there are rows"


def test_ndarrays_go_with_the_rows_of_files_by_position(tmp_path):
    numbers = np.arange(100_000)
    pq.write_table(
        pa.table({"x": numbers, "y": numbers % 7}), tmp_path / "t.parquet", row_group_size=9_999
    )
    t = kv.read(tmp_path / "t.parquet")
    later = numbers[::-1] * 0.5
    check((t.x + later).compute(), numbers + later)
    check(
        (later[:, None] - t.x[:, None])[t.y == 3].compute(),
        (later - numbers)[numbers % 7 == 3, None],
    )
    refused("DifferentSources", kv.RowSpaceError, lambda: t.x + later[1:])
    (tmp_path / "t.csv").write_text("x\n" + "".join(f"{x}\n" for x in numbers))
    x = kv.read(tmp_path / "t.csv").x
    assert "settle()" in str(refused("NoPlace", kv.RowSpaceError, lambda: x + later))
    refused("NoPlace", kv.RowSpaceError, lambda: x[x > 0] + later)
    x.settle()
    check((x * later).compute(), numbers * later)
    check(x[later > 2].compute(), numbers[later > 2] * 1.0)
    refused("DifferentSources", kv.RowSpaceError, lambda: x + later[1:])


def test_other_libraries_take_tables_by_arrows_protocol(table, arrow):
    more = table.assign(day=table.n * np.timedelta64(1, "D"), big=table.x > 0)
    with kv.no_compute():
        schema = pa.schema(more)
        stream = pa.RecordBatchReader.from_stream(more)
    assert stream.schema == schema
    taken = stream.read_all()
    assert taken.drop(["x"]) == more.compute().drop(["x"])
    assert taken.select(["n", "b", "word"]) == arrow.select(["n", "b", "word"])
    assert pl.DataFrame(more.drop("day"))["n"].to_list() == ROWS["n"]
    query = duckdb.from_arrow(pa.RecordBatchReader.from_stream(table.filter("n > 0")))
    assert query.sum("n").fetchall() == [(103,)]
    failing = table.select("n").assign(y=table.x.map_chunks(lambda v: 1 / 0))
    with pytest.raises(Exception, match="division by zero"):
        pa.table(failing)


def test_other_rows_are_refused_where_they_are_combined(table, tmp_path):
    above = table.n > 0
    path = tmp_path / "other.csv"
    path.write_text("x\n1\n2\n3\n4\n")
    error = refused("RowsDiffer", kv.RowSpaceError, lambda: table.x[above] + table.n)
    assert str(error).count("test_arrays.py, line") >= 2 and "filter the table first" in str(error)
    refused("DifferentSources", kv.RowSpaceError, lambda: table.x + kv.read(path).x)
    check((table.x[above] + table.n[table.n > 0]).compute(), (X + N)[N > 0])
    check((table.x[above] - table.x.min()).compute(), X[N > 0] + 2.5)


def test_the_number_of_rows_is_known_once_it_was_counted(table, tmp_path):
    assert table.x.shape == (4,), "the footer of the file has it"
    (tmp_path / "rows.csv").write_text("x,n\n1,1\n2,2\n3,-3\n4,-4\n")
    table = kv.read(tmp_path / "rows.csv")
    x, above = table.x, table[table.n > 0].n
    assert kv.compute(x.count_rows(), above.count_rows()) == (4, 2)
    assert x.shape == (None,)
    assert len(x.settle()) == 4 and (x + 1).shape == table.n.shape == (4,) and x.nbytes == 32
    above.compute()
    assert above.shape == (2,)
    with kv.no_compute():
        refused("NoCompute", kv.Error, table[table.n > 1].x.settle)


def test_arrays_are_saved_and_pickled_without_their_data(table, tmp_path):
    path = tmp_path / "saved.kv"
    mean = table.x.mean()
    kv.save(path, mean=mean, n=table.n)
    opened = kv.open(path)
    assert list(opened) == ["mean", "n"] and opened["mean"].ndim == 0
    refused("NotTrusted", kv.Error, opened["mean"].compute)
    assert kv.open(path, trust=True)["mean"].compute() == mean.compute()
    copied = pickle.loads(pickle.dumps(table.x * 2))
    check(copied.compute(), X * 2)
    assert copied.mean().compute() == 2 * mean.compute(), "it is a column still"


def refused(name, base, function):
    with pytest.raises(base) as caught:
        function()
    error = caught.value
    assert isinstance(error, kv.Error) and error.identifier.rpartition(":")[2] == name
    assert error.where is None or error.where.file == __file__
    copy = pickle.loads(pickle.dumps(error))
    assert (copy.where, str(copy), type(copy)) == (error.where, str(error), type(error))
    return error


def test_errors_are_of_the_built_in_types_and_show_the_users_line(table, tmp_path):
    unknown = refused("UnknownColumn", KeyError, lambda: table["wrod"])
    assert "Did you mean 'word'?" in str(unknown)
    assert unknown.where.text.startswith("unknown = refused")
    refused("UnknownColumn", AttributeError, lambda: table.wrod)
    for base in (KeyError, kv.FormulaError, kv.UnknownNameError):
        refused("UnknownColumnInFormula", base, lambda: table.filter("wrod > 3"))
    assert not hasattr(table, "m")
    refused("BadTypes", TypeError, lambda: table.word + 1)
    refused("NotLogical", TypeError, lambda: table[table.n])
    refused("FileNotFound", OSError, lambda: kv.read(tmp_path / "no.csv"))
    refused("UnsupportedType", TypeError, lambda: table.n + np.complex64(1))
    refused("UnsupportedOperand", TypeError, lambda: table.x == None)  # noqa: E711
    refused("NotSupported", TypeError, lambda: table.n & 1)
    refused("NotSupported", TypeError, lambda: table.n // 2)
    refused("BadAxis", kv.AxisError, lambda: table.n.sum(axis=1))
    refused("BadArity", TypeError, lambda: kv.sqrt(table.n, 1))
    refused("UnknownType", ValueError, lambda: table._session._native.scalar(1, "nope"))
    overflow = table.n.sum() * np.int64(2**62)
    path = tmp_path / "bad.csv"
    path.write_text("x\n" + "1\n" * 40_000 + "oops\n")
    bad = kv.read(path).x
    error = refused("BadField", ValueError, lambda: bad.sum().compute())
    assert "oops" in str(error)
    assert overflow.ndim == 0


def test_an_array_is_no_container(table):
    x, total, above = table.x, table.n.sum(), table.x[table.n > 0]
    assert len(x) == 4 and x.size == 4 and x.nbytes == 32
    refused("UnknownLength", TypeError, lambda: len(above))
    refused("NotIterable", TypeError, lambda: list(x))
    refused("NotIterable", TypeError, lambda: 1 in x)
    refused("NotIterable", TypeError, lambda: sorted(x))
    refused("TruthValue", ValueError, lambda: bool(x))
    refused("NotAScalar", TypeError, lambda: float(x))
    refused("ReadOnly", TypeError, lambda: operator.setitem(x, 0, 1))
    refused("CopyNeeded", ValueError, lambda: np.asarray(x, copy=False))
    for use in (len, list, np.asarray, lambda t: 1 in t):
        refused("NotIterable", TypeError, lambda use=use: use(table))
    refused("TruthValue", ValueError, lambda: bool(table))
    refused("ReadOnly", TypeError, lambda: operator.setitem(table, "x", 1))
    assert (bool(total), int(total), float(total), total.item()) == (True, 96, 96.0, 96)
    assert above.shape == (None,) and above.size is None and above.nbytes is None
    assert total.shape == ()
    check(np.asarray(x), X)
    with pytest.raises(TypeError, match="unhashable"):
        hash(x)


def test_recording_and_looking_compute_nothing(table, monkeypatch):
    with kv.no_compute():
        mean = table.filter("n > 0").x.mean()
        for shown in (table, table.x, mean):
            assert "rows.parquet" in repr(shown) and "test_arrays.py, line" in repr(shown)
        assert mean.explain() and table.explain()
        refused("NoCompute", kv.Error, mean.compute)
        refused("NoCompute", kv.Error, lambda: np.asarray(table.x))
    assert mean.compute() == -0.75
    monkeypatch.setenv("KV_NO_COMPUTE", "1")
    refused("NoCompute", kv.Error, mean.compute)


def test_functions_of_the_user_see_chunks_of_any_type(table):
    x, word, b = table.x, table.word, table.b
    seen = []

    def longer(words, sizes):
        seen.append((words.dtype, sizes.dtype))
        return [None if w is None else w * int(abs(n)) for w, n in zip(words, sizes, strict=True)]

    doubled, named, flags, inner = kv.compute(
        x.map_chunks(lambda v: v * 2),
        word.map_chunks(longer, table.n, dtype=str),
        b.map_chunks(lambda v: [each is None for each in v], dtype=bool),
        x.map_chunks(lambda v: v + table.n.max().compute()),
    )
    check(doubled, X * 2)
    assert named.tolist() == ["aaa", None, "", "ü" * 100]
    assert seen[0] == (named.dtype, np.int8)
    check(flags, np.array([False, False, True, False]))
    check(inner, X + 100)


def test_an_exception_of_a_users_function_is_raised_itself(table):
    failure = ValueError("no")

    def fail(values):
        raise failure

    failing = table.x.map_chunks(fail) + 1
    with pytest.raises(ValueError, match="no") as caught:
        failing.compute()
    assert caught.value is failure
    notes = failure.__notes__
    assert "table.x.map_chunks(fail)" in notes[0]
    assert notes[1].startswith("partition 1, rows 1 to 4 of ") and "rows.parquet" in notes[1]
    assert any(entry.name == "fail" for entry in caught.traceback)
    with pytest.raises(ValueError, match="no"):
        failing.compute()
    assert failure.__notes__ == notes[:2], "once, though it was raised twice"
    with pytest.raises(KeyboardInterrupt):
        table.x.map_chunks(lambda v: (_ for _ in ()).throw(KeyboardInterrupt)).compute()
    wrong = table.x.map_chunks(lambda v: v > 0)
    assert "bool" in str(refused("WrongType", TypeError, wrong.compute))
    for wrong in (
        table.x.map_chunks(lambda v: None),
        table.map_chunks(lambda v: {"x": [[1]] * len(v)}, {"x": float}),
    ):
        error = refused("WrongType", TypeError, wrong.compute)
        assert "<lambda>" in str(error) and "map_chunks(lambda v: " in error.where.text
    short = table.x.map_chunks(lambda v: v[:2])
    refused("WrongRowCount", ValueError, short.compute)
    refused("invalidType", TypeError, lambda: table.x.map_chunks(3))
    refused("NotSupported", TypeError, lambda: table.x.map_chunks(abs, rows="all"))
    assert table.x.sum().compute() == 2.5


def test_functions_are_called_on_several_threads_at_once_unless_serial():
    numbers = np.arange(100_000.0)
    x = kv.from_numpy(numbers, chunk_rows=25_000)
    both = threading.Barrier(2, timeout=60)
    level = contextvars.ContextVar("level")
    kept = threading.local()
    threads = []

    def meet(values):
        both.wait()
        kept.calls = getattr(kept, "calls", 0) + 1
        threads.append((threading.get_ident(), kept.calls))
        return values + level.get() + x.max().compute()

    @kv.function(serial=True, name="alone")
    def serial(values):
        assert threading.get_ident() == threading.main_thread().ident
        return values + x.max().compute()

    level.set(1)
    with kv.options(threads=2):
        check(x.map_chunks(meet).compute(), numbers + 100_000)
        check(x.map_chunks(serial).compute(), numbers + 99_999)
        assert "called on the workers" in x.map_chunks(meet).explain()
        assert re.search("alone.*called in the lane", x.map_chunks(serial).explain())
        assert len({thread for thread, _ in threads}) == 2 and max(threads)[1] == 2

        with np.errstate(all="raise"), pytest.raises(FloatingPointError) as caught:
            x.map_chunks(lambda values: values / (values < 50_000)).compute()
        assert caught.value.__notes__[-1] == "partition 3, rows 1 to 25000"

        interrupt = threading.Timer(
            0.3, signal.pthread_kill, [threading.get_ident(), signal.SIGINT]
        )
        interrupt.start()
        with pytest.raises(KeyboardInterrupt):
            x.map_chunks(lambda values: sum(0 for _ in itertools.count())).compute()
        assert x.max().compute() == 99_999


class Terminal(io.StringIO):
    def isatty(self):
        return True


def test_progress_is_shown_in_a_terminal_and_cleared(monkeypatch):
    monkeypatch.setattr(sys, "stderr", Terminal())
    x = kv.from_numpy(np.arange(9), chunk_rows=1)
    slow = x.map_chunks(lambda values: time.sleep(0.1) or values)
    with kv.options(threads=1):
        assert slow.sum().compute() == 36
    shown = sys.stderr.getvalue().split("\r")
    assert any("of 9 partitions" in line for line in shown)
    assert shown[-2].strip() == "" and shown[-1] == "", "it is cleared"
    interrupt = threading.Timer(0.8, signal.pthread_kill, [threading.get_ident(), signal.SIGINT])
    interrupt.start()
    with pytest.raises(KeyboardInterrupt):  # the line is all of Python that runs meanwhile
        kv.zeros(20_000_000_000).sum().compute()
    monkeypatch.setattr(sys, "stderr", Terminal())
    with kv.options(progress=False, threads=1):
        slow.max().compute()
    assert sys.stderr.getvalue() == ""


def test_sessions_are_separate_and_can_be_closed(tmp_path):
    path = tmp_path / "x.csv"
    path.write_text("x\n1\n2\n")
    outside = kv.read(path).x
    with kv.session():
        inside = kv.read(path).x
        assert inside.sum().compute() == 3
        refused("TwoSessions", ValueError, lambda: inside + outside)
    refused("Closed", kv.Error, lambda: inside + 1)
    with kv.options(threads=1, memory_limit="64MiB"):
        assert outside.sum().compute() == 3
        assert kv.facts().memory_limit_bytes == 64 << 20
    outside.max().compute()
    assert kv.facts().memory_limit_bytes != 64 << 20
    refused("Limit", ValueError, lambda: kv.options(memory_limit="lots"))


def test_a_child_of_a_fork_gets_a_clear_error(table):
    table.x.sum().compute()
    reader, writer = os.pipe()
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", DeprecationWarning)
        child = os.fork()
    if child == 0:
        try:
            table.x.sum()
        except kv.Error as error:
            os.write(writer, error.identifier.encode())
        finally:
            os._exit(0)
    os.close(writer)
    with os.fdopen(reader) as report:
        assert report.read() == "KALVEX:session:Forked"
    assert os.waitpid(child, 0) == (child, 0)
    assert table.x.sum().compute() == 2.5


def test_times_are_those_of_numpy(tmp_path, arrays):
    when = np.array(["2013-06-01T05:15", "NaT", "2013-06-02"], "M8[us]")
    pq.write_table(pa.table({"when": pa.array(when, pa.timestamp("ns"))}), tmp_path / "t.parquet")
    x = kv.read(tmp_path / "t.parquet").when
    day = np.timedelta64(1, "D")
    check(x.compute(), when)
    check((x + day).compute(), when + day)
    check((x - x.min()).compute(), when - when[0])
    check(
        (x - datetime(2013, 6, 1, 2, tzinfo=timezone(timedelta(hours=2)))).compute(),
        when - np.datetime64("2013-06-01"),
    )
    check((x > "2013-06-01T12:00").compute(), when > np.datetime64("2013-06-01T12:00"))
    check(((x - date(2013, 6, 1)) / np.timedelta64(1, "h")).compute(), np.array([5.25, np.nan, 24]))
    assert x.max().compute() == when[2] and x.dtype == when.dtype
    later = x.map_chunks(lambda moments: moments + day, dtype="M8[ns]")
    check(later.compute(), when + day)
