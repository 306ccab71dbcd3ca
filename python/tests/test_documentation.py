"""Examples in docs/ print what the pages say."""

import pathlib
import re
import subprocess
import sys

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
