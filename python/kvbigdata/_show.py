"""What arrays and tables look like: types, sources, lines, and a few of the first rows.

The rows are those that opening the sources has read, or that are in memory; nothing is opened or
computed for them, and no user's function is called.
"""

import html
import math
from typing import TYPE_CHECKING, Any, NamedTuple

from ._errors import shown_line
from ._host import ArrayHandle, first_rows
from ._results import is_widened, to_array
from ._types import shown_type

if TYPE_CHECKING:
    from ._array import Array
    from ._table import Table

_MOST_SHOWN = 100  # characters of a line
_MOST_IN_CELL = 40
_MOST_COLUMNS = 40
_MOST_BYTES = 20_000

_MISSING = "missing"


def _shown(value: Any) -> str:
    if value is None:
        return _MISSING
    return repr(value) if isinstance(value, str) and not value.isprintable() else str(value)


def _rows_of(handles: list[ArrayHandle]) -> list[list[str] | None]:
    """The first rows of arrays as texts; None for an array of which none are known."""

    def texts(first: tuple[str, bool, Any]) -> list[str]:
        kind, _, payload = first
        values = to_array(kind, payload).tolist()
        if is_widened(kind, payload) and kind != "logical":
            values = [None if math.isnan(value) else int(value) for value in values]
        return [_shown(value) for value in values]

    return [None if each is None else texts(each) for each in first_rows(handles)]


def _on_a_line(rows: list[str] | None, count: int | None) -> str:
    """Rows on one line; `count` is how many there are, None if that isn't known."""
    if rows is None:
        return ""
    shown = ", ".join(rows)
    if len(shown) > _MOST_SHOWN:
        return f"[{shown[:_MOST_SHOWN]}...]"
    return f"[{shown}]" if count == len(rows) else f"[{shown}, ...]"


def array_text(array: "Array") -> str:
    """`repr` of an array."""
    handle = array._handle
    sources, file, line = handle.origin
    rows = _on_a_line(_rows_of([handle])[0], handle.rows)
    parts = [f"<kv.Array {shown_type(handle.type)} {array.shape}", *([rows] if rows else [])]
    source = f" from {', '.join(sources)}" if sources else ""
    place = f", recorded in {shown_line(file, line)}" if file else ""
    return " ".join(parts) + f"{source}{place}>"


class _Column(NamedTuple):
    name: str
    kind: str
    rows: list[str] | None
    length: int | None


def _columns(table: "Table", most: int | None = None) -> list[_Column]:
    names, kinds = table._handle.columns[:most], table._handle.types[:most]
    readable = {
        name: table._handle.column(name)
        for name, kind in zip(names, kinds, strict=True)
        if kind != "unknown"
    }
    rows = dict(zip(readable, _rows_of([*readable.values()]) if readable else [], strict=True))
    counts = {name: handle.rows for name, handle in readable.items()}
    shown = [
        shown_type(kind) + (f" (from {note})" if note else "")
        for kind, note in zip(kinds, table._handle.notes[:most], strict=True)
    ]
    return [
        _Column(name, kind, rows.get(name), counts.get(name))
        for name, kind in zip(names, shown, strict=True)
    ]


def _title(table: "Table") -> str:
    count = len(table.columns)
    sources = table._handle.sources
    return f"kv.Table of {count} column{'s' * (count != 1)}" + (
        f" from {', '.join(sources)}" if sources else ""
    )


def table_text(table: "Table") -> str:
    """`repr` of a table."""
    lines = [f"<{_title(table)}"]
    columns = _columns(table)
    starts = [f"  {column.name}: {column.kind}" for column in columns]
    width = min(max(map(len, starts), default=0), _MOST_IN_CELL)
    for start, column in zip(starts, columns, strict=True):
        rows = _on_a_line(column.rows, column.length)
        whole = f"{start.ljust(width)}  {rows}" if rows else start
        lines.append(whole if len(whole) <= _MOST_SHOWN else whole[: _MOST_SHOWN - 3] + "...")
    if table._line is not None:
        lines.append(f"  recorded in {shown_line(table._line.file, table._line.line)}")
    return "\n".join(lines) + ">"


def _cell(text: str, tag: str = "td") -> str:
    cut = text if len(text) <= _MOST_IN_CELL else text[: _MOST_IN_CELL - 3] + "..."
    return f"<{tag}>{html.escape(cut)}</{tag}>"


def _html_of(table: "Table", columns: list[_Column]) -> str:
    rows = max((len(column.rows or []) for column in columns), default=0)
    heads = [
        "".join(_cell(column.name, "th") for column in columns),
        "".join(f"<td><i>{html.escape(column.kind)}</i></td>" for column in columns),
    ]
    body = [
        "".join(_cell(column.rows[i] if column.rows else "") for column in columns)
        for i in range(rows)
    ]
    left_out = len(table.columns) - len(columns)
    title = _title(table) + (f"; {left_out} aren't shown" if left_out else "")
    lines = "".join(f"<tr>{row}</tr>" for row in [*heads, *body])
    return f"<div><p>{html.escape(title[:1000])}</p><table>{lines}</table></div>"


def table_html(table: "Table") -> str:
    """What a notebook shows of a table, in at most 20 kB."""
    columns = _columns(table, _MOST_COLUMNS)
    text = _html_of(table, columns)
    while len(text.encode()) > _MOST_BYTES and columns:
        columns = columns[: len(columns) // 2]
        text = _html_of(table, columns)
    return text
