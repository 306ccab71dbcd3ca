#pragma once

#include <string>

#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// True if a weak operand can be an element of type `type` without a change of its value, rounding
/// to floating types apart.
bool constantFits(const Operand& operand, ElementType type);

/// The weak operand as a scalar of type `type`.
///
/// Requires: constantFits(operand, type).
Operand constantAs(const Operand& operand, ElementType type);

/// The value of a weak operand that is a whole number, for messages.
std::string constantText(const Operand& operand);

}  // namespace kv::runtime
