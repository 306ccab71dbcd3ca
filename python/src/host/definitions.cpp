#include "definitions.h"

#include <array>

#include "callables.h"
#include "kv/host/definitions.h"
#include "texts.h"
#include "values.h"

namespace kv::python {

namespace {

/// A copy. It can't change, whatever code the conversion of its values runs.
nb::dict dictOf(nb::handle object, const char* role) {
  if (!PyDict_Check(object.ptr())) {
    PyErr_Format(PyExc_TypeError, "%s must be a dict, not %s", role,
                 Py_TYPE(object.ptr())->tp_name);
    throw nb::python_error();
  }
  PyObject* copy = PyDict_Copy(object.ptr());
  if (copy == nullptr) {
    throw nb::python_error();
  }
  return nb::steal<nb::dict>(copy);
}

std::vector<std::string> textsOf(nb::handle object, const char* role) {
  if (PyUnicode_Check(object.ptr())) {
    PyErr_Format(PyExc_TypeError, "%s must be a sequence of str, not one str", role);
    throw nb::python_error();
  }
  std::vector<std::string> texts;
  for (const nb::handle text : object) {
    texts.push_back(toUtf8(text, role));
  }
  return texts;
}

/// Access levels of a property, and the message for a value that isn't one of them.
struct AccessLevels {
  const char* property;
  std::array<bool, 6> are;
  const char* complaint;
};

constexpr AccessLevels kGetAccess{
    "get", {true, true, true}, "the get access of a property must be 0, 1 or 2, got %R"};
constexpr AccessLevels kSetAccess{"set",
                                  {true, true, true, true, false, true},
                                  "the set access of a property must be 0, 1, 2, 3 or 5, got %R"};

host::MemberAccess accessOf(nb::handle property, const AccessLevels& levels) {
  const nb::object level = property.attr(levels.property);
  int access = -1;
  const bool isInt = nb::try_cast(level, access);
  if (!isInt || access < 0 || access >= static_cast<int>(levels.are.size()) ||
      !levels.are[static_cast<std::size_t>(access)]) {
    PyErr_Format(PyExc_ValueError, levels.complaint, level.ptr());
    throw nb::python_error();
  }
  return static_cast<host::MemberAccess>(access);
}

host::PropertyDefault makingShared(nb::handle value) {
  std::shared_ptr<const kxArray> shared(toHost(value));
  return [shared = std::move(shared)] { return matrix::sharedCopy(shared.get()); };
}

host::PropertyDefinition propertyOf(nb::handle name, nb::handle value) {
  host::PropertyDefinition property{.name = toUtf8(name, "a property's name")};
  if (isA(value, Known::Property)) {
    property.makeDefault = makingShared(value.attr("default"));
    property.getAccess = accessOf(value, kGetAccess);
    property.setAccess = accessOf(value, kSetAccess);
  } else {
    property.makeDefault = makingShared(value);
  }
  return property;
}

void addMethods(std::vector<host::MethodDefinition>& to, nb::handle methods, bool areStatic) {
  const char* role = areStatic ? "static_methods" : "methods";
  for (const auto [name, function] : dictOf(methods, role)) {
    to.push_back({.name = toUtf8(name, "a method's name"),
                  .body = bodyOf(function, "a method"),
                  .isStatic = areStatic});
  }
}

std::string shortName(std::string_view name) {
  return std::string(name.substr(name.rfind('.') + 1));
}

}  // namespace

void defineClass(host::Session& session, std::string_view name, const ClassParts& parts) {
  auto made = std::make_shared<host::ClassDefinition>();
  made->name = name;
  made->superclasses = textsOf(parts.superclasses, "superclasses");
  made->isSealed = parts.isSealed;
  for (const auto [property, value] : dictOf(parts.properties, "properties")) {
    made->properties.push_back(propertyOf(property, value));
  }
  if (!parts.constructor.is_none()) {
    made->constructor = host::MethodDefinition{
        .name = shortName(name),
        .body = bodyOf(parts.constructor, "a constructor", Convention::Constructor)};
  }
  addMethods(made->methods, parts.methods, false);
  addMethods(made->methods, parts.staticMethods, true);
  for (std::string& method : textsOf(parts.abstractMethods, "abstract")) {
    made->methods.push_back({.name = std::move(method), .isAbstract = true});
  }
  session.defineClass(std::move(made));
}

void completeClass(host::Session& session, std::string_view name, nb::handle methods,
                   nb::handle staticMethods) {
  auto made = std::make_shared<host::ClassCompletion>();
  made->name = name;
  addMethods(made->methods, methods, false);
  addMethods(made->methods, staticMethods, true);
  session.completeClass(std::move(made));
}

}  // namespace kv::python
