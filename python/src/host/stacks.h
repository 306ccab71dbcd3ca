#pragma once

#include <memory>
#include <vector>

#include "kv/host/session.h"

#include <nanobind/nanobind.h>

namespace kv::python {

namespace nb = nanobind;

/// The Python frames of the calling thread as user stacks, without those of this package. Takes the
/// interpreter's lock.
std::unique_ptr<host::StackSource> makeStackSource();

/// The same frames at once, innermost first. Requires: the interpreter's lock.
std::vector<host::Frame> pythonStack();

/// The frames that an exception went through, innermost first, without those of this package.
/// Requires: the interpreter's lock.
std::vector<host::Frame> tracebackFrames(nb::handle exception);

}  // namespace kv::python
