"""Results: from what the extension returns to NumPy and Arrow."""

from collections.abc import Mapping
from typing import TYPE_CHECKING, Any

import numpy as np

from ._types import TEXT, dtype_of, name_of

if TYPE_CHECKING:
    import pyarrow as pa


def is_widened(kind: str, payload: Any) -> bool:
    """Whether integers or logicals came as doubles, in which NaN is a missing value."""
    return kind not in ("double", "single", "string") and payload.dtype == np.float64


def _arrow_texts(payload: tuple[Any, Any, Any]) -> Any:
    import pyarrow as pa

    offsets, data, validity = payload
    buffers = [pa.py_buffer(validity), pa.py_buffer(offsets), pa.py_buffer(data)]
    return pa.Array.from_buffers(pa.large_string(), len(offsets) - 1, buffers)


def to_array(kind: str, payload: Any) -> Any:
    """The elements as an ndarray."""
    if kind == "string":
        return np.array(_arrow_texts(payload).to_pylist(), dtype=TEXT)
    if kind == "logical" and is_widened(kind, payload):
        return np.where(np.isnan(payload), None, payload != 0)
    return payload


def to_numpy(value: tuple[str, bool, Any]) -> Any:
    """An ndarray, read-only; for a result of one row without dimensions, a NumPy scalar."""
    kind, is_scalar, payload = value
    array = to_array(kind, payload)
    if not is_scalar:
        return array
    first = array[0]
    if isinstance(first, np.ndarray):
        return first
    return np.bool_(first) if kind == "logical" and first is not None else first


def from_numpy(array: Any) -> tuple[str, Any]:
    """The type of an array and its elements as the extension takes them: a copy, column-major."""
    kind = name_of(array.dtype, "The result")
    if kind != "string":
        elements = np.array(array, dtype=dtype_of(kind), order="F")
        return kind, elements.view(np.int64) if elements.dtype.kind in "mM" else elements
    import pyarrow as pa

    return kind, _text_parts(pa.array(array.tolist(), pa.large_string()))


def _text_parts(texts: "pa.Array") -> tuple[Any, Any, Any]:
    """Offsets, bytes and validity of texts of Arrow's large strings, without an offset."""
    validity, offsets, data = texts.buffers()
    count = len(texts)
    bits = np.full((count + 7) // 8, 255, np.uint8)
    if validity is not None:
        bits = np.frombuffer(validity, np.uint8, len(bits))
    places = np.frombuffer(offsets, np.int64, count + 1) if offsets else np.zeros(1, np.int64)
    content = np.frombuffer(data, np.uint8) if data else np.zeros(0, np.uint8)
    return places, content, bits


def from_arrow_column(column: Any) -> tuple[str, Any]:
    """The type of a column of an Arrow table and its elements as the extension takes them."""
    import pyarrow as pa

    kind = column.type
    if pa.types.is_dictionary(kind):
        column, kind = column.cast(kind.value_type), kind.value_type
    if pa.types.is_string(kind) or pa.types.is_large_string(kind) or pa.types.is_string_view(kind):
        texts = pa.concat_arrays(
            [*column.cast(pa.large_string()).chunks, pa.array([], pa.large_string())]
        )
        return "string", _text_parts(texts)
    return from_numpy(column.to_numpy())


def arrow_schema(kinds: Mapping[str, str]) -> "pa.Schema":
    """The schema of columns with these element types, by name, as `to_arrow` makes them."""
    import pyarrow as pa

    def arrow_type(kind: str) -> Any:
        return pa.string() if kind == "string" else pa.from_numpy_dtype(dtype_of(kind))

    return pa.schema([(name, arrow_type(kind)) for name, kind in kinds.items()])


def stream_with(rows: Any, stream: Any, requested_schema: Any) -> Any:
    """A stream of the rows in the types that its consumer asks for."""
    import pyarrow as pa

    class _Rows:
        def __arrow_c_stream__(self, requested_schema: Any = None) -> Any:
            return stream

    if rows.__class__.__name__ == "Table":
        return pa.RecordBatchReader.from_stream(_Rows()).__arrow_c_stream__(requested_schema)
    return pa.chunked_array(_Rows()).__arrow_c_stream__(requested_schema)


def to_arrow(value: tuple[str, bool, Any]) -> "pa.Array":
    """An Arrow array; missing integers, logicals and texts are nulls."""
    import pyarrow as pa

    kind, _, payload = value
    if kind == "string":
        return _arrow_texts(payload).cast(pa.string())
    if not is_widened(kind, payload):
        return pa.array(payload)
    is_missing = np.isnan(payload)
    return pa.array(np.where(is_missing, 0, payload).astype(dtype_of(kind)), mask=is_missing)
