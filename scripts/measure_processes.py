#!/usr/bin/env python3
"""Measures the flights query as whole processes: time against plain Arrow, memory against one copy.

    scripts/measure_processes.py <build folder> <out.json>

Runs alternate between the two sides, so that other load on the machine slows both. Reports medians.
"""

import json
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

FLIGHTS = Path(__file__).resolve().parent.parent / "data" / "flights.csv"
QUESTIONS = [
    *("mean(dep_delay)", "std(dep_delay)", "max(dep_delay)", "count(dep_delay)"),
    *("mean(arr_delay > 60)", "sum(distance)"),
    *("--where", 'origin == "JFK"'),
]
PAIRS = 11
COPIES = 20


def run(command: list[str]) -> tuple[float, int]:
    """Seconds and peak resident bytes of one run."""
    start = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    seconds = time.perf_counter() - start
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{command[0]} ended with {process.returncode}")
    # A child's ru_maxrss starts at the memory that this process had when it started the child.
    if usage.ru_maxrss <= own_peak_kibibytes():
        sys.exit(f"{command[0]}: its peak memory is hidden by that of this script")
    return seconds, usage.ru_maxrss * 1024


def own_peak_kibibytes() -> int:
    lines = Path("/proc/self/status").read_text().splitlines()
    return next(int(line.split()[1]) for line in lines if line.startswith("VmHWM:"))


def alternate(first: list[str], second: list[str], pairs: int) -> list[dict[str, float]]:
    """Medians of both commands: "seconds" and "peak_bytes"; an extra first run of each warms up."""
    runs: list[list[tuple[float, int]]] = [[], []]
    for _ in range(pairs + 1):
        for side, command in enumerate((first, second)):
            runs[side].append(run(command))
    return [
        {
            "seconds": statistics.median(seconds for seconds, _ in side[1:]),
            "peak_bytes": statistics.median(peak for _, peak in side[1:]),
        }
        for side in runs
    ]


def query(tool: Path, source: Path) -> list[str]:
    return [str(tool), "query", str(source), *QUESTIONS]


def main(build: Path, out: Path) -> None:
    tool = build / "bin" / "kvbig"
    one, arrow = alternate(
        query(tool, FLIGHTS), [str(build / "bin" / "peer_flights"), str(FLIGHTS)], PAIRS
    )
    with tempfile.TemporaryDirectory(dir=build) as folder:
        for copy in range(COPIES):
            os.link(os.path.realpath(FLIGHTS), Path(folder) / f"flights{copy:02}.csv")
        _, many = alternate(query(tool, FLIGHTS), query(tool, Path(folder)), 3)
    out.write_text(json.dumps({"ours": one, "arrow": arrow, "copies": many}, indent=2) + "\n")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(Path(sys.argv[1]), Path(sys.argv[2]))
