"""Python code in evaluations: functions, operation classes, strategies, stacks, interrupts."""

import math
import signal
import sys
import threading
import time
from pathlib import Path

import numpy as np
import pyarrow as pa
import pytest
from conftest import EXECUTOR, LAZY
from kvbigdata import host
from pyarrow import parquet as pq


def here():
    return sys._getframe(1).f_lineno


def test_a_user_function_sees_chunks(numbers):
    seen = []

    def double(nargout, chunk):
        seen.append(chunk.shape[0])
        return chunk * 2

    doubled = numbers.map(double, numbers.x)
    assert seen == []
    assert numbers.gather(numbers.sum(doubled)) == 2001 * 2000
    assert sum(seen) >= 2000


def test_a_function_gets_values_as_they_were_supplied(numbers):
    s = numbers.session
    table = s.call("table", np.array([1.0, 2.0]), "VariableNames", host.StringArray(["a"]))
    values = [
        {"gain": 2.0, "names": ["a", "b"]}, np.arange(6.0).reshape(2, 3), np.zeros((0, 0)), "abc",
        np.int8(3), ["x", 1.0], table, host.Function("kv.element.plus"),
    ]  # fmt: skip
    column = np.array([1.0, 2.0, 3.0])
    broadcast = s.call("kalvex.bigdata.internal.broadcast", column)
    seen = []

    def keep(nargout, chunk, *rest):
        seen.append(rest)
        return chunk

    for value in (*values, broadcast):
        expected = column if value is broadcast else value
        for function in (keep, bounded(s, keep, 1500)):
            seen.clear()
            numbers.gather(numbers.sum(numbers.map(function, numbers.x, value)))
            assert len(seen) == 1 + (function is not keep)
            assert all(s.save_bytes(got) == s.save_bytes(expected) for (got,) in seen)
    for value in (values[0], table):
        with pytest.raises(host.Error) as caught:
            numbers.gather(numbers.map(host.Function("kv.element.plus"), numbers.x, value))
        assert caught.value.identifier == "KALVEX:array:NotAColumn"
    with pytest.raises(host.Error) as caught:  # meant as rows, but not the array's
        numbers.gather(numbers.map(keep, numbers.x, column))
    assert caught.value.identifier == "KALVEX:array:RowsDiffer"


def test_a_function_may_return_matrices_and_gets_them_back(numbers):
    s = numbers.session
    weights = np.array([[1.0, 10.0]])

    def powers(nargout, chunk):
        return np.column_stack([chunk.ravel(), chunk.ravel() ** 2])

    def norms(nargout, chunk):
        return np.hypot(chunk[:, 0], chunk[:, 1])

    both = numbers.map(powers, numbers.x)
    x = numbers.gather(numbers.x).ravel()
    weighted = numbers.map(host.Function("kv.element.times"), both, weights)
    expected = [
        powers(1, x),
        powers(1, x) * weights,
        powers(1, x).sum(axis=0, keepdims=True),
        norms(1, powers(1, x))[:, None],
    ]
    arrays = both, weighted, numbers.sum(both), numbers.map(norms, both)
    for result, value in zip(s.call("gather", *arrays, nargout=4), expected, strict=True):
        assert result.shape == value.shape
        assert np.allclose(result, value, rtol=1e-15)


def bounded(s, function, rows):
    return s.new("kalvex.bigdata.internal.FunctionHandle", function, "MaxNumSlices", rows)


def test_a_bounded_function_gets_no_more_rows_than_its_bound(numbers):
    seen = []

    def double(nargout, chunk, one):
        seen.append(chunk.shape[0])
        return chunk * 2 * one

    few = bounded(numbers.session, double, 300.5)
    for _ in ("in chunks", "on what was gathered"):
        assert numbers.gather(numbers.sum(numbers.map(few, numbers.x, 1.0))) == 2001 * 2000
        assert seen == [300] * 6 + [200]
        seen.clear()
        numbers.gather(numbers.x)
    largest = bounded(numbers.session, lambda nargout, chunk: chunk.max(), 7)
    maximum = lambda nargout, chunk: chunk.max()  # noqa: E731
    of_all = numbers.session.call("aggregatefun", largest, maximum, numbers.x)
    assert numbers.gather(of_all) == 2000
    none = numbers.map(bounded(numbers.session, double, 0), numbers.x, 1.0)
    with pytest.raises(host.Error) as caught:
        numbers.gather(numbers.sum(none))
    assert caught.value.identifier == "KALVEX:array:MaxNumSlices"


def test_an_array_marked_for_reuse_is_computed_once(numbers):
    calls = []

    def double(nargout, chunk):
        calls.append(chunk.shape[0])
        return chunk * 2

    doubled = numbers.session.call("markforreuse", numbers.map(double, numbers.x))
    total, largest = (
        numbers.session.call("aggregatefun", function, function, doubled)
        for function in map(host.Function, ("kv.aggregate.sum", "kv.aggregate.max"))
    )
    assert numbers.gather(total) == 2001 * 2000 and sum(calls) == 2000
    assert numbers.gather(largest) == 4000 and sum(calls) == 2000
    both = numbers.map(host.Function("kv.element.plus"), doubled, numbers.x)
    assert numbers.gather(numbers.sum(both)) == 2001 * 3000 and sum(calls) == 2000


def make_operation(s, feval, strategy, dependencies=None, outputs=1):
    """An operation of a class defined here, whose task has a factory of another such class."""
    s.define_class(
        "mine.Factory", superclasses=[EXECUTOR + "DataProcessorFactory"], methods={"feval": feval}
    )

    def tasks(nargout, operation, given, *rest):
        inputs = given if dependencies is None else dependencies
        return s.call(EXECUTOR + "ExecutionTask", inputs, s.new("mine.Factory"), strategy, outputs)

    s.define_class(
        "mine.Operation",
        superclasses=[LAZY + "Operation"],
        constructor=lambda obj: obj.super_init(LAZY + "Operation", 1, 1),
        methods={"createExecutionTasks": tasks},
    )
    return s.new("mine.Operation")


@pytest.mark.parametrize(
    "dependencies",
    [5, "x", [1], [[]], [[1, 2, 3, 4]], [[host.Function("f"), 1]], {"task": 1}],
    ids=repr,
)
def test_dependencies_that_a_task_invented_are_refused(numbers, dependencies):
    same = make_operation(
        numbers.session, lambda nargout, factory, chunk: chunk, np.zeros((0, 0)), dependencies
    )
    array = numbers.session.call("applyOperationBuiltin", same, numbers.x)
    with pytest.raises(host.Error) as caught:
        numbers.gather(array)
    assert caught.value.arguments[0] == "The dependencies of a task"


def test_an_output_that_a_task_doesnt_have_is_refused(numbers):
    same = make_operation(
        numbers.session, lambda nargout, factory, chunk: chunk, np.zeros((0, 0)), outputs=0
    )
    array = numbers.session.call("applyOperationBuiltin", same, numbers.x)
    with pytest.raises(host.Error) as caught:
        numbers.gather(array)
    assert caught.value.arguments == ["1", "0"]


def test_an_operation_class_written_in_python_runs(numbers):
    plus_one = make_operation(
        numbers.session, lambda nargout, factory, chunk: chunk + 1, np.zeros((0, 0))
    )
    more = numbers.session.call("applyOperationBuiltin", plus_one, numbers.x)
    assert numbers.gather(numbers.sum(more)) == 2001 * 1000 + 2000


class Strategies:
    """Partition strategies of a class written in Python, and which of its methods were called."""

    ANSWERS = {
        "createPartition": "partition",
        "fixNumPartitions": None,
        "resolve": None,
        "isKnownSinglePartition": False,
        "typedIsCompatible": True,
        "typedThrowIfIncompatible": (),
        "typedAlign": None,
    }

    def __init__(self, session):
        self.session = session
        self.called = []

    def body(self, name):
        def run(nargout, strategy, *args):
            self.called.append((name, *args))
            answer = self.ANSWERS[name]
            if callable(answer):
                return answer(*args)
            return strategy if answer is None else answer

        return run

    def new(self, name="mine.Strategy", broadcast=False):
        self.session.define_class(
            name,
            superclasses=[EXECUTOR + "PartitionStrategy"],
            properties={
                "MinNumPartitions": 1,
                "MaxNumPartitions": 4,
                "IsDatastorePartitioning": False,
                "IsBroadcast": broadcast,
                "MaxNumReadFailures": 0,
            },
            methods={each: self.body(each) for each in self.ANSWERS},
        )
        return self.session.new(name)


def test_the_core_works_with_a_strategy_class_written_in_python(session):
    strategies = Strategies(session)
    one = strategies.new()
    same, other = session.new("mine.Strategy"), strategies.new("mine.Other")
    assert session.call("createPartitionStrategyBuiltin", one) == one
    assert session.call("alignPartitionStrategyBuiltin", one, same) == one
    assert one.invoke("isCompatible", same) is True
    assert one.invoke("throwIfIncompatible", same) is None
    assert one.invoke("createPartition", 1, 2) == "partition"
    assert one.invoke("numpartitions", 20) == 4.0
    assert [(call[0], call[-1]) for call in strategies.called] == [
        ("typedAlign", same), ("typedIsCompatible", same), ("typedThrowIfIncompatible", same),
        ("createPartition", 2.0)]  # fmt: skip
    with pytest.raises(host.Error) as caught:
        session.call("alignPartitionStrategyBuiltin", one, other)
    assert caught.value.identifier == "KALVEX:bigdata:array:IncompatibleTallIndexing"


@pytest.mark.parametrize("broadcast", [False, True])
def test_a_strategy_written_in_python_decides_what_its_task_sees(many, broadcast):
    seen = []

    def feval(nargout, factory, rows):
        seen.append(rows.shape[0])
        return rows + 1

    strategy = Strategies(many.session).new(broadcast=broadcast)
    operation = make_operation(many.session, feval, strategy)
    more = many.gather(many.session.call("applyOperationBuiltin", operation, many.x))
    assert more.shape == (1_000_000, 1) and (more == 2).all()
    assert sum(seen) == 1_000_000 and (len(seen) == 1) is broadcast


def test_a_strategy_written_in_python_decides_what_is_read(session, tmp_path):
    paths = [str(tmp_path / f"{name}.csv") for name in "abc"]
    for i, path in enumerate(paths):
        Path(path).write_text(f"x\n{i}\n{i + 10}\n")
    part = EXECUTOR + "SourcePartition"
    first_and_count = {1: (3.0, 1.0), 2: (1.0, 2.0), 3: (1.0, 0.0), 4: (3.0, 0.0)}
    strategies = Strategies(session)
    strategies.ANSWERS = Strategies.ANSWERS | {
        "createPartition": lambda index, count: session.new(part, *first_and_count[index])
    }
    source = session.call("kalvex.io.CsvDatastore", host.StringArray(paths))
    table = session.call("kv.read", source, strategies.new())
    x = session.call("subsrefTabularVar", ":", "x", True, table)
    assert session.call("gather", x).ravel().tolist() == [2, 12, 0, 10, 1, 11]
    created = [call for call in strategies.called if call[0] == "createPartition"]
    assert created == [("createPartition", i, 4.0) for i in (1.0, 2.0, 3.0, 4.0)]


def test_the_users_stack_is_pythons(numbers):
    operation_line = here() + 1
    doubled = numbers.map(host.Function("kv.element.sqrt"), numbers.x)
    stack = numbers.session.call("userStackBuiltin")
    assert list(stack[0]) == ["file", "name", "line"]
    assert stack[0]["file"] == __file__ and stack[0]["line"] == operation_line + 1
    promise = doubled.get("ValueFuture").get("Promise")
    operation = promise.get("Closure").get("Operation")
    names = [frame["name"] for frame in operation.get("Stack")]
    assert names[:2] == ["map", "test_the_users_stack_is_pythons"]


def test_a_failing_function_names_the_line_that_recorded_it(numbers):
    original = ValueError("not these rows")

    def fails(nargout, chunk):
        raise original

    line = here() + 1
    failing = numbers.session.call("elementfun", fails, numbers.x)
    with pytest.raises(host.Error) as caught:
        numbers.gather(numbers.sum(failing))
    error = caught.value
    assert isinstance(error.object, host.Object)
    assert error.identifier == "KALVEX:python:ValueError"
    assert error.message.startswith("not these rows")
    assert error.cause is original
    name = "test_a_failing_function_names_the_line_that_recorded_it"
    assert error.stack[0] == (__file__, name, line)


@pytest.fixture
def alarm():
    """Sends this process an interrupt after a short delay."""
    timers = []
    before = signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell may ignore it

    def later(seconds):
        timers.append(threading.Timer(seconds, signal.raise_signal, [signal.SIGINT]))
        timers[-1].start()

    yield later
    for timer in timers:
        timer.join()
    signal.signal(signal.SIGINT, before)


def test_an_interrupt_stops_between_chunks_and_leaves_the_session_usable(many, alarm):
    chain = many.x
    for _ in range(200):
        chain = many.map(host.Function("kv.element.sqrt"), chain)
    started = time.monotonic()
    assert many.gather(many.sum(chain)) == 1_000_000
    seconds = time.monotonic() - started
    total = many.sum(chain)
    with pytest.raises(KeyboardInterrupt):
        alarm(seconds / 20)
        many.gather(total)
    # An interrupt between the evaluation and the next line of Python would be too late.
    assert not total.get("ValueFuture").get("Promise").get("IsDone")
    assert many.gather(total) == 1_000_000


def test_another_thread_interrupts_one_session_and_no_other(many, bare):
    chunks = []

    def stop(nargout, chunk):
        chunks.append(chunk.shape[0])
        for session in (bare, many.session) if len(chunks) == 2 else ():
            thread = threading.Thread(target=session.interrupt)
            thread.start()
            thread.join()
        return chunk

    bare.interrupt()  # the core alone evaluates nothing
    with pytest.raises(KeyboardInterrupt):
        many.gather(many.sum(many.map(stop, many.x)))
    assert len(chunks) == 2
    assert many.gather(many.sum(many.x)) == 1_000_000


def test_other_python_threads_run_during_an_evaluation(many):
    chain = many.x
    for _ in range(100):
        chain = many.map(host.Function("kv.element.sqrt"), chain)
    ticks = []
    stop = threading.Event()

    def tick():
        while not stop.wait(0.001):
            ticks.append(1)

    thread = threading.Thread(target=tick)
    thread.start()
    before = len(ticks)
    many.gather(many.sum(chain))
    during = len(ticks) - before
    stop.set()
    thread.join()
    assert during > 5


def test_a_datastore_needs_a_path(session):
    with pytest.raises(host.Error) as caught:
        session.call("kalvex.io.CsvDatastore", [])
    assert caught.value.arguments == ["Input", "at least one path", "1x0 cell"]


def test_a_failing_user_operation_names_where_it_was_made(numbers):
    def fail(nargout, factory, chunk):
        raise ValueError("no")

    array = numbers.session.call(
        "applyOperationBuiltin", make_operation(numbers.session, fail, np.zeros((0, 0))), numbers.x
    )
    with pytest.raises(host.Error) as caught:
        numbers.gather(array)
    assert "make_operation" in [frame.name for frame in caught.value.stack]


def test_types_and_missing_values_do_not_depend_on_gathering(session, tmp_path):
    (tmp_path / "bytes.csv").write_text("n,l\n100,true\n50,false\n")
    names, types = host.StringArray(["n", "l"]), host.StringArray(["int8", "logical"])
    source = session.call("kalvex.io.CsvDatastore", str(tmp_path / "bytes.csv"), names, types)
    table = session.call("createFromDatastoreBuiltin", source)
    n, flags = (session.call("subsrefTabularVar", ":", name, True, table) for name in "nl")

    def element(name, *inputs):
        return session.call("elementfun", host.Function(f"kv.element.{name}"), *inputs)

    count, least = (host.Function(f"kv.aggregate.{name}") for name in ("count", "min"))
    both = session.call("aggregatefun", count, count, n)
    none = session.call("filterslices", element("gt", n, 101.0), flags)
    missing = session.call("aggregatefun", least, least, none)
    for _ in range(2):
        for factor, dtype in ((2.0, "float64"), (np.int8(2), "int8"), (both, "int64")):
            assert session.call("gather", element("times", n, factor)).dtype == dtype
        for nothing in (missing, element("not", missing), element("and", missing, True)):
            assert math.isnan(session.call("gather", nothing))
        session.call("gather", n, both, missing, nargout=3)


@pytest.mark.parametrize("partitions", [1, 2])
def test_skipped_row_groups_change_neither_pieces_nor_times(
    session, tmp_path, monkeypatch, partitions
):
    rows = np.arange(120_000)
    table = pa.table({"x": rows, "when": rows.astype("M8[h]").astype("M8[us]")})
    for file, part in enumerate([table[:50_000], table[50_000:]]):
        pq.write_table(part, tmp_path / f"{file}.parquet", row_group_size=7_001)
    read = session.call("kv.read", session.call("kv.datastore", str(tmp_path)), float(partitions))

    def column(name, table):
        return session.call("subsrefTabularVar", ":", name, True, table)

    def keep(function, value):
        name = host.Function(f"kv.element.{function}")
        return session.call("elementfun", name, column("x", read), np.int64(value))

    def kept(function, value):
        return column("when", session.call("filterslices", keep(function, value), read))

    pieces = {"": [], "-prune": []}
    skipped = {}
    for switches, given in pieces.items():
        monkeypatch.setenv("KV_OPTIMIZER", switches)
        for function, value in (("ge", 60_000), ("lt", 30_000), ("eq", 100_000), ("gt", 10**6)):

            def later(nargout, moments, given=given):
                given.append(moments)
                return moments + np.timedelta64(1, "D")

            array = session.call("elementfun", later, kept(function, value))
            given.append(session.call("gather", array))
        skipped[switches] = session.call("kv.lastEvaluation")["skippedRows"]
        every = keep("ge", 0)
        session.call("gather", every)  # so only the run can compare the rows
        all_rows = column("when", session.call("filterslices", every, read))
        late = kept("ge", 14_002)  # the other rows are two row groups
        same = session.call("elementfun", host.Function("kv.element.eq"), all_rows, late)
        with pytest.raises(host.Error) as refused:
            session.call("gather", same)
        assert refused.value.identifier == "KALVEX:array:RowsDiffer"
    assert skipped == {"": 120_000.0, "-prune": 0.0}
    assert [piece.shape for piece in pieces[""]] == [piece.shape for piece in pieces["-prune"]]
    for piece, other in zip(*pieces.values(), strict=True):
        assert piece.dtype == "M8[us]"
        np.testing.assert_array_equal(piece, other)
