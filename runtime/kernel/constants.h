#pragma once

#include <cassert>
#include <cstring>

#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// A number as an element of type `type`. Requires: `T` has the width of the type.
template <class T>
RecordedOperand numberOf(ElementType type, T value, bool isWeak = false) {
  assert(sizeof(T) == elementSize(type));
  RecordedOperand number{type, isWeak};
  std::memcpy(&number.bits, &value, sizeof(value));
  return number;
}

/// The number in a scalar that isn't a text.
RecordedOperand numberOf(const ColumnOperand& scalar);

/// Refuses negative exponents of integers.
///
/// Errors: "KALVEX:function:NegativePower".
void refuseNegativePowers(const ElementFunction& function, const Column& exponents);

}  // namespace kv::runtime
