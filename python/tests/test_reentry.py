"""Functions that a call reaches by name change or delete what the call works on."""

import pytest
from conftest import EXECUTOR, LAZY
from kvbigdata import host

INTERNAL = "kalvex.bigdata.internal."


@pytest.fixture
def core(bare):
    """A session with the host functions that operations need; none of them does anything."""
    for name in ("keepAlive", "RandStream.setGlobalStream", "setOldKey"):
        bare.define_function(name, lambda nargout, *args: None)
    for name in ("override", "default"):
        full = EXECUTOR + "PartitionedArrayExecutor." + name
        bare.define_function(full, lambda nargout: None)
    bare.define_function("RandStream.getGlobalStream", lambda nargout: "stream")
    bare.define_function("getRandStreamForPartition", lambda nargout, factory, index: factory)
    bare.define_class(INTERNAL + "PartitionedArray")
    return bare


def define_operation(s, name, direct=None):
    """An operation class with one input and one output."""

    def construct(obj, *args):
        obj.super_init(LAZY + "Operation", 1, 1)
        obj.set("SupportsDirectEvaluation", direct is not None)

    methods = {"createExecutionTasks": lambda nargout, obj, *args: None}
    if direct is not None:
        methods["directEvaluateImpl"] = direct
    s.define_class(name, superclasses=[LAZY + "Operation"], constructor=construct, methods=methods)
    return s.new(name)


def with_random_state(s, operation):
    options = s.new(
        INTERNAL + "PartitionedArrayOptions", "RequiresRandState", True, "RandStreamFactory", "old"
    )
    operation.set("Options", options, as_class=LAZY + "Operation")
    return options


def test_bytes_may_change_while_they_are_loaded(core):
    core.define_function("version", lambda nargout, option: "1")
    array = core.call("createFromConstantBuiltin", 1.0)
    data = bytearray(core.save_bytes([array, "text" * 1000]))

    def scribble(nargout, option):
        data[:] = bytes(len(data))
        return "1"

    core.define_function("version", scribble)
    assert core.load_bytes(data)[0, 1] == "text" * 1000
    assert not any(data)


def raises_invalid_handle(function, *args):
    with pytest.raises(host.Error) as caught:
        function(*args)
    return caught.value.identifier == "KALVEX:class:InvalidHandle"


def test_the_stream_factory_is_read_when_its_turn_comes(core):
    used = []
    operation = define_operation(core, "Draw", lambda nargout, obj, value: value)
    options = with_random_state(core, operation)

    def change(nargout):
        options.set("RandStreamFactory", "new")
        return "stream"

    core.define_function("RandStream.getGlobalStream", change)
    core.define_function(
        "getRandStreamForPartition", lambda nargout, factory, index: used.append(factory)
    )
    assert operation.invoke("directEvaluate", 1) == 1.0
    assert used == ["new"]


@pytest.mark.parametrize("deleted", ["operation", "options"])
def test_an_evaluation_notices_that_its_operation_was_deleted(core, deleted):
    operation = define_operation(core, "Draw", lambda nargout, obj, value: value)
    parts = {"operation": operation, "options": with_random_state(core, operation)}
    put_back = []

    def delete(nargout):
        parts[deleted].delete()
        return "stream"

    core.define_function("RandStream.getGlobalStream", delete)
    core.define_function("RandStream.setGlobalStream", lambda nargout, s: put_back.append(s))
    assert raises_invalid_handle(core.call, "applyOperationBuiltin", operation, 1)
    assert put_back[-1] == "stream"


def test_an_evaluation_keeps_the_values_that_it_started_with(core):
    operation = define_operation(core, "Draw", lambda nargout, obj, value: value)
    with_random_state(core, operation)
    array = core.call("createFromConstantBuiltin", "before" * 1000)
    promise = array.get("ValueFuture").get("Promise")

    def replace(nargout):
        promise.set("CachedValue", "after", as_class=LAZY + "ClosurePromise")
        return "stream"

    core.define_function("RandStream.getGlobalStream", replace)
    result = core.call("applyOperationBuiltin", operation, array)
    assert result.get("ValueFuture").get("Value") == "before" * 1000


def test_options_may_go_while_their_factory_is_made(core):
    options = core.new(INTERNAL + "PartitionedArrayOptions", "RequiresRandState", True)
    array = core.call("createFromConstantBuiltin", 1)
    core.define_function(INTERNAL + "RandStreamFactory", lambda nargout: options.delete())
    function = host.Function("f")
    assert raises_invalid_handle(core.call, "elementfun", options, function, array)


def test_arrays_may_go_while_their_cache_node_is_made(core):
    plain = define_operation(core, "Plain")
    first, second = (core.call("applyOperationBuiltin", plain, 1) for _ in range(2))
    node = define_operation(core, "Node")

    def make(nargout):
        second.delete()
        return node

    core.define_function(LAZY + "CacheOperation", make)
    assert raises_invalid_handle(core.call, "markforreuse", first, second)
    done = core.call("createFromConstantBuiltin", 1)
    second = core.call("applyOperationBuiltin", plain, 1)
    assert raises_invalid_handle(done.invoke, "updateforreuse", second)


def test_a_handle_that_holds_itself_ends_in_an_error(core):
    handle = core.new(INTERNAL + "FunctionHandle", host.Function("f"), "CaptureErrorStack", False)
    handle.set("Handle", handle, as_class=INTERNAL + "FunctionHandle")
    seen = []

    def build(nargout, error):
        seen.append(error.get("identifier"))
        return error

    core.define_function("kalvex.bigdata.BigDataException.build", build)
    core.define_function("attachSubmissionStack", lambda nargout, error, stack: error)
    core.define_function("updateAndRethrow", lambda nargout, error: None)
    core.call("feval", handle)
    assert seen[0] == "KALVEX:RecursionLimit"
    assert core.call("canSkipGather", 1) is True


def test_builders_without_a_source_and_in_a_cycle_raise_different_errors(session):
    builder = EXECUTOR + "CompositeDataProcessorBuilder"
    lone = session.new(builder, "input")
    assert session.call("feval", lone).is_a(EXECUTOR + "CompositeGraph")
    around = session.new(builder, host.ObjectArray(builder, [lone]), None)
    lone.set("InputBuilders", host.ObjectArray(builder, [around]), as_class=builder)
    with pytest.raises(host.Error) as caught:
        session.call("feval", around)
    assert caught.value.identifier == "KALVEX:bigdata:array:InternalError"
