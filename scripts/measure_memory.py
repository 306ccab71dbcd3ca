#!/usr/bin/env python3
"""Measures the memory of whole processes: that of queries over large files, and that under limits;
and how much is read of a file that the system doesn't hold.

    scripts/measure_memory.py <build folder> <out.json> [<GiB>...]

Anonymous resident memory (RssAnon, without files and code that are mapped) is sampled while a
process runs, so a peak of less than a few milliseconds may go unseen. A process under a limit may use
as much as it had before, 1.15 times the limit and 16 MiB.
"""

import json
import os
import random
import resource
import subprocess
import sys
import tempfile
import time
from pathlib import Path

MIB = 1024 * 1024
LIMITS_MIB = (64, 128, 256)
COLUMNS = 8
INTERVAL = 0.002
SIZES_GIB = (1.0, 2.0)

# Evaluates under a limit, in Python: the command has no results of many rows.
WORKER = """
import json, sys
import kvbigdata as kv
path, limit, rows = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
kv.options(memory_limit=limit, threads=2)
table = kv.read_csv(path)
answer = table["c1"][table["c0"] < 0] if rows else table["c1"].sum()
print("idle", flush=True)
sys.stdin.readline()
outcome = "done"
try:
    answer.compute()
except MemoryError as error:
    outcome = error.identifier
print(json.dumps({"outcome": outcome}), flush=True)
"""


def anonymous_bytes(process: int) -> int:
    try:
        text = Path(f"/proc/{process}/status").read_text()
    except (FileNotFoundError, ProcessLookupError):
        return 0
    fields = (line.split() for line in text.splitlines() if line.startswith("RssAnon:"))
    return next((int(field[1]) * 1024 for field in fields), 0)


def peak_while_running(process: subprocess.Popen) -> int:
    peak = 0
    while process.poll() is None:
        peak = max(peak, anonymous_bytes(process.pid))
        time.sleep(INTERVAL)
    return peak


def write_numbers(path: Path, size: int) -> None:
    """A table of doubles: rows of random numbers, repeated up to the size."""
    chance = random.Random(1)
    rows = (",".join(f"{chance.gauss(0, 1000):.6f}" for _ in range(COLUMNS)) for _ in range(20_000))
    block = ("\n".join(rows) + "\n").encode()
    with path.open("wb") as file:
        written = file.write(",".join(f"c{i}" for i in range(COLUMNS)).encode() + b"\n")
        while written < size:
            written += file.write(block)


def drop_cached(path: Path) -> None:
    """Has the system forget what it holds of a file, so that it is read from disk."""
    with path.open("rb") as file:
        os.fsync(file.fileno())
        os.posix_fadvise(file.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)


def bytes_from_disk() -> int:
    """What processes that have ended have read from disk."""
    return resource.getrusage(resource.RUSAGE_CHILDREN).ru_inblock * 512


def query(tool: Path, source: Path) -> dict[str, float]:
    """The query with a filter, means and deviations of all columns, on two threads."""
    drop_cached(source)
    before = bytes_from_disk()
    questions = [f"{name}(c{i})" for i in range(COLUMNS) for name in ("mean", "std")]
    words = [str(tool), "query", str(source), *questions, "--where", "c0 > 0", "--threads", "2"]
    process = subprocess.Popen([*words, "--json"], stdout=subprocess.PIPE, text=True)
    anonymous = peak_while_running(process)
    assert process.stdout is not None
    facts = json.loads(process.stdout.read())
    return {
        "bytes": source.stat().st_size,
        "bytes_from_disk": bytes_from_disk() - before,
        "seconds": facts["seconds"],
        "resident_bytes": facts["peak_bytes"],
        "anonymous_bytes": anonymous,
        "data_bytes": facts["memory_peak_bytes"],
    }


def under_limit(source: Path, limit: int, keeps_rows: bool) -> dict[str, float | str]:
    command = [sys.executable, "-c", WORKER, str(source), str(limit), str(int(keeps_rows))]
    process = subprocess.Popen(
        command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, env=os.environ
    )
    assert process.stdin is not None and process.stdout is not None
    process.stdout.readline()
    idle = anonymous_bytes(process.pid)
    process.stdin.write("go\n")
    process.stdin.flush()
    peak = peak_while_running(process)
    outcome = json.loads(process.stdout.read())["outcome"]
    return {
        "limit_bytes": limit,
        "query": "rows" if keeps_rows else "sum",
        "outcome": outcome,
        "idle_bytes": idle,
        "peak_bytes": peak,
        "share_of_allowance": (peak - idle) / (1.15 * limit + 16 * MIB),
    }


def main(build: Path, out: Path, sizes: list[float]) -> None:
    os.environ["PYTHONPATH"] = str(build / "python")
    results: dict[str, list] = {"queries": [], "limits": []}
    with tempfile.TemporaryDirectory(dir=build) as folder:
        for size in sizes:
            source = Path(folder) / "numbers.csv"
            write_numbers(source, int(size * 1024 * MIB))
            results["queries"].append(query(build / "bin" / "kvbig", source))
            print(json.dumps(results["queries"][-1]), flush=True)
        for limit in LIMITS_MIB:
            for keeps_rows in (False, True):
                results["limits"].append(under_limit(source, limit * MIB, keeps_rows))
                print(json.dumps(results["limits"][-1]), flush=True)
    out.write_text(json.dumps(results, indent=2) + "\n")


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    main(
        Path(sys.argv[1]),
        Path(sys.argv[2]),
        [float(size) for size in sys.argv[3:]] or list(SIZES_GIB),
    )
