#pragma once

#include <optional>
#include <span>

#include "kv/host/session.h"

namespace kv::runtime {

/// Holds what a file brought against the rules of the lazy graph, which its objects keep by
/// themselves only while they are made by calls:
///
/// 1. A closure has an operation and as many outputs as that says; no input and no output is
///    missing. It doesn't depend on itself.
/// 2. A promise is an output of one closure at most. Its number there is one of the outputs'. While
///    it is pending it has a closure, of which it is an output.
/// 3. A promise and its future name each other.
/// 4. An array has a future and metadata; an operation with a function has one.
///
/// A null value is a value. Ids aren't looked at: they aren't identity, and a file may bring copies
/// of what is there already.
///
/// Cost: linear in objects and links; no recursion; runs no user's code.
std::optional<host::LoadRefusal> validateLoadedGraph(std::span<const kxArray* const> objects);

}  // namespace kv::runtime
