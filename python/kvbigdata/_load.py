"""Loads the extension, and with it the libraries of Arrow inside pyarrow."""

import atexit
import importlib

NEEDED = "pyarrow >=26.0,<26.1"


def _load_arrow() -> None:
    """Arrow's libraries aren't where this package looks for them: lets pyarrow load its own."""
    try:
        for module in ("pyarrow", "pyarrow.dataset", "pyarrow.parquet"):
            importlib.import_module(module)
    except ImportError as error:
        raise ImportError(f"kvbigdata needs {NEEDED}, which isn't installed.") from error


def _load() -> None:
    try:
        from . import _host
    except ImportError as error:
        if "libarrow" not in str(error):
            raise
        _load_arrow()
        try:
            from . import _host
        except ImportError as again:
            import pyarrow as pa

            installed = f"but pyarrow {pa.__version__} is installed"
            raise ImportError(f"kvbigdata needs {NEEDED}, {installed}.") from again
    atexit.register(_host.close_all)


_load()
