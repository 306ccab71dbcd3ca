#pragma once

#include <nanobind/nanobind.h>

#include "kv/host/values.h"

/// Values between Python and the host, by the table of the module's documentation.
/// Requires: the interpreter's lock and a current session.
namespace kv::python {

namespace nb = nanobind;

/// Errors: TypeError that names the type and what is accepted; OverflowError for an `int` that a
/// double can't hold exactly; Error "KALVEX:session:OtherSession".
host::Value toHost(nb::handle value);

/// Errors: RecursionError; those of Python when memory is short.
nb::object toPython(const kxArray* value);

/// The array of a host.Object, lent; null for anything else. Errors: those of `toHost`.
const kxArray* lentObject(nb::handle value);

/// Arrays and scalars of NumPy.
/// Errors: TypeError for a type of elements that isn't logical, integer, single or double.
host::Value numbersToHost(nb::handle array);
nb::object numbersToPython(const kxArray* value);

/// Adds what arrays that come from the host refer to.
void bindNumbers(nb::module_& module);

}  // namespace kv::python
