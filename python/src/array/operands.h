#pragma once

#include <nanobind/nanobind.h>

#include <vector>

#include "kv/array.h"

namespace kv::python {

namespace nb = nanobind;

/// An input of an operation: an array's handle, bool, int, float or str.
/// Errors: TypeError for anything else; OverflowError for an int beyond 64 bits.
Operand toOperand(nb::handle value);

std::vector<Operand> toOperands(const nb::list& values);

std::vector<Array> toArrays(const nb::list& handles);

}  // namespace kv::python
