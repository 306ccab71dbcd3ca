#!/usr/bin/env python3
"""Adds up the test reports of build folders and prints '<passed> <failed> <skipped>'.

scripts/count_tests.py <folder of JUnit files>...
"""

import sys
from pathlib import Path
from xml.etree import ElementTree


def main(folders: list[str]) -> None:
    totals = {"tests": 0, "failures": 0, "errors": 0, "skipped": 0, "disabled": 0}
    for file in (f for folder in folders for f in sorted(Path(folder).glob("*.xml"))):
        for suite in ElementTree.parse(file).iter("testsuite"):
            for name in totals:
                totals[name] += int(suite.get(name, 0))
    failed = totals["failures"] + totals["errors"]
    skipped = totals["skipped"] + totals["disabled"]
    print(totals["tests"] - failed - skipped, failed, skipped)


if __name__ == "__main__":
    main(sys.argv[1:])
