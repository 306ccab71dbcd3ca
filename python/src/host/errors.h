#pragma once

#include <nanobind/nanobind.h>

#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kv/host/errors.h"
#include "pyObjects.h"

namespace kv::python {

/// A Python exception that isn't an error (KeyboardInterrupt, SystemExit) passing through the host.
class PythonPassThrough : public host::PassThrough {
 public:
  explicit PythonPassThrough(SharedPyObject exception) : exception_(std::move(exception)) {}
  const char* what() const noexcept override { return "a Python exception that isn't an error"; }
  nb::handle exception() const { return exception_.get(); }

 private:
  SharedPyObject exception_;
};

/// Raises a `host.Error` from the host's catalogue for which no session has an object.
[[noreturn]] void raiseInPython(std::string_view identifier,
                                const std::vector<std::string>& arguments = {});

/// Throws a Python exception into the host: an Error with its id, arguments, message and causes;
/// any other Exception as "KALVEX:python:" and the name of its type; the rest as PythonPassThrough.
/// Requires: a current session.
[[noreturn]] void throwIntoHost(nb::handle exception);

/// Throws the current C++ exception as a Python one. Requires: a current session.
[[noreturn]] void throwIntoPython();

/// Runs `body`; exceptions of the host leave it as Python exceptions.
template <class Body>
decltype(auto) fromHost(Body&& body) {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    throwIntoPython();
  }
}

}  // namespace kv::python
