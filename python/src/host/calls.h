#pragma once

#include <nanobind/nanobind.h>

#include <span>
#include <string_view>
#include <vector>

#include "kv/host/values.h"

namespace kv::python {

namespace nb = nanobind;

/// Inputs of a call in the host's form. Objects are borrowed, not copied.
/// Requires: a current session. Lives: no longer than the tuple.
class Inputs {
 public:
  explicit Inputs(nb::handle tuple);
  std::span<const kxArray* const> span() const { return lent_; }

 private:
  std::vector<host::Value> owned_;
  std::vector<const kxArray*> lent_;
};

/// The outputs of a call in Python's form: the value, or a tuple of `nargout` values.
nb::object toResult(int nargout, const std::vector<host::Value>& outputs);

/// Errors: ValueError for a negative count.
void checkNargout(int nargout);

/// The text of an optional class name; empty for None.
std::string rightsOf(nb::handle asClass);

}  // namespace kv::python
