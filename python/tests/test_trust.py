"""Every path to an evaluation refuses values from a file loaded without trust.

Each row of `paths` gets a value from an untrusted file and tries to make it run. The file's array
applies a user function, which counts its calls, to a column of a CSV file that is gone.
"""

import subprocess
import sys

import numpy as np
import pytest
from conftest import EXECUTOR, LAZY, Recorder
from kvbigdata import host

OPTIONS = "kalvex.bigdata.internal.PartitionedArrayOptions"
FUNCTION = "kalvex.bigdata.internal.FunctionHandle"
FACTORY = EXECUTOR + "DataProcessorFactory"
BUILDER = EXECUTOR + "CompositeDataProcessorBuilder"
TASK = EXECUTOR + "ExecutionTask"
PLUS = host.Function("kv.element.plus")
SUM = host.Function("kv.aggregate.sum")


def closure_of(array):
    return array.get("ValueFuture").get("Promise").get("Closure")


class Suspect:
    """A session with the parts of an array from a file loaded without trust."""

    def __init__(self, session, saved, own, calls):
        self.session, self.own, self.calls = session, own, calls
        for name, value in saved.items():
            setattr(self, name, session.load_bytes(value))
        self.future = self.array.get("ValueFuture")
        self.closure = closure_of(self.array)
        self.operation = self.closure.get("Operation")
        self.function = self.operation.get("FunctionHandle")
        self.handle = self.function.get("Handle")
        self.datastore = closure_of(self.table).get("Operation").get("Datastore")
        self.executor = self.array.get("Executor")

    def call(self, name, *args, **kwargs):
        return self.session.call(name, *args, **kwargs)

    def gather(self, *arrays):
        return self.call("gather", *arrays, nargout=len(arrays))

    def gathered(self, method, *args, **kwargs):
        return self.gather(self.call(method, *args, **kwargs))

    def own_operation(self, name, function, *counts):
        """A new operation with a function from the file, applied to an array of the session."""
        operation = self.session.new(LAZY + name, self.session.new(OPTIONS), function, *counts)
        return self.gather(self.call("applyOperationBuiltin", operation, self.own.x))

    def task_graph(self):
        return self.session.new(LAZY + "LazyTaskGraph", self.closure)

    def promises(self):
        return host.ObjectArray(LAZY + "ClosurePromise", [self.future.get("Promise")])


def user_executor(s):
    """An executor that the session defines never gets an untrusted graph."""
    seen = []
    s.session.define_class(
        "lab.Executor",
        superclasses=[EXECUTOR + "PartitionedArrayExecutor"],
        methods={"execute": lambda nargout, *inputs: seen.append(inputs)},
    )
    s.call(EXECUTOR + "PartitionedArrayExecutor.setOverride", s.session.new("lab.Executor"))
    try:
        s.gather(s.array)
    finally:
        assert seen == []
        s.call(EXECUTOR + "PartitionedArrayExecutor.setOverride", np.zeros((0, 0)))


def own_operation_in_the_closure(s):
    operation = closure_of(s.own.table).get("Operation")
    closure_of(s.table).set("Operation", operation, as_class=LAZY + "Closure")
    s.gathered("subsrefTabularVar", ":", "x", True, s.table)


def new_task(s):
    operation = s.session.new("lab.Operation")
    operation.set("factory", s.factory)
    s.gather(s.call("applyOperationBuiltin", operation, s.own.x))


paths = {
    "gather": lambda s: s.gather(s.array),
    "gather, as a method": lambda s: s.array.invoke("gather"),
    "gather beside an own array": lambda s: s.gather(s.own.sum(s.own.x), s.array),
    "gather an aggregate": lambda s: s.gather(s.total),
    "gather a column of a table": lambda s: s.gathered(
        "subsrefTabularVar", ":", "x", True, s.table
    ),
    "gather for an executor of one's own": user_executor,
    "execute a graph": lambda s: s.executor.invoke("execute", s.task_graph(), s.promises()),
    "execute a graph, by a new executor": lambda s: s.session.new(
        EXECUTOR + "SerialExecutor"
    ).invoke("execute", s.task_graph(), s.promises()),
    "execute a graph of the file": lambda s: s.executor.invoke("execute", s.graph, s.promises()),
    "elementfun": lambda s: s.gathered("elementfun", PLUS, s.array, 1.0),
    "logicalElementfun": lambda s: s.gathered("logicalElementfun", PLUS, s.array, 1.0),
    "slicefun": lambda s: s.gathered("slicefun", PLUS, s.array, 1.0),
    "strictslicefun": lambda s: s.gathered("strictslicefun", PLUS, s.array, s.array),
    "filterslices": lambda s: s.gathered("filterslices", s.array, s.array),
    "logicalRowSubsref": lambda s: s.gathered("logicalRowSubsref", s.array, s.array),
    "ternaryfun on its condition": lambda s: s.gathered("ternaryfun", s.flag, 1.0, 2.0),
    "ternaryfun on its branch": lambda s: s.gathered("ternaryfun", True, s.array, s.array),
    "aggregatefun": lambda s: s.gathered("aggregatefun", SUM, SUM, s.array),
    "reducefun": lambda s: s.gathered("reducefun", SUM, s.array),
    "clientfun": lambda s: s.gathered("clientfun", PLUS, s.array, 1.0),
    "markforreuse": lambda s: s.gathered("markforreuse", s.array),
    "elementfun with its function": lambda s: s.gathered("elementfun", s.handle, s.own.x),
    "elementfun with its FunctionHandle": lambda s: s.gathered("elementfun", s.function, s.own.x),
    "aggregatefun with its function": lambda s: s.gathered("aggregatefun", s.handle, SUM, s.own.x),
    "aggregatefun reducing by its function": lambda s: s.gathered(
        "aggregatefun", lambda nargout, x: x[:1], s.handle, s.own.x
    ),
    "clientfun with its function": lambda s: s.gathered("clientfun", s.handle, s.own.x),
    "slicefun with its function": lambda s: s.gathered("slicefun", s.handle, s.own.x),
    "feval of the function": lambda s: s.call("feval", s.handle, 1.0),
    "the function as Python has it": lambda s: s.handle(1, 1.0),
    "the function saved and loaded again": lambda s: s.call(
        "feval", s.session.load_bytes(s.session.save_bytes(s.handle)), 1.0
    ),
    "the function out of a cell": lambda s: s.call(
        "feval", s.session.load_bytes(s.session.save_bytes(host.Cell([s.handle])))[0, 0], 1.0
    ),
    "the function in a new FunctionHandle": lambda s: s.session.new(FUNCTION, s.handle).invoke(
        "feval", 1.0
    ),
    "FunctionHandle.feval": lambda s: s.function.invoke("feval", 1.0),
    "FunctionHandle.feval of an object": lambda s: s.callable.invoke("feval", 1.0),
    "FunctionHandle.copy": lambda s: s.function.invoke("copy").invoke("feval", 1.0),
    "FunctionHandle.copyWithNewHandle": lambda s: s.function.invoke(
        "copyWithNewHandle", s.handle
    ).invoke("feval", 1.0),
    "copy of the operation": lambda s: s.call("copy", s.operation).invoke("directEvaluate", 1.0),
    "directEvaluate": lambda s: s.operation.invoke("directEvaluate", 1.0),
    "directEvaluate with a random stream": lambda s: s.random.invoke("directEvaluate", 1.0),
    "directEvaluateImpl": lambda s: s.lab.invoke(
        "directEvaluateImpl", 1.0, as_class=LAZY + "Operation"
    ),
    "directEvaluate of an operation class of one's own": lambda s: s.lab.invoke(
        "directEvaluate", 1.0
    ),
    "the operation, applied": lambda s: s.gathered("applyOperationBuiltin", s.operation, s.own.x),
    "an operation of one's own class, applied": lambda s: s.gathered(
        "applyOperationBuiltin", s.lab, s.own.x
    ),
    "the factory of a task": lambda s: s.factory.invoke("feval", 1.0),
    "a new task with the factory": new_task,
    "the builder of a processor": lambda s: s.builder.invoke("feval"),
    "a new operation with the FunctionHandle": lambda s: s.own_operation(
        "ElementwiseOperation", s.function, 1.0, 1.0
    ),
    "a new client operation with the FunctionHandle": lambda s: s.own_operation(
        "NonPartitionedOperation", s.function, 1.0, 1.0
    ),
    "a new closure over the operation": lambda s: s.gather(
        s.call(
            "createFromFutureBuiltin",
            s.session.new(
                LAZY + "Closure",
                host.ObjectArray(LAZY + "ClosureFuture", [s.own.x.get("ValueFuture")]),
                s.operation,
            )
            .get("OutputPromises")
            .get("Future"),
            s.own.x.get("PartitionMetadata").get("Strategy"),
            s.own.x.get("Executor"),
        )
    ),
    "the closure with an operation of one's own": own_operation_in_the_closure,
    "the source": lambda s: s.gathered("createFromDatastoreBuiltin", s.datastore),
    "a copy of the source": lambda s: s.datastore.invoke("copy"),
    "a new read of the source": lambda s: s.gathered(
        "applyOperationBuiltin", s.session.new(LAZY + "ReadOperation", s.datastore, 1.0)
    ),
}


@pytest.fixture
def suspect(tmp_path):
    """Arrays saved by one session and loaded without trust by another; their CSV file is gone."""
    calls = []

    def count_calls(nargout, *values):
        calls.append(values)
        return values[0]

    def define(session):
        session.define_function("lab.count", count_calls)
        methods = {"feval": count_calls, "getRandStreamForPartition": count_calls}
        session.define_class("lab.Factory", superclasses=[FACTORY], methods=methods)
        session.define_class(
            "lab.Operation",
            superclasses=[LAZY + "Operation"],
            properties={"factory": host.Property(None)},
            methods={
                "createExecutionTasks": lambda nargout, obj, dependencies, flags: session.new(
                    TASK, dependencies, obj.get("factory"), np.zeros((0, 0)), 1.0
                ),
                "directEvaluateImpl": count_calls,
                "feval": count_calls,
            },
            constructor=lambda obj: obj.super_init(LAZY + "Operation", 1.0, 1.0),
        )

    gone = tmp_path / "gone.csv"
    gone.write_text("x\n1\n2\n")
    with host.Session() as first:
        define(first)
        recorder = Recorder(first, gone)
        mapped = recorder.map(host.Function("lab.count"), recorder.x)
        flag = recorder.map(host.Function("kv.element.gt"), recorder.sum(recorder.x), 0.0)
        streams = ("RequiresRandState", True, "RandStreamFactory", first.new("lab.Factory"))
        random = (first.new(OPTIONS, *streams), first.new(FUNCTION, PLUS), 1.0, 1.0)
        values = {
            "array": mapped,
            "total": recorder.sum(mapped),
            "table": recorder.table,
            "flag": flag,
            "lab": first.new("lab.Operation"),
            "factory": first.new("lab.Factory"),
            "builder": first.new(BUILDER, 1.0),
            "callable": first.new(FUNCTION, first.new("lab.Operation")),
            "random": first.new(LAZY + "SlicewiseOperation", *random),
            "graph": first.new(LAZY + "LazyTaskGraph", host.ObjectArray(LAZY + "Closure", [])),
        }
        saved = {name: first.save_bytes(value) for name, value in values.items()}
    gone.unlink()
    own = tmp_path / "own.csv"
    own.write_text("x\n1\n2\n")
    with host.Session() as session:
        define(session)
        yield Suspect(session, saved, Recorder(session, own), calls)


@pytest.mark.parametrize("path", paths.values(), ids=paths.keys())
def test_no_path_evaluates_what_is_not_trusted(suspect, path):
    with pytest.raises(host.Error) as refused:
        path(suspect)
    assert refused.value.identifier == "KALVEX:load:NotTrusted"
    assert suspect.calls == []
    assert suspect.own.gather(suspect.own.sum(suspect.own.x)) == 3.0


def test_looking_at_a_file_runs_no_code_and_opens_nothing_else(tmp_path):
    """Checks Python's audit events of a load, a walk over all properties, reprs and a save."""
    path = tmp_path / "map.kv"
    (tmp_path / "x.csv").write_text("x\n1\n")
    with host.Session() as session:
        numbers = Recorder(session, tmp_path / "x.csv")
        session.save(path, numbers.map(host.Function("lab.count"), numbers.x))
    program = f"""
import sys
from kvbigdata import host

session = host.Session()
session.define_function("lab.count", lambda nargout, x: print("called"))
events = []
sys.addaudithook(lambda event, arguments: events.append((event, arguments)))
pending, seen = [session.load({str(path)!r})], set()
while pending:
    value = pending.pop()
    repr(value)
    if isinstance(value, host.Object) and value not in seen:
        seen.add(value)
        for member in session.describe(value.class_name)["members"]:
            if member["kind"] == "property" and member["get"] == 0:
                pending.append(value.get(member["name"]))
session.save_bytes(next(iter(seen)))
noted = list(events)
session.close()
print(len(seen) >= 5, noted)
"""
    ran = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True)
    assert (ran.stdout.strip(), ran.stderr) == ("True []", "")
