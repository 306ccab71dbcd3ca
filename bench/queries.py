#!/usr/bin/env python3
"""Queries over a GiB of numbers: ours on one thread and two, against Polars and NumPy.

    bench/queries.py <out.json> [<GiB>]

A table of eight columns of doubles, as CSV, as Parquet (snappy, by pyarrow) and in memory. The
question is the mean and standard deviation of all columns where the first is positive. The sides take
turns on files that the system has in its cache; times are wall time. All sides have two threads, but
for NumPy, which has one. Needs `kvbigdata`, Polars, pyarrow and NumPy on the path.
"""

import json
import math
import os
import statistics
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

os.environ["POLARS_MAX_THREADS"] = "2"

import kvbigdata as kv
import numpy as np
import polars as pl
import pyarrow as pa
import pyarrow.csv
import pyarrow.parquet

COLUMNS = [f"c{i}" for i in range(8)]
BYTES_A_ROW = 8 * 11
BLOCK = 1 << 17
ROUNDS = 5
GIB = 2**30

Ask = Callable[[], list[float]]


def write_files(folder: Path, gibibytes: float) -> int:
    """Writes numbers.csv and numbers.parquet with the same rows; the number of rows."""
    chance = np.random.default_rng(1)
    blocks = max(1, round(gibibytes * GIB / BYTES_A_ROW / BLOCK))
    names = pa.schema([(name, pa.float64()) for name in COLUMNS])
    with (
        pa.csv.CSVWriter(folder / "numbers.csv", names) as csv,
        pa.parquet.ParquetWriter(
            folder / "numbers.parquet", names, compression="snappy"
        ) as parquet,
    ):
        for _ in range(blocks):
            columns = [np.round(chance.normal(0, 1000, BLOCK), 6) for _ in COLUMNS]
            block = pa.table(columns, schema=names)
            csv.write_table(block)
            parquet.write_table(block)
    return blocks * BLOCK


def ours(table: kv.Table, threads: int) -> Ask:
    def ask() -> list[float]:
        kept = table.filter(table["c0"] > 0)
        with kv.options(threads=threads):
            answers = [(kept[name].mean(), kept[name].std(ddof=1)) for name in COLUMNS]
            return [float(x) for x in kv.compute(*[x for pair in answers for x in pair])]

    return ask


def polars(frame: pl.LazyFrame) -> Ask:
    def ask() -> list[float]:
        aggregates = [f(pl.col(name)) for name in COLUMNS for f in (pl.Expr.mean, pl.Expr.std)]
        named = [a.alias(str(i)) for i, a in enumerate(aggregates)]
        kept = frame.filter(pl.col("c0") > 0).select(named)
        return list(kept.collect(engine="streaming").row(0))

    return ask


def numpy(columns: list[np.ndarray]) -> Ask:
    def ask() -> list[float]:
        kept = columns[0] > 0
        chosen = [column[kept] for column in columns]
        return [float(x) for column in chosen for x in (column.mean(), column.std(ddof=1))]

    return ask


def sides(folder: Path) -> dict[str, Ask]:
    csv, parquet = folder / "numbers.csv", folder / "numbers.parquet"
    whole = pa.parquet.read_table(parquet)
    arrays = [whole[name].to_numpy() for name in COLUMNS]
    tables = {
        "csv": kv.read_csv(csv),
        "parquet": kv.read_parquet(parquet),
        "memory": kv.table(dict(zip(COLUMNS, arrays, strict=True))),
    }
    sides = {
        f"{kind}/ours{threads}": ours(table, threads)
        for kind, table in tables.items()
        for threads in (1, 2)
    }
    return sides | {
        "csv/polars": polars(pl.scan_csv(csv)),
        "parquet/polars": polars(pl.scan_parquet(parquet)),
        "memory/polars": polars(pl.DataFrame(whole).lazy()),
        "memory/numpy": numpy(arrays),
    }


def measure(asks: dict[str, Ask]) -> dict[str, list[float]]:
    """Seconds of each round; a first round, which isn't counted, compares the answers."""
    answers = {name: ask() for name, ask in asks.items()}
    expected = answers["memory/numpy"]
    for name, answer in answers.items():
        if not all(
            math.isclose(x, y, rel_tol=1e-9, abs_tol=1e-9)
            for x, y in zip(answer, expected, strict=True)
        ):
            sys.exit(f"{name} answers {answer}, not {expected}")
    seconds: dict[str, list[float]] = {name: [] for name in asks}
    for _ in range(ROUNDS):
        for name, ask in asks.items():
            start = time.perf_counter()
            ask()
            seconds[name].append(time.perf_counter() - start)
    return seconds


def main(out: Path, gibibytes: float) -> None:
    with tempfile.TemporaryDirectory(dir=out.parent) as folder:
        rows = write_files(Path(folder), gibibytes)
        seconds = measure(sides(Path(folder)))
    for name, times in seconds.items():
        print(f"{name:16} {statistics.median(times):.3f} s")
    out.write_text(json.dumps({"rows": rows, "seconds": seconds}, indent=1) + "\n")


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    main(Path(sys.argv[1]), float(sys.argv[2]) if len(sys.argv) == 3 else 1.0)
