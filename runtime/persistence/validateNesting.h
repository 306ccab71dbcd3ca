#pragma once

#include <optional>
#include <span>

#include "kv/host/session.h"

namespace kv::runtime {

/// Refuses objects of the runtime's classes that hold themselves, over others or not, where calls
/// follow what they hold: processor builders and their inputs; concatenated strategies and their
/// parts, which must not be nested deeper than calls may be.
///
/// Cost: linear; no recursion; runs no user's code.
std::optional<host::LoadRefusal> validateNesting(std::span<const kxArray* const> objects);

}  // namespace kv::runtime
