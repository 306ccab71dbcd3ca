#pragma once

#include <nanobind/nanobind.h>

#include <string>

#include "Session.h"
#include "kv/host/values.h"

namespace kv::python {

/// A function of the host in Python: a name, or a handle that is more than a name (of a native
/// callable, or loaded from a file without trust or without the callable that it named).
class Function {
 public:
  /// From a name; belongs to no session.
  explicit Function(std::string name) : name_(std::move(name)) {}
  /// From a handle of the current session.
  explicit Function(const kxArray* handle);

  const std::string& name() const { return name_; }
  /// Requires: a current session. Errors: "KALVEX:session:OtherSession".
  host::Value toHost() const;
  /// fn(nargout, *args), in its session or, if it has none, in the session of the call running on
  /// this thread or the only one open on it. Errors: "KALVEX:session:Ambiguous".
  nb::object call(int nargout, const nb::args& args) const;
  bool operator==(const Function& other) const;

 private:
  SessionPtr sessionToRunIn() const;

  std::string name_;
  SessionPtr session_;
  std::shared_ptr<const kxArray> handle_;  ///< null if the name is enough
};

/// Adds the class `Function` to the module.
void bindFunction(nb::module_& module);

}  // namespace kv::python
