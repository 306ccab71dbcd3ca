"""Errors of arrays: what went wrong, with which values, and on which line of the user's code."""

import linecache
import os
import re
import sys
from types import FrameType
from typing import Any, NamedTuple

from . import _host

_PACKAGE = os.path.dirname(__file__) + os.sep

Frames = list[tuple[str, str, int]]


class Where(NamedTuple):
    """A line of the user's code."""

    file: str
    line: int
    text: str


class Error(Exception):
    """An error of kvbigdata. Each is also of the built-in type that fits it.

    identifier: such as "KALVEX:array:UnknownColumn".
    arguments: list of str, the values in the message.
    where: the user's line that it is about, as `Where(file, line, text)`, or None if unknown.
    """

    def __init__(
        self,
        identifier: str = "",
        message: str = "",
        arguments: list[str] | None = None,
        where: Where | None = None,
    ):
        super().__init__(message)
        self.identifier = identifier
        self.message = message
        self.arguments = arguments or []
        self.where = where

    def __str__(self) -> str:
        return self.message

    def __reduce__(self) -> tuple[Any, ...]:
        notes = {"__notes__": self.__notes__} if hasattr(self, "__notes__") else {}
        return type(self), (self.identifier, self.message, self.arguments, self.where), notes


class InvalidValueError(Error, ValueError):
    """A value, or the data of a file, isn't what was expected."""


class InvalidTypeError(Error, TypeError):
    """An operation isn't defined for the types that it was given."""


class AxisError(InvalidValueError, IndexError):
    """An array has no such dimension."""


class RowSpaceError(InvalidValueError):
    """Arrays with different rows can't be combined."""


class NumberRangeError(InvalidValueError, OverflowError):
    """A number doesn't fit the type that it must have."""


class FormulaError(InvalidValueError):
    """A formula can't be used; the message marks the place."""


class UnknownLengthError(InvalidTypeError):
    """The number of rows isn't known before the data was read."""


class UnknownNameError(Error, KeyError):
    """There is no column, or nothing else, of that name."""


class UnknownColumnInFormulaError(FormulaError, UnknownNameError):
    """A formula uses a column that isn't there."""


class UnknownAttributeError(UnknownNameError, AttributeError):
    """There is no column of the name that was used as an attribute."""

    @classmethod
    def of(cls, error: UnknownNameError) -> "UnknownAttributeError":
        return cls(error.identifier, error.message, error.arguments, error.where)


class PositionError(Error, IndexError):
    """A position is out of range."""


class OutOfMemoryError(Error, MemoryError):
    """A result or an evaluation doesn't fit the memory that it may use."""


class SourceError(Error, OSError):
    """A file can't be found or read, or has changed."""


_BY_BASE: dict[str, type[Error]] = {
    "value": InvalidValueError,
    "type": InvalidTypeError,
    "key": UnknownNameError,
    "index": PositionError,
    "memory": OutOfMemoryError,
    "system": SourceError,
}

_BY_IDENTIFIER: dict[str, type[Error]] = {
    "KALVEX:array:RowsDiffer": RowSpaceError,
    "KALVEX:array:DifferentSources": RowSpaceError,
    "KALVEX:array:LengthsDiffer": RowSpaceError,
    "KALVEX:array:NoPlace": RowSpaceError,
    "KALVEX:array:BadFormula": FormulaError,
    "KALVEX:array:UnknownColumnInFormula": UnknownColumnInFormulaError,
    "KALVEX:array:UnknownLength": UnknownLengthError,
    "KALVEX:array:BadAxis": AxisError,
    "KALVEX:function:OutOfRange": NumberRangeError,
    "KALVEX:function:Overflow": NumberRangeError,
}

# What users of Python write for functions that are called otherwise below.
_WRITTEN: dict[str, str] = {
    "plus": "+",
    "minus": "-",
    "times": "*",
    "rdivide": "/",
    "mod": "%",
    "power": "**",
    "uminus": "-",
    "eq": "==",
    "ne": "!=",
    "lt": "<",
    "le": "<=",
    "gt": ">",
    "ge": ">=",
    "and": "&",
    "or": "|",
    "xor": "^",
    "not": "~",
    "stdp": "std",
    "varp": "var",
}
_ABOUT_FUNCTIONS = {
    "KALVEX:array:NotBroadcast",
    "KALVEX:array:SizesDiffer",
    "KALVEX:array:UnsupportedOperand",
}


# The arguments of errors in which there are types, and what these are called in NumPy.
_TYPES_IN = {
    "KALVEX:function:BadTypes": [1],
    "KALVEX:function:OutOfRange": [2],
    "KALVEX:function:Overflow": [2],
    "KALVEX:array:NotLogical": [1],
    "KALVEX:array:NotANumber": [0],
    "KALVEX:array:WrongType": [1, 2],
}
_TYPES = {"double": "float64", "single": "float32", "logical": "bool"}


def _with_name(identifier: str, message: str, arguments: list[str]) -> tuple[str, list[str]]:
    is_about_function = identifier.startswith("KALVEX:function:") or identifier in _ABOUT_FUNCTIONS
    if not is_about_function or not arguments or arguments[0] not in _WRITTEN:
        return message, arguments
    name, *others = arguments
    written = _WRITTEN[name]
    return written + message.removeprefix(name), [written, *others]


def _as_written(identifier: str, message: str, arguments: list[str]) -> tuple[str, list[str]]:
    """A message and its arguments with the names of functions and types that Python has."""
    message, arguments = _with_name(identifier, message, arguments)
    for place in _TYPES_IN.get(identifier, []):
        given = arguments[place] if place < len(arguments) else ""
        shown = re.sub(r"\b(double|single|logical)\b", lambda found: _TYPES[found[0]], given)
        if shown != given:
            head, _, tail = message.rpartition(given)
            message = head + shown + tail
            arguments[place] = shown
    return message, arguments


def _where(frames: Frames) -> Where | None:
    if not frames:
        return None
    file, _, line = frames[0]
    return Where(file, line, linecache.getline(file, line).strip())


Place = tuple[int | None, int | None, int | None, str]


def _place(partition: int | None, first: int | None, last: int | None, file: str) -> str:
    rows = "" if first is None else f", rows {first} to {last}"
    source = f" of {file}" if file else ""
    return "" if partition is None else f"partition {partition}{rows}{source}"


def make_error(
    identifier: str,
    message: str,
    arguments: list[str],
    base: str,
    frames: Frames,
    place: Place,
    cause: Error | None,
) -> Error:
    """The exception for the parts of an error. Called by the extension."""
    made = _BY_IDENTIFIER.get(identifier, _BY_BASE.get(base, Error))
    message, arguments = _as_written(identifier, message, arguments)
    error = made(identifier, message, arguments, _where(frames))
    annotate(error, frames, place)
    if made is RowSpaceError:
        _show_lines(error)
    error.__cause__ = cause
    return error


def _show_lines(error: Error) -> None:
    """Adds the text of the lines that a message names, for both sides of what doesn't go together."""
    shown = dict.fromkeys(re.findall(r"recorded in (.+?), line (\d+)", error.message))
    for file, line in shown:
        if linecache.getline(file, int(line)).strip():
            error.add_note(shown_line(file, int(line)))


def annotate(error: BaseException, frames: Frames, place: Place) -> None:
    """Adds where it was recorded and where in the data it happened. Called by the extension.

    A function may raise the same object again, in another evaluation.
    """
    if isinstance(error, Error) and error.where is None:
        error.where = _where(frames)
    for note in (recorded_note(frames), _place(*place)):
        if note and note not in getattr(error, "__notes__", ()):
            error.add_note(note)


def in_function(identifier: str, *arguments: object) -> Error:
    """The error about what a user's function returned. Its line is the one that recorded the
    function, not the live one."""
    error = array_error(identifier, *arguments)
    error.where = None
    return error


def live_line() -> Where | None:
    """The line of the user's code that runs now."""
    frame: FrameType | None = sys._getframe(1)
    while frame is not None and frame.f_code.co_filename.startswith(_PACKAGE):
        frame = frame.f_back
    return frame and Where(frame.f_code.co_filename, frame.f_lineno, "")


def shown_line(file: str, line: int) -> str:
    """A line as `repr` shows it."""
    text = linecache.getline(file, line).strip()
    return f"{file}, line {line}" + (f": {text}" if text else "")


def recorded_note(frames: Frames) -> str:
    """Where something was recorded, for an error that is raised on another line."""
    where = _where(frames)
    live = _host.python_stack()
    if where is None or (live and live[0][0] == where.file and live[0][2] == where.line):
        return ""
    return f"recorded in {shown_line(where.file, where.line)}"


def wrong_input(what: str, expected: str, given: object) -> Error:
    """An error about an argument that isn't of the expected kind."""
    shown = str(given) if isinstance(given, str | int | float) else type(given).__name__
    return array_error("KALVEX:validateattributes:invalidType", what, expected, shown)


def array_error(identifier: str, *arguments: object) -> Error:
    """An error of the catalogue, about the line that runs now."""
    made = _host.array_error(identifier, [str(argument) for argument in arguments])
    assert isinstance(made, Error)
    return made
