"""`kv.compute`: several results in one evaluation."""

import copy
from collections.abc import Callable
from typing import TYPE_CHECKING, Any

from ._errors import array_error
from ._results import to_arrow, to_numpy

if TYPE_CHECKING:
    from ._host import ArrayHandle
    from ._session import Session

Assemble = Callable[[list[Any]], Any]


class _Request:
    """The handles of all arrays in a structure, and how their results replace them."""

    def __init__(self) -> None:
        self.handles: list[ArrayHandle] = []
        self.session: Session | None = None

    def _take(self, handle: "ArrayHandle", session: "Session") -> int:
        self.session = session
        self.handles.append(handle)
        return len(self.handles) - 1

    def plan(self, value: Any) -> Assemble:
        """How to build what replaces `value` from the results."""
        from ._array import Array
        from ._table import Table

        if isinstance(value, Array):
            place = self._take(value._handle, value._session)
            return lambda results: to_numpy(results[place])
        if isinstance(value, Table):
            return self._plan_table(value)
        before = len(self.handles)
        build = self._plan_items(value)
        return build if len(self.handles) > before else lambda results: value

    def _plan_items(self, value: Any) -> Assemble:
        """The same of a container, in its own type; of anything else, itself."""
        if isinstance(value, dict):
            parts = {key: self.plan(each) for key, each in value.items()}

            def filled(results: list[Any]) -> Any:
                made = copy.copy(value)
                made.update((key, build(results)) for key, build in parts.items())
                return made

            return filled
        if isinstance(value, list | tuple):
            make = getattr(value, "_make", type(value))  # that of a namedtuple
            items = [self.plan(each) for each in value]
            return lambda results: make(build(results) for build in items)
        return lambda results: value

    def _plan_table(self, table: Any) -> Assemble:
        columns = {name: table[name] for name in table.columns}
        places = {n: self._take(x._handle, x._session) for n, x in columns.items()}

        def build(results: list[Any]) -> Any:
            import pyarrow as pa

            made = {name: to_arrow(results[place]) for name, place in places.items()}
            for column in made.values():  # only a run knows the rows of opened arrays
                if len(column) != len(next(iter(made.values()))):
                    rows = len(next(iter(made.values()))), len(column)
                    raise array_error("KALVEX:array:LengthsDiffer", *rows)
            return pa.table(made)

        return build


def compute(*values: Any) -> Any:
    """Computes arrays and tables, also in lists, tuples and dicts, in one evaluation.

    Returns the same structure with ndarrays, NumPy scalars and `pyarrow.Table` in their places; of
    several arguments, a tuple. Anything else stays as it is. Results that are computed together
    share passes over the data.

    >>> t = kv.read("data/flights.csv")
    >>> kv.compute(t.dep_delay.max(), {"late": (t.arr_delay > 60).mean()})
    (np.float64(1301.0), {'late': np.float64(0.08251478727700311)})
    >>> kv.facts().passes
    1
    """
    request = _Request()
    parts = [request.plan(value) for value in values]
    results: list[Any] = []
    if request.session is not None:
        results = request.session.evaluate(request.handles)
    built = tuple(part(results) for part in parts)
    return built[0] if len(values) == 1 else built
