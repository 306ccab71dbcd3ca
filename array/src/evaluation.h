#pragma once

#include <span>
#include <vector>

#include "handles.h"

namespace kv {

/// Evaluates arrays of the session.
/// Result: one value per array, in order.
/// Threads: within a public call, which leases the session.
std::vector<host::Value> gatherValues(std::span<const Array> arrays);

/// What the last evaluation of the current session did.
Facts lastFacts();

/// Errors: "KALVEX:array:TwoSessions" if one of the arrays is of another session.
void requireOwn(const Session::Impl& session, std::span<const Array> arrays);

}  // namespace kv
