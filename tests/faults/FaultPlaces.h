#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/Seed.h"
#include "support/Worlds.h"

namespace kv::test {

/// Which operations of a sequence fail, counted from 1; 0 for none.
struct FaultPlaces {
  std::uint64_t first = 0;
  std::uint64_t second = 0;

  bool holds(std::uint64_t number) const noexcept {
    return number != 0 && (number == first || number == second);
  }
  std::string text() const {
    return std::to_string(first) + (second == 0 ? "" : " and " + std::to_string(second));
  }
};

/// Single faults, spread evenly over `operations` operations.
inline std::vector<FaultPlaces> singleFaults(std::uint64_t operations, std::uint64_t most) {
  std::vector<FaultPlaces> places;
  const std::uint64_t step = std::max<std::uint64_t>(1, operations / most);
  for (std::uint64_t number = 1; number <= operations; number += step) {
    places.push_back({number});
  }
  return places;
}

/// Pairs of faults. Half of the second ones come soon after the first, during its cleanup; the
/// others anywhere in the rest of the work, or when the work is repeated.
inline std::vector<FaultPlaces> pairsOfFaults(std::uint64_t operations) {
  std::mt19937_64 random(drawSeed());
  std::vector<FaultPlaces> places(std::min<std::size_t>(80, sizes().faults));
  for (FaultPlaces& pair : places) {
    pair.first = 1 + random() % std::max<std::uint64_t>(1, operations);
    const std::uint64_t span = random() % 2 == 0 ? 8 : std::max<std::uint64_t>(8, operations);
    pair.second = pair.first + 1 + random() % span;
  }
  return places;
}

}  // namespace kv::test
