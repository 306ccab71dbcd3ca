#pragma once

#include <optional>
#include <span>

#include "kv/host/session.h"

namespace kv::runtime {

/// Refuses objects of the runtime's classes that hold themselves, directly or indirectly, through
/// properties that calls follow: processor builders and their inputs; concatenated strategies and
/// their parts, which also must not be nested deeper than calls may be.
///
/// Cost: linear; no recursion; runs no user code.
/// Cost: linear; no recursion; runs no user's code.
std::optional<host::LoadRefusal> validateNesting(std::span<const kxArray* const> objects);

}  // namespace kv::runtime
