#pragma once

#include <optional>
#include <span>

#include "kv/host/session.h"

namespace kv::runtime {

/// Checks the runtime's operations among loaded objects for what plans rely on:
///
/// 1. A closure has as many inputs as its operation.
/// 2. The text that plans show of an operation or a source is short if several closures share it,
///    because a plan shows it for each. (The core's calls make an operation, and a datastore, for
///    each closure.)
///
/// Cost: linear; opens no source.
std::optional<host::LoadRefusal> validateOperations(std::span<const kxArray* const> objects);

}  // namespace kv::runtime
