"""kvbig query -o: other tools open what it writes."""

import json
import os
import signal
import subprocess
import time
from pathlib import Path

import duckdb
import numpy as np
import polars as pl
import pyarrow as pa
import pyarrow.dataset as ds
import pyarrow.parquet as pq
import pytest
from command import Run

TEXTS = ["a", "ü", 'with "quotes", and\nlines', None]
ROWS = pa.table(
    {
        "x": pa.array([1.5, None, -0.0, float("inf")]),
        "f": pa.array([1, 2, 3, 4], pa.float32()),
        "n": pa.array([1, None, 3, 2**62], pa.int64()),
        "ok": pa.array([True, False, None, True]),
        "t": pa.array([0, 1, None, 2**50], pa.timestamp("us")),
        "d": pa.array([0, -1, None, 2**50], pa.duration("us")),
        "s": pa.array(TEXTS),
    }
)


@pytest.fixture
def run(tool: Path, tmp_path: Path) -> Run:
    pq.write_table(ROWS, tmp_path / "in.parquet")
    return Run(tool, tmp_path)


def test_other_tools_open_every_format(run: Run) -> None:
    here = run.folder
    for output in ("a.parquet", "a.arrow", "a.csv", "parts"):
        assert run.results("in.parquet", "-o", output) == {"rows written": 4}
    expected = ROWS.set_column(0, "x", pa.array([1.5, float("nan"), -0.0, float("inf")]))
    tables = [
        pq.read_table(here / "a.parquet"),
        pa.ipc.open_file(here / "a.arrow").read_all(),
        ds.dataset(here / "parts").to_table(),
    ]
    for table in tables:
        assert table.schema.equals(expected.schema)
        assert repr(table.to_pydict()) == repr(expected.to_pydict())
    for frame in (
        pl.read_parquet(here / "a.parquet"),
        pl.read_ipc(here / "a.arrow"),
        pl.read_csv(here / "a.csv"),
    ):
        assert frame["n"].to_list() == [1, None, 3, 2**62]
        assert frame["s"].to_list() == TEXTS
    for source in ("a.parquet", "parts/*.parquet", "a.csv"):
        rows = duckdb.connect().execute(f"select n, s, f from '{here / source}'").fetchall()
        assert rows == list(zip([1, None, 3, 2**62], TEXTS, [1, 2, 3, 4], strict=True))
    assert json.loads((here / "parts/_kv_manifest.json").read_text())["rows"] == 4
    again = run.results("a.parquet", "sum(n > 1)", "max(s)", "max(t)", "sum(ok)")
    assert again == run.results("in.parquet", "sum(n > 1)", "max(s)", "max(t)", "sum(ok)")


def test_columns_are_selected_and_computed_in_one_pass(run: Run) -> None:
    words = ["in.parquet", "mean(f)", "--where", "f > 1", "--select", "`f`, g = max(f) - f, f * 2"]
    done = run.query(*words, "-o", "a.parquet")
    assert done["results"] == {"mean(f)": 3, "rows written": 3}
    table = pq.read_table(run.folder / "a.parquet")
    assert table.to_pydict() == {"f": [2, 3, 4], "g": [2, 1, 0], "f * 2": [4, 6, 8]}
    run.query("in.parquet", "--select", "f, h = f / 2", "-o", "a.npy")
    assert np.load(run.folder / "a.npy").tolist() == [[1, 0.5], [2, 1], [3, 1.5], [4, 2]]
    run.query("in.parquet", "--select", "t2 = t", "--where", "t < t + d", "-o", "t.npy")
    assert np.load(run.folder / "t.npy").dtype == "datetime64[us]"
    run.query("in.parquet", "--partition-by", "s", "--partition-by", "ok", "-o", "by")
    keyed = ds.dataset(run.folder / "by", partitioning="hive").to_table()
    assert keyed.sort_by("f")["s"].to_pylist() == TEXTS
    plan = run("query", "in.parquet", "-o", "b.csv", "--explain")
    assert f"write {run.folder}/b.csv" in plan.stdout and not (run.folder / "b.csv").exists()


@pytest.mark.parametrize(
    ("words", "code", "text"),
    [
        (["in.parquet"], 2, "EXPR is required, unless -o writes rows"),
        (["in.parquet", "max(f)", "--select", "f"], 2, "-o PATH"),
        (["in.parquet", "-o", "a.csv", "--select", "f, f"], 2, 'two columns are named "f"'),
        (["in.parquet", "-o", "a.csv", "--select", "f, 3"], 2, "uses no column"),
        (["in.parquet", "-o", "a.csv", "--select", "f,, x"], 2, "empty"),
        (["in.parquet", "-o", "a.txt"], 4, "'.txt'"),
        (["in.parquet", "-o", "in.parquet", "--overwrite"], 4, "is read to compute"),
        (["in.parquet", "-o", "a.csv", "--partition-by", "s"], 4, "ending of a file"),
        (["in.parquet", "-o", "a.npy"], 4, "holds one type"),
        (["in.parquet", "-o", "a.npy", "--select", "n"], 4, "missing value, as in row 2"),
    ],
)
def test_mistakes_are_refused_and_leave_nothing(
    run: Run, words: list[str], code: int, text: str
) -> None:
    assert text in run.refusal(*words, code=code)
    assert os.listdir(run.folder) == ["in.parquet"]


@pytest.mark.parametrize("kind", [signal.SIGINT, signal.SIGKILL])
def test_a_run_that_is_stopped_leaves_no_target(run: Run, kind: signal.Signals) -> None:
    (run.folder / "big.csv").write_bytes(b"x\n" + b"1234.5\n" * 6_000_000)
    process = subprocess.Popen(
        [run.tool, "query", "big.csv", "-o", "out", "--format", "csv"], cwd=run.folder
    )
    while not list(run.folder.glob(".kv-*/content/part*")) and process.poll() is None:
        time.sleep(0.001)
    process.send_signal(kind)
    process.wait(60)
    assert not (run.folder / "out").exists()
    assert bool(list(run.folder.glob(".kv-*"))) == (kind == signal.SIGKILL)
    assert run.results("in.parquet", "-o", "other.csv") == {"rows written": 4}
    assert not list(run.folder.glob(".kv-*"))
