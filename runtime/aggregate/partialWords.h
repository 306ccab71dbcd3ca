#pragma once

#include <bit>
#include <concepts>
#include <cstdint>

#include "aggregate/reductionValues.h"
#include "kv/runtime/Aggregates.h"

namespace kv::runtime {

// How the values of accumulators are stored in the words of a partial.

/// Wide enough for any sum of 64-bit integers.
__extension__ using WideInteger = __int128;

inline void storeSum(AggregatePartial& partial, const CompensatedSum& sum) {
  partial.words = {std::bit_cast<std::uint64_t>(sum.sum), std::bit_cast<std::uint64_t>(sum.error)};
  partial.count = sum.count;
}

inline CompensatedSum loadSum(const AggregatePartial& partial) {
  return {std::bit_cast<double>(partial.words[0]), std::bit_cast<double>(partial.words[1]),
          partial.count};
}

inline void storeMoments(AggregatePartial& partial, const Moments& moments) {
  partial.words = {std::bit_cast<std::uint64_t>(moments.mean),
                   std::bit_cast<std::uint64_t>(moments.squares)};
  partial.count = moments.count;
}

inline Moments loadMoments(const AggregatePartial& partial) {
  return {std::bit_cast<double>(partial.words[0]), std::bit_cast<double>(partial.words[1]),
          partial.count};
}

inline void storeInteger(AggregatePartial& partial, WideInteger value) {
  partial.words = {static_cast<std::uint64_t>(value), static_cast<std::uint64_t>(value >> 64)};
}

inline WideInteger loadInteger(const AggregatePartial& partial) {
  const auto high = static_cast<WideInteger>(static_cast<std::int64_t>(partial.words[1]));
  return high * (WideInteger{1} << 64) + static_cast<WideInteger>(partial.words[0]);
}

template <class T>
void storeExtreme(AggregatePartial& partial, T value) {
  if constexpr (std::floating_point<T>) {
    partial.words[0] = std::bit_cast<std::uint64_t>(static_cast<double>(value));
  } else {
    partial.words[0] = static_cast<std::uint64_t>(value);  // sign-extended for signed types
  }
}

template <class T>
T loadExtreme(const AggregatePartial& partial) {
  if constexpr (std::floating_point<T>) {
    return static_cast<T>(std::bit_cast<double>(partial.words[0]));
  } else {
    return static_cast<T>(partial.words[0]);
  }
}

}  // namespace kv::runtime
