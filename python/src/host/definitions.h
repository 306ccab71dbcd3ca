#pragma once

#include <nanobind/nanobind.h>

#include "Session.h"

namespace kv::python {

/// The arguments of `Session.define_class`, unchecked.
struct ClassParts {
  nb::handle superclasses;
  nb::handle properties;
  nb::handle constructor;
  nb::handle methods;
  nb::handle staticMethods;
  nb::handle abstractMethods;
  bool isSealed = false;
};

/// Both check everything before they change the host.
/// Requires: a current session. Errors: TypeError, and those of the host.
void defineClass(host::Session& session, std::string_view name, const ClassParts& parts);
void completeClass(host::Session& session, std::string_view name, nb::handle methods,
                   nb::handle staticMethods);

/// The description of a class, in the form that the module's documentation gives.
nb::dict describeClass(host::Session& session, std::string_view name);

}  // namespace kv::python
