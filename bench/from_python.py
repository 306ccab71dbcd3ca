#!/usr/bin/env python3
"""The cost of arrays and of the host from Python, compared with other lazy arrays; in Google
Benchmark's JSON.

    bench/from_python.py <out.json>

Needs `kvbigdata`, and the packages of bench/requirements.txt, on the path. The sides take turns: each
repetition measures all of them once. Times are processor time of this thread.
"""

import gc
import json
import os
import resource
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from contextlib import contextmanager
from pathlib import Path

import dask.array
import kvbigdata as kv
import mlx.core
import numpy as np
from kvbigdata import host

REPETITIONS = 15
CHAIN = 10_000
DASK_CHAIN = 200
ROWS = 1_000_000
STEPS = 500
HELD = 1000
MIB = 2**20

Measure = Callable[[], float]


def per_item(count: int, body: Callable[[], object]) -> float:
    """Seconds per item for `count` items. Dropping the result of `body` isn't timed."""
    start = time.thread_time()
    kept = body()
    elapsed = time.thread_time() - start
    del kept
    return elapsed / count


def repeat(count: int, step: Callable[[], object]) -> Measure:
    def body() -> None:
        for _ in range(count):
            step()

    return lambda: per_item(count, body)


def held(step: Callable[[], object]) -> Measure:
    """As `repeat`, with all results held to the end, as in a program that uses them."""
    return lambda: per_item(HELD, lambda: [step() for _ in range(HELD)])


def add_ones(array, count: int):
    for _ in range(count):
        array = array + 1
    return array


class Host:
    """A session with a column x that is read from a file."""

    def __init__(self, session: host.Session, path: str) -> None:
        self.session = session
        source = session.call("kalvex.io.CsvDatastore", host.StringArray([path]))
        table = session.call("createFromDatastoreBuiltin", source)
        self.x = session.call("subsrefTabularVar", ":", "x", True, table)
        self.sum = host.Function("kv.aggregate.sum")
        session.define_function("inPython", lambda nargout: None)
        session.define_class("Box", properties={"Value": None})
        self.box = session.new("Box")

    def record(self):
        call, plus, array = self.session.call, host.Function("kv.element.plus"), self.x
        for _ in range(CHAIN):
            array = call("elementfun", plus, array, 1.0)
        return array

    def measure_recording(self) -> float:
        seconds = per_item(CHAIN, self.record)
        self.session.collect()
        return seconds

    def there_and_back(self, value: object) -> Callable[[], object]:
        def step():
            self.box.set("Value", value)
            return self.box.get("Value")

        return step

    def measure_chunks(self) -> float:
        """The time per chunk that a callable which does nothing adds to an evaluation: a chain of
        many such steps, each called with every chunk."""
        calls = 0

        def same(nargout, column):
            nonlocal calls
            calls += 1
            return column

        array = self.x
        for _ in range(STEPS):
            array = self.session.call("elementfun", same, array)
        with_callables = self.evaluate(array)
        return (with_callables - self.evaluate(self.x)) / calls

    def evaluate(self, array) -> float:
        total = self.session.call("aggregatefun", self.sum, self.sum, array)
        return per_item(1, lambda: self.session.call("gather", total))


@contextmanager
def file_of_rows():
    with tempfile.NamedTemporaryFile("w", suffix=".csv", delete=False) as file:
        file.write("x\n" + "1.5\n" * ROWS)
    try:
        yield file.name
    finally:
        os.unlink(file.name)


def measure_import() -> float:
    """The time of `import kvbigdata` in a new interpreter, less that of an empty program."""
    seconds = []
    for code in ("pass", "import kvbigdata"):
        start = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run([sys.executable, "-c", code], check=True)
        end = resource.getrusage(resource.RUSAGE_CHILDREN)
        seconds.append(end.ru_utime + end.ru_stime - start.ru_utime - start.ru_stime)
    return seconds[1] - seconds[0]


def recorded_operations(path: str) -> dict[str, Measure]:
    """Operations on arrays by the expressions that record them."""
    x, y = kv.asarray(np.arange(100.0)), kv.asarray(np.ones(100))
    a, b, t = x > 1, y > 0, kv.read_csv(path)
    operations = {
        "x * y": lambda: x * y,
        "x + x": lambda: x + x,
        "-x": lambda: -x,
        "x > 1": lambda: x > 1,
        "x != 1": lambda: x != 1,
        "a & b": lambda: a & b,
        "x[a]": lambda: x[a],
        "kv.where(a, x, 0)": lambda: kv.where(a, x, 0),
        "kv.sqrt(x)": lambda: kv.sqrt(x),
        "np.sqrt(x)": lambda: np.sqrt(x),
        "x.sum()": lambda: x.sum(),
        "x.mean()": lambda: x.mean(),
        "np.mean(x)": lambda: np.mean(x),
        't["x"]': lambda: t["x"],
        "t.x": lambda: t.x,
    }
    return {f"python/{name}": held(operation) for name, operation in operations.items()}


def sides(ours: Host, path: str) -> dict[str, Measure]:
    mlx.core.set_default_device(mlx.core.cpu)
    zeros = mlx.core.zeros(10)
    lazy = dask.array.zeros(10, chunks=5)
    writable = np.zeros(MIB // 8)
    readonly = np.zeros(MIB // 8)
    readonly.setflags(write=False)
    version = "version"
    hundred = np.arange(100.0)
    column = kv.asarray(hundred)
    return {
        "python/recordArray": lambda: per_item(CHAIN, lambda: add_ones(column, CHAIN)),
        **recorded_operations(path),
        "python/computeSum": repeat(100, lambda: kv.asarray(hundred).sum().compute()),
        "python/import": measure_import,
        "python/record": ours.measure_recording,
        "python/recordMlx": lambda: per_item(CHAIN, lambda: add_ones(zeros, CHAIN)),
        "python/recordDask": lambda: per_item(DASK_CHAIN, lambda: add_ones(lazy, DASK_CHAIN)),
        "python/callNative": repeat(10_000, lambda: ours.session.call(version)),
        "python/callPython": repeat(10_000, lambda: ours.session.call("inPython")),
        "python/double": repeat(10_000, ours.there_and_back(1.5)),
        "python/borrowed": repeat(10_000, ours.there_and_back(readonly)),
        "python/copied": repeat(100, ours.there_and_back(writable)),
        "python/chunk": ours.measure_chunks,
    }


def run(measures: dict[str, Measure]) -> list[dict]:
    runs = []
    for _ in range(REPETITIONS):
        for name, measure in measures.items():
            gc.collect()
            runs.append(
                {"run_type": "iteration", "run_name": name, "items_per_second": 1 / measure()}
            )
    return runs


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    with file_of_rows() as path, host.Session() as session:
        runs = run(sides(Host(session, path), path))
    Path(sys.argv[1]).write_text(json.dumps({"benchmarks": runs}, indent=1) + "\n")
