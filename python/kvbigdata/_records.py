"""Errors, warnings, frames and properties as Python sees them."""

import copyreg
import pickle
from collections.abc import Iterable
from typing import TYPE_CHECKING, Any, NamedTuple

if TYPE_CHECKING:
    from ._host import Object


class Frame(NamedTuple):
    """A frame of a user's stack."""

    file: str
    name: str
    line: int


class Warning(NamedTuple):
    """A warning that a session issued."""

    identifier: str
    arguments: list[str]
    message: str


class Property:
    """A property of a class: its default, and who may read and write it.

    Access levels: 0 everyone, 1 the class and its subclasses, 2 only the class; as set access also
    3 (only constructors of the class) and 5 (no one).
    """

    def __init__(self, default: Any = None, get: int = 0, set: int = 0):
        self.default = default
        self.get = get
        self.set = set

    def __repr__(self) -> str:
        return f"Property({self.default!r}, get={self.get}, set={self.set})"


def _pickled(cause: Any) -> Any:
    """The cause of an error or, if it can't be pickled, an `Error` with its type and text."""
    # An Error tests its own cause when it is pickled, so a chain is tested link by link.
    is_link = isinstance(cause, Error) and type(cause).__reduce__ is Error.__reduce__
    try:
        pickle.dumps(cause._reduced(None) if is_link else cause)
    except Exception:
        return Error(f"KALVEX:python:{type(cause).__name__}", str(cause))
    return cause


class Error(Exception):
    """An error of the host, or an error to raise into the host.

    If a Python callable raises it, it keeps identifier, arguments and message on its way through
    the host and back to Python.

    identifier: such as "KALVEX:UndefinedFunction".
    message: a sentence for people.
    arguments: list of str, the values in the text.
    cause: the exception that caused it: another Error, the Python exception from which it was made,
        or None.
    stack: list of Frame, innermost first; empty until the error has passed through the host.
    object: the host.Object of class "KException" or of a subclass, or None if no session made one.
    """

    def __init__(
        self,
        identifier: str,
        message: str = "",
        arguments: Iterable[Any] = (),
        cause: BaseException | None = None,
    ):
        arguments = [str(argument) for argument in arguments]
        super().__init__(identifier, message, arguments, cause)
        self.identifier = identifier
        self.message = message
        self.arguments = arguments
        self.cause = cause
        self.stack: list[Frame] = []
        self.object: Object | None = None
        if isinstance(cause, BaseException):
            self.__cause__ = cause

    def __reduce__(self) -> tuple[Any, ...]:
        """Pickles all but `object`, which belongs to a session, and causes that can't be pickled."""
        return self._reduced(_pickled(self.cause))

    def _reduced(self, cause: Any) -> tuple[Any, ...]:
        state = {**self.__dict__, "object": None, "cause": cause, "__cause__": cause}
        args = tuple(cause if each is self.cause else each for each in self.args)
        return copyreg.__newobj__, (type(self), *args), state  # type: ignore[attr-defined]

    def __copy__(self) -> "Error":
        made = self.__new__(type(self), *self.args)
        made.__dict__.update(self.__dict__)
        made.__cause__ = self.__cause__
        return made

    def __str__(self) -> str:
        return f"{self.identifier}: {self.message}" if self.message else self.identifier
