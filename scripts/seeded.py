#!/usr/bin/env python3
"""Puts small faults into a copy of the tree, one at a time, and reports which test detects each.

The faults are in tests/seeded, one table per floor. The copy is in build/seeded; the tree itself is
not changed. Exit code: 0 if enough faults are caught, 1 if not, 2 if a fault can't be put in.
"""

import argparse
import dataclasses
import os
import pathlib
import shutil
import subprocess
import sys
import time
import tomllib

ROOT = pathlib.Path(__file__).resolve().parent.parent
TREE = ROOT / "build" / "seeded"
BUILD = TREE / "build" / "dev"  # as deep as that of the tree, so that ccache knows its files

LEAST_RATE = 0.95
SECONDS_A_RUN = 300

# Test programs by floor, in the order in which they are run.
PROGRAMS = {
    "host": ["host", "bigdata"],
    "bigdata": ["bigdata", "array"],
    "runtime": ["runtime", "array"],
    "rooms": ["runtime", "array"],
    "data": ["runtime", "array", "shell", "python"],
    "save": ["host", "persistence", "runtime"],
    "persistence": ["runtime", "python"],
    "python": ["python"],
    "tools": ["formula", "shell", "python"],
}
# Programs that are a pytest run: the targets to build, and the folder of the tests. The test of an
# installation needs all targets and isn't run.
PYTESTS = {
    "python": (("kvbigdata_host", "kvbig"), "python/tests"),
    "shell": (("kvbig",), "tests/shell"),
}
WITH_STRESS = {"host", "bigdata", "runtime"}


class SeedError(Exception):
    """A fault can't be put in, or the tree isn't fit to be tested with faults."""


@dataclasses.dataclass(frozen=True)
class Fault:
    """`before`, which occurs once in `file`, becomes `after`.

    `seen_by` is a filter of the first program's tests, or a file of a pytest run.
    """

    floor: str
    name: str
    file: str
    before: str
    after: str
    why: str
    seen_by: str

    def put_into(self, text: str) -> str:
        count = text.count(self.before)
        if count != 1:
            raise SeedError(
                f"'{self.name}': its text occurs {count} times in {self.file}, not once"
            )
        return text.replace(self.before, self.after)


@dataclasses.dataclass(frozen=True)
class Look:
    """One run of a test program, which may detect a fault."""

    program: str
    tests: str = "*"
    is_stressed: bool = False

    @property
    def targets(self) -> tuple[str, ...]:
        return PYTESTS[self.program][0] if self.program in PYTESTS else (f"test_{self.program}",)

    @property
    def command(self) -> list[str]:
        if self.program not in PYTESTS:
            return [str(BUILD / "bin" / self.targets[0]), f"--gtest_filter={self.tests}"]
        folder = TREE / PYTESTS[self.program][1]
        return [
            str(TREE / ".venv/bin/pytest"),
            "-q",
            "-x",
            "-p",
            "no:cacheprovider",
            f"--ignore={folder / 'test_install.py'}",
            str(folder if self.tests == "*" else folder / self.tests),
        ]


def load_faults(parts: list[str]) -> list[Fault]:
    faults = []
    for floor in PROGRAMS:
        table = tomllib.loads((ROOT / "tests" / "seeded" / f"{floor}.toml").read_text())
        faults += [Fault(floor, **fault) for fault in table["fault"]]
    return [
        fault
        for fault in faults
        if not parts or any(part in fault.name or part in fault.file for part in parts)
    ]


def has_tests(program: str, seen_by: str) -> bool:
    """Whether `seen_by` is meant for this program: a file that it has, or a filter."""
    if program in PYTESTS:
        return (ROOT / PYTESTS[program][1] / seen_by).is_file()
    return not seen_by.endswith(".py")


def looks_for(fault: Fault) -> list[Look]:
    """The runs for a fault: first those that should detect it, then those that take longer."""
    programs = PROGRAMS[fault.floor]
    first = next(program for program in programs if has_tests(program, fault.seen_by))
    others = [program for program in programs if program != first]
    looks = [Look(first, fault.seen_by), Look(first)]
    looks += [Look(first, is_stressed=True)] if first in WITH_STRESS else []
    return looks + [Look(program) for program in others]


def copy_tree() -> None:
    """Unchanged files keep their times, so that a second run builds little."""
    listed = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        cwd=ROOT,
        check=True,
        capture_output=True,
        text=True,
    ).stdout.split("\0")
    wanted = {name for name in listed if name and (ROOT / name).is_file()}
    for folder, folders, files in os.walk(TREE):
        folders[:] = [name for name in folders if name != "build"]
        for old in (pathlib.Path(folder, name) for name in files):
            if str(old.relative_to(TREE)) not in wanted:
                old.unlink()
    for name in wanted:
        source, copy = ROOT / name, TREE / name
        if not copy.exists() or copy.read_bytes() != source.read_bytes():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, copy)
    environment = TREE / ".venv"
    if not environment.exists():
        environment.symlink_to(ROOT / ".venv")


def run_build(command: list[str], problem: str) -> None:
    environment = os.environ | {"CCACHE_BASEDIR": str(TREE), "CCACHE_NOHASHDIR": "1"}
    done = subprocess.run(command, cwd=TREE, env=environment, capture_output=True, text=True)
    if done.returncode != 0:
        raise SeedError(f"{problem}:\n{(done.stdout + done.stderr)[-3000:]}")


def build(targets: list[str], jobs: int, problem: str) -> None:
    run_build(
        ["nice", "cmake", "--build", str(BUILD), "-j", str(jobs), "--target", *targets], problem
    )


def first_failure(look: Look) -> str | None:
    """The first test that fails, or crashes or hangs; None if all pass."""
    environment = os.environ | {
        "GTEST_FAIL_FAST": "1",
        "GTEST_COLOR": "no",
        "KV_DATA": str(ROOT / "data"),
        "KV_STRESS": "1" if look.is_stressed else "0",
        "PYTHONPATH": str(BUILD / "python"),
        "PYTHONDONTWRITEBYTECODE": "1",
        "KV_TOOL": str(BUILD / "bin" / "kvbig"),
        "KV_LIBRARIES": str(BUILD / "lib"),
    }
    try:
        done = subprocess.run(
            look.command,
            env=environment,
            timeout=SECONDS_A_RUN,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
        )
        output, end = done.stdout, "crashes"
        if done.returncode == 0:
            return None
    except subprocess.TimeoutExpired as late:
        output, end = late.stdout or b"", "hangs"
    lines = output.decode(errors="replace").splitlines()
    for start, end_of_name in (("[  FAILED  ]", "("), ("FAILED ", " - "), ("ERROR ", " - ")):
        if failed := [line for line in lines if line.startswith(start)]:
            return failed[0].removeprefix(start).split(end_of_name)[0].strip()
    begun = [line.split("]", 1)[1].strip() for line in lines if line.startswith("[ RUN      ]")]
    return f"{begun[-1] if begun else look.program} {end}"


def prepare(faults: list[Fault], jobs: int) -> None:
    """Makes and builds the copy without a fault; all tests must pass there."""
    copy_tree()
    run_build(["cmake", "--preset", "dev", "-B", str(BUILD)], "the copy can't be configured")
    looks = {look for fault in faults for look in looks_for(fault) if look.tests == "*"}
    build(
        sorted({target for look in looks for target in look.targets}),
        jobs,
        "the copy can't be built",
    )
    for look in sorted(looks, key=lambda look: (look.program, look.is_stressed)):
        if failure := first_failure(look):
            raise SeedError(f"without a fault {failure} fails already")


def find_test(fault: Fault, jobs: int) -> str | None:
    """The test that detects the fault, or None."""
    path = TREE / fault.file
    sound = path.read_text()
    path.write_text(fault.put_into(sound))
    try:
        for look in looks_for(fault):
            build(list(look.targets), jobs, f"'{fault.name}' can't be built")
            if failure := first_failure(look):
                return failure + (" under stress" if look.is_stressed else "")
        return None
    finally:
        path.write_text(sound)


def check(faults: list[Fault]) -> None:
    for fault in faults:
        fault.put_into((ROOT / fault.file).read_text())


def try_all(faults: list[Fault], jobs: int) -> tuple[int, int]:
    """The number of faults that a test detects, and of those that can't be built."""
    caught = unfit = 0
    for number, fault in enumerate(faults, start=1):
        start = time.monotonic()
        try:
            test = find_test(fault, jobs)
            caught += test is not None
            result = test or "SURVIVES: " + fault.why
        except SeedError as refusal:
            unfit += 1
            result = str(refusal)
        print(
            f"{number:3} {time.monotonic() - start:4.0f} s  {fault.name}\n             {result}",
            flush=True,
        )
    return caught, unfit


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument(
        "parts", nargs="*", help="only faults whose name or file contains one of these"
    )
    parser.add_argument("--jobs", type=int, default=2, help="parallel jobs of a build")
    parser.add_argument(
        "--check", action="store_true", help="only check that all faults can be put in"
    )
    arguments = parser.parse_args()
    start = time.monotonic()
    try:
        faults = load_faults(arguments.parts)
        check(faults)
        if arguments.check or not faults:
            print(f"{len(faults)} faults can be put in")
            return 0
        prepare(faults, arguments.jobs)
        caught, unfit = try_all(faults, arguments.jobs)
    except SeedError as refusal:
        print(refusal, file=sys.stderr)
        return 2
    print(
        f"{caught} of {len(faults)} faults caught ({caught / len(faults):.0%}) "
        f"in {(time.monotonic() - start) / 60:.0f} minutes"
    )
    return 2 if unfit else int(caught < LEAST_RATE * len(faults))


if __name__ == "__main__":
    sys.exit(main())
