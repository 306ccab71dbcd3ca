#!/usr/bin/env python3
"""Runs clang-tidy with the checks of .clang-tidy over all C++ sources, as few times as it can.

Most of clang-tidy's time goes to the headers of Arrow and the standard library. So the sources of
one folder that are compiled with the same flags are included into one batch, which parses these
headers once. Sources that don't compile together (two may define the same name in their unnamed
namespaces) are run again, each alone.

A source without findings is remembered under a hash of everything that decides it: its text, that
of our headers that it includes, its flags, the checks and the tool's version. The hashes are in
the user's cache folder, so clones and work trees share them. Only what has changed is run.
"""

import hashlib
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile
import time
from collections import defaultdict
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DATABASE = ROOT / "build/dev/compile_commands.json"
CACHE = Path(os.environ.get("XDG_CACHE_HOME", Path.home() / ".cache")) / "kvbigdata-lint"
TOOL = "clang-tidy-16"
BATCH_FILES = 24
KEPT_DAYS = 30
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.MULTILINE)
FINDING = re.compile(
    rf"^{re.escape(str(ROOT))}/([^:]+):\d+:\d+: (warning|error): .*$", re.MULTILINE
)

# Where names are given by the host's interface, and tests, whose fixtures read as stories.
GIVEN = ("tests/", "host/include/", "bigdata/public/", "bigdata/util/ErrorIds.h")

# Every description of a class defines this name for itself; a batch numbers them.
LOCAL_NAMES = ("registration",)


@dataclass(frozen=True)
class Source:
    """A source with what decides its findings."""

    path: Path  # absolute
    flags: tuple[str, ...]
    includes: frozenset[Path]  # our headers, directly or not
    key: str


def text_of(path: Path, texts: dict[Path, str]) -> str:
    if path not in texts:
        texts[path] = path.read_text(encoding="utf-8")
    return texts[path]


def included(path: Path, folders: list[Path], texts: dict[Path, str]) -> frozenset[Path]:
    """Our files that `path` includes, directly or not, found as the compiler finds them."""
    found: set[Path] = set()
    pending = [path]
    while pending:
        current = pending.pop()
        for name in INCLUDE.findall(text_of(current, texts)):
            target = next(
                (f / name for f in (current.parent, *folders) if (f / name).is_file()), None
            )
            if target and (target := target.resolve()) not in found and target.is_relative_to(ROOT):
                found.add(target)
                pending.append(target)
    return frozenset(found)


def flags_of(command: str) -> tuple[str, ...]:
    """What clang needs of a compiler's command: macros, folders, language."""
    words = iter(shlex.split(command)[1:])
    kept: list[str] = []
    for word in words:
        if word in ("-isystem", "-include"):
            kept += [word, next(words)]
        elif word.startswith(("-D", "-I", "-isystem", "-std=")):
            kept.append(word)
    return tuple(kept)


def database() -> dict[Path, tuple[str, ...]]:
    """Flags by source, configured again when a source is missing or the build's files changed."""
    listed = subprocess.run(
        ["git", "ls-files", "-c", "-o", "--exclude-standard", "*.cpp", "*CMakeLists.txt"],
        cwd=ROOT,
        capture_output=True,
        text=True,
        check=True,
    ).stdout.split()
    there = [ROOT / name for name in listed if (ROOT / name).is_file()]
    sources = [path for path in there if path.suffix == ".cpp"]

    def read() -> dict[Path, tuple[str, ...]]:
        entries = json.loads(DATABASE.read_text(encoding="utf-8")) if DATABASE.is_file() else []
        flags = {Path(e["file"]).resolve(): flags_of(e["command"]) for e in entries}
        return {path: flags[path] for path in sources if path in flags}

    flags = read()
    scripts = [path for path in there if path.suffix == ".txt"]
    written = DATABASE.stat().st_mtime if DATABASE.is_file() else 0
    if len(flags) < len(sources) or any(path.stat().st_mtime > written for path in scripts):
        subprocess.run(
            ["cmake", "--preset", "dev"], cwd=ROOT, check=True, stdout=subprocess.DEVNULL
        )
        flags = read()
    return flags


def describe(flags: dict[Path, tuple[str, ...]]) -> list[Source]:
    version = subprocess.run([TOOL, "--version"], capture_output=True, text=True, check=True).stdout
    common = [version, *((ROOT / name).read_text() for name in (".clang-tidy", "requirements.txt"))]
    texts: dict[Path, str] = {}
    sources = []
    for path, own in sorted(flags.items()):
        folders = [Path(flag[2:]) for flag in own if flag.startswith("-I")]
        includes = included(path, folders, texts)
        hasher = hashlib.sha256()
        for part in (*common, *(flag.replace(str(ROOT), "") for flag in own)):
            hasher.update(part.encode() + b"\0")
        for file in (path, *sorted(includes)):
            hasher.update(f"{file.relative_to(ROOT)}\0{text_of(file, texts)}\0".encode())
        sources.append(Source(path, own, includes, hasher.hexdigest()))
    return sources


def batches(sources: list[Source]) -> list[list[Source]]:
    """Sources of one folder with the same flags together, at most BATCH_FILES, the largest first."""
    groups: dict[tuple[Path, tuple[str, ...]], list[Source]] = defaultdict(list)
    for source in sources:
        groups[source.path.parent, source.flags].append(source)
    cut = [
        group[start : start + BATCH_FILES]
        for group in groups.values()
        for start in range(0, len(group), BATCH_FILES)
    ]
    return sorted(cut, key=len, reverse=True)


def run(batch: list[Source]) -> str:
    """The tool's output for the sources of one batch."""
    lines = []
    for number, source in enumerate(batch):
        lines += [f"#define {name} {name}{number}" for name in LOCAL_NAMES]
        lines += [f'#include "{source.path}"']
        lines += [f"#undef {name}" for name in LOCAL_NAMES]
    with tempfile.TemporaryDirectory() as folder:
        unit = Path(folder) / "batch.cpp"
        unit.write_text("\n".join(lines) + "\n", encoding="utf-8")
        command = [
            TOOL,
            "--quiet",
            f"--config-file={ROOT / '.clang-tidy'}",
            f"--header-filter={ROOT}/[a-z]",
            str(unit),
            "--",
            *batch[0].flags,
        ]
        done = subprocess.run(command, cwd=ROOT, capture_output=True, text=True)
    return without_interface(done.stdout) + (
        done.stderr if done.returncode and not done.stdout else ""
    )


def without_interface(output: str) -> str:
    """The findings but those on names of the host's interface, which are given."""
    blocks = re.split(r"(?m)^(?=\S+:\d+:\d+: (?:warning|error): )", output)
    given = re.compile(
        rf"{re.escape(str(ROOT))}/(?:{'|'.join(GIVEN)}).*\[readability-identifier-naming"
    )
    return "".join(block for block in blocks if not given.match(block))


def check(batch: list[Source]) -> tuple[list[Source], str]:
    """The sources of a batch without findings, and the findings."""
    output = run(batch)
    if "[clang-diagnostic-error]" in output and len(batch) > 1:
        bad = {
            ROOT / m.group(1)
            for m in FINDING.finditer(output)
            if "clang-diagnostic-error" in m.group()
        }
        alone = [source for source in batch if source.path in bad] or batch
        rest = [source for source in batch if source not in alone]
        parts = [check(part) for part in (*([s] for s in alone), *([rest] if rest else []))]
        return [s for clean, _ in parts for s in clean], "".join(text for _, text in parts)
    files = {ROOT / match.group(1) for match in FINDING.finditer(output)}
    failed = bool(output.strip()) and not files
    clean = [s for s in batch if not failed and s.path not in files and not s.includes & files]
    return clean, output


def forget_old() -> None:
    """Removes hashes that no run has used for KEPT_DAYS days."""
    oldest = time.time() - KEPT_DAYS * 86400
    for mark in CACHE.iterdir():
        if mark.stat().st_mtime < oldest:
            mark.unlink(missing_ok=True)


def main() -> int:
    start = time.monotonic()
    CACHE.mkdir(parents=True, exist_ok=True)
    sources = describe(database())
    pending = []
    for source in sources:
        if (CACHE / source.key).is_file():
            (CACHE / source.key).touch()
        else:
            pending.append(source)
    found: set[str] = set()
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        for clean, output in pool.map(check, batches(pending)):
            for source in clean:
                (CACHE / source.key).touch()
            for block in re.split(rf"(?m)^(?={re.escape(str(ROOT))}/)", output):
                if block.strip() and block not in found:
                    found.add(block)
                    print(block.replace(f"{ROOT}/", "").rstrip(), file=sys.stderr)
    forget_old()
    seconds = time.monotonic() - start
    print(
        f"tidy: {len(pending)} of {len(sources)} sources checked in {seconds:.0f} s, {len(found)} findings"
    )
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
