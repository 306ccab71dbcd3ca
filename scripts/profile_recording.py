#!/usr/bin/env python3
"""Reports where the time of recording goes: samples a run with perf and sums up kinds of work.

    scripts/profile_recording.py <bench_recording> <out.json>

Without perf it writes an empty profile.
"""

import json
import re
import shutil
import subprocess
import sys
import tempfile
from collections import defaultdict
from pathlib import Path

# A sample counts for the first kind whose pattern is found in its symbol or library.
KINDS = [
    ("collector: marking and sweeping", r"Marker|Heap::(collect|sweep)|Slab::"),
    (
        "freeing garbage",
        r"Teardown|destroy|Heap::(holdGone|freeIf|enqueue)|~|giveBatch|freeSlowly|_int_free|cfree",
    ),
    (
        "memory: pool and heap",
        r"Pool::|utAllocatePart|utFreePart|malloc|Heap::(allocate|takePlace|addSlab)|Slab",
    ),
    ("fresh pages from the system", r"\[kernel"),
    ("names", r"makeInterned|memcmp|NameMap|hashName"),
    (
        "calls by name",
        r"callByName|[cC]allAtEdge|inCallFcn|invoke|chooseOverload|callHost|runBody|omCallMethod|callOnObject",
    ),
    (
        "objects: classes, construction, edges",
        r"ClassRecord|construct|Construction|EdgeList|kxAddParentRoot|Heap::|createInstance|makeParts",
    ),
    ("values", r"matrix::|kx[A-Z]|kxArray|Array|omCreate|omGet|omIs"),
    ("core", r"bigdata::"),
    ("runtime and the rest", r""),
]
CHAIN = "recordByName/1000000"


def kind_of(symbol: str) -> str:
    return next(kind for kind, pattern in KINDS if re.search(pattern, symbol))


def samples(program: str) -> dict[str, float]:
    """The percentage of samples for each kind."""
    with tempfile.TemporaryDirectory() as folder:
        data = str(Path(folder) / "perf.data")
        record = ["perf", "record", "-q", "-e", "cpu-clock", "-F", "2000", "-o", data]
        subprocess.run(
            [*record, program, f"--benchmark_filter={CHAIN}"], check=True, capture_output=True
        )
        report = subprocess.run(
            ["perf", "report", "-i", data, "--stdio", "-q", "-t", "|", "--sort", "dso,symbol"],
            check=True,
            capture_output=True,
            text=True,
        ).stdout
    shares: dict[str, float] = defaultdict(float)
    for line in report.splitlines():
        share, separator, symbol = line.strip().partition("|")
        if separator:
            shares[kind_of(symbol)] += float(share.rstrip("% "))
    return shares


def main(program: str, out: Path) -> None:
    shares = samples(program) if shutil.which("perf") else {}
    ranked = sorted(shares.items(), key=lambda share: -share[1])
    out.write_text(json.dumps(dict(ranked), indent=2) + "\n")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(sys.argv[1], Path(sys.argv[2]))
