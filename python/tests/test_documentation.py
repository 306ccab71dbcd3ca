"""Examples in docs/ and in docstrings print what they say."""

import ast
import doctest
import os
import pathlib
import re
import subprocess
import sys

import kvbigdata as kv
import numpy as np
import pyarrow as pa
import pyarrow.compute as pc
import pytest

CHECKOUT = pathlib.Path(__file__).parents[2]


@pytest.mark.parametrize("page", ["operations.md"])
def test_examples_print_what_the_page_says(page: str) -> None:
    text = (CHECKOUT / "docs" / page).read_text()
    found = re.findall(r"^```python\n(.*?)^```\n\n```text\n(.*?)^```", text, re.M | re.S)
    assert found
    for code, printed in found:
        run = subprocess.run(
            [sys.executable, "-c", code], cwd=CHECKOUT, capture_output=True, text=True, check=False
        )
        assert (run.stdout, run.stderr) == (printed, "")


@pytest.mark.parametrize("path", sorted((CHECKOUT / "examples").glob("*.py")), ids=lambda p: p.stem)
def test_programs_print_what_they_begin_with(path: pathlib.Path, tmp_path: pathlib.Path) -> None:
    said = ast.get_docstring(ast.parse(path.read_text())) or ""
    run = subprocess.run(
        [sys.executable, str(path)],
        cwd=tmp_path,
        env={**os.environ, "PYTHONPATH": str(pathlib.Path(kv.__file__).parents[1])},
        capture_output=True,
        text=True,
        check=False,
    )
    assert (run.stdout.strip(), run.stderr) == (said.partition("Prints:\n")[2], "")


@pytest.mark.usefixtures("arrays")
@pytest.mark.parametrize("name", kv.__all__)
def test_examples_in_docstrings_are_true(name: str, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(CHECKOUT)
    runner = doctest.DocTestRunner()
    names = {"kv": kv, "np": np, "pa": pa, "pc": pc}
    for example in doctest.DocTestFinder().find(getattr(kv, name), name, module=False, globs=names):
        runner.run(example)
    assert runner.summarize().failed == 0
