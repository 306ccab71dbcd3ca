#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "column/elementTypes.h"
#include "kv/runtime/ElementFunctions.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

// Loops over a block that apply a function of one element. They are kept plain so that the compiler
// vectorises them. An operation `Op` is a type with a static function `apply` of one or two
// elements of type T; its return type is the element type of the output.

template <class Op, class T>
void unaryLoop(const void* input, const void*, void* output, std::size_t count) {
  using Result = decltype(Op::apply(T{}));
  const T* __restrict a = static_cast<const T*>(input);
  Result* __restrict result = static_cast<Result*>(output);
  for (std::size_t i = 0; i < count; ++i) {
    result[i] = Op::apply(a[i]);
  }
}

template <class Op, class T, Spread spread>
void binaryLoop(const void* left, const void* right, void* output, std::size_t count) {
  using Result = decltype(Op::apply(T{}, T{}));
  if (count == 0) {
    return;
  }
  const T* __restrict a = static_cast<const T*>(left);
  const T* __restrict b = static_cast<const T*>(right);
  Result* __restrict result = static_cast<Result*>(output);
  if constexpr (spread == Spread::None) {
    for (std::size_t i = 0; i < count; ++i) {
      result[i] = Op::apply(a[i], b[i]);
    }
  } else if constexpr (spread == Spread::Left) {
    const T x = a[0];
    for (std::size_t i = 0; i < count; ++i) {
      result[i] = Op::apply(x, b[i]);
    }
  } else {
    const T y = b[0];
    for (std::size_t i = 0; i < count; ++i) {
      result[i] = Op::apply(a[i], y);
    }
  }
}

/// The row of a computing type in a BlockTable.
constexpr std::size_t blockRow(ElementType type) {
  return type == ElementType::Duration ? kNumericTypes : indexOf(type);
}

/// Sets the loops of `Op` over the C++ type of each given element type.
template <class Op, ElementType... types>
constexpr BlockTable unaryBlocks(BlockTable table = {}) {
  ((table[indexOf(types)] = {&unaryLoop<Op, ElementOf<types>>, nullptr, nullptr}), ...);
  return table;
}

template <class Op, ElementType... types>
constexpr BlockTable binaryBlocks(BlockTable table = {}) {
  ((table[indexOf(types)] = {&binaryLoop<Op, ElementOf<types>, Spread::None>,
                             &binaryLoop<Op, ElementOf<types>, Spread::Left>,
                             &binaryLoop<Op, ElementOf<types>, Spread::Right>}),
   ...);
  return table;
}

// The same for sets of types; calls nest: `unaryIntegers<Op>(unaryFloating<Op>())`.

template <class Op>
constexpr BlockTable unaryFloating(BlockTable table = {}) {
  return unaryBlocks<Op, ElementType::Double, ElementType::Single>(table);
}

template <class Op>
constexpr BlockTable unaryIntegers(BlockTable table = {}) {
  using enum ElementType;
  return unaryBlocks<Op, Int8, UInt8, Int16, UInt16, Int32, UInt32, Int64, UInt64>(table);
}

template <class Op>
constexpr BlockTable binaryFloating(BlockTable table = {}) {
  return binaryBlocks<Op, ElementType::Double, ElementType::Single>(table);
}

template <class Op>
constexpr BlockTable binaryIntegers(BlockTable table = {}) {
  using enum ElementType;
  return binaryBlocks<Op, Int8, UInt8, Int16, UInt16, Int32, UInt32, Int64, UInt64>(table);
}

template <class Op>
constexpr BlockTable unaryLogical(BlockTable table = {}) {
  return unaryBlocks<Op, ElementType::Logical>(table);
}

template <class Op>
constexpr BlockTable binaryLogical(BlockTable table = {}) {
  return binaryBlocks<Op, ElementType::Logical>(table);
}

/// `Op` of microseconds; missing if an input is. A logical result is false instead, or
/// `Op::kOfMissing`.
template <class Op>
struct OfTimes {
  using Time = std::int64_t;

  static auto apply(Time a) { return a == kNaT ? kNaT : Op::apply(a); }
  static auto apply(Time a, Time b) {
    const auto result = Op::apply(a, b);
    using Result = std::remove_cv_t<decltype(result)>;
    constexpr auto kMissing = [] {
      if constexpr (requires { Op::kOfMissing; }) {
        return Op::kOfMissing;
      } else {
        return static_cast<Result>(sizeof(Result) == sizeof(Time) ? kNaT : 0);
      }
    }();
    const bool isMissing = (a == kNaT) | (b == kNaT);
    return isMissing ? kMissing : result;
  }
};

template <class Op>
constexpr BlockTable unaryTimes(BlockTable table = {}) {
  table[blockRow(ElementType::Duration)] = {&unaryLoop<OfTimes<Op>, std::int64_t>, nullptr,
                                            nullptr};
  return table;
}

template <class Op>
constexpr BlockTable binaryTimes(BlockTable table = {}) {
  using Time = std::int64_t;
  table[blockRow(ElementType::Duration)] = {&binaryLoop<OfTimes<Op>, Time, Spread::None>,
                                            &binaryLoop<OfTimes<Op>, Time, Spread::Left>,
                                            &binaryLoop<OfTimes<Op>, Time, Spread::Right>};
  return table;
}

}  // namespace kv::runtime
