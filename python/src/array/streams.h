#pragma once

#include <nanobind/nanobind.h>

namespace kv::python {

namespace nb = nanobind;

/// Adds the functions that return the rows of tables and arrays as capsules of Arrow's C streams.
void bindStreams(nb::module_& module);

}  // namespace kv::python
