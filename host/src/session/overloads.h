#pragma once

#include "kv/host/values.h"
#include "session/Members.h"

namespace kv::host {

enum class MethodKind { Instance, Static, Any };

/// The overload of `set` that a call with these counts reaches, with the rights of `caller` (null:
/// public code); overloads that it may not access aren't candidates. An exact count goes before a
/// range, a range before any number.
///
/// Result: null if there is none of that kind, or none with a body.
/// Errors: "KALVEX:class:AccessDenied" if there are some, but none that may be accessed; a count
/// error if no candidate fits.
const Method* chooseOverload(const MethodSet& set, MethodKind kind, int outputs, int inputs,
                             const ClassRecord* caller);

}  // namespace kv::host
