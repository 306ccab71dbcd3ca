"""Parquet files by several writers, with statistics of every kind: filters give the same answers
whether or not row groups are skipped."""

import json
import math
import os
import struct
from collections.abc import Callable
from datetime import UTC, date, datetime, timedelta
from decimal import Decimal
from pathlib import Path
from typing import Any

import duckdb
import polars as pl
import pyarrow as pa
import pytest
from command import Run
from pyarrow import parquet as pq

ROWS = 5_000
NAN = math.nan


def source() -> pa.Table:
    """Ascending values, so that row groups differ; every seventh is missing."""
    some = [None if row % 7 == 0 else row for row in range(ROWS)]

    def each(make: Callable[[int], Any]) -> list[Any]:
        return [None if row is None else make(row) for row in some]

    first = datetime(2020, 1, 1, tzinfo=UTC)
    return pa.table(
        {
            "i": pa.array(each(lambda row: row - 2500), pa.int32()),
            "u": pa.array(each(lambda row: 2**63 + row), pa.uint64()),
            "x": pa.array([NAN if row % 5 == 0 else row / 4 for row in range(ROWS)], pa.float64()),
            "only_nan": pa.array([NAN if row < 2000 else 1.0 for row in range(ROWS)]),
            "w": pa.array(each(lambda row: "w" * 100 + f"{row:06}"), pa.string()),
            "b": pa.array(each(lambda row: row > 3000), pa.bool_()),
            "d": pa.array(each(lambda row: Decimal(row) / 100), pa.decimal128(9, 2)),
            "when": pa.array(
                each(lambda row: first + timedelta(hours=row)), pa.timestamp("ns", "UTC")
            ),
            "day": pa.array(each(lambda row: date(2020, 1, 1) + timedelta(row)), pa.date32()),
        }
    )


def by_pyarrow(table: pa.Table, path: Path, **options: Any) -> None:
    pq.write_table(table, path, **{"row_group_size": 701, **options})


def by_polars(table: pa.Table, path: Path) -> None:
    pl.DataFrame(table).write_parquet(path, row_group_size=333)


def by_duckdb(table: pa.Table, path: Path) -> None:
    duckdb.from_arrow(table).write_parquet(str(path), row_group_size=2048)


WRITERS: dict[str, tuple[Callable[..., None], dict[str, Any]]] = {
    "pyarrow": (by_pyarrow, {}),
    "one group": (by_pyarrow, {"row_group_size": ROWS}),
    "96 bits": (by_pyarrow, {"use_deprecated_int96_timestamps": True}),
    "no statistics": (by_pyarrow, {"write_statistics": False}),
    "polars": (by_polars, {}),
    "duckdb": (by_duckdb, {}),
}

# A condition, and the same of a row in Python; a missing value fulfils none.
CONDITIONS: list[tuple[str, Callable[[dict[str, Any]], bool]]] = [
    ("i > 2000", lambda row: row["i"] > 2000),
    ("-2400 >= i", lambda row: row["i"] <= -2400),
    ("i == 0 & x > 1", lambda row: row["i"] == 0 and row["x"] > 1),
    ("i > 2000 | i < -2400", lambda row: row["i"] > 2000 or row["i"] < -2400),
    ("!(i < 2400)", lambda row: not row["i"] < 2400),
    ("u > 9223372036854780000", lambda row: row["u"] > 9223372036854780000),
    ("x >= 1200.5", lambda row: row["x"] >= 1200.5),
    ("x < 1 & w < \"x\"", lambda row: row["x"] < 1),
    ("only_nan < 5", lambda row: row["only_nan"] < 5),
    (f'w == "{"w" * 100}004001"', lambda row: row["w"].endswith("004001")),
    (f'w > "{"w" * 100}0049"', lambda row: row["w"] > "w" * 100 + "0049"),
    ("b == true", lambda row: row["b"]),
    ("d <= 0.5", lambda row: row["d"] <= Decimal("0.5")),
    ('when < "2020-01-02"', lambda row: row["when"] < datetime(2020, 1, 2, tzinfo=UTC)),
    ('day >= "2033-09-01"', lambda row: row["day"] >= date(2033, 9, 1)),
    ("i > 1e9", lambda row: False),
]  # fmt: skip


@pytest.fixture(scope="module")
def table() -> pa.Table:
    return source()


@pytest.mark.parametrize("writer", WRITERS)
def test_skipped_row_groups_change_no_answer(
    tool: Path, tmp_path: Path, table: pa.Table, writer: str
) -> None:
    run = Run(tool, tmp_path)
    write, options = WRITERS[writer]
    write(table, tmp_path / "t.parquet", **options)
    # pandas' nanoseconds aren't needed: the moments are whole hours
    rows = table.set_column(7, "when", table["when"].cast(pa.timestamp("us", "UTC"))).to_pylist()
    skipped = {}
    for condition, holds in CONDITIONS:
        columns = [name for name in table.column_names if name in condition]
        kept = [
            row for row in rows if all(row[name] is not None for name in columns) and holds(row)
        ]
        whole = [row["i"] for row in kept if row["i"] is not None]
        words = ("t.parquet", "std(x)", "i = max(i)", "first = min(when)")
        answer = run.query(*words, "--where", condition)
        off = {**os.environ, "KV_OPTIMIZER": "-prune"}
        plain = run("query", "--json", *words, "--where", condition, env=off)
        assert answer["rows"] == ROWS
        assert json.loads(plain.stdout)["results"] == answer["results"]
        assert answer["results"]["i"] == max(whole, default=None), condition
        moments = [row["when"] for row in kept if row["when"] is not None]
        expected = min(moments).strftime("%Y-%m-%dT%H:%M:%S") if moments else None
        assert answer["results"]["first"] == expected, condition
        skipped[condition] = answer["skipped_rows"]
    if writer == "no statistics":
        assert set(skipped.values()) == {0}
    elif writer != "one group":
        sure = ("i > 2000", "-2400 >= i", "i == 0 & x > 1", "u > 9223372036854780000", "d <= 0.5")
        assert all(skipped[condition] > 0 for condition in sure), skipped
    assert skipped["i > 2000 | i < -2400"] == skipped["!(i < 2400)"] == 0
    assert skipped["i > 1e9"] == (0 if writer == "no statistics" else ROWS)


def test_a_plan_and_the_facts_say_what_is_skipped(
    tool: Path, tmp_path: Path, table: pa.Table
) -> None:
    run = Run(tool, tmp_path)
    by_pyarrow(table, tmp_path / "t.parquet")
    words = ("t.parquet", "mean(x)", "--where", "i > 2000 & b == true")
    on = {**os.environ, "KV_OPTIMIZER": ""}
    assert "skips rows by statistics of b, i" in run("explain", *words, env=on).stdout
    assert "5,000 rows (4,206 skipped), 1 pass" in run("query", *words, env=on).stdout
    off = {**os.environ, "KV_OPTIMIZER": "-prune"}
    assert "skips" not in run("explain", *words, env=off).stdout
    # A use of rows that the filter drops keeps all of them.
    other = ("t.parquet", "mean(x) + max(x - mean(x))", "max(i)")
    assert run.query(*other)["skipped_rows"] == 0


def test_bounds_that_are_not_numbers_skip_nothing(tool: Path, tmp_path: Path) -> None:
    run = Run(tool, tmp_path)
    path = tmp_path / "t.parquet"
    pq.write_table(pa.table({"x": [1.25, 2.5, NAN]}), path)
    assert run.query("t.parquet", "n = count(x)", "--where", "x > 100")["skipped_rows"] == 3
    data = path.read_bytes()
    footer = len(data) - 8 - struct.unpack("<I", data[-8:-4])[0]
    for bound in (1.25, 2.5):
        spoiled = data[footer:].replace(struct.pack("<d", bound), struct.pack("<d", NAN))
        assert spoiled != data[footer:]
        path.write_bytes(data[:footer] + spoiled)
        answer = run.query("t.parquet", "n = count(x)", "--where", "x > 2")
        assert (answer["results"]["n"], answer["skipped_rows"]) == (1, 0)
        assert run.query("t.parquet", "n = count(x)", "--where", "x > 100")["skipped_rows"] == 0
    # Some writers cut a text, and don't note that it isn't exact.
    pq.write_table(pa.table({"t": ["a" * 70, "b" * 70]}), path)
    data = path.read_bytes()
    footer = len(data) - 8 - struct.unpack("<I", data[-8:-4])[0]
    noted = b"a" * 70 + b"\x11\x11"
    assert noted in data[footer:]
    cut = data[footer:-8].replace(noted, noted[:-2]).replace(b"b" * 70, b"b" * 69 + b"a")
    path.write_bytes(data[:footer] + cut + struct.pack("<I", len(cut)) + b"PAR1")
    condition = f't == "{"b" * 70}"'
    assert run.query("t.parquet", "n = count(t)", "--where", condition)["results"]["n"] == 1
