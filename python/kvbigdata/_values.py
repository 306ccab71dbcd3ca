"""Values of the host for which Python has no type of its own."""

from collections.abc import Iterable, Iterator, Mapping, Sequence
from contextvars import ContextVar
from typing import TYPE_CHECKING, Any

import numpy as np
from numpy.typing import DTypeLike, NDArray

if TYPE_CHECKING:
    from ._host import Object


def copy_to_columns(array: Any) -> NDArray[Any]:
    """A copy of `array`, column-major and in the machine's byte order."""
    array = np.asarray(array)
    return np.array(array, dtype=array.dtype.newbyteorder("="), order="F", copy=True)


_flags_of, _base_of = np.ndarray.flags.__get__, np.ndarray.base.__get__


def owner_of(array: Any) -> Any:
    """The owner of the memory of `array`; None if it, or an array that it views, is writable.

    (The owner of a read-only array could make it writable again, and is trusted not to do so while
    the host uses it.)
    """
    while issubclass(type(array), np.ndarray):
        flags = _flags_of(array)
        if flags.writeable or flags.owndata:
            return None if flags.writeable else array
        array = _base_of(array)
    return array


def array_of(shape: tuple[int, ...], type_name: str, memory: Any) -> NDArray[Any]:
    """A read-only array of the elements in `memory`."""
    return np.ndarray(shape, dtype=type_name, buffer=memory, order="F")


def empty_array(shape: tuple[int, ...], type_name: str) -> NDArray[Any]:
    """A read-only array without elements."""
    array = np.zeros(shape, dtype=type_name, order="F")
    array.setflags(write=False)
    return array


def numpy_scalar(type_name: str, data: bytes) -> Any:
    """A NumPy scalar from its bytes."""
    return np.frombuffer(data, dtype=type_name)[0]


def microseconds_of(array: Any) -> NDArray[np.int64]:
    """The elements of an array of datetime64 or timedelta64 of any unit, in microseconds."""
    array = np.asarray(array)
    elements: NDArray[np.int64] = array.astype(f"{array.dtype.kind}8[us]", copy=False).view("i8")
    return elements


class ListsItsOwn(type):
    """The type of classes with many inherited members; `dir` and help list only their own ones."""

    def __dir__(cls) -> list[str]:
        ours = (vars(ancestor) for ancestor in cls.__mro__ if type(ancestor) is ListsItsOwn)
        return sorted({name for members in ours for name in members})


def _object_array(elements: Iterable[Any], shape: tuple[int, ...]) -> NDArray[Any]:
    array = np.empty(shape, dtype=object, order="F")
    flat = array.reshape(-1, order="F")
    for index, element in enumerate(elements):
        flat[index] = element
    return array


_MOST_SHOWN = 1000
_left: ContextVar[int | None] = ContextVar("_left", default=None)


def _listed(elements: Iterable[Any]) -> str:
    """The `repr` of `elements` as a list, up to a thousand elements, nested ones included."""
    outermost = _left.set(_MOST_SHOWN) if _left.get() is None else None
    try:
        shown = []
        for element in elements:
            if (left := _left.get() or 0) <= 0:
                shown.append("...")
                break
            _left.set(left - 1)
            shown.append(repr(element))
        return f"[{', '.join(shown)}]"
    finally:
        if outermost is not None:
            _left.reset(outermost)


class _Rows:
    """The rows of an object array as nested lists, created while they are shown."""

    def __init__(self, array: NDArray[Any]):
        self._array = array

    def __repr__(self) -> str:
        if self._array.ndim == 0:
            return repr(self._array.item())
        if self._array.ndim == 1:
            return _listed(self._array)
        return _listed(_Rows(self._array[row]) for row in range(self._array.shape[0]))


class String(str, metaclass=ListsItsOwn):
    """A string scalar: behaves like a `str`. A plain `str` is a char row."""

    __slots__ = ()

    def __repr__(self) -> str:
        return f"String({str.__repr__(self)})"


class Chars(Sequence[str]):
    """A char matrix: a sequence of its rows, which are texts of the same length."""

    def __init__(self, rows: Iterable[str]):
        self._rows = tuple(rows)
        for row in self._rows:
            if not isinstance(row, str):
                raise TypeError(f"rows of Chars must be str, not {type(row).__name__}")
        if len({len(row) for row in self._rows}) > 1:
            raise ValueError("rows of Chars must have the same length")

    @property
    def shape(self) -> tuple[int, int]:
        """Number of rows, and of characters per row."""
        return len(self._rows), len(self._rows[0]) if self._rows else 0

    def __len__(self) -> int:
        return len(self._rows)

    def __getitem__(self, index: Any) -> Any:
        return self._rows[index]

    def __eq__(self, other: object) -> bool:
        return self._rows == other._rows if isinstance(other, Chars) else NotImplemented

    def __hash__(self) -> int:
        return hash(self._rows)

    def __repr__(self) -> str:
        return f"Chars({_listed(self._rows)})"


class _Shaped:
    """A value with a shape and elements, stored as an object array."""

    _elements: NDArray[Any]

    @property
    def shape(self) -> tuple[int, ...]:
        """Extents of the dimensions, two or more."""
        return self._elements.shape

    def _columnwise(self) -> NDArray[Any]:
        return self._elements.reshape(-1, order="F")

    def __len__(self) -> int:
        return self._elements.size

    def __iter__(self) -> Iterator[Any]:
        return iter(self._columnwise().tolist())

    def __eq__(self, other: object) -> bool:
        if type(other) is not type(self):
            return NotImplemented
        return self.shape == other.shape and list(self) == list(other)

    __hash__ = None  # type: ignore[assignment]


class StringArray(_Shaped):
    """A string array: elements are `str`, or None where missing.

    Made from nested lists or an object array; a flat list is a column. `np.asarray(x,
    dtype=object)` returns the elements.
    """

    def __init__(self, elements: Any):
        array = elements if isinstance(elements, np.ndarray) else np.array(elements, dtype=object)
        if array.size == 0 and array.ndim < 2:
            array = array.reshape(0, 1)
        elif array.ndim < 2:
            array = array.reshape(-1, 1)
        self._elements = array.astype(object)
        for text in self._elements.flat:
            if text is not None and not isinstance(text, str):
                raise TypeError(
                    f"elements of a StringArray must be str or None, not {type(text).__name__}"
                )

    @classmethod
    def _from_columns(cls, elements: Iterable[Any], shape: tuple[int, ...]) -> "StringArray":
        return cls(_object_array(elements, shape))

    def __array__(self, dtype: DTypeLike | None = None, copy: bool | None = None) -> NDArray[Any]:
        return np.array(self._elements, dtype=dtype or object)

    def __getitem__(self, index: Any) -> Any:
        found = self._columnwise()[index] if isinstance(index, int) else self._elements[index]
        return found if found is None or isinstance(found, str) else StringArray(found)

    def tolist(self) -> Any:
        """Nested lists, row by row."""
        return self._elements.tolist()

    def __repr__(self) -> str:
        return f"StringArray({_Rows(self._elements)!r})"


class Cell(np.ndarray[Any, np.dtype[Any]], metaclass=ListsItsOwn):
    """A cell: an object array of at least two dimensions whose elements are any values.

    Made from an object array or a list. A flat list is a row; a list of lists of the same length
    gives one row per list. It is a `numpy.ndarray` with all its methods.
    """

    def __new__(cls, elements: Iterable[Any] = ()) -> "Cell":
        if isinstance(elements, np.ndarray):
            array = elements.astype(object)
            return (array.reshape(1, -1) if array.ndim < 2 else array).view(cls)
        elements = list(elements)
        rows = elements and all(type(element) is list for element in elements)
        if rows and len({len(element) for element in elements}) == 1:
            columns = len(elements[0])
            flat = [elements[i][j] for j in range(columns) for i in range(len(elements))]
            return cls._from_columns(flat, (len(elements), columns))
        return cls._from_columns(elements, (1, len(elements)))

    @classmethod
    def _from_columns(cls, elements: Iterable[Any], shape: tuple[int, ...]) -> "Cell":
        return _object_array(elements, shape).view(cls)

    def _columnwise(self) -> NDArray[Any]:
        return self.reshape(-1, order="F").view(np.ndarray)

    def __repr__(self) -> str:
        return f"Cell({_Rows(self.view(np.ndarray))!r}, dtype=object)"


class StructArray(_Shaped, Sequence[dict[str, Any]]):
    """A structure array: a sequence of dicts with the same keys in the same order; a column."""

    def __init__(self, records: Iterable[Mapping[str, Any]] = ()):
        records = [dict(record) for record in records]
        self.fields = tuple(records[0]) if records else ()
        for record in records:
            if record.keys() != set(self.fields):
                raise ValueError(
                    f"records of a StructArray must have the same keys: {list(self.fields)} and "
                    f"{list(record)}"
                )
        self._elements = _object_array(records, (len(records), 1))

    @classmethod
    def _from_columns(
        cls, elements: Iterable[Any], shape: tuple[int, ...], fields: Iterable[str]
    ) -> "StructArray":
        made = cls()
        made.fields = tuple(fields)
        made._elements = _object_array(elements, shape)
        return made

    def __getitem__(self, index: Any) -> Any:
        return self._columnwise()[index]

    def __repr__(self) -> str:
        return f"StructArray({_listed(self._columnwise())})"


class ObjectArray(_Shaped, Sequence["Object | None"]):
    """An object array of a class; elements are `Object`, or None where unset. A column."""

    def __init__(self, class_name: str, objects: "Iterable[Object | None]" = ()):
        objects = list(objects)
        self.class_name = class_name
        self._elements = _object_array(objects, (len(objects), 1))

    @classmethod
    def _from_columns(
        cls, class_name: str, elements: Iterable[Any], shape: tuple[int, ...]
    ) -> "ObjectArray":
        made = cls(class_name)
        made._elements = _object_array(elements, shape)
        return made

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, ObjectArray):
            return NotImplemented
        return self.class_name == other.class_name and super().__eq__(other)

    __hash__ = None  # type: ignore[assignment]

    def __getitem__(self, index: Any) -> Any:
        return self._columnwise()[index]

    def __repr__(self) -> str:
        return f"ObjectArray({self.class_name!r}, {_listed(self._columnwise())})"
