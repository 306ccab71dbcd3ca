"""Saving and loading, in memory and in files."""

import os
import subprocess
import sys

import numpy as np
import pytest
from conftest import LAZY, Recorder
from kvbigdata import host

VALUES = [
    None,
    True,
    1.5,
    float("inf"),
    np.int16(-3),
    np.arange(6, dtype=np.uint8).reshape(2, 3),
    np.zeros((0, 3), dtype=np.float32),
    np.arange(24.0).reshape(2, 3, 4),
    "",
    "text π 😀",
    host.Chars(["ab", "cd"]),
    host.String("one"),
    host.StringArray([["a", None], ["ü", "π"]]),
    host.Cell([1.0, "two", host.Cell([])]),
    {"a": 1.0, "b": {"c": "d"}},
    host.StructArray([{"x": 1.0}, {"x": None}]),
    host.Function("plus"),
]


def same(a, b):
    if isinstance(a, np.ndarray) and a.dtype != object:
        return a.dtype == b.dtype and a.shape == b.shape and np.array_equal(a, b)
    if isinstance(a, dict):
        return list(a) == list(b) and all(same(a[key], b[key]) for key in a)
    if isinstance(a, (host.Cell, host.StringArray)):
        flat = [np.asarray(x, dtype=object) for x in (a, b)]
        return flat[0].shape == flat[1].shape and all(map(same, flat[0].flat, flat[1].flat))
    if isinstance(a, (host.StructArray, host.Chars)):
        return len(a) == len(b) and all(map(same, a, b))
    return type(a) is type(b) and a == b


@pytest.mark.parametrize("value", VALUES, ids=lambda value: type(value).__name__)
def test_a_value_comes_back_as_an_equal_one(bare, echo, value):
    assert same(bare.load_bytes(bare.save_bytes(value)), echo(value))


def test_objects_keep_their_cycles_and_classes(bare):
    bare.define_class("lab.Node", properties={"next": None, "label": 7.0})
    first, second = bare.new("lab.Node"), bare.new("lab.Node")
    first.set("next", second)
    second.set("next", host.Cell([first, second]))
    loaded = bare.load_bytes(memoryview(bare.save_bytes(first)))
    assert loaded.class_name == "lab.Node" and loaded != first
    inner = loaded.get("next")
    assert list(np.asarray(inner.get("next")).flat) == [loaded, inner]
    with host.Session(runtime=False) as other, pytest.raises(host.Error) as refused:
        other.load_bytes(bare.save_bytes(first))
    assert (refused.value.identifier, refused.value.arguments) == (
        "KALVEX:load:UnknownClass",
        ["lab.Node"],
    )


def test_an_array_is_evaluated_in_another_process(numbers, tmp_path):
    numbers.session.save(tmp_path / "sum.kv", numbers.sum(numbers.x))
    program = (
        "import sys; from kvbigdata import host\n"
        "with host.Session() as s:\n"
        "    a = s.load(sys.argv[1], trusted=True)\n"
        "    print(s.call('gather', a))\n"
    )
    ran = subprocess.run(
        [sys.executable, "-c", program, tmp_path / "sum.kv"], capture_output=True, text=True
    )
    assert (ran.stdout.strip(), ran.stderr) == ("2001000.0", "")


def test_an_untrusted_array_is_planned_and_saved_but_not_evaluated(numbers):
    saved = numbers.session.save_bytes(numbers.sum(numbers.x))
    with host.Session() as other:
        suspect = other.load_bytes(saved)
        assert suspect.class_name == LAZY + "LazyPartitionedArray"
        with pytest.raises(host.Error) as refused:
            other.call("gather", suspect)
        assert refused.value.identifier == "KALVEX:load:NotTrusted"
        vouched = other.load_bytes(other.save_bytes(suspect), trusted=True)
        assert other.call("gather", vouched) == 2001000.0
        again = other.load_bytes(saved, True)
        both = other.call("elementfun", host.Function("kv.element.plus"), again, again)
        assert other.call("gather", both) == 4002000.0


def test_an_original_and_its_copy_meet_in_one_session(numbers):
    session = numbers.session
    original = numbers.sum(numbers.x)
    copy = session.load_bytes(session.save_bytes(original), trusted=True)
    assert copy.get("ValueFuture").get("IdStr") == original.get("ValueFuture").get("IdStr")
    both = session.call("clientfun", host.Function("kv.element.plus"), original, copy)
    assert session.call("gather", both) == 4002000.0


def test_a_callable_comes_back_when_it_is_defined_again(numbers):
    def double_it(nargout, x):
        return 2 * np.asarray(x)

    saved = numbers.session.save_bytes(numbers.sum(numbers.map(double_it, numbers.x)))
    name = double_it.__qualname__
    with host.Session() as other:
        array = other.load_bytes(saved, trusted=True)
        with pytest.raises(host.Error, match="define a function of that name"):
            other.call("gather", array)
        other.define_function(name, double_it)
        assert other.call("gather", other.load_bytes(saved, trusted=True)) == 4002000.0


def test_a_function_keeps_its_properties_on_its_way_through_python(session):
    def plus(nargout, *args):
        return "mine"

    suspect = session.load_bytes(session.save_bytes(host.Function("plus")))
    with pytest.raises(host.Error) as refused:
        session.call("feval", suspect, 1.0, 2.0)
    assert (refused.value.identifier, refused.value.arguments) == (
        "KALVEX:load:NotTrusted",
        ["plus"],
    )
    plus.__qualname__ = "plus"
    lost = session.load_bytes(session.save_bytes(plus), trusted=True)
    with pytest.raises(host.Error) as missing:
        lost(1, 1.0, 2.0)  # doesn't become the library's function of that name
    assert (missing.value.identifier, missing.value.arguments) == (
        "KALVEX:UndefinedFunction",
        ["plus"],
    )


def test_another_release_gives_an_invalid_array(numbers):
    saved = numbers.session.save_bytes(numbers.sum(numbers.x))
    with host.Session() as other:
        other.define_function("version", lambda nargout, *args: "1999a")
        array = other.load_bytes(saved, trusted=True)
        release = numbers.session.call("version", "-release")
        (warning,) = other.warnings
        assert warning.identifier == "KALVEX:bigdata:array:InvalidTallVersion"
        assert warning.arguments == [release]
        with pytest.raises(host.Error, match=release):
            other.call("gather", array)


def test_files_that_arent_there_or_whole_are_refused(session, tmp_path):
    path = tmp_path / "value.kv"
    session.save(str(path), {"a": 1.0})
    assert session.load(path) == {"a": 1.0}
    path.write_bytes(path.read_bytes()[:-1])
    for broken, identifier in (
        (path, "KALVEX:load:Corrupt"),
        (tmp_path / "none", "KALVEX:load:CannotRead"),
        (tmp_path, "KALVEX:load:CannotRead"),
    ):
        with pytest.raises(host.Error) as refused:
            session.load(broken)
        assert refused.value.identifier == identifier
    with pytest.raises(host.Error) as refused:
        session.save(tmp_path / "no" / "folder", 1.0)
    assert refused.value.identifier == "KALVEX:save:CannotWrite"
    with pytest.raises(TypeError):
        session.load_bytes("text")
    saved = session.save_bytes(1.0)
    assert session.load_bytes(memoryview(saved[::-1])[::-1]) == 1.0  # with a stride of -1


def test_a_source_that_changed_is_refused_by_name(session, tmp_path):
    path = tmp_path / "changing.csv"
    path.write_text("x\n1\n2\n")
    recorded = Recorder(session, path)
    saved = session.save_bytes(recorded.sum(recorded.x))
    path.write_text("x\n1\n2\n3\n")
    with host.Session() as other, pytest.raises(host.Error, match="changing.csv"):
        other.call("gather", other.load_bytes(saved, trusted=True))


@pytest.mark.skipif(
    not os.path.exists(os.environ.get("KV_TOOL", "")), reason="the command isn't built here"
)
def test_the_command_prints_no_array_of_many_rows(numbers, tmp_path):
    """In C++ "KALVEX:array:NotOneRow". No file of `kvbig save` has such an array."""
    record = {
        "Names": host.StringArray(["x"]),
        "Types": host.StringArray(["double"]),
        "AreWeak": np.array([[False]]),
        "Arrays": host.Cell([numbers.x]),
    }
    numbers.session.save(tmp_path / "x.kv", record)
    command = [os.environ["KV_TOOL"], "open", "--trust", "--json", tmp_path / "x.kv"]
    ran = subprocess.run(command, capture_output=True, text=True)
    assert ran.returncode != 0 and '"x" has 2000 rows' in ran.stderr
