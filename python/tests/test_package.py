"""What people and type checkers see of the package."""

import inspect
import pydoc
import subprocess
import sys
from pathlib import Path

import pytest
from kvbigdata import host


def test_the_stub_matches_the_extension(tmp_path):
    pytest.importorskip("nanobind")
    made = tmp_path / "_host.pyi"
    command = ["-m", "nanobind.stubgen", "-q", "-m", "kvbigdata._host", "-o", str(made)]
    subprocess.run([sys.executable, *command], check=True)
    package = Path(host.__file__).parent
    assert (package / "py.typed").exists()
    assert (package / "_host.pyi").read_text() == made.read_text(), "see python/README.md"


def test_the_help_is_short_enough_to_read():
    shown = pydoc.render_doc(host, renderer=pydoc.plaintext)
    assert all(name in shown for name in host.__all__)
    assert "inherited from numpy" not in shown and "inherited from builtins.str" not in shown


@pytest.mark.parametrize("name", host.__all__)
def test_everything_public_is_documented(name):
    documented = getattr(host, name)
    assert inspect.getdoc(documented)
    if documented.__module__ == "kvbigdata.host" and inspect.isclass(documented):
        for member in vars(documented):
            assert member.startswith("_") or inspect.getdoc(getattr(documented, member)), member
