"""The installed files work without the checkout: the command, and programs built on the package."""

import os
import re
import subprocess
from pathlib import Path

import pytest

CHECKOUT = Path(__file__).resolve().parents[2]

# The oldest CMake that the package supports, without a setting for the language level.
CONSUMER = """cmake_minimum_required(VERSION 3.16)
project(consumer LANGUAGES CXX)
find_package(kvbigdata REQUIRED)
add_executable(program program.cpp)
target_link_libraries(program PRIVATE kv::kvarray)
"""


def run(*command: str | Path, **options) -> str:
    done = subprocess.run(command, capture_output=True, text=True, **options)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


@pytest.fixture(scope="module")
def installed(library_folder: Path, tmp_path_factory: pytest.TempPathFactory) -> tuple[Path, str]:
    """The folder into which the build under test was installed, and the output of the installation."""
    if os.environ.get("KV_SANITIZED"):
        pytest.skip("an instrumented library needs an instrumented program")
    folder = tmp_path_factory.mktemp("installed")
    return folder, run("cmake", "--install", library_folder.parent, "--prefix", folder)


def test_what_is_installed_needs_no_checkout(installed: tuple[Path, str]) -> None:
    prefix, printed = installed
    copied = re.search(r"^-- Arrow: (copied from .* to|not copied; used from) (.*)$", printed, re.M)
    assert copied and Path(copied[2]).exists()
    binaries = [prefix / "bin" / "kvbig", *prefix.rglob("lib*.so.*")]
    assert len(binaries) >= 3
    for binary in binaries:
        runpath = re.search(r"R(?:UN)?PATH.*\[(.*)\]", run("readelf", "-d", binary))
        folders = runpath[1].split(":") if runpath else []
        assert all(folder.startswith("$ORIGIN") for folder in folders) or "not copied" in copied[1]
        needed = run("ldd", binary)
        assert "not found" not in needed and str(CHECKOUT) not in needed
    for file in prefix.rglob("*.cmake"):
        assert str(CHECKOUT) not in file.read_text(), file
    assert run(prefix / "bin" / "kvbig", "version")


def readme_program() -> str:
    """The C++ code in the README, completed to a program that prints the answers."""
    code = re.findall(r"^```cpp\n(.*?)^```", (CHECKOUT / "README.md").read_text(), re.M | re.S)[0]
    includes = "".join(re.findall(r"^#include .*\n", code, re.M))
    body = code.replace(includes, "")
    show = "for (const kv::Value& value : answers.values) std::cout << value.number() << '\\n';"
    return f"#include <iostream>\n{includes}int main() {{\n{body}{show}\n}}\n"


def test_programs_build_on_the_installed_package(
    installed: tuple[Path, str], flights: Path, tmp_path: Path
) -> None:
    (tmp_path / "CMakeLists.txt").write_text(CONSUMER)
    (tmp_path / "program.cpp").write_text(readme_program())
    for source in (tmp_path, CHECKOUT / "examples"):
        found = f"-DCMAKE_PREFIX_PATH={installed[0]}"
        run("cmake", "-G", "Ninja", "-S", source, "-B", tmp_path / source.name, found)
        run("cmake", "--build", tmp_path / source.name)

    expected = ["0.0825148", "12.1122"]
    assert run(tmp_path / tmp_path.name / "program", cwd=flights.parents[1]).split() == expected
    printed = run(tmp_path / "examples" / "example_flights", flights)
    assert all(answer in printed for answer in expected)
