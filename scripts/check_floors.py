#!/usr/bin/env python3
"""Checks the include edges between folders; fails on an edge that leads upward and on a cycle.

A floor is a top folder on which others build. FLOORS lists which floors and which outside libraries
each may include. An include that resolves to none of our files must be an allowed library or a
header of the standard library. `--edges` prints the edges between folders.
"""

import itertools
import re
import sys
from collections import defaultdict
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.MULTILINE)


@dataclass(frozen=True)
class Floor:
    """A floor: the folder that holds it, the folders its includes start from, what it may see."""

    folder: str
    roots: tuple[str, ...]
    sees: tuple[str, ...] = ()
    libraries: tuple[str, ...] = ()
    is_one: bool = False  # one interface in several folders: it counts as one folder


# The rooms of the runtime, in the order in which data flows through them: a room sees those before it.
HOST_FREE_ROOMS = (
    "column",
    "random",
    "kernel",
    "aggregate",
    "source",
    "exchange",
    "sink",
    "operator",
    "engine",
    "executor",
    "plan",
)
HOST_ROOMS = ("values", "driver", "persistence", "classes")


def rooms_of_runtime() -> dict[str, Floor]:
    """A floor for each room of the runtime."""
    rooms: dict[str, Floor] = {}
    for room in HOST_FREE_ROOMS + HOST_ROOMS:
        host = () if room in HOST_FREE_ROOMS else ("bigdata/public", "host/include")
        rooms[f"runtime/{room}"] = Floor(
            f"runtime/{room}",
            ("runtime",),
            ("runtime/include", "errors/include", *host, *rooms),
            ("arrow", "parquet", "fmt", "boost", "xxhash.h"),
        )
    return rooms


# A file belongs to the first floor whose folder holds it.
FLOORS = {
    "errors/include": Floor("errors/include", ("errors/include",), is_one=True),
    "errors": Floor("errors", ("errors/src",), ("errors/include",)),
    "host/include": Floor(
        "host/include", ("host/include",), ("errors/include",), ("boost",), is_one=True
    ),
    "host/src": Floor(
        "host/src",
        ("host/src",),
        ("errors/include", "host/include"),
        ("boost", "xxhash.h"),
    ),
    "bigdata/public": Floor("bigdata/public", ("bigdata/public",), ("host/include",)),
    "bigdata": Floor(
        "bigdata", ("bigdata/include", "bigdata"), ("bigdata/public", "host/include"), ("boost",)
    ),
    "runtime/include": Floor(
        "runtime/include",
        ("runtime/include",),
        ("errors/include", "host/include"),
        ("arrow", "parquet"),
    ),
    **rooms_of_runtime(),
    "array/include": Floor("array/include", ("array/include",)),
    "array/formula": Floor("array/formula", ("array",), ("array/include",), ("fmt",)),
    "array": Floor(
        "array",
        ("array/src",),
        ("array/include", "runtime/include", "errors/include", "host/include"),
        ("arrow", "fmt", "boost"),
    ),
    "python/src": Floor(
        "python/src",
        ("python/src",),
        ("array/include", "array/formula", "runtime/include", "host/include"),
        ("arrow", "nanobind", "Python.h"),
    ),
    "tools/kvbig": Floor(
        "tools/kvbig", ("tools/kvbig",), ("array/include", "array/formula"), ("CLI", "fmt")
    ),
    "examples": Floor("examples", ("examples",), ("array/include",)),
}

SYSTEM_HEADERS = (
    "sys/", "glob.h", "unistd.h", "dlfcn.h", "signal.h", "fcntl.h", "pthread.h", "cxxabi.h",
    "malloc.h", "dirent.h", "sched.h",
)  # fmt: skip


def floor_of(file: Path) -> str:
    """Name of the floor that holds `file`, a path relative to the root; empty for other files."""
    return next((n for n, f in FLOORS.items() if file.is_relative_to(f.folder)), "")


def folder_of(file: Path) -> str:
    """The folder that represents `file` in the edges; `detail` is part of its parent."""
    floor = FLOORS[floor_of(file)]
    if floor.is_one:
        return floor.folder
    return str(file.parent.parent if file.parent.name == "detail" else file.parent)


def resolve(include: str, source: Path) -> Path | None:
    """Our file that `include` in `source` names, relative to the root; None when it isn't ours.

    The folder of the source comes first, then the floor's own roots, then those of all floors: an
    edge that the compiler would refuse is still named for what it is.
    """
    own = FLOORS[floor_of(source)].roots
    others = [root for floor in FLOORS.values() for root in floor.roots]
    for start in (str(source.parent), *own, *others):
        if (ROOT / start / include).is_file():
            return (ROOT / start / include).resolve().relative_to(ROOT)
    return None


def is_allowed_library(include: str, floor: Floor) -> bool:
    """Whether a header that isn't ours is the standard library's, the system's or an allowed one."""
    if "/" not in include and not include.endswith((".h", ".hpp")):
        return True
    return include.startswith(SYSTEM_HEADERS) or include.split("/")[0] in floor.libraries


def walk() -> tuple[list[str], dict[str, dict[str, str]]]:
    """All wrong includes as sentences, and the edges: folder -> folder -> one include that makes it."""
    wrong: list[str] = []
    edges: dict[str, dict[str, str]] = defaultdict(dict)
    sources = [p for top in {f.folder for f in FLOORS.values()} for p in (ROOT / top).rglob("*")]
    for path in sorted(p for p in set(sources) if p.suffix in (".h", ".cpp")):
        source = path.relative_to(ROOT)
        name = floor_of(source)
        for include in INCLUDE.findall(path.read_text(encoding="utf-8")):
            target = resolve(include, source)
            if target is None:
                if not is_allowed_library(include, FLOORS[name]):
                    wrong.append(
                        f"{source}: '{include}' is no file of ours and no library of {name}"
                    )
                continue
            if floor_of(target) not in (name, *FLOORS[name].sees):
                wrong.append(f"{source}: '{include}' is in {floor_of(target)}, above {name}")
            if folder_of(source) != folder_of(target):
                edges[folder_of(source)].setdefault(folder_of(target), f"{source} -> {include}")
    return wrong, edges


def find_cycle(edges: dict[str, dict[str, str]]) -> list[str]:
    """Folders of one include cycle in order, the first repeated at the end; empty without one."""
    done: set[str] = set()
    for start in sorted(edges):
        path: list[str] = []
        pending = [(start, iter(sorted(edges[start])))]
        while pending and start not in done:
            folder, targets = pending[-1]
            if len(path) < len(pending):
                path.append(folder)
            target = next((t for t in targets if t not in done), None)
            if target in path:
                return [*path[path.index(target) :], target]
            if target is None:
                done.add(folder)
                pending.pop()
                path.pop()
            else:
                pending.append((target, iter(sorted(edges.get(target, {})))))
    return []


def main() -> int:
    wrong, edges = walk()
    if "--edges" in sys.argv[1:]:
        for folder, targets in sorted(edges.items()):
            print(f"{folder} -> {', '.join(sorted(targets))}")
    if cycle := find_cycle(edges):
        steps = "\n    ".join(edges[a][b] for a, b in itertools.pairwise(cycle))
        wrong.append(f"include cycle between folders: {' -> '.join(cycle)}\n    {steps}")
    for sentence in wrong:
        print(f"floors: {sentence}", file=sys.stderr)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
