"""Loads the extension, and with it the libraries of Arrow inside pyarrow."""

import atexit
import importlib

NEEDED = "pyarrow >=26.0,<26.1"


def _installed() -> str:
    """What is there instead of what is needed."""
    try:
        version = importlib.import_module("pyarrow").__version__
    except ImportError:
        return "which isn't installed"
    return f"but pyarrow {version} is installed"


def _load() -> None:
    try:
        from . import _host
    except ImportError as error:
        if "libarrow" not in str(error):
            raise
        # Arrow's libraries aren't where this package looks for them: lets pyarrow load its own.
        try:
            for module in ("pyarrow", "pyarrow.dataset", "pyarrow.parquet"):
                importlib.import_module(module)
            from . import _host
        except ImportError as again:
            raise ImportError(f"kvbigdata needs {NEEDED}, {_installed()}.") from again
    atexit.register(_host.close_all)


_load()
