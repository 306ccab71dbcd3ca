"""Functions and classes that are defined in Python."""

import sys
import threading
from concurrent.futures import ThreadPoolExecutor

import pytest
from conftest import EXECUTOR, LAZY
from kvbigdata import host


def test_a_function_gives_nothing_one_value_or_several(bare):
    calls = []

    def function(nargout, *args):
        calls.append((nargout, args))
        return {0: None, 1: "one"}.get(len(args), ("a", "b", "c"))

    bare.define_function("pack.f", function)
    assert bare.call("pack.f") is None
    assert bare.call("pack.f", 1.0) == "one"
    assert bare.call("pack.f", 1.0, nargout=2) == ("one", None)
    assert bare.call("pack.f", 1.0, "x", nargout=3) == ("a", "b", "c")
    assert bare.call("pack.f", 1.0, "x", nargout=0) == "a"
    bare.define_function("pack.more", lambda nargout: (1.0, object()))
    assert bare.call("pack.more") == 1.0  # what isn't requested isn't converted
    assert calls[0] == (1, ()) and calls[-1] == (0, (1.0, "x"))


def test_a_definition_replaces_the_previous_one(bare):
    bare.define_function("f", lambda nargout: 1.0)
    bare.define_function("f", lambda nargout: 2.0)
    assert bare.call("f") == 2.0


def test_handles_call_what_they_name(bare):
    bare.define_function("add", lambda nargout, a, b: a + b)
    assert bare.call("feval", host.Function("add"), 1.0, 2.0) == 3.0
    assert bare.call("feval", lambda nargout, a: a, 4.0) == 4.0
    assert bare.call("str2func", "add")(1, 1.0, 2.0) == 3.0


def test_a_function_runs_in_its_session_or_in_the_only_one(bare):
    bare.define_function("who", lambda nargout: "bare")
    by_hand, bound = host.Function("who"), bare.call("str2func", "who")
    assert by_hand(1) == "bare"
    with host.Session(runtime=False) as other:
        other.define_function("who", lambda nargout: "other")
        other.define_function("ask", lambda nargout: (by_hand(1) + ", " + bound(1),))
        assert other.call("ask") == "other, bare" and bound(1) == "bare"
        with pytest.raises(host.Error, match="session.call") as caught:
            by_hand(1)
        assert caught.value.identifier == "KALVEX:session:Ambiguous"
        assert caught.value.arguments == ["who", "2"]
    bare.close()
    for function, identifier in ((by_hand, "Ambiguous"), (bound, "Closed")):
        with pytest.raises(host.Error) as caught:
            function(1)
        assert caught.value.identifier == "KALVEX:session:" + identifier


def test_infinite_recursion_is_an_error(bare):
    bare.define_function("again", lambda nargout: bare.call("again"))
    with pytest.raises(host.Error) as caught:
        bare.call("again")
    assert caught.value.identifier == "KALVEX:python:RecursionError"

    def unlimited():
        before = sys.getrecursionlimit()
        sys.setrecursionlimit(10**6)
        try:
            with host.Session(runtime=False) as s:
                s.define_function("again", lambda nargout: s.call("again"))
                with pytest.raises(host.Error) as caught:
                    s.call("again")
                s.define_function("again", lambda nargout: "usable")
                assert s.call("again") == "usable"
            return caught.value
        finally:
            sys.setrecursionlimit(before)

    error = unlimited()
    assert (error.identifier, error.arguments) == ("KALVEX:RecursionLimit", ["1000"])
    before = threading.stack_size(512 * 1024)
    with ThreadPoolExecutor(1) as small:
        error = small.submit(unlimited).result()
    threading.stack_size(before)
    assert error.identifier == "KALVEX:RecursionLimit" and int(error.arguments[0]) < 1000


def test_a_class_has_properties_methods_and_a_constructor(bare):
    def construct(obj, start):
        obj.set("Count", start)

    def add(nargout, obj, more):
        obj.set("Count", obj.get("Count") + more)
        return obj

    bare.define_class(
        "my.Counter",
        properties={"Count": 0, "Label": host.Property("none", get=0, set=3)},
        constructor=construct,
        methods={"add": add},
        static_methods={"zero": lambda nargout: bare.new("my.Counter", 0)},
    )
    counter = bare.new("my.Counter", 5)
    assert counter.invoke("add", 2) == counter
    assert counter.get("Count") == 7.0 and counter.get("Label") == "none"
    assert bare.call("add", counter, 1).get("Count") == 8.0
    assert bare.call("my.Counter.zero").get("Count") == 0.0
    with pytest.raises(host.Error) as caught:
        counter.set("Label", "x")
    assert caught.value.identifier == "KALVEX:class:AccessDenied"


def test_bodies_run_with_the_rights_of_their_class_alone(bare):
    def read(nargout, obj):
        return obj.get("Own")

    def spread(nargout, obj):
        return bare.call("feval", read, obj)

    bare.define_function("publicRead", read)
    bare.define_class(
        "Base",
        properties={
            "Own": host.Property(1, get=2, set=2),
            "Shared": host.Property(2, get=1, set=1),
            "Fixed": host.Property(None, set=3),
        },
        constructor=lambda obj: obj.set("Fixed", "made"),
        methods={
            "read": read,
            "write": lambda nargout, obj, value: obj.set("Own", value),
            "viaFunction": lambda nargout, obj: bare.call("publicRead", obj),
            "viaHandle": spread,
        },
        static_methods={"peek": read},
    )
    bare.define_class(
        "Derived",
        superclasses=["Base"],
        methods={"shared": lambda nargout, obj: obj.get("Shared"), "steal": read},
    )
    derived = bare.new("Derived")
    derived.invoke("write", 5)
    assert derived.invoke("read") == bare.call("Base.peek", derived) == 5.0
    assert derived.invoke("shared") == 2.0 and derived.get("Fixed") == "made"
    for method in ("steal", "viaFunction", "viaHandle"):
        with pytest.raises(host.Error) as caught:
            derived.invoke(method)
        assert caught.value.arguments == ["Base", "Own"], method


@pytest.mark.parametrize("levels", [{"get": 3}, {"get": 5}, {"set": 4}, {"set": -1}, {"get": "x"}])
def test_access_levels_are_checked(bare, levels):
    with pytest.raises(ValueError, match=f"the {next(iter(levels))} access"):
        bare.define_class("C", properties={"p": host.Property(1, **levels)})


def test_a_constructor_runs_its_superclass(bare):
    made = []
    bare.define_class("Base", properties={"A": None}, constructor=lambda obj, *a: made.append(a))

    def construct(obj, value):
        obj.super_init("Base", value, "more")

    bare.define_class("Derived", superclasses=["Base"], constructor=construct)
    bare.define_class("Plain", superclasses=["Base"])
    derived = bare.new("Derived", 1)
    bare.new("Plain")
    assert made == [(1.0, "more"), ()]
    assert derived.is_a("Base") and not derived.is_a("Plain")


@pytest.mark.parametrize(
    ("parts", "identifier"),
    [({"abstract": ["run"]}, "KALVEX:class:AbstractClass"),
     ({"superclasses": ["Missing"]}, "KALVEX:UndefinedFunction")],
)  # fmt: skip
def test_what_cant_be_made_raises_the_reason(bare, parts, identifier):
    bare.define_class("C", **parts)
    assert bare.describe("C")["native"] is False
    with pytest.raises(host.Error) as caught:
        bare.new("C")
    assert caught.value.identifier == identifier


def test_redefinition_waits_for_the_last_instance(bare):
    bare.define_class("C", properties={"p": 1})
    held = bare.new("C")
    with pytest.raises(host.Error) as caught:
        bare.define_class("C", properties={"p": 2})
    assert caught.value.identifier == "KALVEX:class:HasInstances"
    del held, caught
    bare.define_class("C", properties={"p": 2})
    assert bare.new("C").get("p") == 2.0
    with pytest.raises(host.Error) as caught:
        bare.define_class(bare.classes()[0])
    assert caught.value.identifier == "KALVEX:class:SealedClass"


def test_a_constructor_may_use_what_it_inherits_before_it_is_made(bare):
    """The host constructs a superclass's part before the first use of one of its members."""
    seen = []

    def construct(obj):
        seen.append(obj.invoke("addGlobalState", "factory"))
        seen.append(obj.invoke("twice", 2.0))

    bare.define_class(
        "Base",
        superclasses=[LAZY + "Operation"],
        properties={"factor": 1.0},
        constructor=lambda obj: obj.set("factor", 2.0),
        methods={
            "twice": lambda nargout, obj, x: obj.get("factor") * x,
            "createExecutionTasks": lambda nargout, obj, *args: None,
        },
    )
    bare.define_class("Derived", superclasses=["Base"], constructor=construct)
    assert bare.new("Derived").get("factor") == 2.0
    assert seen == ["factory", 4.0]


def test_properties_may_change_while_a_class_is_defined(bare):
    properties = {}

    class Changing(host.Cell):
        @property  # type: ignore[misc]
        def shape(self):
            properties.clear()
            return (1, 1)

    properties.update(a=host.Cell([1.0]).view(Changing), b=2.0)
    bare.define_class("C", properties=properties)
    assert bare.new("C").get("a")[0, 0] == 1.0 and bare.new("C").get("b") == 2.0


def test_a_description_lists_members_in_order(bare):
    bare.define_class("C", properties={"b": 1, "a": host.Property(2, get=1, set=2)}, sealed=True)
    described = bare.describe("C")
    assert described["name"] == "C" and described["sealed"] is True
    properties = [m for m in described["members"] if m["kind"] == "property"]
    assert [(m["name"], m["get"], m["set"]) for m in properties] == [("b", 0, 0), ("a", 1, 2)]
    for name in bare.classes():
        native = bare.describe(name)
        assert list(native) == ["name", "superclasses", "sealed", "native", "members"]
        assert native["native"] is True
    for member in native["members"]:
        assert member["kind"] in ("constructor", "property", "method")


def test_a_native_class_is_completed_by_name_only(bare):
    for name, identifier in (
        (LAZY + "LazyPartitionedArray", "KALVEX:class:NoSuchMember"),
        ("no.such.Class", "KALVEX:UndefinedFunction"),
    ):
        with pytest.raises(host.Error) as caught:
            bare.complete_class(name, methods={"no such method": print})
        assert caught.value.identifier == identifier


def test_a_native_class_runs_the_bodies_that_complete_it(bare):
    """A plan of one closure, in a session that has only what a plan reaches."""
    planner, task = LAZY + "LazyTaskGraph", EXECUTOR + "ExecutionTask"
    bare.define_class(EXECUTOR + "TaskGraph")
    bare.define_class(
        task, properties={"Id": ""}, constructor=lambda obj, text: obj.set("Id", text)
    )
    profiler = "kalvex.bigdata.internal.debug.TallProfiler.enabled"
    bare.define_function(profiler, lambda nargout: False)
    bare.define_function("containers.Map", lambda nargout, *args: args)
    bare.define_class(
        "mine.Operation",
        superclasses=[LAZY + "Operation"],
        constructor=lambda obj: obj.super_init(LAZY + "Operation", 0, 1),
        methods={"createExecutionTasks": lambda nargout, *args: None},
    )
    no_inputs = host.ObjectArray(LAZY + "ClosureFuture", [])
    closure = bare.new(LAZY + "Closure", no_inputs, bare.new("mine.Operation"))
    with pytest.raises(host.Error, match="Could not find method"):
        bare.new(planner, closure)
    planned = []

    def plan(nargout, *args):
        planned.append((nargout, args[0], args[-1]))
        return bare.new(task, "mine")

    bare.complete_class(planner, static_methods={"createExecutionTasks": plan})
    assert bare.new(planner, closure).get("Tasks").get("Id") == "mine"
    assert planned == [(1, closure, False)]
    bare.complete_class(planner, static_methods={"createExecutionTasks": lambda *args: None})
    with pytest.raises(host.Error, match="gave no task"):
        bare.new(planner, closure)
    with pytest.raises(host.Error) as caught:
        bare.call(planner + ".createExecutionTasks", closure)
    assert caught.value.identifier == "KALVEX:class:AccessDenied"
