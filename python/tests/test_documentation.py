"""Examples in docs/ and in docstrings print what they say."""

import doctest
import pathlib
import re
import subprocess
import sys

import kvbigdata as kv
import numpy as np
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


@pytest.mark.usefixtures("arrays")
def test_examples_in_docstrings_are_true(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(CHECKOUT)
    found = doctest.testmod(kv, extraglobs={"kv": kv, "np": np})
    assert found.failed == 0 and found.attempted > 20
