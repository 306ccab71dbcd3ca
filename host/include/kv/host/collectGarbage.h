#pragma once

#include <cstddef>

#include "kv/host/export.h"

namespace kv::host {

/// Runs the collector of the current session.
/// Result: the number of objects freed.
/// Errors: "KALVEX:session:Closed" if the thread has no current session.
KV_HOST_API std::size_t collectGarbage();

}  // namespace kv::host
