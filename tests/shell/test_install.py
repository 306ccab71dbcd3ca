"""What is installed works by itself: the command, and a program built on the package."""

import os
import subprocess
from pathlib import Path

import pytest

EXAMPLES = Path(__file__).resolve().parents[2] / "examples"


def run(*command: str | Path) -> str:
    done = subprocess.run(command, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


@pytest.fixture(scope="module")
def prefix(library_folder: Path, tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A folder into which the build under test was installed."""
    if os.environ.get("KV_SANITIZED"):
        pytest.skip("an instrumented library needs an instrumented program")
    folder = tmp_path_factory.mktemp("installed")
    run("cmake", "--install", library_folder.parent, "--prefix", folder)
    return folder


def test_the_installed_command_finds_its_libraries(prefix: Path) -> None:
    assert run(prefix / "bin" / "kvbig", "version")


def test_a_program_builds_on_the_installed_package(
    prefix: Path, flights: Path, tmp_path: Path
) -> None:
    run("cmake", "-G", "Ninja", "-S", EXAMPLES, "-B", tmp_path, f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", tmp_path)

    answers = run(tmp_path / "example_flights", flights)

    assert "0.0825148" in answers
    assert "12.1122" in answers
