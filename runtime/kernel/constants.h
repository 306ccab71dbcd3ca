#pragma once

#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// Refuses negative exponents of integers.
///
/// Errors: "KALVEX:function:NegativePower".
void refuseNegativePowers(const ElementFunction& function, const Column& exponents);

}  // namespace kv::runtime
