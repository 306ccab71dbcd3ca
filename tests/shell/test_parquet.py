"""Parquet files that pyarrow wrote, read by the command."""

import os
from datetime import datetime
from decimal import Decimal
from pathlib import Path

import pyarrow as pa
import pytest
from command import Run
from pyarrow import csv
from pyarrow import parquet as pq

QUESTIONS = (
    "mean(dep_delay)",
    "std(dep_delay - mean(dep_delay))",
    "sum(distance)",
    "late = mean(arr_delay > 60)",
    "n = count(year)",
)


@pytest.fixture
def run(tool: Path, tmp_path: Path) -> Run:
    return Run(tool, tmp_path)


def test_answers_have_the_same_bits_as_those_of_the_same_rows_in_csv(
    run: Run, flights: Path
) -> None:
    (run.folder / "flights.csv").symlink_to(flights)
    types = dict.fromkeys(
        ("year", "month", "day", "dep_delay", "arr_delay", "distance"), pa.float64()
    )
    options = csv.ConvertOptions(
        column_types=types, null_values=["", "NA"], strings_can_be_null=True
    )
    table = csv.read_csv(flights, convert_options=options)
    pq.write_table(table, run.folder / "odd.parquet", row_group_size=10_007)
    pq.write_table(
        table,
        run.folder / "bare.pq",  # recognised by its content
        write_statistics=False,
        use_dictionary=False,
        compression="zstd",
        data_page_version="2.0",
        write_page_checksum=True,
    )
    where = ("--where", 'origin == "JFK" & month <= 3')
    for words in (QUESTIONS, (*QUESTIONS, *where)):
        expected = run.query("flights.csv", *words)
        for name in ("odd.parquet", "bare.pq"):
            answer = run.query(name, *words)
            assert answer["results"] == expected["results"]
            assert answer["rows"] == expected["rows"] == 336_776
            assert answer["passes"] == expected["passes"]


@pytest.fixture
def parts(run: Run) -> Run:
    (run.folder / "parts").mkdir()
    for part in range(3):
        rows = range(part * 4, part * 4 + 4)
        table = pa.table(
            {
                "x": pa.array([None if i == 5 else i for i in rows], pa.int32()),
                "word": pa.array([f"w{i % 3}" for i in rows]).dictionary_encode(),
                "when": [datetime(2026, 1, 1 + i) for i in rows],
                "nested": [[i] for i in rows],
            }
        )
        pq.write_table(table, run.folder / "parts" / f"{part}.parquet", row_group_size=3)
    return run


def test_a_folder_and_a_pattern_are_one_table(parts: Run) -> None:
    words = ("sum(x)", "n = count(x)", "w = count(word)", "--where", 'word != "w2"')
    expected = {"sum(x)": sum(i for i in range(12) if i % 3 < 2), "n": 8, "w": 8}
    for path in ("parts", "parts/*.parquet"):
        assert parts.results(path, *words) == expected
    on = {**os.environ, "KV_OPTIMIZER": ""}
    assert "1 of 4 columns: x" in parts("explain", "parts", "mean(x)", env=on).stdout
    assert parts.results("parts", "n = count(when)", "last = max(when)") == {
        "n": 12,
        "last": "2026-01-12T00:00:00",
    }


def test_a_saved_query_reads_moved_files(parts: Run) -> None:
    assert parts("save", "late.kv", "parts", "s = sum(x)").returncode == 0
    shown = parts("open", "late.kv")
    assert "read parts (3 files)" in shown.stdout
    (parts.folder / "parts").rename(parts.folder / "new")
    gone = parts("open", "late.kv", "--trust")
    assert gone.returncode == 3 and "0.parquet', which a saved array reads, is gone" in gone.stderr
    moved = parts("open", "late.kv", "--trust", "--data", "parts=new", "--json")
    assert '"s": 61' in moved.stdout
    pq.write_table(pa.table({"x": ["text"]}), parts.folder / "new" / "0.parquet")
    other = parts("open", "late.kv", "--trust", "--data", "parts=new")
    assert other.returncode == 3 and "column" in other.stderr


def test_mistakes_are_named(parts: Run) -> None:
    (parts.folder / "parts" / "a.csv").write_text("x\n1\n")
    (parts.folder / "cut.parquet").write_bytes(
        (parts.folder / "parts" / "0.parquet").read_bytes()[:-9]
    )
    cases = (
        ("parts/0.parquet", "count(nested)", 2, "'nested' has the type list<"),
        ("parts/0.parquet", "count(y)", 2, "y"),
        ("parts", "count(x)", 3, "'parts/0.parquet' is Parquet, 'parts/a.csv' is CSV"),
        ("cut.parquet", "count(x)", 3, "'cut.parquet' can't be read as Parquet"),
    )
    for path, expression, code, message in cases:
        assert message in parts.refusal(path, expression, code=code)
    fixed = parts.refusal("parts/0.parquet", "sum(x)", "--type", "x=double")
    assert "it has the type int32" in fixed
    assert parts.results("parts/0.parquet", "sum(x)", "--type", "x=int32") == {"sum(x)": 6}


def test_the_plan_names_types_of_the_file_that_are_read_as_other_ones(run: Run) -> None:
    times = pa.array([0, 3_600_000_000_000], pa.timestamp("ns", tz="Europe/Berlin"))
    prices = pa.array([Decimal("1.10"), Decimal("2.20")], pa.decimal128(9, 2))
    table = pa.table({"x": [1.0, 2.0], "t": times, "price": prices})
    pq.write_table(table, run.folder / "a.parquet")
    plan = run("explain", "a.parquet", "max(t)", "max(price)", "max(x)").stdout
    types = "x, t (timestamp[ns, tz=Europe/Berlin]), price (decimal128(9, 2))"
    assert f"3 of 3 columns: {types}" in plan
    assert run.results("a.parquet", "t = max(t)", "p = max(price)") == {
        "t": "1970-01-01T01:00:00",
        "p": 2.2,
    }
