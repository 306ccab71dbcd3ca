#!/usr/bin/env python3
"""Writes the table of figures from the results of a benchmark run.

    scripts/performance_table.py <results folder> <out.md>

A figure is a median over repetitions, next to the best one, since other load on a machine only adds
time. The verdict compares the median with the goal.
"""

import json
import os
import platform
import statistics
import sys
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

MIB = 1024 * 1024

INTRODUCTION = """\
# What it costs

Written by `make bench`; change the benches in `bench/` or the texts in `scripts/performance_table.py`, not this file.
Each figure is a median over repetitions; *best* is the smallest, since other load on a machine only adds time.
Recording, planning, collecting and everything from Python are processor time, queries are wall time; the sides of a comparison take turns.
A missed goal is stated with its factor and without a reason: the figures of a run don't prove one.
"""


class Results:
    """The results of the benchmark programs and the process runs."""

    def __init__(self, folder: Path) -> None:
        self._runs: dict[str, list[dict]] = {}
        for file in sorted(folder.glob("*.json")):
            content = json.loads(file.read_text())
            for run in content.get("benchmarks", []) if isinstance(content, dict) else []:
                if run["run_type"] == "iteration":
                    self._runs.setdefault(run["run_name"].split("/iterations")[0], []).append(run)
        self.processes = json.loads((folder / "processes.json").read_text())
        self.memory = json.loads((folder / "memory.json").read_text())
        self.queries = json.loads((folder / "queries.json").read_text())["seconds"]
        self.profile = json.loads((folder / "profile.json").read_text())

    def values(self, run: str, field: str) -> list[float]:
        return [repetition[field] for repetition in self._runs[run]]

    def median(self, run: str, field: str) -> float:
        return statistics.median(self.values(run, field))

    def nanoseconds(self, run: str) -> list[float]:
        """Time for one item of each repetition."""
        return [1e9 / rate for rate in self.values(run, "items_per_second")]

    def milliseconds(self, run: str) -> list[float]:
        return self.values(run, "real_time")


@dataclass(frozen=True)
class Figure:
    """One row: `measure` gives a value for each repetition; a goal is the most that it may be."""

    name: str
    measure: Callable[[Results], list[float]]
    form: str
    goal: float | None = None

    def row(self, results: Results) -> str:
        values = self.measure(results)
        median = statistics.median(values)
        best = self.form.format(min(values)) if len(values) > 1 else ""
        goal = "" if self.goal is None else "at most " + self.form.format(self.goal)
        return f"| {self.name} | {self.form.format(median)} | {best} | {goal} | {self.verdict(median)} |"

    def verdict(self, median: float) -> str:
        if self.goal is None:
            return ""
        return (
            "met" if median <= self.goal else f"**missed**, {median / self.goal:.2f} times the goal"
        )


def microseconds(run: str) -> Callable[[Results], list[float]]:
    return lambda results: [time / 1000 for time in results.nanoseconds(run)]


def depth_ratio(results: Results) -> list[float]:
    deep, flat = (
        statistics.median(results.nanoseconds(f"recordAndFree/{n}")) for n in (100_000, 100)
    )
    return [deep / flat]


def width_ratio(results: Results) -> list[float]:
    wide, narrow = (
        statistics.median(results.nanoseconds(f"recordOnColumns/{n}")) for n in (100_000, 19)
    )
    return [wide / narrow]


def planning(count: int) -> Callable[[Results], list[float]]:
    """The time of a plan without the host's createExecutionTasks."""

    def measure(results: Results) -> list[float]:
        calls = statistics.median(results.nanoseconds(f"createExecutionTasks/{count}"))
        return [(time - calls) / 1000 for time in results.nanoseconds(f"plan/{count}")]

    return measure


def query_ratio(results: Results) -> list[float]:
    arrow = statistics.median(results.milliseconds("flights/arrow/real_time"))
    return [time / arrow for time in results.milliseconds("flights/ours/real_time")]


def process(side: str, field: str, unit: float) -> Callable[[Results], list[float]]:
    return lambda results: [results.processes[side][field] / unit]


def process_ratio(results: Results) -> list[float]:
    return [results.processes["ours"]["seconds"] / results.processes["arrow"]["seconds"]]


def added_memory(results: Results) -> list[float]:
    sides = results.processes
    return [(sides["copies"]["peak_bytes"] - sides["ours"]["peak_bytes"]) / MIB]


def query(side: str) -> Callable[[Results], list[float]]:
    return lambda results: results.queries[side]


def relative_query(side: str, other: str) -> Callable[[Results], list[float]]:
    """The time of one side relative to that of another, round by round, since they took turns."""

    def measure(results: Results) -> list[float]:
        both = zip(results.queries[side], results.queries[other], strict=True)
        return [ours / theirs for ours, theirs in both]

    return measure


def query_figures(kind: str, name: str, against_polars: float | None) -> list[Figure]:
    ours, polars = f"{kind}/ours2", f"{kind}/polars"
    return [
        Figure(name, query(ours), "{:.2f} s"),
        Figure("Polars, streaming", query(polars), "{:.2f} s"),
        Figure("ours against Polars", relative_query(ours, polars), "{:.2f} times", against_polars),
        Figure(
            "two threads against one",
            relative_query(ours, f"{kind}/ours1"),
            "{:.2f} times",
            1 / 1.8,
        ),
    ]


def per_step(threads: int) -> Callable[[Results], list[float]]:
    """The time that a chunk takes at each step of a chain of 20, beside a unit without steps."""

    def measure(results: Results) -> list[float]:
        units = statistics.median(results.nanoseconds(f"dispatch/{threads}/0/real_time"))
        chains = results.nanoseconds(f"dispatch/{threads}/20/real_time")
        return [(chain - units) / 20_000 for chain in chains]

    return measure


def resident(query: int) -> Callable[[Results], list[float]]:
    return lambda results: [results.memory["queries"][query]["resident_bytes"] / MIB]


def share_from_disk(results: Results) -> list[float]:
    run = results.memory["queries"][0]
    return [run["bytes_from_disk"] / run["bytes"]]


def share_of_allowance(results: Results) -> list[float]:
    return [max(run["share_of_allowance"] for run in results.memory["limits"])]


def footprint(field: str) -> Callable[[Results], list[float]]:
    return lambda results: [results.median("footprint/1000000", field)]


def python_ratio(peer: str) -> Callable[[Results], list[float]]:
    """Our time relative to a peer's, repetition by repetition, since they took turns."""

    def measure(results: Results) -> list[float]:
        both = zip(results.nanoseconds("python/record"), results.nanoseconds(peer), strict=True)
        return [ours / theirs for ours, theirs in both]

    return measure


# The operations of bench/from_python.py: on arrays x and y of doubles, a and b of logicals, and a
# table t.
RECORDED_FROM_PYTHON = (
    "x * y",
    "x + x",
    "-x",
    "x > 1",
    "x != 1",
    "a & b",
    "x[a]",
    "kv.where(a, x, 0)",
    "kv.sqrt(x)",
    "np.sqrt(x)",
    "x.sum()",
    "x.mean()",
    "np.mean(x)",
    't["x"]',
    "t.x",
)


def recording(operation: str) -> Figure:
    return Figure(f"recording `{operation}`", microseconds(f"python/{operation}"), "{:.2f} us", 5)


SECTIONS = {
    "Recording `x = x + 1`, a chain held at its end": [
        Figure(
            "by name, 10^6 operations",
            microseconds("recordByName/1000000"),
            "{:.2f} us",
            2,
        ),
        Figure(
            "by operator of `kv::Array`, 10^6",
            microseconds("recordByOperator/1000000"),
            "{:.2f} us",
            2,
        ),
        Figure(
            "recorded and freed again, by name, depth 10^2",
            microseconds("recordAndFree/100"),
            "{:.2f} us",
        ),
        Figure(
            "recorded and freed again, by name, depth 10^5",
            microseconds("recordAndFree/100000"),
            "{:.2f} us",
        ),
        Figure(
            "depth 10^5 against 10^2",
            depth_ratio,
            "{:.2f} times",
            1.3,
        ),
        Figure(
            "on columns of a table of 19, per operation",
            microseconds("recordOnColumns/19"),
            "{:.2f} us",
        ),
        Figure(
            "on columns of a table of 10^5", microseconds("recordOnColumns/100000"), "{:.2f} us"
        ),
        Figure(
            "10^5 columns against 19",
            width_ratio,
            "{:.2f} times",
            1.5,
        ),
        Figure("resident memory per operation", footprint("bytes"), "{:.0f} bytes"),
        Figure(
            "first 10^6 of a process, including pages from the system ",
            lambda results: [results.median("footprint/1000000", "cpu_time") / 1000],
            "{:.2f} us",
        ),
    ],
    "Planning and collecting": [
        Figure("planning a closure, 10^3 in the plan", planning(1000), "{:.2f} us", 1),
        Figure("planning a closure, 10^5 in the plan", planning(100_000), "{:.2f} us", 1),
        Figure("the walk alone, 10^5", microseconds("walk/100000"), "{:.2f} us"),
        Figure(
            "collector, per live object of 10^6",
            lambda r: r.nanoseconds("collect/1000000"),
            "{:.1f} ns",
            40,
        ),
    ],
    "From Python": [
        Figure(
            "recording `x = x + 1` on a `kv.Array`",
            microseconds("python/recordArray"),
            "{:.2f} us",
            5,
        ),
        *(recording(operation) for operation in RECORDED_FROM_PYTHON),
        Figure(
            "`kv.asarray(x).sum().compute()` of 100 rows",
            microseconds("python/computeSum"),
            "{:.0f} us",
            300,
        ),
        Figure(
            "`import kvbigdata`, warm",
            lambda results: [time / 1e6 for time in results.nanoseconds("python/import")],
            "{:.0f} ms",
            250,
        ),
    ],
    "From Python, through `kvbigdata.host`": [
        Figure(
            "recording `x = x + 1`, by name",
            microseconds("python/record"),
            "{:.2f} us",
            4,
        ),
        Figure("the same in MLX, on its CPU", microseconds("python/recordMlx"), "{:.2f} us"),
        Figure("the same in dask", microseconds("python/recordDask"), "{:.0f} us"),
        Figure("ours against MLX", python_ratio("python/recordMlx"), "{:.1f} times"),
        Figure("ours against dask", python_ratio("python/recordDask"), "{:.3f} times"),
        Figure(
            "a call by name of a native function", microseconds("python/callNative"), "{:.2f} us"
        ),
        Figure(
            "a call by name of a function in Python", microseconds("python/callPython"), "{:.2f} us"
        ),
        Figure("a double to the host and back", microseconds("python/double"), "{:.2f} us"),
        Figure(
            "a read-only array of 1 MiB to the host and back",
            microseconds("python/borrowed"),
            "{:.2f} us",
        ),
        Figure(
            "a writable array of 1 MiB to the host (copied) and back",
            microseconds("python/copied"),
            "{:.1f} us",
        ),
        Figure("a Python callable, per chunk", microseconds("python/chunk"), "{:.1f} us"),
    ],
    "Six aggregates of 336,776 flights (CSV), filtered, one thread": [
        Figure(
            "ours, in a process", lambda r: r.milliseconds("flights/ours/real_time"), "{:.1f} ms"
        ),
        Figure(
            "plain Arrow, in a process",
            lambda r: r.milliseconds("flights/arrow/real_time"),
            "{:.1f} ms",
        ),
        Figure("ours against Arrow", query_ratio, "{:.2f} times", 1.2),
        Figure("`kvbig query`, whole process", process("ours", "seconds", 1e-3), "{:.1f} ms"),
        Figure("plain Arrow, whole process", process("arrow", "seconds", 1e-3), "{:.1f} ms"),
        Figure(
            "ours against Arrow, whole process",
            process_ratio,
            "{:.2f} times",
            1.2,
        ),
        Figure("peak memory of `kvbig query`", process("ours", "peak_bytes", MIB), "{:.0f} MiB"),
        Figure("peak memory of plain Arrow", process("arrow", "peak_bytes", MIB), "{:.0f} MiB"),
        Figure(
            "additional memory for twenty copies (600 MB)",
            added_memory,
            "{:.0f} MiB",
            32,
        ),
    ],
    "Means and deviations of 8 columns of doubles where the first is positive, 1 GiB of CSV": [
        *query_figures("csv", "ours from CSV, two threads", 1),
        *query_figures("parquet", "ours from Parquet (snappy)", 1 / 0.95),
        *query_figures("memory", "ours from memory", None),
        Figure("NumPy from memory, one thread", query("memory/numpy"), "{:.2f} s"),
    ],
    "Units and chunks of one row": [
        Figure("a unit, one thread", microseconds("dispatch/1/0/real_time"), "{:.2f} us", 5),
        Figure("a unit, two threads", microseconds("dispatch/2/0/real_time"), "{:.2f} us", 5),
        Figure("a chunk at a step, one thread", per_step(1), "{:.2f} us", 1),
        Figure("a chunk at a step, two threads", per_step(2), "{:.2f} us", 1),
    ],
    "Memory of whole processes, two threads": [
        Figure(
            "filter, means and deviations of 8 columns, 1 GiB (CSV)", resident(0), "{:.0f} MiB", 100
        ),
        Figure("the same, 2 GiB", resident(1), "{:.0f} MiB", 100),
        Figure(
            "the same, 1 GiB: bytes from disk, as a share of the file",
            share_from_disk,
            "{:.2f}",
            1.05,
        ),
        Figure(
            "under limits of 64 to 256 MiB: anonymous memory, as a share of 1.15 limits + 16 MiB",
            share_of_allowance,
            "{:.2f}",
            1,
        ),
    ],
}


def machine() -> str:
    """Processor, cores and system in one line."""
    info = Path("/proc/cpuinfo").read_text() if Path("/proc/cpuinfo").exists() else ""
    names = [
        line.split(":")[1].strip() for line in info.splitlines() if line.startswith("model name")
    ]
    kind = names[0] if names else platform.machine()
    return f"{kind}, {os.cpu_count()} cores, {platform.system()} {platform.release().split('-')[0]}"


def where_time_goes(results: Results) -> list[str]:
    """Counts and shares that explain the time of recording."""
    created = results.median("recordByName/1000000", "objects")
    share = results.median("recordByName/1000000", "collector_share")
    held = [
        f"{results.median('footprint/1000000', what):.0f} {what}" for what in ("objects", "arrays")
    ]
    lines = [
        f"One operation creates {created:.0f} objects, of which the chain holds {held[0]} and {held[1]}.",
        f"By the collector's own clock, it takes {share:.0%} of the time at 10^6.",
    ]
    if results.profile:
        lines += [
            "Samples by kind of work, from a run in fresh memory, whose pages the system must provide first:",
            "",
            "| kind | share |",
            "| --- | --- |",
        ]
        lines += [f"| {kind} | {percent:.0f} % |" for kind, percent in results.profile.items()]
    return lines


def page(results: Results) -> str:
    lines = [INTRODUCTION, f"Machine: {machine()}.", ""]
    for title, figures in SECTIONS.items():
        lines += [
            f"## {title}",
            "",
            "| figure | median | best | goal | verdict |",
            "| --- | --- | --- | --- | --- |",
        ]
        lines += [figure.row(results) for figure in figures]
        lines.append("")
        if title.startswith("Recording"):
            lines += [*where_time_goes(results), ""]
    return "\n".join(lines).rstrip() + "\n"


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    Path(sys.argv[2]).write_text(page(Results(Path(sys.argv[1]))))
