from collections.abc import Callable, Iterable, Mapping, Sequence
import os
from typing import Any

import kvbigdata._records


__nanobind_internals__: PyCapsule = ...

class Session:
    """
    A session of the host, with objects, classes, functions and warnings of its own.

    It belongs to the thread that made it; use from another thread raises Error "KALVEX:session:WrongThread". It is a context manager that closes the session on exit.

    runtime=False leaves out everything that the native core reaches by name; stress=True collects garbage whenever an object is created.
    """

    def __init__(self, *, runtime: bool = True, stress: bool = False) -> None: ...

    def call(self, name: str, *args: Any, nargout: int = 1, as_class: str | None = None) -> Any:
        """
        Calls by name. In this order, the name means a method of the leftmost argument that is an object whose class has such a method, a function, a class's constructor, a static method "Class.name", a builtin.

        nargout=1 returns the value (None if there is none), a larger one a tuple, 0 the value if the callee returned one anyway. as_class gives the call the rights of that class's own code. Raises Error "KALVEX:UndefinedFunction" with the name, and whatever the callee raises.
        """

    def new(self, class_name: str, *args: Any, as_class: str | None = None) -> Object:
        """
        Makes an object with the constructor of its class. Raises Error "KALVEX:UndefinedFunction", "KALVEX:class:AbstractClass", "KALVEX:class:AccessDenied".
        """

    def define_function(self, name: str, fn: Callable[..., Any]) -> None:
        """
        Defines or replaces a function. It is called as fn(nargout, *args) and returns None, one value, or a tuple of outputs.
        """

    def define_class(self, name: str, *, superclasses: Iterable[str] = (), properties: dict[str, Any] = {}, constructor: Callable[..., Any] | None = None, methods: dict[str, Callable[..., Any]] = {}, static_methods: dict[str, Callable[..., Any]] = {}, abstract: Iterable[str] = (), sealed: bool = False) -> None:
        """
        Defines a class, or replaces one that has no instances.

        properties maps a name to a default or to a Property. Methods are called as fn(nargout, obj, *args), static ones as fn(nargout, *args), the constructor as fn(obj, *args); in it obj.super_init(superclass, *args) runs a superclass's constructor. abstract names methods that subclasses must define. Raises Error "KALVEX:class:HasInstances", "KALVEX:class:SealedClass".
        """

    def complete_class(self, name: str, *, methods: dict[str, Callable[..., Any]] = {}, static_methods: dict[str, Callable[..., Any]] = {}) -> None:
        """
        Gives bodies to methods that a native class only declares. Raises Error "KALVEX:class:NoSuchMember" for another name.
        """

    def describe(self, name: str) -> dict[str, Any]:
        """
        The class as registered: name, superclasses, sealed, native, and the members in the order of registration. Raises Error "KALVEX:UndefinedFunction".
        """

    def classes(self) -> list[str]:
        """
        Full names of the classes that the core's library registered, in that order.
        """

    def save(self, path: str | bytes | os.PathLike[str] | os.PathLike[bytes], value: Any) -> None:
        """
        Saves a value with all objects that it refers to; the file appears whole or not at all.

        A callable is saved by its name alone. Raises Error "KALVEX:save:NotSaveable" with class and reason, "KALVEX:save:CannotWrite" with path and reason.
        """

    def load(self, path: str | bytes | os.PathLike[str] | os.PathLike[bytes], trusted: bool = False) -> Any:
        """
        The value in a file that `save` wrote. Runs no user code.

        Without trusted=True the value can be inspected, planned and saved again, but not evaluated ("KALVEX:load:NotTrusted"). Raises Error "KALVEX:load:Corrupt" with section, offset and reason, "KALVEX:load:LaterFormat" with release and format of the file and of this release, "KALVEX:load:UnknownClass" with the class, "KALVEX:load:CannotRead" with path and reason.
        """

    def save_bytes(self, value: Any) -> bytes:
        """The bytes that `save` would write."""

    def load_bytes(self, data: bytes | bytearray | memoryview, trusted: bool = False) -> Any:
        """
        The value in the bytes of a file, as `load` returns it. Memory other than `bytes` is copied, and need not be contiguous.
        """

    def collect(self) -> int:
        """Runs the collector; returns the number of objects freed."""

    def live_objects(self, class_name: str | None = None) -> int:
        """The number of live objects, of all classes or of exactly that class."""

    @property
    def warnings(self) -> list[kvbigdata._records.Warning]:
        """The warnings issued so far, a list of Warning."""

    def clear_warnings(self) -> None:
        """Clears the list of warnings."""

    def close(self) -> None:
        """
        Frees every object; any later use raises Error "KALVEX:session:Closed". Does nothing if the session is closed already.
        """

    def interrupt(self) -> None:
        """
        Asks the evaluation in progress in this session to stop; it ends within one chunk with KeyboardInterrupt. If none is running, the next one stops. Other sessions aren't affected. May be called on any thread.
        """

    def __enter__(self) -> Session: ...

    def __exit__(self, *args: object) -> None: ...

    def __repr__(self) -> str: ...

class Object:
    """
    An object of the host; holding it keeps it alive.

    Two are equal, with equal hashes, if they are the same host object. May be dropped on any thread, even after its session was closed.
    """

    @property
    def class_name(self) -> str:
        """The full name of its class."""

    @property
    def is_deleted(self) -> bool:
        """True once the object was deleted or its session was closed."""

    def get(self, property: str, as_class: str | None = None) -> Any:
        """
        The value of a property. Raises Error "KALVEX:class:NoSuchMember" or "KALVEX:class:AccessDenied".
        """

    def set(self, property: str, value: Any, as_class: str | None = None) -> None:
        """Sets a property. Raises Error as `get` does."""

    def invoke(self, method: str, *args: Any, nargout: int = 1, as_class: str | None = None) -> Any:
        """
        Calls a method with the object as first input. Outputs are as for `Session.call`.
        """

    def is_a(self, class_name: str) -> bool:
        """True if the object is of that class or of a class derived from it."""

    def delete(self) -> None:
        """Deletes the object at once, even if it is still referred to."""

    def super_init(self, superclass: str, *args: Any) -> None:
        """In a constructor: runs the constructor of a direct superclass."""

    def __eq__(self, other: object, /) -> bool: ...

    def __hash__(self) -> int: ...

    def __repr__(self) -> str: ...

class Function:
    """
    A function of the host, by its name; called as fn(nargout, *args), as callables are.

    A Function that came from a session runs there. One made by name runs in the session whose call is running on the calling thread; if there is none, in the only session open on that thread. Otherwise Error "KALVEX:session:Ambiguous" is raised, with the name and the number of sessions.
    """

    def __init__(self, name: str) -> None: ...

    @property
    def name(self) -> str:
        """The name of the function."""

    def __call__(self, nargout: int, *args: Any) -> Any:
        """Calls the function. Outputs are as for `Session.call`."""

    def __eq__(self, other: object, /) -> bool: ...

    def __hash__(self) -> int: ...

    def __repr__(self) -> str: ...

class Memory:
    """The elements of a value of the host, to which arrays refer."""

class ElementMemory:
    """The elements of a result, to which arrays refer."""

class ReadOptions:
    """How files are read."""

    def __init__(self, types: Mapping[str, str], separator: str, has_header: bool, missing: Sequence[str] | None) -> None: ...

class ArrayHandle:
    """An array of array/."""

    @property
    def type(self) -> str: ...

    @property
    def origin(self) -> tuple[list[str], str, int]: ...

    @property
    def is_logical(self) -> bool: ...

    @property
    def rows(self) -> int | None: ...

    @property
    def trailing(self) -> list[int]: ...

    @property
    def can_place_beside(self) -> bool: ...

    @property
    def is_scalar(self) -> bool: ...

    @property
    def is_column(self) -> bool: ...

class TableHandle:
    """A table of array/."""

    @property
    def columns(self) -> list[str]: ...

    @property
    def sources(self) -> list[str]: ...

    @property
    def types(self) -> list[str]: ...

    @property
    def notes(self) -> list[str]: ...

    def column(self, name: str) -> ArrayHandle: ...

    def filter(self, keep: ArrayHandle) -> TableHandle: ...

class ArraySession:
    """A session of arrays."""

    def __init__(self) -> None: ...

    def from_numpy(self, array: object, type: str, chunk_rows: int) -> ArrayHandle: ...

    def from_texts(self, texts: list[str | None], chunk_rows: int) -> ArrayHandle: ...

    def arange(self, start: float, stop: float, step: float, type: str) -> ArrayHandle: ...

    def full(self, rows: int, value: object, type: str, trailing: Sequence[int]) -> ArrayHandle: ...

    def linspace(self, start: float, stop: float, rows: int, has_endpoint: bool) -> ArrayHandle: ...

    def row(self, elements: tuple[str, object]) -> ArrayHandle: ...

    def from_stream(self, stream: object, is_collected: bool) -> TableHandle: ...

    def write_table(self, table: TableHandle, path: str, format: str, overwrite: bool, partition_by: Sequence[str]) -> ArrayHandle: ...

    def write_array(self, array: ArrayHandle, path: str, format: str, overwrite: bool, partition_by: Sequence[str]) -> ArrayHandle: ...

    def close(self) -> None: ...

    def read(self, paths: Sequence[str], options: ReadOptions) -> TableHandle: ...

    def read_csv(self, paths: Sequence[str], options: ReadOptions) -> TableHandle: ...

    def read_parquet(self, paths: Sequence[str]) -> TableHandle: ...

    def read_ipc(self, paths: Sequence[str]) -> TableHandle: ...

    def read_npy(self, paths: Sequence[str]) -> ArrayHandle: ...

    def constant(self, value: object) -> ArrayHandle: ...

    def scalar(self, value: object, type: str) -> ArrayHandle: ...

    def set_threads(self, threads: int) -> None: ...

    def set_memory_limit(self, limit: int | str) -> None: ...

    def set_scratch(self, folder: str) -> None: ...

    def record_text(self, table: TableHandle, formula: str) -> ArrayHandle: ...

    def filter_by_text(self, table: TableHandle, formula: str) -> TableHandle: ...

    def compute(self, arrays: list[ArrayHandle]) -> tuple[list[tuple[str, bool, object]], tuple[int, int, float, int]]: ...

    def save(self, path: str, names: list[str], arrays: list[ArrayHandle]) -> None: ...

    def open(self, path: str, trust: bool) -> tuple[list[tuple[str, ArrayHandle]], list[str]]: ...

    def explain(self, arrays: list[ArrayHandle]) -> str: ...

def apply_function(name: str, inputs: list[object]) -> ArrayHandle: ...

def apply_to_one(name: str, input: ArrayHandle) -> ArrayHandle: ...

def apply_to_two(name: str, left: object, right: object) -> ArrayHandle: ...

def reduce(name: str, input: ArrayHandle, skip_missing: bool | None = None, is_whole: bool | None = None) -> ArrayHandle: ...

def first_rows(arrays: list[ArrayHandle]) -> list[tuple[str, bool, object] | None]: ...

def place_beside(array: ArrayHandle, elements: tuple[str, object]) -> ArrayHandle: ...

def with_dimension(array: ArrayHandle) -> ArrayHandle: ...

def filter_array(input: ArrayHandle, keep: ArrayHandle) -> ArrayHandle: ...

def map_chunks(name: str, function: object, inputs: list[ArrayHandle], type: str, serial: bool, shape: Sequence[int], same_rows: bool) -> ArrayHandle: ...

def table_of(names: list[str], arrays: list[ArrayHandle]) -> TableHandle: ...

def count_rows(array: ArrayHandle) -> ArrayHandle: ...

def settle(array: ArrayHandle) -> None: ...

def array_error(identifier: str, arguments: Sequence[str]) -> object: ...

def python_stack() -> list[tuple[str, str, int]]: ...

def select_places(array: ArrayHandle, places: Sequence[int], shape: Sequence[int]) -> ArrayHandle: ...

def reduce_rows(name: str, input: ArrayHandle, axes: Sequence[int], keeps_dimensions: bool, skip_missing: bool) -> ArrayHandle: ...

def head_array(array: ArrayHandle, rows: int) -> ArrayHandle: ...

def head_table(table: TableHandle, rows: int) -> TableHandle: ...

def group_table(table: TableHandle, keys: Sequence[str], columns: list[tuple[str, str, str]]) -> TableHandle: ...

def map_table(name: str, function: object, table: TableHandle, columns: list[tuple[str, str]], serial: bool, same_rows: bool) -> TableHandle: ...

def table_stream(table: TableHandle, at_begin: object, at_end: object) -> object: ...

def array_stream(array: ArrayHandle, at_begin: object, at_end: object) -> object: ...

def ledger() -> dict[str, int]:
    """
    What the process holds: counts of objects, arrays and payloads, and bytes. All are zero when every session is closed and every value is dropped.
    """

def close_all() -> None:
    """
    For the end of the interpreter: stops other threads where they use the host, and closes the sessions that are still open.
    """
