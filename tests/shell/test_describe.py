"""kvbig describe and version."""

import json
import re
from pathlib import Path

import pytest
from command import Run

CLOSURE = "kalvex.bigdata.internal.lazyeval.Closure"


@pytest.fixture
def run(tool: Path, tmp_path: Path) -> Run:
    return Run(tool, tmp_path)


def test_version_is_a_release(run: Run) -> None:
    done = run("version")
    assert (done.returncode, done.stderr) == (0, "")
    assert re.fullmatch(r"kvbig \d+\.\d+\.\d+\n", done.stdout)
    assert run("--version").stdout == done.stdout


def test_classes_are_listed_and_each_can_be_described(run: Run) -> None:
    names = run("describe").stdout.splitlines()
    assert json.loads(run("describe", "--json").stdout) == names
    assert CLOSURE in names
    for name in names:
        done = run("describe", name, "--json")
        assert (done.returncode, done.stderr) == (0, "")
        assert json.loads(done.stdout)["name"] == name


def test_a_class_is_shown_as_it_was_registered(run: Run) -> None:
    name = "kalvex.bigdata.internal.FunctionHandle"
    described = json.loads(run("describe", name, "--json").stdout)
    assert described["members"][:4] == [
        {"kind": "constructor", "access": 2, "inputs": 0},
        {"kind": "constructor", "access": 0, "inputs": "variadic"},
        {"kind": "property", "name": "Handle", "get": 0, "set": 2, "flags": 2560},
        {"kind": "property", "name": "ErrorStack", "get": 0, "set": 2, "flags": 2560},
    ]
    assert described["members"][7] == {
        "kind": "method",
        "name": "copy",
        "access": 0,
        "form": "fixed",
        "static": False,
        "inputs": 1,
        "outputs": 1,
    }
    assert (described["native"], described["sealed"]) == (True, False)

    lines = run("describe", name).stdout.splitlines()
    assert lines[0] == name
    assert len(lines) == 3 + len(described["members"])
    assert re.fullmatch(r"  property +Handle +get public, set private +flags 2560", lines[5])


@pytest.mark.parametrize(
    ("words", "said"),
    [
        (["describe", CLOSURE.replace("Closure", "Closuer")], CLOSURE),
        (["describe", "nothing.like.it"], "lists the classes"),
        (["describe", CLOSURE, CLOSURE], CLOSURE),
        (["descirbe"], "describe"),
        ([], "--help"),
    ],
)
def test_wrong_usage_is_reported_and_ends_with_2(run: Run, words: list[str], said: str) -> None:
    done = run(*words)
    assert (done.returncode, done.stdout) == (2, "")
    assert said in done.stderr
