// The class Session as Python sees it: one short function per method, and the tables that bind them
// with signatures and documentation for people and type checkers. Each function enters the session
// with a `Use`, which checks thread and state, and converts inputs and outputs; nothing else is
// decided here.

#include "bindSession.h"

#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>

#include <memory>
#include <optional>

#include "Session.h"
#include "callables.h"
#include "calls.h"
#include "definitions.h"
#include "errors.h"
#include "foundation/exception.h"
#include "pyObjects.h"
#include "texts.h"
#include "values.h"

namespace kv::python {

namespace {

/// The state of a Python Session.
struct PySession {
  SessionPtr shared;
};

template <class Body>
decltype(auto) in(const PySession& self, Body&& body) {
  const Use use(self.shared);
  return fromHost([&] { return body(self.shared->host()); });
}

void open(PySession* self, bool runtime, bool stress) {
  try {
    new (self) PySession{SharedSession::open(runtime, stress)};
  } catch (const std::bad_alloc&) {
    raiseInPython("KALVEX:OutOfMemory");
  } catch (const foundation::core::except::IMsgIDException& error) {
    raiseInPython(error.get_error_id());  // there is no session that could hold its object
  }
}

nb::object call(const PySession& self, const std::string& name, const nb::args& args, int nargout,
                nb::handle asClass) {
  checkNargout(nargout);
  return in(self, [&](host::Session& session) {
    const Inputs inputs(args);
    return toResult(nargout, session.call(name, nargout, inputs.span(), rightsOf(asClass)));
  });
}

nb::object construct(const PySession& self, const std::string& className, const nb::args& args,
                     nb::handle asClass) {
  return in(self, [&](host::Session& session) {
    const Inputs inputs(args);
    return toPython(session.construct(className, inputs.span(), rightsOf(asClass)).get());
  });
}

void defineFunction(const PySession& self, const std::string& name, nb::handle function) {
  in(self,
     [&](host::Session& session) { session.defineFunction(name, bodyOf(function, "a function")); });
}

void define(const PySession& self, const std::string& name, nb::handle superclasses,
            nb::handle properties, nb::handle constructor, nb::handle methods,
            nb::handle staticMethods, nb::handle abstractMethods, bool sealed) {
  const ClassParts parts{superclasses,  properties,      constructor, methods,
                         staticMethods, abstractMethods, sealed};
  in(self, [&](host::Session& session) { defineClass(session, name, parts); });
}

void complete(const PySession& self, const std::string& name, nb::handle methods,
              nb::handle staticMethods) {
  in(self, [&](host::Session& session) { completeClass(session, name, methods, staticMethods); });
}

nb::dict describe(const PySession& self, const std::string& name) {
  return in(self, [&](host::Session& session) { return describeClass(session, name); });
}

nb::list toList(const std::vector<std::string>& texts) {
  nb::list list;
  for (const std::string& text : texts) {
    list.append(toPython(text));
  }
  return list;
}

nb::list classes(const PySession& self) {
  return in(self, [](host::Session& session) { return toList(session.classes()); });
}

std::size_t collect(const PySession& self) {
  return in(self, [](host::Session& session) { return session.collect(); });
}

std::size_t liveObjects(const PySession& self, const std::optional<std::string>& className) {
  return in(self, [&](host::Session& session) {
    return session.liveObjects(className ? std::optional<std::string_view>(*className)
                                         : std::nullopt);
  });
}

nb::list warnings(const PySession& self) {
  return in(self, [](host::Session& session) {
    nb::list list;
    for (const host::Warning& warning : session.warnings()) {
      list.append(known(Known::Warning)(toPython(warning.identifier), toList(warning.arguments),
                                        toPython(warning.message)));
    }
    return list;
  });
}

void clearWarnings(const PySession& self) {
  in(self, [](host::Session& session) { session.clearWarnings(); });
}

/// The path of a file, in the forms that Python's own functions accept.
std::string pathOf(nb::handle path) {
  PyObject* bytes = nullptr;
  if (PyUnicode_FSConverter(path.ptr(), &bytes) == 0) {
    throw nb::python_error();
  }
  const nb::bytes encoded = nb::steal<nb::bytes>(bytes);
  return {encoded.c_str(), encoded.size()};
}

void save(const PySession& self, nb::handle path, nb::handle value) {
  in(self, [&](host::Session& session) { session.save(pathOf(path), toHost(value).get()); });
}

nb::object load(const PySession& self, nb::handle path, bool trusted) {
  return in(self, [&](host::Session& session) {
    return toPython(session.load(pathOf(path), trusted).get());
  });
}

nb::bytes saveBytes(const PySession& self, nb::handle value) {
  return in(self, [&](host::Session& session) {
    const std::string bytes = session.saveBytes(toHost(value).get());
    return nb::bytes(bytes.data(), bytes.size());
  });
}

/// The bytes of a buffer in their logical order, whatever its strides.
std::string copyOfBuffer(nb::handle data) {
  Py_buffer view;
  if (PyObject_GetBuffer(data.ptr(), &view, PyBUF_FULL_RO) != 0) {
    throw nb::python_error();
  }
  const std::unique_ptr<Py_buffer, decltype(&PyBuffer_Release)> release(&view, PyBuffer_Release);
  std::string copy(static_cast<std::size_t>(view.len), '\0');
  if (PyBuffer_ToContiguous(copy.data(), &view, view.len, 'C') != 0) {
    throw nb::python_error();
  }
  return copy;
}

nb::object loadBytes(const PySession& self, nb::handle data, bool trusted) {
  return in(self, [&](host::Session& session) {
    // The checked data mustn't change before it is read. Only the memory of `bytes` never changes.
    if (PyBytes_CheckExact(data.ptr())) {
      const std::string_view lent(PyBytes_AS_STRING(data.ptr()),
                                  static_cast<std::size_t>(PyBytes_GET_SIZE(data.ptr())));
      return toPython(session.loadBytes(lent, trusted).get());
    }
    return toPython(session.loadBytes(copyOfBuffer(data), trusted).get());
  });
}

nb::object enter(nb::handle self) {
  const Use check(nb::cast<const PySession&>(self).shared);
  return nb::borrow(self);
}

std::string text(const PySession& self) {
  return self.shared->isClosed() ? "<kvbigdata.host.Session, closed>" : "<kvbigdata.host.Session>";
}

using Class = nb::class_<PySession>;
using namespace nb::literals;

void bindCalls(Class& session) {
  session
      .def("call", call, "name"_a, "args"_a, nb::kw_only(), "nargout"_a = 1,
           "as_class"_a = nb::none(),
           nb::sig("def call(self, name: str, *args: typing.Any, nargout: int = 1, "
                   "as_class: str | None = None) -> typing.Any"),
           "Calls by name. In this order, the name means a method of the leftmost argument that is "
           "an object whose class has such a method, a function, a class's constructor, a static "
           "method \"Class.name\", a builtin.\n\n"
           "nargout=1 returns the value (None if there is none), a larger one a tuple, 0 the value "
           "if the callee returned one anyway. as_class gives the call the rights of that class's "
           "own code. Raises Error \"KALVEX:UndefinedFunction\" with the name, and whatever the "
           "callee raises.")
      .def("new", construct, "class_name"_a, "args"_a, nb::kw_only(), "as_class"_a = nb::none(),
           nb::sig("def new(self, class_name: str, *args: typing.Any, "
                   "as_class: str | None = None) -> Object"),
           "Makes an object with the constructor of its class. Raises Error "
           "\"KALVEX:UndefinedFunction\", \"KALVEX:class:AbstractClass\", "
           "\"KALVEX:class:AccessDenied\".");
}

void bindDefinitions(Class& session) {
  session
      .def("define_function", defineFunction, "name"_a, "fn"_a,
           nb::sig("def define_function(self, name: str, "
                   "fn: collections.abc.Callable[..., typing.Any]) -> None"),
           "Defines or replaces a function. It is called as fn(nargout, *args) and returns None, "
           "one value, or a tuple of outputs.")
      .def("define_class", define, "name"_a, nb::kw_only(), "superclasses"_a = nb::tuple(),
           "properties"_a = nb::dict(), "constructor"_a = nb::none(), "methods"_a = nb::dict(),
           "static_methods"_a = nb::dict(), "abstract"_a = nb::tuple(), "sealed"_a = false,
           nb::sig("def define_class(self, name: str, *, "
                   "superclasses: collections.abc.Iterable[str] = (), "
                   "properties: dict[str, typing.Any] = {}, "
                   "constructor: collections.abc.Callable[..., typing.Any] | None = None, "
                   "methods: dict[str, collections.abc.Callable[..., typing.Any]] = {}, "
                   "static_methods: dict[str, collections.abc.Callable[..., typing.Any]] = {}, "
                   "abstract: collections.abc.Iterable[str] = (), sealed: bool = False) -> None"),
           "Defines a class, or replaces one that has no instances.\n\n"
           "properties maps a name to a default or to a Property. Methods are called as "
           "fn(nargout, obj, *args), static ones as fn(nargout, *args), the constructor as "
           "fn(obj, *args); in it obj.super_init(superclass, *args) runs a superclass's "
           "constructor. abstract names methods that subclasses must define. Raises Error "
           "\"KALVEX:class:HasInstances\", \"KALVEX:class:SealedClass\".")
      .def("complete_class", complete, "name"_a, nb::kw_only(), "methods"_a = nb::dict(),
           "static_methods"_a = nb::dict(),
           nb::sig("def complete_class(self, name: str, *, "
                   "methods: dict[str, collections.abc.Callable[..., typing.Any]] = {}, "
                   "static_methods: dict[str, collections.abc.Callable[..., typing.Any]] = {}) "
                   "-> None"),
           "Gives bodies to methods that a native class only declares. Raises Error "
           "\"KALVEX:class:NoSuchMember\" for another name.")
      .def("describe", describe, "name"_a,
           nb::sig("def describe(self, name: str) -> dict[str, typing.Any]"),
           "The class as registered: name, superclasses, sealed, native, and the members in the "
           "order of registration. Raises Error \"KALVEX:UndefinedFunction\".")
      .def("classes", classes, nb::sig("def classes(self) -> list[str]"),
           "Full names of the classes that the core's library registered, in that order.");
}

void bindFiles(Class& session) {
  session
      .def("save", save, "path"_a, "value"_a.none(),
           nb::sig("def save(self, path: str | bytes | os.PathLike[str] | os.PathLike[bytes], "
                   "value: typing.Any) -> None"),
           "Saves a value with all objects that it refers to; the file appears whole or not at "
           "all.\n\n"
           "A callable is saved by its name alone. Raises Error \"KALVEX:save:NotSaveable\" with "
           "class and reason, \"KALVEX:save:CannotWrite\" with path and reason.")
      .def("load", load, "path"_a, "trusted"_a = false,
           nb::sig("def load(self, path: str | bytes | os.PathLike[str] | os.PathLike[bytes], "
                   "trusted: bool = False) -> typing.Any"),
           "The value in a file that `save` wrote. Runs no user code.\n\n"
           "Without trusted=True the value can be inspected, planned and saved again, but not "
           "evaluated (\"KALVEX:load:NotTrusted\"). Raises Error \"KALVEX:load:Corrupt\" with "
           "section, offset and reason, \"KALVEX:load:LaterFormat\" with release and format of "
           "the file and of this release, \"KALVEX:load:UnknownClass\" with the class, "
           "\"KALVEX:load:CannotRead\" with path and reason.")
      .def("save_bytes", saveBytes, "value"_a.none(),
           nb::sig("def save_bytes(self, value: typing.Any) -> bytes"),
           "The bytes that `save` would write.")
      .def("load_bytes", loadBytes, "data"_a, "trusted"_a = false,
           nb::sig("def load_bytes(self, data: bytes | bytearray | memoryview, trusted: bool = "
                   "False) -> "
                   "typing.Any"),
           "The value in the bytes of a file, as `load` returns it. Memory other than `bytes` is "
           "copied, and need not be contiguous.");
}

void bindState(Class& session) {
  session.def("collect", collect, "Runs the collector; returns the number of objects freed.")
      .def("live_objects", liveObjects, "class_name"_a = nb::none(),
           "The number of live objects, of all classes or of exactly that class.")
      .def_prop_ro("warnings", warnings,
                   nb::sig("def warnings(self) -> list[kvbigdata._records.Warning]"),
                   "The warnings issued so far, a list of Warning.")
      .def("clear_warnings", clearWarnings, "Clears the list of warnings.")
      .def(
          "close", [](const PySession& self) { self.shared->close(); },
          "Frees every object; any later use raises Error \"KALVEX:session:Closed\". Does nothing "
          "if the session is closed already.")
      .def(
          "interrupt", [](const PySession& self) { self.shared->interrupt(); },
          "Asks the evaluation in progress in this session to stop; it ends within one chunk with "
          "KeyboardInterrupt. If none is running, the next one stops. Other sessions aren't "
          "affected. May be called on any thread.")
      .def("__enter__", enter, nb::sig("def __enter__(self) -> Session"))
      .def(
          "__exit__", [](const PySession& self, const nb::args&) { self.shared->close(); },
          "args"_a, nb::sig("def __exit__(self, *args: object) -> None"))
      .def("__repr__", text);
}

}  // namespace

void bindSession(nb::module_& module) {
  Class session(
      module, "Session", nb::is_weak_referenceable(),
      "A session of the host, with objects, classes, functions and warnings of its own.\n\n"
      "It belongs to the thread that made it; use from another thread raises Error "
      "\"KALVEX:session:WrongThread\". It is a context manager that closes the session on exit.\n\n"
      "runtime=False leaves out everything that the native core reaches by name; stress=True "
      "collects garbage whenever an object is created.");
  session.def("__init__", open, nb::kw_only(), "runtime"_a = true, "stress"_a = false);
  bindCalls(session);
  bindDefinitions(session);
  bindFiles(session);
  bindState(session);
}

}  // namespace kv::python
