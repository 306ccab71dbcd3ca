"""Arguments: what they must be, or an error on the user's line that says so."""

import operator
import os
from typing import Any

from ._errors import wrong_input


def whole_number(given: Any, what: str) -> int:
    """An integer of any type as Python's."""
    try:
        return operator.index(given)
    except TypeError:
        raise wrong_input(what, "a whole number", given) from None


def path_text(given: Any, what: str) -> str:
    """The text of a path."""
    try:
        return os.fsdecode(given)
    except TypeError:
        raise wrong_input(what, "a path: a str or an os.PathLike object", given) from None


def texts(given: Any, what: str) -> list[str]:
    """One text, or several."""
    listed = [given] if isinstance(given, str) else given
    if not hasattr(listed, "__iter__") or not all(isinstance(each, str) for each in listed):
        raise wrong_input(what, "a text or several", given)
    return list(listed)
