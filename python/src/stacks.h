#pragma once

#include <vector>

#include "kv/host/errors.h"

#include <nanobind/nanobind.h>

namespace kv::python {

namespace nb = nanobind;

/// The Python frames of the calling thread, innermost first, without those of this package.
/// Threads: any; takes the interpreter's lock.
std::vector<host::Frame> pythonStack();

/// The frames that an exception went through, innermost first, without those of this package.
/// Requires: the interpreter's lock.
std::vector<host::Frame> tracebackFrames(nb::handle exception);

}  // namespace kv::python
