"""Values from Python to the host and back."""

import subprocess
import sys

import numpy as np
import pytest
from kvbigdata import host

NUMERIC = ["int8", "int16", "int32", "int64", "uint8", "uint16", "uint32", "uint64", "float32"]


def readonly(array):
    array.setflags(write=False)
    return array


SAME = [
    None, True, False, 1.5, float("inf"), "text", "", "pair \U0001f600, half \ud83d", "\0",
    host.String("scalar"), host.String(""), host.Chars(["ab", "cd"]), host.Function("sin"),
    host.StringArray(["a", None]), host.StringArray([["a", "b"], [None, "d"]]),
    host.StringArray([None]),
    {}, {"b": 1.0, "a": "x", "c": {"nested": None}}, host.StructArray([{"a": 1.0}, {"a": None}]),
    host.StructArray([]), print, len,
    *(np.dtype(name).type(7) for name in NUMERIC),
]  # fmt: skip


@pytest.mark.parametrize("value", SAME, ids=repr)
def test_a_value_comes_back_unchanged(echo, value):
    back = echo(value)
    assert back == value
    assert type(back) is type(value)


@pytest.mark.parametrize(
    ("value", "back"),
    [
        (3, 3.0), (-(2**60), -float(2**60)), (np.float64(2), 2.0), (np.bool_(True), True),
        (np.array(4, dtype="int16"), np.int16(4)), (np.array([[5.0]]), 5.0),
        (host.Chars(["row"]), "row"), (host.StringArray(["one"]), host.String("one")),
        (host.StructArray([{"a": 1}]), {"a": 1.0}),
    ],
    ids=repr,
)  # fmt: skip
def test_scalars_come_back_in_their_simplest_form(echo, value, back):
    assert echo(value) == back
    assert type(echo(value)) is type(back)


def test_a_dict_keeps_the_order_of_its_keys(echo):
    assert list(echo({"z": 1, "a": 2, "m": 3})) == ["z", "a", "m"]


@pytest.mark.parametrize(
    ("value", "shape"),
    [([1, "a"], (1, 2)), ((), (1, 0)), (host.Cell([1, 2, 3]), (1, 3)),
     (host.Cell([[1, 2], [3, 4], [5, 6]]), (3, 2)),
     (host.Cell(np.array([["a"], ["b"]], dtype=object)), (2, 1))],
    ids=repr,
)  # fmt: skip
def test_lists_and_cells_come_back_as_cells(echo, value, shape):
    back = echo(value)
    assert type(back) is host.Cell and back.shape == shape
    assert back.reshape(-1).tolist() == host.Cell(value).reshape(-1).tolist()


def test_nested_cells_stay_nested(echo):
    assert echo([1, [2, [3]]])[0, 1][0, 1][0, 0] == 3.0


@pytest.mark.parametrize("name", [*NUMERIC, "float64", "bool"])
@pytest.mark.parametrize(
    "layout",
    [lambda a: a, np.asfortranarray, lambda a: a.T, lambda a: a[::2, ::-1], lambda a: a[:, :1],
     lambda a: np.asfortranarray(a, a.dtype.newbyteorder(">")), lambda a: a[:0]],
    ids=["rows", "columns", "transposed", "strided", "column", "foreign", "empty"],
)  # fmt: skip
def test_arrays_keep_type_shape_and_elements(echo, name, layout):
    array = layout((np.arange(12).reshape(4, 3) % 5).astype(name))
    back = echo(array)
    np.testing.assert_array_equal(back, array)
    assert back.dtype == array.dtype.newbyteorder("=") and back.shape == array.shape
    assert not back.flags.writeable


def test_shapes_of_one_two_and_three_dimensions(echo):
    assert echo(np.arange(3)).shape == (3, 1)
    assert echo(np.zeros(0)).shape == (0, 1)
    assert echo(np.zeros((0, 0))).shape == (0, 0)
    assert echo(np.zeros((2, 3, 4))).shape == (2, 3, 4)


def test_a_readonly_array_is_borrowed_and_comes_out_without_a_copy(echo):
    for array in (np.arange(5.0), np.asfortranarray(np.ones((3, 2), dtype="int8"))):
        address = array.ctypes.data
        assert echo(readonly(array)).ctypes.data == address


@pytest.mark.parametrize(
    "view",
    [lambda a: a, lambda a: readonly(a[1:]), lambda a: readonly(readonly(a[1:])[1:]),
     lambda a: readonly(a.view(np.recarray).view(np.ndarray)),
     lambda a: np.frombuffer(memoryview(a).toreadonly()),
     lambda a: readonly(np.asarray(memoryview(a)))],
    ids=["itself", "view", "view of a view", "subclass", "memoryview", "exporter"],
)  # fmt: skip
def test_memory_that_anyone_can_write_is_copied(echo, view):
    array = np.arange(5.0)
    kept = echo(view(array))
    before = kept.tolist()
    array[:] = 99
    assert kept.tolist() == before


def test_views_of_memory_that_no_one_writes_are_borrowed(echo):
    memory = readonly(np.arange(9.0))
    for array in (memory[2:], np.frombuffer(b"8 bytes and 16 bytes too"), echo(np.arange(3.0))[1:]):
        back = echo(array)
        assert back.ctypes.data == array.ctypes.data and not back.flags.writeable
        with pytest.raises(ValueError):
            back.setflags(write=True)


@pytest.mark.parametrize("unit", ["D", "s", "us", "ns"])
def test_times_come_back_in_microseconds(session, unit):
    session.define_function("echo", lambda nargout, value: (value,))
    moments = np.array([["2013-06-01", "NaT"], ["1969-12-31", "2400-02-29"]], f"M8[{unit}]")
    for times in (moments[:, 0], moments, moments - moments[0, 0], moments[:0, 0]):
        back = session.call("echo", times)
        expected = times.astype(f"{times.dtype.kind}8[us]").reshape(back.shape)
        assert back.dtype == expected.dtype and not back.flags.writeable
        np.testing.assert_array_equal(back, expected)
    assert session.call("echo", moments[0, 0]) == np.datetime64("2013-06-01T00:00:00", "us")
    assert np.isnat(session.call("echo", np.timedelta64("NaT")))


def test_misaligned_memory_is_copied(echo):
    array = np.frombuffer(bytes(25), offset=1)
    assert not array.flags.aligned and echo(array).flags.aligned


def test_what_comes_out_is_a_view_that_outlives_its_session():
    with host.Session(runtime=False) as s:
        s.define_function("twice", lambda nargout: (s_values, s_values))
        s_values = readonly(np.arange(4.0))
        first, second = s.call("twice", nargout=2)
    assert first.ctypes.data == second.ctypes.data == s_values.ctypes.data
    assert first.sum() == 6


def test_a_callable_comes_back_as_the_very_callable(echo):
    def function(nargout):
        pass

    assert echo(function) is function
    assert echo([function])[0, 0] is function


def test_objects_come_back_equal(session):
    a, b = (session.call("createFromConstantBuiltin", 1.0) for _ in range(2))
    session.define_function("echo", lambda nargout, value: value)
    assert session.call("echo", a) == a and hash(session.call("echo", a)) == hash(a)
    assert a != b and len({a, b, session.call("echo", a)}) == 2
    array = session.call("echo", host.ObjectArray(a.class_name, [a, b]))
    assert array.shape == (2, 1) and list(array) == [a, b] and array.class_name == a.class_name
    assert session.call("echo", host.ObjectArray(a.class_name, [b])) == b
    assert list(session.call("echo", host.ObjectArray(a.class_name, [a, None]))) == [a, None]
    with pytest.raises(TypeError, match="KException"):
        session.call("echo", host.ObjectArray("KException", [a, a]))


@pytest.mark.parametrize(
    ("value", "named"),
    [(1j, "complex"), (b"bytes", "bytes"), (object(), "object"), ({1: 2}, "int"),
     (np.zeros(2, complex), "complex128"), (np.zeros(2, "M8[s]"), "datetime64"),
     (np.ma.array([1, 2], mask=[False, True]), "masked"), (np.zeros(2, "float16"), "float16"),
     (np.array(["a"]), "<U1"), ([1, 2j], "complex"),
     (host.ObjectArray("KException", [1]), "KException")],  # type: ignore[list-item]
    ids=repr,
)  # fmt: skip
def test_any_other_type_is_refused_by_name(echo, value, named):
    with pytest.raises(TypeError, match=named):
        echo(value)


def test_an_int_must_fit_a_double(echo):
    assert echo(2**53) == 2.0**53
    for number in (2**53 + 1, 10**400):
        with pytest.raises(OverflowError):
            echo(number)


def test_a_value_that_holds_itself_ends_in_an_error(echo):
    ring = []
    ring.append(ring)
    with pytest.raises(RecursionError):
        echo(ring)


NESTED = """
import threading
from kvbigdata import host

def save(session):
    session.save_bytes(value)
def load(session):
    session.load_bytes(saved)
def run(convert):
    with host.Session(runtime=False) as session:
        try:
            convert(session)
            print(depth, convert.__name__)
        except RecursionError:
            print(depth, "refused")

threading.stack_size(256 * 1024)
for depth in (10, 400):
    value = 1.0
    for _ in range(depth):
        value = {"a": [value]}
    with host.Session(runtime=False) as session:
        saved = session.save_bytes(value)
    for convert in (save, load):
        thread = threading.Thread(target=run, args=(convert,))
        thread.start()
        thread.join()
"""


def test_nesting_is_limited_by_the_stack_of_a_thread():
    """In both directions: into the host and out of it."""
    done = subprocess.run([sys.executable, "-c", NESTED], capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.splitlines() == ["10 save", "10 load", "400 refused", "400 refused"]


def test_memory_made_by_python_has_no_elements():
    memory = host._host.Memory
    with pytest.raises(BufferError, match="no elements"):
        memoryview(memory.__new__(memory))


def test_cells_and_strings_have_any_number_of_dimensions(echo):
    texts = np.array([f"{i}" for i in range(24)], dtype=object).reshape(2, 3, 4)
    for value in (host.Cell(texts), host.StringArray(texts)):
        back = echo(value)
        assert type(back) is type(value) and back.shape == (2, 3, 4)
        np.testing.assert_array_equal(np.asarray(back), texts)
    assert echo(host.Cell(texts[:, :, :1])).shape == (2, 3)
    assert echo(host.Cell(texts[:, :0])).shape == (2, 0, 4)


def test_a_cell_is_a_numpy_array(echo):
    cell = echo(host.Cell([[1, "a"], [None, [2]]]))
    assert isinstance(cell, np.ndarray) and np.asarray(cell).dtype == object
    assert (cell == host.Cell([[1.0, "a"], [None, host.Cell([2.0])]])).all()
    assert cell[:, 0].tolist() == [1.0, None] and "reshape" in dir(cell)


def test_repr_shows_a_thousand_elements_at_most():
    nested = host.Cell([1, 2])
    for _ in range(40):
        nested = host.Cell([nested, nested])
    rows = host.StringArray(np.empty((200_000_000, 0), dtype=object))
    for value in (nested, rows, host.Cell(range(10**6)), host.StructArray([{"a": 1}] * 5000)):
        assert "..." in repr(value) and len(repr(value)) < 20_000
    assert repr(host.StringArray([["a", None], ["b", "c"]])) == (
        "StringArray([['a', None], ['b', 'c']])"
    )


def test_bytes_of_bools_are_0_or_1(echo):
    for count in (1, 2, 1000):
        bad = np.full(count, 2, dtype=np.uint8).view(bool)
        with pytest.raises(ValueError, match="bytes 0 or 1, got 2"):
            echo(bad)
        bad.setflags(write=False)
        with pytest.raises(ValueError, match="bytes 0 or 1, got 2"):
            echo(bad)


def test_a_container_may_change_while_it_is_converted(echo):
    """The conversion of an element runs Python code, which may change the container."""

    def changing(change):
        class Changing(host.Cell):
            @property  # type: ignore[misc]
            def shape(self):
                change()
                return (1, 1)

        return host.Cell([1.0]).view(Changing)

    shrinking, growing, record = [], [], {}
    shrinking += [changing(shrinking.clear), 3.0]
    growing += [changing(lambda: growing.extend([2.0] * 99)), 3.0]
    record.update(a=changing(record.clear), b=3.0)
    assert echo(shrinking)[0, 1] == echo(growing)[0, 1] == echo(record)["b"] == 3.0


@pytest.mark.parametrize("extents", [(5, 1), (2**40, 2**40), (1, 2**32, 2**32), (0, 1)])
def test_a_shape_must_fit_its_elements(echo, extents):
    class Boasting(host.Cell):
        shape = extents

    with pytest.raises(ValueError, match="has 1 elements"):
        echo(host.Cell([1.0]).view(Boasting))


def test_an_uninitialised_object_is_refused(echo):
    with pytest.raises(TypeError, match="Object"):
        echo(host.Object.__new__(host.Object))


def test_malformed_containers_are_refused():
    with pytest.raises(ValueError):
        host.Chars(["a", "bc"])
    with pytest.raises(ValueError):
        host.StructArray([{"a": 1}, {"b": 1}])
    with pytest.raises(TypeError):
        host.StringArray([1])


def test_string_arrays_work_with_numpy(echo):
    strings = echo(host.StringArray([["a", None]]))
    assert strings.shape == (1, 2)
    assert np.asarray(strings, dtype=object).tolist() == [["a", None]]
