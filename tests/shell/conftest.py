"""Fixtures that the tests of the command share: the paths of the build and the data."""

import os
from pathlib import Path

import pytest


def _path_from_environment(name: str) -> Path:
    if name not in os.environ:
        pytest.exit(f"{name} isn't set: run these tests with ctest (make test)", returncode=2)
    return Path(os.environ[name])


@pytest.fixture(scope="session")
def library_folder() -> Path:
    """The folder of the shared libraries under test."""
    return _path_from_environment("KV_LIBRARIES")


@pytest.fixture(scope="session")
def tool() -> Path:
    """The command kvbig under test."""
    return _path_from_environment("KV_TOOL")


@pytest.fixture(scope="session")
def flights() -> Path:
    """The table of 336,776 flights."""
    return _path_from_environment("KV_DATA") / "flights.csv"
