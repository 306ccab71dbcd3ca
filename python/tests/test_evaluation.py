"""Python code in evaluations: functions, operation classes, strategies, stacks, interrupts."""

import signal
import sys
import threading
import time

import numpy as np
import pytest

from conftest import LAZY
from kvbigdata import host

EXECUTOR = "kalvex.bigdata.internal.executor."


def here():
    return sys._getframe(1).f_lineno


def test_a_function_of_the_users_own_sees_chunks(numbers):
    seen = []

    def double(nargout, chunk):
        seen.append(chunk.shape[0])
        return chunk * 2

    doubled = numbers.map(double, numbers.x)
    assert seen == []
    assert numbers.gather(numbers.sum(doubled)) == 2001 * 2000
    assert sum(seen) >= 2000


def test_an_operation_class_written_in_python_runs(numbers):
    s = numbers.session
    s.define_class(
        "mine.Factory",
        superclasses=[EXECUTOR + "DataProcessorFactory"],
        methods={"feval": lambda nargout, factory, chunk: chunk + 1},
    )

    def tasks(nargout, operation, dependencies, *rest):
        return s.call(
            EXECUTOR + "ExecutionTask", dependencies, s.new("mine.Factory"), np.zeros((0, 0)), 1
        )

    s.define_class(
        "mine.Operation",
        superclasses=[LAZY + "Operation"],
        constructor=lambda obj: obj.super_init(LAZY + "Operation", 1, 1),
        methods={"createExecutionTasks": tasks},
    )
    more = s.call("applyOperationBuiltin", s.new("mine.Operation"), numbers.x)
    assert numbers.gather(numbers.sum(more)) == 2001 * 1000 + 2000


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


def test_a_failing_function_names_the_users_line(numbers):
    def fails(nargout, chunk):
        raise ValueError("not these rows")

    line = here() + 1
    failing = numbers.map(fails, numbers.x)
    with pytest.raises(host.Error) as caught:
        numbers.gather(numbers.sum(failing))
    error = caught.value
    assert isinstance(error.object, host.Object)
    chain = []
    while isinstance(error, host.Error):
        chain.append(error.identifier)
        error = error.cause
    assert "KALVEX:python:ValueError" in chain and isinstance(error, ValueError)
    frames = [frame for cause in (caught.value,) for frame in cause.stack]
    assert any(frame.file == __file__ for frame in frames) and line > 0


@pytest.fixture
def alarm():
    """Sends this process an interrupt a little later."""
    timers = []

    def later(seconds):
        timers.append(threading.Timer(seconds, signal.raise_signal, [signal.SIGINT]))
        timers[-1].start()

    yield later
    for timer in timers:
        timer.join()


def test_an_interrupt_stops_between_chunks_and_leaves_the_session_usable(many, alarm):
    chain = many.x
    for _ in range(200):
        chain = many.map(host.Function("kv.element.sqrt"), chain)
    total = many.sum(chain)
    many.gather(many.sum(many.x))
    alarm(0.2)
    started = time.monotonic()
    with pytest.raises(KeyboardInterrupt):
        for _ in range(100):
            many.gather(many.sum(many.map(host.Function("kv.element.sqrt"), chain)))
    assert time.monotonic() - started < 30
    assert many.gather(total) == 1_000_000


def test_the_interpreter_runs_on_while_an_evaluation_does(many):
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
