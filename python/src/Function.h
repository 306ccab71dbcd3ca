#pragma once

#include <nanobind/nanobind.h>

#include <string>

#include "Session.h"
#include "kv/host/values.h"

namespace kv::python {

/// A function of the host as Python holds it: by its name, or a native callable.
class Function {
 public:
  /// By name; belongs to no session.
  explicit Function(std::string name) : name_(std::move(name)) {}
  /// Of a handle of the current session.
  explicit Function(const kxArray* handle);

  const std::string& name() const { return name_; }
  /// Requires: a current session. Errors: "KALVEX:session:OtherSession".
  host::Value toHost() const;
  /// fn(nargout, *args), in its session, or else in the one that runs on this thread.
  nb::object call(int nargout, const nb::args& args) const;
  bool operator==(const Function& other) const;

 private:
  std::string name_;
  SessionPtr session_;
  std::shared_ptr<const kxArray> callable_;  ///< none for a named function
};

/// Adds the class `Function` to the module.
void bindFunction(nb::module_& module);

}  // namespace kv::python
