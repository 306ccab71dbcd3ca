#!/usr/bin/env python3
"""Checks that each error id that the code can raise occurs in a test.

An id counts as tested if a test contains the whole id or, in a table of ids with a common prefix, its
last component in quotes. Prints the ids that no test contains; exit code 1 if there are any.
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
ID = re.compile(r'"(KALVEX(?::[A-Za-z]\w*)+)"')


def main() -> int:
    files = subprocess.run(
        ["git", "ls-files", "*.h", "*.cpp", "*.py", "*.story"],
        cwd=ROOT,
        check=True,
        capture_output=True,
        text=True,
    ).stdout.split()
    raised: dict[str, str] = {}
    tests = ""
    for name in files:
        text = (ROOT / name).read_text()
        if name.startswith("tests/") or "/tests/" in name:
            tests += text
        else:
            raised.update((identifier, name) for identifier in ID.findall(text))
    untested = [
        (identifier, name)
        for identifier, name in sorted(raised.items())
        if identifier not in tests and f'"{identifier.split(":")[-1]}"' not in tests
    ]
    for identifier, name in untested:
        print(f"  {identifier} ({name}) isn't in any test", file=sys.stderr)
    return 1 if untested else 0


if __name__ == "__main__":
    sys.exit(main())
