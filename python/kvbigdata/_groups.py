"""`t.group_by(...)`: rows by key."""

from collections.abc import Sequence
from typing import TYPE_CHECKING, Any

from ._errors import array_error
from ._host import group_table

if TYPE_CHECKING:
    from ._table import Table

Aggregate = str | tuple[str, str]


class Grouped:
    """The rows of a table by key, as `t.group_by` returns them; `agg` makes a table of them."""

    __slots__ = ("_keys", "_table")

    def __init__(self, table: "Table", keys: tuple[str, ...]):
        self._table = table
        self._keys = keys

    def __repr__(self) -> str:
        return f"<kv.Grouped by {', '.join(self._keys)} of {self._table!r}>"

    @property
    def keys(self) -> list[str]:
        """The names of the columns by which rows are grouped."""
        return list(self._keys)

    def agg(self, **columns: Aggregate) -> "Table":
        """A table with a row for each key that occurs, ascending; a missing key is the last.

        Each column is `("x", "mean")`, a column and what is made of its values in a group, or
        "count", the number of rows. Functions are sum, mean, min, max, std and var (with n - 1),
        stdp and varp (with n), any, all, first, last, and count, the number of values that aren't
        missing. All skip missing values.

        >>> t = kv.read("data/flights.csv")
        >>> by = t.group_by("origin").agg(n="count", delay=("dep_delay", "mean"))
        >>> by.compute().to_pydict()["origin"], by.n.compute()
        (['EWR', 'JFK', 'LGA'], array([120835, 111279, 104662]))
        """
        from ._table import Table

        for key in self._keys:
            self._table[key]  # refuses an unknown one, with the columns that were meant
        parts = [(name, *self._part(name, given)) for name, given in columns.items()]
        made = group_table(self._table._handle, list(self._keys), parts)
        return Table(made, self._table._session)

    def _part(self, name: str, given: Any) -> tuple[str, str]:
        if given in ("count", "size"):
            return "size", ""
        if isinstance(given, tuple) and len(given) == 2 and all(isinstance(p, str) for p in given):
            self._table[given[0]]
            return given[1], given[0]
        what = given if isinstance(given, str) else type(given).__name__
        advice = f'Use "count", or a column and a function: {name}=("x", "mean").'
        raise array_error("KALVEX:array:NotSupported", f"{name}={what} of agg", advice)


def group_by(table: "Table", *keys: str | Sequence[str]) -> Grouped:
    """The rows by the values of some columns, for `agg`.

    >>> t = kv.read("data/flights.csv")
    >>> t.group_by("carrier").agg(late=("arr_delay", "mean")).filter("late > 15").carrier.compute()
    array(['EV', 'F9', 'FL', 'YV'], dtype=StringDType(na_object=None))
    """
    from ._table import names_of

    names = names_of(keys, "group_by")
    for key in names:
        table[key]
    return Grouped(table, tuple(names))
