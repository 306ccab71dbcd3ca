#pragma once

#include "kv/host/values.h"
#include "pyObjects.h"

namespace kv::python {

/// The arguments of a Python callable that come before the host's inputs.
enum class Convention {
  Function,     ///< fn(nargout, *args); its result becomes the outputs
  Constructor,  ///< fn(obj, *args); its result is ignored
};

/// A Python callable as a function body of the host: takes the interpreter's lock and converts
/// inputs and outputs.
///
/// Errors: see throwIntoHost.
class Callable {
 public:
  explicit Callable(nb::handle function, Convention convention = Convention::Function)
      : function_(share(function)), convention_(convention) {}

  void operator()(const host::Call& call) const;
  nb::handle function() const { return function_.get(); }

 private:
  void run(const host::Call& call) const;

  SharedPyObject function_;
  Convention convention_;
};

/// A body for a definition. Errors: TypeError that names `role` if `function` can't be called.
host::NativeBody bodyOf(nb::handle function, const char* role,
                        Convention convention = Convention::Function);

/// A function handle of a Python callable, and the same callable again (invalid if the handle is of
/// anything else).
host::Value callableToHost(nb::handle function);
nb::object callableToPython(const kxArray* handle);

}  // namespace kv::python
