#include "Object.h"

#include <nanobind/stl/string.h>

#include "calls.h"
#include "errors.h"
#include "kv/host/definitions.h"
#include "pyObjects.h"
#include "texts.h"
#include "values.h"

namespace kv::python {

namespace {

/// Runs `body` on the object's session; exceptions of the host become Python's.
template <class Body>
decltype(auto) onObject(const Object& object, Body&& body) {
  const Use use(object.session());
  return fromHost([&] { return body(object.session()->host()); });
}

nb::object get(const Object& self, const std::string& property, nb::object asClass) {
  return onObject(self, [&](host::Session& session) {
    return toPython(session.get(self.array(), property, rightsOf(asClass)).get());
  });
}

void set(const Object& self, const std::string& property, nb::handle value, nb::object asClass) {
  onObject(self, [&](host::Session& session) {
    session.set(self.array(), property, toHost(value).get(), rightsOf(asClass));
  });
}

nb::object invoke(const Object& self, const std::string& method, const nb::args& args, int nargout,
                  nb::object asClass) {
  checkNargout(nargout);
  return onObject(self, [&](host::Session& session) {
    const Inputs inputs(args);
    return toResult(
        nargout, session.invoke(self.array(), method, nargout, inputs.span(), rightsOf(asClass)));
  });
}

bool isOfClass(const Object& self, const std::string& className) {
  return onObject(
      self, [&](host::Session&) { return kxIsA(self.array(), kcos::NameRef::of(className)); });
}

void deleteObject(const Object& self) {
  onObject(self, [&](host::Session& session) { session.deleteObject(self.array()); });
}

std::string className(const Object& self) {
  return onObject(self, [&](host::Session&) { return kxGetClassName(self.array()); });
}

void superInit(const Object& self, const std::string& superclass, const nb::args& args) {
  onObject(self, [&](host::Session&) {
    const Inputs inputs(args);
    host::constructSuperclass(self.array(), kcos::NameRef::of(superclass), inputs.span());
  });
}

bool isDeleted(const Object& self) { return self.session()->isClosed() || self.isDeleted(); }

std::string text(const Object& self) {
  if (self.session()->isClosed()) {
    return "<kvbigdata.host.Object of a closed session>";
  }
  if (!self.session()->isHere()) {
    return "<kvbigdata.host.Object of another thread's session>";
  }
  return "<kvbigdata.host.Object " + className(self) + (self.isDeleted() ? ", deleted>" : ">");
}

nb::object isEqual(const Object& self, nb::handle other) {
  const Object* object = instanceOf<Object>(other);
  if (object == nullptr) {
    return nb::borrow(Py_NotImplemented);
  }
  return nb::bool_(self.identity() == object->identity());
}

Py_hash_t hashOf(const Object& self) {
  const auto address = reinterpret_cast<std::uintptr_t>(self.identity());
  return static_cast<Py_hash_t>(address >> 4);
}

}  // namespace

Object::~Object() {
  if (array_ != nullptr && session_->isHere() && !session_->isClosed()) {
    const host::Session::Scope scope(session_->host());
    array_ = nullptr;
  }
}

nb::object Object::wrap(host::Value array) {
  return nb::cast(Object(Use::current(), std::move(array)), nb::rv_policy::move);
}

const kcos::COSInterface* Object::identity() const {
  return kcos::omGetArrayElement(array_.get(), 0).get();
}

void bindObject(nb::module_& module) {
  using namespace nb::literals;
  nb::class_<Object>(module, "Object", nb::is_weak_referenceable(),
                     "An object of the host; holding it keeps it alive.\n\n"
                     "Two are equal, with equal hashes, if they are the same host object. May be "
                     "dropped on any thread, even after its session was closed.")
      .def_prop_ro("class_name", className, "The full name of its class.")
      .def_prop_ro("is_deleted", isDeleted,
                   "True once the object was deleted or its session was closed.")
      .def("get", get, "property"_a, "as_class"_a = nb::none(),
           nb::sig("def get(self, property: str, as_class: str | None = None) -> typing.Any"),
           "The value of a property. Raises Error \"KALVEX:class:NoSuchMember\" or "
           "\"KALVEX:class:AccessDenied\".")
      .def("set", set, "property"_a, "value"_a.none(), "as_class"_a = nb::none(),
           nb::sig("def set(self, property: str, value: typing.Any, "
                   "as_class: str | None = None) -> None"),
           "Sets a property. Raises Error as `get` does.")
      .def("invoke", invoke, "method"_a, "args"_a, nb::kw_only(), "nargout"_a = 1,
           "as_class"_a = nb::none(),
           nb::sig("def invoke(self, method: str, *args: typing.Any, nargout: int = 1, "
                   "as_class: str | None = None) -> typing.Any"),
           "Calls a method with the object as first input. Outputs are as for `Session.call`.")
      .def("is_a", isOfClass, "class_name"_a,
           "True if the object is of that class or of a class derived from it.")
      .def("delete", deleteObject, "Deletes the object at once, even if it is still referred to.")
      .def("super_init", superInit, "superclass"_a, "args"_a,
           nb::sig("def super_init(self, superclass: str, *args: typing.Any) -> None"),
           "In a constructor: runs the constructor of a direct superclass.")
      .def("__eq__", isEqual, "other"_a.none(),
           nb::sig("def __eq__(self, other: object, /) -> bool"))
      .def("__hash__", hashOf)
      .def("__repr__", text);
}

}  // namespace kv::python
