#pragma once

#include <cassert>
#include <cstdint>
#include <tuple>
#include <utility>

#include "kv/runtime/Column.h"
#include "kv/runtime/exactWhole.h"

namespace kv::runtime {

/// The C++ types of the numeric element types, in the order of ElementType.
using NumericTypes =
    std::tuple<std::uint8_t, double, float, std::int8_t, std::uint8_t, std::int16_t, std::uint16_t,
               std::int32_t, std::uint32_t, std::int64_t, std::uint64_t>;

template <ElementType type>
using ElementOf = std::tuple_element_t<static_cast<std::size_t>(type), NumericTypes>;

constexpr std::size_t indexOf(ElementType type) { return static_cast<std::size_t>(type); }

constexpr bool isFloating(ElementType type) {
  return type == ElementType::Double || type == ElementType::Single;
}

constexpr bool isInteger(ElementType type) {
  return type >= ElementType::Int8 && type <= ElementType::UInt64;
}

/// True for the types whose missing values are nulls and nothing else.
constexpr bool isWhole(ElementType type) { return type == ElementType::Logical || isInteger(type); }

/// True for moments and durations, whose elements are whole microseconds.
constexpr bool isTime(ElementType type) {
  return type == ElementType::DateTime || type == ElementType::Duration;
}

/// True for numbers and logicals.
constexpr bool isNumeric(ElementType type) { return isFloating(type) || isWhole(type); }

/// Requires: isInteger(type). The integer types alternate, signed first.
constexpr bool isSigned(ElementType type) {
  assert(isInteger(type));
  return (indexOf(type) - indexOf(ElementType::Int8)) % 2 == 0;
}

/// Calls `visit.template operator()<T>()` with the C++ type of an element; std::int64_t for times.
///
/// Requires: type is not String.
template <class Visitor>
auto visitNumeric(ElementType type, Visitor&& visit) {
  assert(type != ElementType::String);
  switch (type) {
    case ElementType::Double:
    case ElementType::Unknown:
      return visit.template operator()<double>();
    case ElementType::Single:
      return visit.template operator()<float>();
    case ElementType::Int8:
      return visit.template operator()<std::int8_t>();
    case ElementType::Int16:
      return visit.template operator()<std::int16_t>();
    case ElementType::UInt16:
      return visit.template operator()<std::uint16_t>();
    case ElementType::Int32:
      return visit.template operator()<std::int32_t>();
    case ElementType::UInt32:
      return visit.template operator()<std::uint32_t>();
    case ElementType::Int64:
    case ElementType::DateTime:
    case ElementType::Duration:
      return visit.template operator()<std::int64_t>();
    case ElementType::UInt64:
      return visit.template operator()<std::uint64_t>();
    case ElementType::Logical:
    case ElementType::UInt8:
    case ElementType::String:
      break;
  }
  return visit.template operator()<std::uint8_t>();
}

}  // namespace kv::runtime
