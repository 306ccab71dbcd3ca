"""Rows that are pulled, selected, grouped and returned by functions of tables."""

import gc
import os
import signal
import subprocess
import sys
import threading
import time

import duckdb
import kvbigdata as kv
import numpy as np
import polars as pl
import pyarrow as pa
import pyarrow.parquet as pq
import pytest

pytestmark = pytest.mark.usefixtures("arrays")

CUBE = np.arange(48.0).reshape(8, 3, 2) % 7


@pytest.fixture
def wide(tmp_path):
    """A million rows in 31 row groups."""
    x = np.arange(1_000_000)
    names = ["x", "y", "z"]
    rows = pa.table({name: x * (i + 1.0) for i, name in enumerate(names)})
    pq.write_table(rows, tmp_path / "wide.parquet", row_group_size=32_768)
    return kv.read(tmp_path / "wide.parquet")


@pytest.mark.parametrize("threads", [1, 3])
def test_streams_have_all_rows_in_order_and_every_type(threads, tmp_path):
    n = 100_000
    rows = pa.table(
        {
            "i": pa.array([None if k % 7 == 0 else k for k in range(n)], pa.int64()),
            "b": pa.array([None if k % 5 == 0 else k % 2 == 0 for k in range(n)]),
            "word": pa.array([None if k % 3 == 0 else f"ü{k}" for k in range(n)]),
            "at": pa.array([None if k % 11 == 0 else k for k in range(n)], pa.timestamp("us")),
        }
    )
    pq.write_table(rows, tmp_path / "rows.parquet", row_group_size=10_000)
    t = kv.read(tmp_path / "rows.parquet")
    with kv.options(threads=threads):
        assert pa.table(t) == rows
        assert t.i.shape == (n,) and kv.facts().rows == n
        kept = t.filter("i % 2 == 0")
        keep = [k for k in range(n) if k % 7 != 0 and k % 2 == 0]
        assert pa.table(kept) == rows.take(keep)
        assert pa.chunked_array(kept.word).to_pylist() == rows["word"].take(keep).to_pylist()
        assert pl.DataFrame(kept).shape == (len(keep), 4)
        found = duckdb.sql("select count(*), count(word) from kept").fetchall()
        assert found == [(len(keep), len(keep) - kept.compute()["word"].null_count)]
        constant = t.assign(most=t.i.max(), at=t["at"]).select("i", "most")
        assert pa.table(constant)["most"].unique().to_pylist() == [n - 1]


@pytest.mark.parametrize("threads", [1, 3])
def test_streams_need_little_memory_and_stop_early(threads, tmp_path):
    n = 4_000_000
    rows = pa.table({"x": np.arange(n) * 1.0, "y": np.arange(n) * 2.0, "z": np.zeros(n)})
    path = tmp_path / "large.parquet"
    pq.write_table(rows, path, row_group_size=65_536, use_dictionary=False)
    large = kv.read(path)
    with kv.options(memory_limit="9.6MB", threads=threads):  # a tenth of the rows
        assert sum(b.num_rows for b in pa.RecordBatchReader.from_stream(large)) == n
        assert kv.facts().rows == n and kv.facts().memory_limit_bytes == 9_600_000
        first = next(iter(pa.RecordBatchReader.from_stream(large)))
        assert first.num_rows == 32_768 and large.x.max().compute() == n - 1
        with pytest.raises(pa.ArrowMemoryError, match="limit"):
            pa.table(large)


def test_the_session_can_be_used_while_a_stream_waits(wide):
    reader = pa.RecordBatchReader.from_stream(wide)
    seen = [reader.read_next_batch().num_rows]
    assert (wide.y.max() + 1).compute() == 2 * 999_999.0 + 1
    worker = threading.Thread(target=lambda: seen.extend(b.num_rows for b in reader))
    worker.start()
    worker.join()
    assert sum(seen) == 1_000_000
    inner = kv.function(lambda x: x + pa.table(wide.select("z")).num_rows, serial=True)
    assert wide.x.map_chunks(inner).max().compute() == 1_999_999


def test_errors_of_streams_name_what_failed_and_where(wide):
    def bug(x):
        return 1 / 0

    with pytest.raises(pa.ArrowInvalid, match=r"ZeroDivisionError.*partition 1.*test_rows.py") as e:
        pa.chunked_array(wide.x.map_chunks(bug))
    assert "line " in str(e.value)
    with pytest.raises(OSError, match="no_compute"), kv.no_compute():
        pa.table(wide)
    with kv.session():
        closed = pa.RecordBatchReader.from_stream(kv.table({"a": np.arange(200_000)}))
        assert closed.read_next_batch().num_rows == 32_768
    with pytest.raises((pa.ArrowInvalid, OSError)):
        closed.read_all()
    with pytest.raises(TypeError, match="2 dimensions"):
        pa.chunked_array(kv.zeros((3, 2)))


def test_an_interrupt_ends_a_stream():
    calls = []
    slow = kv.function(lambda b: calls.append(b) or time.sleep(0.1) or b, serial=True)
    t = kv.table({"a": np.arange(4_000_000)})
    threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()

    def pull():
        try:
            pa.table(t.map_chunks(slow))
        except OSError:
            time.sleep(5)  # Python raises what came while the consumer waited

    with pytest.raises(KeyboardInterrupt):
        pull()
    assert len(calls) < 100 and t.a.max().compute() == 3_999_999


def test_a_process_ends_while_a_stream_is_open(tmp_path):
    code = (
        "import kvbigdata as kv, pyarrow as pa, numpy as np\n"
        "r = pa.RecordBatchReader.from_stream(kv.table({'a': np.arange(1_000_000)}))\n"
        "print(r.read_next_batch().num_rows)\n"
    )
    run = subprocess.run(
        [sys.executable, "-c", code], capture_output=True, text=True, check=False, timeout=60
    )
    assert (run.returncode, run.stdout) == (0, "32768\n")


KEYS = [
    np.s_[:, 0],
    np.s_[..., 1],
    np.s_[:, 1:, 0],
    np.s_[:, [2, 0, 0]],
    np.s_[:, ::-1],
    np.s_[:, None, 1],
    np.s_[:3],
    np.s_[:3, 0, 1],
    np.s_[:, -1, -1],
    CUBE[:, 0, 0] > 2,
]


@pytest.mark.parametrize("key", KEYS)
def test_places_and_first_rows_are_selected_as_in_numpy(key):
    selected = kv.from_numpy(CUBE, chunk_rows=3)[key]
    np.testing.assert_array_equal(selected.compute(), CUBE[key])
    assert selected.shape[1:] == CUBE[key].shape[1:]
    assert selected.dtype == CUBE.dtype and (selected + 1).sum().compute() == (CUBE[key] + 1).sum()


@pytest.mark.parametrize(
    ("key", "error"),
    [
        (np.s_[:, 3], IndexError),
        (np.s_[0, 0, 0, 0], IndexError),
        (np.s_[2], TypeError),
        (np.s_[2:], TypeError),
        (np.s_[:-1], TypeError),
        (np.s_[[1, 2]], TypeError),
        (np.s_[None, :], TypeError),
        (np.s_[:, 3:], TypeError),
    ],
)
def test_other_indices_are_refused(key, error):
    with pytest.raises(error) as caught:
        kv.from_numpy(CUBE)[key]
    identifier = "KALVEX:array:BadIndex" if error is IndexError else "KALVEX:array:NotSupported"
    assert caught.value.identifier == identifier


@pytest.mark.parametrize("axis", [1, 2, -1, (1, 2), 0, None])
@pytest.mark.parametrize("dtype", ["float64", "float32", "int8", "uint16", "bool"])
def test_reductions_along_dimensions_are_those_of_numpy(axis, dtype):
    values = CUBE.astype(dtype)
    x = kv.from_numpy(values, chunk_rows=3)
    for name in ["sum", "mean", "min", "max", "any", "all", "std", "var", "count_nonzero"]:
        expected = getattr(np, name)(values, axis=axis)
        actual = getattr(np, name)(x, axis=axis).compute()
        assert actual.dtype == expected.dtype, name
        np.testing.assert_allclose(actual, expected, rtol=1e-6, err_msg=name)
    if axis not in (0, None):
        assert x.sum(axis=axis, keepdims=True).shape == values.sum(axis=axis, keepdims=True).shape
    if np.issubdtype(values.dtype, np.floating):
        values = np.where(values == 3, np.nan, values).astype(dtype)
        x = kv.from_numpy(values)
        for name in ["max", "nanmax", "sum", "nansum", "nanmean"]:
            expected = getattr(np, name)(values, axis=axis)
            np.testing.assert_allclose(getattr(np, name)(x, axis=axis).compute(), expected, 1e-6)


def test_rows_within_aggregates_and_sums_that_do_not_fit():
    x = kv.from_numpy(CUBE)
    means = x.mean(axis=0)
    np.testing.assert_allclose(means[1].compute(), CUBE.mean(axis=0)[1])
    np.testing.assert_allclose(means.max(axis=1).compute(), CUBE.mean(axis=0).max(axis=1))
    with pytest.raises(kv.Error, match="fit"):
        kv.from_numpy(np.full((2, 2), 2**62)).sum(axis=1).compute()
    with pytest.raises(TypeError, match="one after the other"):
        x.sum(axis=(0, 1))
    with kv.options(threads=1):
        opened = kv.from_numpy(CUBE[:, 0])
    assert opened[:, 1].explain() != ""


def test_tables_have_first_rows(tmp_path):
    path = tmp_path / "t.csv"
    path.write_text("a,b\n" + "".join(f"{i},x{i}\n" for i in range(20)))
    t = kv.read(path)
    assert t.head().compute().to_pydict() == {
        "a": [0.0, 1.0, 2.0, 3.0, 4.0],
        "b": ["x0", "x1", "x2", "x3", "x4"],
    }
    assert t.filter("a > 3").head(2).a.compute().tolist() == [4.0, 5.0]
    assert (t.a[:2] + t.a[:2]).compute().tolist() == [0.0, 2.0]
    assert t.head(50).select("b").compute().num_rows == 20
    with pytest.raises(kv.RowSpaceError):
        t.a[:2] + t.a
    with pytest.raises(ValueError, match="at least 0"):
        t.head(-1)


def test_functions_of_tables_return_rows(wide):
    def spread(batch):
        return {
            "w": np.asarray(batch["x"]) + np.asarray(batch["y"]),
            "n": [len(batch)] * len(batch),
        }

    same = wide.map_chunks(spread, dtypes={"w": "float64", "n": "int64"})
    assert kv.compute((same.w - wide.x * 3).max(), same.n.max()) == (0.0, 32_768)
    some = wide.filter("x % 2 == 0").map_chunks(
        lambda batch: pl.from_arrow(batch).filter(pl.col("x") % 1000 == 0), rows="any"
    )
    assert some.columns == wide.columns
    assert some.y.compute().tolist() == [2000.0 * k for k in range(1000)]
    frames = wide.filter("x % 2 == 0").x.map_chunks(lambda x: x[:1], rows="any").compute()
    assert frames.tolist() == [65_536.0 * k for k in range(16)]
    assert pa.table(some).num_rows == 1000
    for function, error, text in [
        (lambda b: b.slice(0, 1), ValueError, "as many rows"),
        (lambda b: 3, TypeError, "Arrow table or batch"),
        (lambda b: {"x": b["x"]}, ValueError, "dtypes="),
        (lambda b: b.set_column(0, "x", b["x"].cast("int64")), TypeError, "int64"),
    ]:
        with pytest.raises(error, match=text):
            wide.map_chunks(function).compute()
    with pytest.raises(TypeError, match='"same" or "any"'):
        wide.map_chunks(spread, rows="all")
    with pytest.raises(kv.RowSpaceError):
        some.x + wide.x


def test_recording_calls_no_function_of_the_user_on_computed_arrays():
    outcomes = []
    for is_computed in (False, True):
        x = kv.arange(100_000.0)
        inputs = (x, x.max(), kv.table({"x": x}))
        if is_computed:
            kv.compute(inputs)
        calls = []
        with kv.no_compute():
            mapped = [each.map_chunks(lambda v, c=calls: c.append(len(v)) or v) for each in inputs]
            failing = [each.map_chunks(lambda v: 1 / 0) for each in inputs]
            failing.append((x * np.nan).astype(int))
        assert calls == []
        values, most, table = kv.compute(mapped)
        notes = []
        for each in failing:
            with pytest.raises(ArithmeticError) as caught:
                each.compute()
            notes.append(caught.value.__notes__)
        outcomes.append((values.tolist(), most, table, sorted(calls), notes))
    assert outcomes[0] == outcomes[1]
    assert "failing = [each.map_chunks" in notes[1][0]
    assert notes[0] == [notes[1][0], "partition 1, rows 1 to 32768"]


def test_groups_have_sorted_keys_and_a_group_of_missing_ones(tmp_path):
    rows = pa.table({"k": ["b", None, "a", "b"], "x": [1.0, 2.0, None, 4.0], "n": [1, 2, 3, 4]})
    pq.write_table(rows, tmp_path / "k.parquet")
    t = kv.read(tmp_path / "k.parquet")
    made = t.group_by("k").agg(
        rows="count", there=("x", "count"), m=("x", "mean"), last=("n", "last")
    )
    assert made.compute().to_pydict() == {
        "k": ["a", "b", None],
        "rows": [1, 2, 1],
        "there": [0, 2, 1],
        "m": pytest.approx([np.nan, 2.5, 2.0], nan_ok=True),
        "last": [3, 4, 2],
    }
    assert made.filter("rows > 1").k.compute().tolist() == ["b"]
    assert t.group_by("k", "n").agg().compute().num_rows == 4
    grouped = t.group_by("k")
    assert isinstance(grouped, kv.Grouped) and grouped.keys == ["k"] and "by k" in repr(grouped)
    for wrong, error in [
        (lambda: t.group_by("kk"), KeyError),
        (lambda: t.group_by().agg(n="count"), ValueError),
        (lambda: grouped.agg(m=("x", "median")), ValueError),
        (lambda: grouped.agg(m=("k", "mean")), TypeError),
        (lambda: grouped.agg(m=lambda g: g.x.max()), TypeError),
        (lambda: grouped.agg(k="count"), ValueError),
    ]:
        with pytest.raises(error) as caught:
            wrong()
        assert isinstance(caught.value, kv.Error)
    gc.collect()


@pytest.mark.parametrize("switches", ["", "-prune"])
def test_rows_that_any_result_needs_are_not_skipped(tmp_path, monkeypatch, switches):
    monkeypatch.setenv("KV_OPTIMIZER", switches)
    x = np.arange(20_000)
    pq.write_table(pa.table({"x": x}), tmp_path / "x.parquet", row_group_size=7_000)
    t = kv.read(tmp_path / "x.parquet")
    late = t.x >= 14_000  # the last row group
    assert kv.compute(t.x[late].sum(), t.x.sum()) == (x[14_000:].sum(), x.sum())
    with pytest.raises(kv.Error, match="negative"):  # in the first row group
        kv.compute((1 ** (t.x - 100))[late].max())


def test_what_does_not_fit_is_refused_before_it_is_read_or_collected(tmp_path):
    rows = pa.table({"x": np.arange(200_000.0)})
    path = tmp_path / "rows.parquet"
    pq.write_table(rows, path)
    x = kv.read(path).x
    path.unlink()  # whatever reads it fails otherwise
    with kv.session(), kv.options(memory_limit="1MB"):
        borrowed = kv.from_arrow(rows).x
        reader = pa.RecordBatchReader.from_batches(rows.schema, rows.to_batches(max_chunksize=1000))
        with pytest.raises(MemoryError, match="collected needs at least"):
            kv.from_arrow(reader)
        few = pa.RecordBatchReader.from_batches(rows.schema, rows.slice(0, 1000).to_batches())
        assert kv.from_arrow(few).x.sum().compute() == 499_500
        assert borrowed.max().compute() == 199_999
    with kv.options(memory_limit="1MB"), pytest.raises(MemoryError) as caught:
        x.compute()
    assert caught.value.identifier == "KALVEX:memory:ResultTooLarge"
