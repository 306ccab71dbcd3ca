#pragma once

#include <nanobind/nanobind.h>

#include "kv/host/values.h"
#include "kv/runtime/timeValues.h"

/// Conversion of values between Python and the host, by the table in the module's documentation.
/// Requires: the interpreter's lock and a current session.
namespace kv::python {

namespace nb = nanobind;

/// Errors: TypeError that names the type and what is accepted; OverflowError for an `int` that has
/// no exact double; Error "KALVEX:session:OtherSession".
host::Value toHost(nb::handle value);

/// Errors: RecursionError; those of Python when memory runs out.
nb::object toPython(const kxArray* value);

/// The array of a host.Object, borrowed; null for anything else. Errors: those of `toHost`.
const kxArray* lentObject(nb::handle value);

/// Arrays and scalars of NumPy.
/// Errors: TypeError for an element type other than logical, integer, single, double, datetime64
/// and timedelta64.
host::Value numbersToHost(nb::handle array);
nb::object numbersToPython(const kxArray* value);

/// Times as datetime64[us] or timedelta64[us].
nb::object timesToPython(const runtime::TimeArray& times);

/// Adds the class to which arrays that come from the host refer.
void bindNumbers(nb::module_& module);

}  // namespace kv::python
