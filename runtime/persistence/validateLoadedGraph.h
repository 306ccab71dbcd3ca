#pragma once

#include <optional>
#include <span>

#include "kv/host/session.h"

namespace kv::runtime {

/// Checks loaded objects against the rules of the lazy graph, which hold automatically only for
/// objects that are made by calls:
///
/// 1. A closure has an operation and as many outputs as the operation; no input and no output is
///    missing. It doesn't depend on itself.
/// 2. A promise is an output of at most one closure, and its number is that of the output. While it
///    is pending it has a closure, of which it is an output.
/// 3. A promise and its future name each other.
/// 4. An array has a future and metadata; an operation with a function has one.
///
/// A null value counts as a value. Ids aren't checked: they aren't identity, and a file may contain
/// copies of existing objects.
///
/// Cost: linear in objects and links; no recursion; runs no user code.
std::optional<host::LoadRefusal> validateLoadedGraph(std::span<const kxArray* const> objects);

}  // namespace kv::runtime
