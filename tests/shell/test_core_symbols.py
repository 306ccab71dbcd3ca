"""The shared libraries depend only on the layers below them.

Each undefined symbol of a library is looked up in the libraries that it names as needed, which must
be among those listed here. Boost is header-only and leaves no symbols.
"""

import re
import subprocess
from pathlib import Path

import pytest

SYSTEM = {"libstdc++", "libc", "libm", "libgcc_s", "ld-linux-x86-64", "ld-linux-aarch64"}
SANITIZERS = {"libasan", "libubsan"}
ALLOWED = {"libkvhost": SYSTEM | SANITIZERS, "libkvbigdata": SYSTEM | SANITIZERS | {"libkvhost"}}


def run(*command: str | Path) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def undefined_symbols(library: Path) -> set[str]:
    """Names with versions that other libraries must provide; weak ones may stay unresolved."""
    lines = run("nm", "-D", "--undefined-only", library).splitlines()
    return {name for kind, name in (line.split() for line in lines) if kind == "U"}


def defined_symbols(library: Path) -> set[str]:
    """Names that `library` defines, each with and without its version."""
    lines = run("nm", "-D", "--defined-only", library).splitlines()
    names = {line.split()[-1].replace("@@", "@") for line in lines}
    return names | {name.split("@")[0] for name in names}


def loaded_libraries(library: Path) -> dict[str, Path]:
    """The libraries that the loader loads for `library`: name up to `.so` -> file."""
    lines = run("ldd", library).splitlines()
    files = [match[1] for line in lines if (match := re.search(r"(/\S+) \(0x", line))]
    return {Path(file).name.split(".so")[0]: Path(file) for file in files}


@pytest.mark.parametrize("name", ALLOWED)
def test_a_library_needs_only_the_layers_below_it(name: str, library_folder: Path) -> None:
    library = library_folder / f"{name}.so"
    offers = {n: defined_symbols(f) for n, f in loaded_libraries(library).items()}

    strangers = {}
    for symbol in undefined_symbols(library):
        sources = {n for n, symbols in offers.items() if symbol in symbols}
        if not sources & ALLOWED[name]:
            strangers[symbol] = sources or "no library that it names"

    assert not strangers
    assert set(offers) <= ALLOWED[name]


def test_the_core_takes_its_objects_from_the_host(library_folder: Path) -> None:
    """Guards the test above: the real core must need symbols from the host."""
    needed = undefined_symbols(library_folder / "libkvbigdata.so")
    assert needed & defined_symbols(library_folder / "libkvhost.so")
