#!/usr/bin/env python3
"""Checks the error ids of the code against their table and against the tests.

The tables are in errors/src/*Rows.h. Wrong are:
- an id in the code without a row;
- a raise with a braced list of arguments whose length differs from the row's;
- a row that no code names, by its id or as a tag (KALVEX::array::NotLogical);
- an id that occurs in no test: whole, or by its last component in quotes.
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
TABLES = "errors/src/"
ID = re.compile(r'"(KALVEX(?::[A-Za-z]\w*)+)"')
TEXT = r'"((?:[^"\\]|\\.)*)"'
ROW = re.compile(rf'{{\s*"(KALVEX[\w:]*)",\s*{TEXT},')
RAISE = re.compile(r'\b(?:raise\w*|\w*Error)\(\s*"(KALVEX[\w:]+)"\s*(?=[,)])')
TAG_RAISE = re.compile(r"\braise<(KALVEX::[\w:]+)>\(")
TAG = re.compile(r'category = (?:kCategory|"([^"]+)"),\s+\*key = "([^"]+)"|kCategory = "([^"]+)"')
OPEN, CLOSE = "([{", ")]}"


def end_of_literal(code: str, start: int) -> int:
    """The place after the text or character that opens at `start`."""
    at = start + 1
    while code[at] != code[start]:
        at += 2 if code[at] == "\\" else 1
    return at + 1


def split_list(code: str, start: int) -> list[str]:
    """The items of the list whose opening bracket is at `start`, split at its commas."""
    items, depth, begin, at = [], 0, start + 1, start
    while at < len(code):
        char = code[at]
        if char in "\"'":
            at = end_of_literal(code, at)
            continue
        if char in OPEN:
            depth += 1
        elif char in CLOSE:
            depth -= 1
        if depth == 0 or (char == "," and depth == 1):
            items.append(code[begin:at].strip())
            begin = at + 1
        if depth == 0:
            return [item for item in items if item]
        at += 1
    raise ValueError("a list without an end")


def without_comments(code: str) -> str:
    return re.sub(r"//[^\n]*", "", code)


def rows_of(text: str) -> dict[str, int]:
    """Number of arguments by id."""
    return {
        identifier: len(names.split(",")) if names else 0 for identifier, names in ROW.findall(text)
    }


def raises_in(code: str) -> list[tuple[str, int]]:
    """Each raise with an id and a list of arguments in one place: id, number of arguments."""
    found = []
    for match in RAISE.finditer(code):
        inputs = split_list(code, code.index("(", match.start()))[1:]
        lists = [item for item in inputs if item.startswith("{")]
        if not inputs:
            found.append((match[1], 0))
        elif lists:
            found.append((match[1], len(split_list(lists[0], 0))))
    for match in TAG_RAISE.finditer(code):
        found.append((match[1].replace("::", ":"), len(split_list(code, match.end() - 1))))
    return found


def without_tags(code: str) -> str:
    return TAG.sub("", code)


def tags_in(code: str) -> set[str]:
    """Ids that are declared as tags of native exceptions."""
    ids, shared = set(), ""
    for category, key, of_namespace in TAG.findall(code):
        if of_namespace:
            shared = of_namespace
        else:
            ids.add(f"{category or shared}:{key}")
    return ids


def read_sources() -> tuple[dict[str, str], str]:
    """The code without comments by file, and the text of all tests."""
    names = subprocess.run(
        ["git", "ls-files", "-co", "--exclude-standard", "*.h", "*.cpp", "*.py", "*.story"],
        cwd=ROOT,
        check=True,
        capture_output=True,
        text=True,
    ).stdout.split()
    code: dict[str, str] = {}
    tests = ""
    for name in filter(lambda name: (ROOT / name).exists(), names):
        text = (ROOT / name).read_text()
        if name.startswith("tests/") or "/tests/" in name:
            tests += text
        elif name != "scripts/check_error_ids.py":
            code[name] = without_comments(text)
    return code, tests


def main() -> int:
    code, tests = read_sources()
    rows: dict[str, int] = {}
    for name, text in code.items():
        if name.startswith(TABLES):
            rows.update(rows_of(text))
    wrong, used = [], set()
    for name, text in code.items():
        if name.startswith(TABLES) and name.endswith("Rows.h"):
            continue
        ids = set(ID.findall(without_tags(text))) | tags_in(text)
        used |= ids
        wrong += [
            f"{identifier} ({name}) has no row in {TABLES}"
            for identifier in sorted(ids - rows.keys())
        ]
        wrong += [
            f"{identifier} ({name}) is raised with {count} arguments, its row has {rows[identifier]}"
            for identifier, count in raises_in(text)
            if rows.get(identifier, count) != count
        ]
    wrong += [
        f"{identifier} has a row, and no code names it" for identifier in sorted(rows.keys() - used)
    ]
    wrong += [
        f"{identifier} occurs in no test"
        for identifier in sorted(rows)
        if identifier not in tests and f'"{identifier.split(":")[-1]}"' not in tests
    ]
    for sentence in wrong:
        print(f"  {sentence}", file=sys.stderr)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
