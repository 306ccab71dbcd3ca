"""`kv.Array`: an array that is recorded and computed on request."""

import math
import sys
from collections.abc import Iterator
from typing import TYPE_CHECKING, Any, ClassVar

import numpy as np
import numpy.typing as npt

from . import _casts, _chunks, _functions, _index, _reduce, _saving, _show, _ufuncs
from ._errors import array_error
from ._evaluate import compute
from ._host import ArrayHandle, array_stream
from ._host import count_rows as native_count_rows
from ._host import settle as native_settle
from ._operands import operand
from ._results import arrow_schema, stream_with, to_arrow
from ._session import check_guard
from ._types import dtype_of
from ._writing import ArrayWriting

if TYPE_CHECKING:
    from ._session import Session


class Array(ArrayWriting):
    """An array that is recorded and computed on request: a column, or made from columns.

    Its first dimension, the rows, is the long one. Operators and NumPy's functions record what is
    to be done and read nothing; `compute()` reads the data and returns NumPy's arrays and scalars.

    >>> t = kv.read("data/flights.csv")
    >>> late = t.arr_delay > 60
    >>> late.dtype, late.ndim
    (dtype('bool'), 1)
    >>> late.mean().compute()
    np.float64(0.08251478727700311)
    """

    __slots__ = ("__weakref__", "_handle", "_session")
    __array_priority__ = 1000
    __hash__: ClassVar[None]  # type: ignore[assignment]

    def __init__(self, handle: ArrayHandle, session: "Session"):
        self._handle = handle
        self._session = session

    # What is known of it.

    @property
    def dtype(self) -> Any:
        """NumPy's type of the elements."""
        return dtype_of(self._handle.type)

    @property
    def ndim(self) -> int:
        """The number of dimensions: 0 for an aggregate of a column."""
        return len(self._handle.trailing) + (not self._handle.is_scalar)

    @property
    def shape(self) -> tuple[int | None, ...]:
        """The number of rows, None while it isn't known, and the other dimensions."""
        rows = () if self._handle.is_scalar else (self._handle.rows,)
        return (*rows, *self._handle.trailing)

    @property
    def size(self) -> int | None:
        """The number of elements, None while it isn't known."""
        rows = self._handle.rows
        return None if rows is None else rows * math.prod(self._handle.trailing)

    @property
    def nbytes(self) -> int | None:
        """The bytes of the elements in memory, None while the number of rows isn't known."""
        size = self.size
        return None if size is None else size * int(self.dtype.itemsize)

    def count_rows(self) -> "Array":
        """The number of rows as an array of one row: it can be computed with other results.

        >>> kv.read("data/flights.csv").origin.count_rows().compute()
        np.int64(336776)
        """
        return Array(native_count_rows(self._handle), self._session)

    def settle(self) -> "Array":
        """Counts the rows now, unless their number is known, and returns this array.

        Afterwards `len()` and `shape` of all arrays with these rows are known.

        >>> t = kv.read("data/flights.csv")
        >>> t.origin.shape, t.origin.settle().shape
        ((None,), (336776,))
        """
        check_guard()
        native_settle(self._handle)
        return self

    def __repr__(self) -> str:
        return _show.array_text(self)

    # Evaluation.

    def compute(self) -> Any:
        """The value: an ndarray, or a NumPy scalar if it has no dimension.

        The array is read-only, because its memory is kept as the value of this array; `.copy()`
        gives one that can be changed.

        >>> kv.read("data/flights.csv").distance.max().compute()
        np.float64(4983.0)
        """
        return compute(self)

    def explain(self) -> str:
        """The plan that `compute()` would run. Reads no data."""
        return self._session._native.explain([self._handle])

    def to_numpy(self) -> Any:
        """The same as `compute()`."""
        return compute(self)

    def to_arrow(self) -> Any:
        """The value as a `pyarrow.Array`; missing integers, logicals and texts are nulls.

        >>> kv.asarray(["a", None]).to_arrow().null_count
        1
        """
        if self.ndim > 1:
            advice = "x[:, j] is a column of it."
            raise array_error("KALVEX:array:NotSupported", "to_arrow of several dimensions", advice)
        return to_arrow(self._session.evaluate([self._handle])[0])

    def __arrow_c_schema__(self) -> Any:
        """The type of the elements. Reads no data."""
        return arrow_schema({"": self._handle.type}).field(0).__arrow_c_schema__()

    def __arrow_c_stream__(self, requested_schema: Any = None) -> Any:
        """The rows in batches, computed as they are pulled.

        >>> pa.chunked_array(kv.arange(100_000)).num_chunks
        4
        """
        stream = array_stream(self._handle, check_guard, self._session.note)
        return stream if requested_schema is None else stream_with(self, stream, requested_schema)

    def item(self) -> Any:
        """The value of an array of one row as a Python scalar."""
        return self._only("item()").item()

    def _only(self, use: str, error: str = "KALVEX:array:NotAScalar") -> Any:
        """The one value that `use` needs."""
        if any(extent != 1 for extent in self.shape):
            raise array_error(error, use)
        return np.asarray(compute(self)).reshape(())

    def __bool__(self) -> bool:
        return bool(self._only("bool()", "KALVEX:array:TruthValue"))

    def __int__(self) -> int:
        return int(self._only("int()"))

    def __float__(self) -> float:
        return float(self._only("float()"))

    # NumPy's protocols.

    def __array__(self, dtype: Any = None, copy: bool | None = None) -> Any:
        if copy is False:
            raise array_error("KALVEX:array:CopyNeeded")
        # A function written in Python that isn't overridden, or whose other argument this is.
        caller = _functions.calling_function(sys._getframe(1))
        if caller is not None:
            raise _functions.refuse_function(caller)
        return np.array(compute(self), dtype=dtype)

    def __array_ufunc__(self, ufunc: np.ufunc, method: str, *inputs: Any, **options: Any) -> Any:
        return _ufuncs.call_ufunc(ufunc, method, inputs, options)

    def __array_function__(
        self, function: Any, types: Any, args: tuple[Any, ...], kwargs: dict[str, Any]
    ) -> Any:
        return _functions.call_function(function, args, kwargs)

    # As a sequence.

    def __copy__(self) -> "Array":
        return self

    def __deepcopy__(self, memo: Any) -> "Array":
        return self

    def __len__(self) -> int:
        if self.ndim == 0:
            raise array_error("KALVEX:array:NotIterable", "len()", "It has no dimension.")
        rows = self.shape[0]
        if rows is None:
            raise array_error("KALVEX:array:UnknownLength")
        return rows

    def __reduce__(self) -> tuple[Any, ...]:
        return _saving.array_from_bytes, (_saving.to_bytes({"array": self}),)

    def __iter__(self) -> Iterator[Any]:
        raise array_error(
            "KALVEX:array:NotIterable", "Iteration", "Use for row in x.compute() if it fits memory."
        )

    def __contains__(self, value: Any) -> bool:
        raise array_error("KALVEX:array:NotIterable", "in", "Use (x == value).any().compute().")

    def __setitem__(self, key: Any, value: Any) -> None:
        raise array_error("KALVEX:array:ReadOnly")

    def __getitem__(self, key: Any) -> "Array":
        """Rows, and places within rows, by NumPy's rules.

        `x[mask]` has the rows for which a logical array is true, `x[:n]` the first `n`. Of n-by-k
        arrays, `x[:, j]` and `x[:, a:b]` have some columns. `x[:, None]` has another dimension.

        >>> t = kv.read("data/flights.csv")
        >>> t.dep_delay[t.origin == "JFK"].mean().compute()
        np.float64(12.112159099217665)
        >>> t.origin[:2].compute().tolist()
        ['EWR', 'LGA']
        >>> x = kv.from_numpy(np.arange(6).reshape(2, 3))
        >>> x[:, 1:].compute()
        array([[1, 2],
               [4, 5]])
        """
        return _index.index(self, key)

    def filter(self, keep: "Array") -> "Array":
        """The same as `x[keep]`."""
        return self[keep]

    # Operators.

    __add__ = _ufuncs.operator(np.add)
    __radd__ = _ufuncs.reflected(np.add)
    __sub__ = _ufuncs.operator(np.subtract)
    __rsub__ = _ufuncs.reflected(np.subtract)
    __mul__ = _ufuncs.operator(np.multiply)
    __rmul__ = _ufuncs.reflected(np.multiply)
    __truediv__ = _ufuncs.operator(np.true_divide)
    __rtruediv__ = _ufuncs.reflected(np.true_divide)
    __mod__ = _ufuncs.operator(np.remainder)
    __rmod__ = _ufuncs.reflected(np.remainder)
    __pow__ = _ufuncs.power_operator()
    __rpow__ = _ufuncs.reflected(np.power)
    __and__ = _ufuncs.operator(np.bitwise_and)
    __rand__ = _ufuncs.reflected(np.bitwise_and)
    __or__ = _ufuncs.operator(np.bitwise_or)
    __ror__ = _ufuncs.reflected(np.bitwise_or)
    __xor__ = _ufuncs.operator(np.bitwise_xor)
    __rxor__ = _ufuncs.reflected(np.bitwise_xor)
    __lt__ = _ufuncs.operator(np.less)
    __le__ = _ufuncs.operator(np.less_equal)
    __gt__ = _ufuncs.operator(np.greater)
    __ge__ = _ufuncs.operator(np.greater_equal)
    __eq__ = _ufuncs.operator(np.equal)  # type: ignore[assignment]
    __ne__ = _ufuncs.operator(np.not_equal)  # type: ignore[assignment]

    __neg__ = _ufuncs.prefix(np.negative)
    __pos__ = _ufuncs.prefix(np.positive)
    __abs__ = _ufuncs.prefix(np.absolute)
    __invert__ = _ufuncs.prefix(np.invert)

    __floordiv__ = __rfloordiv__ = _ufuncs.refused_operator(np.floor_divide)
    __divmod__ = __rdivmod__ = _ufuncs.refused_operator(np.divmod)
    __matmul__ = __rmatmul__ = _ufuncs.refused_operator(np.matmul)
    __lshift__ = __rlshift__ = _ufuncs.refused_operator(np.left_shift)
    __rshift__ = __rrshift__ = _ufuncs.refused_operator(np.right_shift)

    def astype(self, dtype: npt.DTypeLike) -> "Array":
        """The values as another type, as `numpy.ndarray.astype`.

        What the type can't hold, such as NaN in integers, is a FloatingPointError when it is
        computed.
        """
        return _casts.astype(self, dtype)

    def round(self, decimals: int = 0) -> "Array":
        """The nearest whole numbers, halves to even."""
        return _reduce.round(self, decimals)

    def clip(self, min: Any = None, max: Any = None) -> "Array":
        """The values, those below `min` and above `max` replaced by these."""
        return _reduce.clip(self, min, max)

    map_chunks = _chunks.map_chunks

    # Reductions: the functions of the same names in `_reduce`.

    sum = _reduce.sum
    mean = _reduce.mean
    min = _reduce.min
    max = _reduce.max
    std = _reduce.std
    var = _reduce.var
    any = _reduce.any
    all = _reduce.all
    ptp = _reduce.ptp
    count = _reduce.count


def operand_array(
    value: Any, session: "Session", function: str, others: tuple[Array, ...] = ()
) -> Array:
    """An operand beside `others` as an array: an ndarray by position, a scalar of one row."""
    native = operand(value, session, function, others)
    if not isinstance(native, ArrayHandle):
        native = session._native.constant(native)
    return Array(native, session)
