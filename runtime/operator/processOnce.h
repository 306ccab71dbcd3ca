#pragma once

#include <string_view>
#include <vector>

#include "operator/Operator.h"

namespace kv::runtime {

/// The outputs of an operator for inputs that are whole; `functions`: null if it calls none. An
/// input of a single row beside longer ones is a value for all of their rows.
/// Requires: a step or sink operator; at least one input.
std::vector<Chunk> processOnce(const Operator& op, std::string_view label,
                               const std::vector<Chunk>& inputs,
                               UserFunctions* functions = nullptr);

}  // namespace kv::runtime
