#pragma once

#include "kv/host/values.h"
#include "pyObjects.h"

namespace kv::python {

/// What a Python callable is called with before the host's inputs.
enum class Convention {
  Function,     ///< fn(nargout, *args); its result gives the outputs
  Constructor,  ///< fn(obj, *args); its result is ignored
};

/// A Python callable as a body of the host: takes the interpreter's lock, converts both ways.
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

/// A body for a definition. Errors: TypeError if `function` can't be called, naming `role`.
host::NativeBody bodyOf(nb::handle function, const char* role,
                        Convention convention = Convention::Function);

/// A function handle of a Python callable, and the very callable again (invalid if the handle is of
/// something else).
host::Value callableToHost(nb::handle function);
nb::object callableToPython(const kxArray* handle);

}  // namespace kv::python
