#pragma once

#include <nanobind/nanobind.h>

#include <string_view>

#include "kv/elements.h"

namespace kv::python {

namespace nb = nanobind;

/// The name of an element type as one that lives as long as the process.
/// Requires: it is one.
std::string_view nameOfType(std::string_view type);

/// A result as Python assembles it: a tuple of its type, whether it is a scalar, and a read-only
/// NumPy array that shares its memory. For texts there are three arrays: offsets, bytes and
/// validity, as Arrow's large_utf8 has them.
nb::tuple toPython(const Elements& elements);

nb::tuple toPython(const Facts& facts);

/// Adds the class to which arrays of results refer.
void bindResults(nb::module_& module);

}  // namespace kv::python
