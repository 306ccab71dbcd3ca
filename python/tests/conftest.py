"""Fixtures that the tests of the Python package share."""

import kvbigdata as kv
import pytest
from kvbigdata import host

LAZY = "kalvex.bigdata.internal.lazyeval."
EXECUTOR = "kalvex.bigdata.internal.executor."


class Recorder:
    """Records operations on the column x of a file, as a front end would."""

    def __init__(self, session, path):
        self.session = session
        source = session.call("kalvex.io.CsvDatastore", host.StringArray([str(path)]))
        self.table = session.call("createFromDatastoreBuiltin", source)
        self.x = session.call("subsrefTabularVar", ":", "x", True, self.table)

    def map(self, function, *arrays):
        return self.session.call("elementfun", function, *arrays)

    def sum(self, array):
        sum_ = host.Function("kv.aggregate.sum")
        return self.session.call("aggregatefun", sum_, sum_, array)

    def gather(self, array):
        return self.session.call("gather", array)


@pytest.fixture
def arrays():
    """A session of arrays, so that nothing is left when the test ends."""
    with kv.session() as opened:
        yield opened


@pytest.fixture
def session():
    with host.Session() as opened:
        yield opened


@pytest.fixture
def bare():
    """A session without the runtime."""
    with host.Session(runtime=False) as opened:
        yield opened


@pytest.fixture
def echo(bare):
    """Passes a value through the host: in as an argument, out as the result of a function."""
    bare.define_function("echo", lambda nargout, value: (value,))
    return lambda value: bare.call("echo", value)


@pytest.fixture
def numbers(session, tmp_path):
    """A column x with 1 to 2000."""
    path = tmp_path / "numbers.csv"
    path.write_text("x\n" + "".join(f"{i}\n" for i in range(1, 2001)))
    return Recorder(session, path)


@pytest.fixture
def many(session, tmp_path):
    """The same with a million rows, which are many chunks."""
    path = tmp_path / "many.csv"
    path.write_text("x\n" + "1\n" * 1_000_000)
    return Recorder(session, path)
