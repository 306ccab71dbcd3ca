#pragma once

#include <optional>
#include <span>

#include "kv/host/session.h"

namespace kv::runtime {

/// Holds the runtime's operations among loaded objects to what plans rely on:
///
/// 1. A closure has as many inputs as its operation.
/// 2. What plans show of an operation or a source is short where several closures share it: a plan
///    shows it for each. The core's calls make an operation, and a datastore, for each closure.
///
/// Cost: linear; opens nothing.
std::optional<host::LoadRefusal> validateOperations(std::span<const kxArray* const> objects);

}  // namespace kv::runtime
