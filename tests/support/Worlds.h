#pragma once

#include <cstddef>
#include <cstdlib>
#include <string_view>

/// The sizes for all tests whose cost grows with a size, in one table with one row per world.
///
/// KV_WORLD=full selects the promised sizes; without it tests use quick ones. KV_STRESS (a
/// collection and a check of the whole heap at each creation of an object) has its own row, since
/// each object then costs as much as all live ones.
namespace kv::test {

struct Sizes {
  std::size_t modelSteps;  ///< random steps of one run against a model
  std::size_t modelRuns;   ///< runs, each with its own seed
  std::size_t children;    ///< of one parent
  std::size_t chain;       ///< depth of structures that must not be walked by recursion
  std::size_t recorded;    ///< objects or operations created in sequence
  std::size_t sessions;    ///< opened, used and closed one after the other
  std::size_t patterns;    ///< random bit patterns of a number, which create no object
  std::size_t faults;      ///< number of places at which a fault is injected
};

inline constexpr Sizes kQuick = {100'000, 1, 100'000, 50'000, 200'000, 100, 100'000, 300};
inline constexpr Sizes kFull = {100'000,   40,    1'000'000, 1'000'000,
                                8'000'000, 1'000, 1'000'000, 1'000'000'000};
inline constexpr Sizes kStress = {1'000, 4, 300, 300, 300, 3, 100'000, 10};

inline bool isStressed() {
  const char* stress = std::getenv("KV_STRESS");
  return stress != nullptr && std::string_view(stress) != "0" && *stress != '\0';
}

inline const Sizes& sizes() {
  const char* world = std::getenv("KV_WORLD");
  if (isStressed()) {
    return kStress;
  }
  return world != nullptr && std::string_view(world) == "full" ? kFull : kQuick;
}

}  // namespace kv::test
