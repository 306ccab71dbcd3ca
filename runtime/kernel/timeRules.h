#pragma once

#include <optional>
#include <span>

#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// The types in which a function of moments and durations computes and returns, as for NumPy's
/// datetime64 and timedelta64; none if it isn't defined for them.
///
/// Requires: at least one of `types` is a time; not a choice.
std::optional<Signature> resolveTimes(const ElementFunction& function,
                                      std::span<const OperandType> types);

}  // namespace kv::runtime
