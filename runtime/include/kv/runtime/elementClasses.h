#pragma once

#include <optional>

#include "kv/runtime/Column.h"
#include "kx/array.h"

namespace kv::runtime {

/// The class of the elements of a column as a host value; int64 for times. An Unknown column has no
/// rows; as a value it is double.
kxClassID classOf(ElementType type);

/// The type of the elements of a numeric or logical class; none for any other.
std::optional<ElementType> numericTypeOf(kxClassID classId);

}  // namespace kv::runtime
