"""`kv.compute`: several results in one evaluation."""

from collections.abc import Callable
from typing import TYPE_CHECKING, Any

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
        if type(value) is dict:
            parts = {key: self.plan(each) for key, each in value.items()}
            return lambda results: {key: build(results) for key, build in parts.items()}
        if type(value) in (list, tuple):
            kind = type(value)
            items = [self.plan(each) for each in value]
            return lambda results: kind(build(results) for build in items)
        return lambda results: value

    def _plan_table(self, table: Any) -> Assemble:
        columns = {name: table[name] for name in table.columns}
        places = {n: self._take(x._handle, x._session) for n, x in columns.items()}

        def build(results: list[Any]) -> Any:
            import pyarrow as pa

            return pa.table({name: to_arrow(results[place]) for name, place in places.items()})

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
