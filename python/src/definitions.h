#pragma once

#include <nanobind/nanobind.h>

#include "Session.h"

namespace kv::python {

/// What `Session.define_class` takes, as it came.
struct ClassParts {
  nb::handle superclasses;
  nb::handle properties;
  nb::handle constructor;
  nb::handle methods;
  nb::handle staticMethods;
  nb::handle abstractMethods;
  bool isSealed = false;
};

/// Both check everything before the host sees it.
/// Requires: a current session. Errors: TypeError, and those of the host.
void defineClass(host::Session& session, std::string_view name, const ClassParts& parts);
void completeClass(host::Session& session, std::string_view name, nb::handle methods,
                   nb::handle staticMethods);

/// The class as the module's documentation says.
nb::dict describeClass(host::Session& session, std::string_view name);

}  // namespace kv::python
