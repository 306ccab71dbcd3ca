#pragma once

#include <nanobind/nanobind.h>

namespace kv::python {

/// Adds the class `Session` to the module.
void bindSession(nanobind::module_& module);

}  // namespace kv::python
