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

/// A Python exception that is no error (KeyboardInterrupt, SystemExit) on its way through the host.
class PythonPassThrough : public host::PassThrough {
 public:
  explicit PythonPassThrough(SharedPyObject exception) : exception_(std::move(exception)) {}
  const char* what() const noexcept override { return "a Python exception that is no error"; }
  nb::handle exception() const { return exception_.get(); }

 private:
  SharedPyObject exception_;
};

/// Raises a `host.Error` of the host's catalogue that no session holds an object of.
[[noreturn]] void raiseInPython(std::string_view identifier,
                                const std::vector<std::string>& arguments = {});

/// Throws a Python exception into the host: an Error with its id, arguments, message and causes,
/// another Exception as "KALVEX:python:" and its type's name, the rest as PythonPassThrough.
/// Requires: a current session.
[[noreturn]] void throwIntoHost(nb::handle exception);

/// Throws the exception that is being handled as a Python one. Requires: a current session.
[[noreturn]] void throwIntoPython();

/// Runs `body`; what it throws of the host's leaves it as a Python exception.
template <class Body>
decltype(auto) fromHost(Body&& body) {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    throwIntoPython();
  }
}

}  // namespace kv::python
