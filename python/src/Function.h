#pragma once

#include <nanobind/nanobind.h>

#include <string>

#include "Session.h"
#include "kv/host/values.h"

namespace kv::python {

/// A function of the host as Python holds it: by its name, or by a handle that is more than that:
/// of a native callable, or loaded from a file without trust or without the callable it named.
class Function {
 public:
  /// By name; belongs to no session.
  explicit Function(std::string name) : name_(std::move(name)) {}
  /// Of a handle of the current session.
  explicit Function(const kxArray* handle);

  const std::string& name() const { return name_; }
  /// Requires: a current session. Errors: "KALVEX:session:OtherSession".
  host::Value toHost() const;
  /// fn(nargout, *args), in its session, or else in the one that runs on this thread or is the only
  /// one open there. Errors: "KALVEX:session:Ambiguous".
  nb::object call(int nargout, const nb::args& args) const;
  bool operator==(const Function& other) const;

 private:
  SessionPtr sessionToRunIn() const;

  std::string name_;
  SessionPtr session_;
  std::shared_ptr<const kxArray> handle_;  ///< none where the name says all
};

/// Adds the class `Function` to the module.
void bindFunction(nb::module_& module);

}  // namespace kv::python
