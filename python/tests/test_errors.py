"""Errors, from the host and from Python."""

import copy
import pickle
import threading

import pytest
from kvbigdata import host


def test_an_undefined_function_is_named(bare):
    with pytest.raises(host.Error) as caught:
        bare.call("no.such.function")
    error = caught.value
    assert error.identifier == "KALVEX:UndefinedFunction"
    assert error.arguments == ["no.such.function"]
    assert error.object.class_name == "KException"
    assert error.object.get("identifier") == error.identifier
    assert error.object.get("message") == error.message
    frame = error.stack[0]
    assert (frame.file, frame.name) == (__file__, "test_an_undefined_function_is_named")


def test_an_error_keeps_its_content_through_the_host(bare):
    def fails(nargout):
        raise host.Error("my:id", "a sentence", ["one", "two"], cause=inner)

    inner = host.Error("my:inner", cause=ValueError("root"))
    bare.define_function("fails", fails)
    bare.define_function("outer", lambda nargout: bare.call("fails"))
    with pytest.raises(host.Error) as caught:
        bare.call("outer")
    error = caught.value
    assert (error.identifier, error.message, error.arguments) == (
        "my:id", "a sentence", ["one", "two"])  # fmt: skip
    assert error.cause.identifier == "my:inner"
    assert isinstance(error.cause.cause, ValueError)
    assert error.object.get("cause").get("identifier") == "my:inner"
    assert error.stack[0].name == "fails" and "outer" not in error.stack[0].name


def test_another_exception_comes_out_from_the_original(bare):
    class OddError(Exception):
        pass

    original = OddError("what happened")

    def fails(nargout):
        raise original

    bare.define_function("fails", fails)
    bare.define_function("outer", lambda nargout: bare.call("fails"))
    with pytest.raises(host.Error) as caught:
        bare.call("outer")
    error = caught.value
    assert error.identifier == "KALVEX:python:OddError"
    assert error.message == "what happened"
    assert error.cause is original and error.__cause__ is original
    assert error.stack[0].name == "fails"


class OwnError(host.Error):
    def __init__(self):
        super().__init__("own:id", "text", [1], cause=KeyError("key"))
        self.detail = {"more": 1}


def test_an_error_is_pickled_without_its_object(bare):
    def fail(nargout):
        raise ValueError("plain", threading.Lock())

    bare.define_function("fail", fail)
    with pytest.raises(host.Error) as caught:
        bare.call("fail")
    error = caught.value
    sent = pickle.loads(pickle.dumps(error))
    assert str(sent) == str(error) and sent.stack == error.stack and sent.object is None
    assert sent.cause.identifier == "KALVEX:python:ValueError" and "plain" in sent.cause.message
    assert sent.cause is sent.__cause__
    for made in (pickle.loads(pickle.dumps(OwnError())), copy.deepcopy(OwnError())):
        assert (made.identifier, made.arguments, made.detail) == ("own:id", ["1"], {"more": 1})
        assert type(made) is OwnError and repr(made.__cause__) == "KeyError('key')"
    chained = error
    for _ in range(40):  # links, each of which is tested once
        chained = host.Error("own:link", cause=chained)
    chained = pickle.loads(pickle.dumps(chained))
    for _ in range(40):
        chained = chained.cause
    assert chained.stack == error.stack and str(chained.cause) == str(sent.cause)
    also = copy.copy(error)
    assert also.object == error.object and also.cause is error.cause is also.__cause__


def test_an_error_that_is_caught_and_raised_again_is_the_same_object(bare):
    seen = []

    def passes(nargout):
        try:
            bare.call("nothing")
        except host.Error as error:
            seen.append(error.object)
            raise

    bare.define_function("passes", passes)
    with pytest.raises(host.Error) as caught:
        bare.call("passes")
    assert caught.value.object == seen[0]


@pytest.mark.parametrize("stop", [KeyboardInterrupt, SystemExit])
def test_an_exception_that_isnt_an_error_passes_through_unchanged(bare, stop):
    raised = stop("now")

    def stops(nargout):
        raise raised

    bare.define_function("stops", stops)
    bare.define_function("outer", lambda nargout: bare.call("stops"))
    with pytest.raises(stop) as caught:
        bare.call("outer")
    assert caught.value is raised
    assert bare.call("str2func", "outer") == host.Function("outer")


def test_an_error_that_was_changed_is_raised_as_changed(bare):
    def passes_on(nargout, message):
        try:
            bare.call("no.such.function")
        except host.Error as error:
            error.message = message or error.message
            error.arguments.append("more")
            raise

    bare.define_function("passes_on", passes_on)
    for message in ("changed", ""):  # with its arguments, or only the arguments
        with pytest.raises(host.Error) as caught:
            bare.call("passes_on", message)
        assert caught.value.message == message or message == ""
        assert caught.value.arguments == ["no.such.function", "more"]
    assert caught.value.identifier == caught.value.object.get("identifier")


def test_frames_of_the_package_are_left_out(bare):
    class Calls:
        def __str__(self):
            with pytest.raises(host.Error) as caught:
                bare.call("nothing")
            files.extend(frame.file for frame in caught.value.stack)
            return ""

    files = []
    host.Error("my:id", arguments=[Calls()])  # the package calls str()
    assert __file__ in files and not any("_records" in file for file in files)


def test_errors_may_cause_each_other(bare):
    first, second = host.Error("my:first"), host.Error("my:second")
    first.cause, second.cause = second, first

    def fails(nargout):
        raise first

    bare.define_function("fails", fails)
    with pytest.raises(host.Error) as caught:
        bare.call("fails")
    assert caught.value.cause.cause.cause.identifier == "my:second"


def test_an_error_of_another_session_gets_an_object_of_this_one(bare):
    with host.Session(runtime=False) as other:
        bare.define_function("fails", lambda nargout: other.call("no.such.function"))
        with pytest.raises(host.Error) as caught:
            bare.call("fails")
    assert caught.value.arguments == ["no.such.function"]
    assert caught.value.object.get("identifier") == "KALVEX:UndefinedFunction"


def test_an_error_that_cant_be_read_reports_the_reason(bare):
    class Torn(host.Error):
        def __init__(self):
            pass

    class Interrupting(host.Error):
        @property
        def identifier(self):
            raise KeyboardInterrupt

        @identifier.setter
        def identifier(self, value):
            pass

    def fails(nargout, kind):
        raise Torn() if kind == "torn" else Interrupting("my:id")

    bare.define_function("fails", fails)
    with pytest.raises(host.Error) as caught:
        bare.call("fails", "torn")
    assert caught.value.identifier == "KALVEX:python:AttributeError"
    with pytest.raises(KeyboardInterrupt):
        bare.call("fails", "interrupting")


@pytest.mark.parametrize(
    ("use", "identifier", "arguments"),
    [
        (lambda s, a: s.call("str2func"), "KALVEX:NotEnoughInputs", []),
        (lambda s, a: s.call("str2func", "x", nargout=2), "KALVEX:TooManyOutputs", []),
        (lambda s, a: s.call("str2func", "x", "y"), "KALVEX:TooManyInputs", []),
        (lambda s, a: a.get("Nothing"), "KALVEX:class:NoSuchMember", ["KException", "Nothing"]),
        (lambda s, a: a.set("message", "m"), "KALVEX:class:AccessDenied",
         ["KException", "message"]),
        (lambda s, a: a.invoke("nothing"), "KALVEX:class:NoSuchMember", ["KException", "nothing"]),
        (lambda s, a: s.new("Nothing"), "KALVEX:UndefinedFunction", ["Nothing"]),
    ],
)  # fmt: skip
def test_ids_of_wrong_use(bare, use, identifier, arguments):
    with pytest.raises(host.Error) as caught:
        use(bare, bare.new("KException", "my:id"))
    assert (caught.value.identifier, caught.value.arguments) == (identifier, arguments)


def test_rights_of_a_class_reach_its_members(bare):
    exception = bare.new("KException", "my:id", "before")
    exception.set("message", "after", as_class="KException")
    assert exception.get("message") == "after"


def test_wrong_use_in_python_is_a_python_error(bare):
    for nargout in (-1, 65536):
        with pytest.raises(ValueError, match="nargout"):
            bare.call("str2func", "x", nargout=nargout)
    assert host.Error("my:id", arguments=(1, "a")).arguments == ["1", "a"]
    with pytest.raises(TypeError, match="callable"):
        bare.define_function("f", 1)
    with pytest.raises(TypeError, match="dict"):
        bare.define_class("C", methods=[])
    with pytest.raises(TypeError, match="superclasses"):
        bare.define_class("C", superclasses="KException")


def test_warnings_are_listed_until_cleared(session):
    assert session.warnings == []
    session.clear_warnings()
