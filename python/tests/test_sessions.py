"""Sessions, threads and lifetimes."""

import gc
import importlib
import subprocess
import sys
import threading
import weakref

import pytest
from kvbigdata import host


def in_thread(action):
    """Runs `action` on another thread; returns its result or its error."""
    outcome = []

    def run():
        try:
            outcome.append(action())
        except BaseException as error:
            outcome.append(error)

    thread = threading.Thread(target=run)
    thread.start()
    thread.join()
    return outcome[0]


def make(session):
    return session.new("KException", "my:id")


def test_a_closed_session_refuses_every_use():
    session = host.Session(runtime=False)
    held = make(session)
    session.close()
    session.close()
    for use in (
        lambda: session.call("str2func", "x"),
        lambda: session.classes(),
        lambda: session.collect(),
        lambda: session.warnings,
        lambda: held.get("message"),
        lambda: held.class_name,
        lambda: session.__enter__(),
    ):
        with pytest.raises(host.Error) as caught:
            use()
        assert caught.value.identifier == "KALVEX:session:Closed"
    assert held.is_deleted and "closed" in repr(held) and held == held


def test_a_callable_dropped_while_a_session_closes_finds_it_closed():
    """A callable is released with the session that holds it, which runs Python code."""
    session = host.Session(runtime=False)
    found = []

    class Callable:
        def __call__(self, nargout):
            pass

        def __del__(self):
            for use in (session.collect, lambda: session.new("C"), lambda: held.get("value")):
                try:
                    use()
                except host.Error as error:
                    found.append(error.identifier)
            session.close()

    session.define_class("C", properties={"value": None})
    held = session.new("C")
    held.set("value", Callable())
    session.define_function("function", Callable())
    session.define_class("D", properties={"value": Callable()})
    session.close()
    assert found == 9 * ["KALVEX:session:Closed"]


def test_callables_may_raise_or_come_back_when_they_are_released(bare, monkeypatch):
    """Only the collector releases these; each release runs Python code of a different kind."""
    raised, back = [], []
    monkeypatch.setattr(sys, "unraisablehook", lambda given: raised.append(str(given.exc_value)))

    class Callable:
        def __init__(self, end):
            self.end = end

        def __call__(self, nargout):
            return "called"

        def __del__(self):
            self.end(self)

    def fails(_):
        raise ValueError("at the end")

    bare.define_class("Holder", properties={"Function": None, "Itself": None})
    for end in (fails, back.append, lambda _: bare.collect(), lambda _: bare.new("Holder")):
        holder = bare.new("Holder")
        holder.set("Function", Callable(end))
        holder.set("Itself", holder)
        del holder
        bare.collect()
    assert raised == ["at the end"]
    bare.define_function("again", back[0])
    assert bare.call("again") == "called"
    back[0].end = lambda _: None


def test_another_thread_is_refused(bare):
    held = make(bare)
    for use in (lambda: bare.call("str2func", "x"), lambda: held.get("message"), bare.close):
        error = in_thread(use)
        assert isinstance(error, host.Error)
        assert error.identifier == "KALVEX:session:WrongThread"
    assert held.get("identifier") == "my:id"


def test_a_session_isnt_closed_while_it_runs(bare):
    bare.define_function("closes", lambda nargout: bare.close())
    with pytest.raises(host.Error) as caught:
        bare.call("closes")
    assert caught.value.identifier == "KALVEX:session:InUse"


def test_a_value_of_another_session_is_refused(bare):
    with host.Session(runtime=False) as other:
        foreign = make(other)
        for use in (lambda: bare.call("feval", foreign), lambda: bare.call("feval", [foreign])):
            with pytest.raises(host.Error) as caught:
                use()
            assert caught.value.identifier == "KALVEX:session:OtherSession"


def test_sessions_of_one_thread_nest(bare):
    with host.Session(runtime=False) as other:
        other.define_function("f", lambda nargout: 2.0)
        bare.define_function("f", lambda nargout: other.call("f") + 1)
        assert bare.call("f") == 3.0


def test_the_last_wrapper_releases_the_object(bare):
    before = bare.live_objects("KException")
    held = make(bare)
    also = held
    assert bare.live_objects("KException") == before + 1
    del held, also
    assert bare.live_objects("KException") == before


def test_wrappers_are_dropped_on_any_thread(bare):
    for counted in (bare.live_objects, lambda name: bare.collect() or bare.live_objects(name)):
        held = [make(bare) for _ in range(100)]
        assert bare.live_objects("KException") == 100
        in_thread(held.clear)
        assert counted("KException") == 0


def test_wrappers_outlive_their_session_and_are_dropped_elsewhere():
    with host.Session(runtime=False) as session:
        held = [make(session) for _ in range(10)]
    in_thread(held.clear)
    del session
    gc.collect()
    assert host.ledger()["objects"] == 0


def test_a_cycle_through_python_lives_until_the_session_closes():
    class Token:
        pass

    token = Token()
    alive = weakref.ref(token)
    with host.Session(runtime=False) as session:
        session.define_class("Holder", properties={"Callback": None})
        held = session.new("Holder")
        held.set("Callback", lambda nargout, held=held, token=token: None)
        del held, token
        session.collect()
        assert alive() is not None
    gc.collect()
    assert alive() is None


def test_without_the_runtime_there_is_the_core_and_nothing_else(bare):
    assert bare.classes()
    assert bare.call("str2func", "x") == host.Function("x")
    assert bare.call("hasInternalStackFramesBuiltin") is False
    for name in ("keepAlive", "copy", "version", "kalvex.bigdata.internal.executor.Executor"):
        with pytest.raises(host.Error) as caught:
            bare.call(name)
        assert caught.value.arguments == [name]


def test_stress_collects_at_every_creation():
    with host.Session(stress=True) as session:
        a = session.call("createFromConstantBuiltin", 1.0)
        assert a.get("ValueFuture").get("Value") == 1.0


def test_deleting_shows_in_every_wrapper(bare):
    held = make(bare)
    bare.define_function("echo", lambda nargout, value: value)
    also = bare.call("echo", held)
    held.delete()
    assert also.is_deleted and held == also
    with pytest.raises(host.Error):
        also.get("message")


LEAVES_NOTHING = """
import sys
from kvbigdata import host
session = host.Session()
session.define_class("C", properties={"p": None})
held = session.new("C")
held.set("p", lambda nargout, s=session, h=held: None)
try:
    session.call("nothing")
except host.Error as error:
    kept = error
"""
CLOSED = """
session.close()
del session, held, kept
print(sum(host.ledger().values()))
"""


DAEMON = """
import threading, time
import kvbigdata as kv
from kvbigdata import host
def run():
    session = host.Session(runtime=RUNTIME)
    session.define_function("echo", lambda nargout, value: value)
    held = session.new("KException", "my:id")
    started.set()
    while True:
        try:
            LOOP
        except host.Error:
            pass
        rounds.append(1)
def evaluate(s, *functions):
    source = s.call("kalvex.io.CsvDatastore", host.StringArray(["PATH"]))
    table = s.call("createFromDatastoreBuiltin", source)
    x = s.call("subsrefTabularVar", ":", "x", True, table)
    for function in functions:
        x = s.call("elementfun", function, x)
    total = host.Function("kv.aggregate.sum")
    s.call("gather", s.call("aggregatefun", total, total, x))
rounds = []
started, released, ended = threading.Event(), threading.Event(), threading.Event()
for _ in range(3):
    threading.Thread(target=run, daemon=True).start()
started.wait()
time.sleep(0.2)
host._host.close_all()  # as at the end of the interpreter
before = len(rounds)
time.sleep(0.2)
assert len(rounds) <= before + 3, "the threads go on"
"""


@pytest.mark.parametrize(
    "loop",
    ["session.call('echo', 1)", "session.call('echo', [[1, {'a': 2}]] * 20)", "time.sleep(1)",
     "session.call('echo', lambda: 1)", "session.call('nothing', 1)",
     "host.Session(runtime=False).close()", "evaluate(session)",
     "evaluate(session, lambda nargout, x: sum(range(200)) * x)",
     "kv.zeros(20_000_000_000).sum().compute()",
     "kv.arange(1_000_000).map_chunks(lambda v: v + 1).sum().compute()"],
)  # fmt: skip
def test_a_daemon_thread_neither_ends_the_process_nor_leaks(loop, tmp_path):
    path = tmp_path / "numbers.csv"
    path.write_text("x\n" + "1\n" * 300_000)
    program = DAEMON.replace("LOOP", loop).replace("PATH", str(path))
    program = program.replace("RUNTIME", str("evaluate" in loop))
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, "")


FINALIZER = """
import threading
from kvbigdata import host
class Slow:
    def __call__(self, nargout):
        pass
    def __del__(self):
        started.set()
        released.wait(60)
        ended.set()
def run():
    session = host.Session(runtime=False)
    session.define_function("f", Slow())
    session.define_function("f", lambda nargout: None)
started, released, ended = threading.Event(), threading.Event(), threading.Event()
threading.Thread(target=run, daemon=True).start()
started.wait()
host._host.close_all()  # as at the end of the interpreter
assert not ended.is_set(), "waited for a finalizer of the user's"
"""


WAITING = """
import threading, time
import kvbigdata as kv
from kvbigdata import host
@kv.function(serial=True)
def hold(values):
    started.set()
    time.sleep(4)
    ended.set()
    return values
started, ended = threading.Event(), threading.Event()
x = kv.arange(9)
threading.Thread(target=x.map_chunks(hold).compute, daemon=True).start()
started.wait()
threading.Thread(target=x.compute, daemon=True).start()
time.sleep(0.2)
host._host.close_all()  # as at the end of the interpreter
assert not ended.is_set(), "waited for a thread that waits for the session"
"""


@pytest.mark.parametrize("program", [FINALIZER, WAITING])
def test_exit_doesnt_wait_for_users_code_in_a_daemon_thread(program):
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, "")


WITH_SUBINTERPRETER = """
from kvbigdata import host
try:
    import _interpreters as interpreters
    run = interpreters.exec
except ImportError:
    import _xxsubinterpreters as interpreters
    run = interpreters.run_string
session = host.Session(runtime=False)
run(interpreters.create(), REFUSED)
session.define_function("echo", lambda nargout, value: value)
print(session.call("echo", [1.0])[0, 0])
"""
REFUSED = """
try:
    from kvbigdata import host
except ImportError as error:
    print(error)
"""


def test_a_subinterpreter_is_refused_and_does_no_harm():
    program = WITH_SUBINTERPRETER.replace("REFUSED", repr(REFUSED))
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, "")
    refusal, works = done.stdout.splitlines()
    assert "main interpreter only" in refusal and works == "1.0"


def test_a_second_import_is_refused_and_does_no_harm(echo, monkeypatch):
    monkeypatch.delitem(sys.modules, "kvbigdata._host")
    with pytest.raises(ImportError, match="a second time"):
        importlib.import_module("kvbigdata._host")
    assert echo(1.0) == 1.0


def test_code_that_ran_once_is_not_kept(bare):
    """Nor is other code at the same address mistaken for it."""
    places, alive = [], []

    def note():
        with pytest.raises(host.Error) as caught:
            bare.call("nothing")
        places.append(next(f[::2] for f in caught.value.stack if f.file.startswith("cell")))

    for line in range(1, 30):
        cell = compile("\n" * (line - 1) + "note()", f"cell {line}", "exec")
        alive.append(weakref.ref(cell))
        exec(cell, {"note": note})
        del cell
    assert places == [(f"cell {line}", line) for line in range(1, 30)]
    gc.collect()
    assert not any(code() for code in alive)


@pytest.mark.parametrize(
    ("ending", "printed"),
    [("", ""), ("sys.exit(0)", ""), (CLOSED, "0\n")],
    ids=["left open", "exit", "closed"],
)
def test_nothing_leaks_at_exit(ending, printed):
    """Neither a session that was left open with a cycle through Python nor one that was closed."""
    done = subprocess.run(
        [sys.executable, "-c", LEAVES_NOTHING + ending], capture_output=True, text=True, check=True
    )
    assert (done.stderr, done.stdout) == ("", printed)
