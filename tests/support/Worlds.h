#pragma once

#include <cstddef>
#include <cstdlib>
#include <string_view>

/// One table of sizes for all tests whose cost grows with a size, a row a world.
///
/// KV_WORLD=full asks for the sizes that are promised; without it tests take quick ones. KV_STRESS
/// (a collection and a look at the whole heap at each creation of an object) has a row of its own,
/// since each object then costs as much as all that live.
namespace kv::test {

struct Sizes {
  std::size_t modelSteps;  ///< random steps of one run against a model
  std::size_t modelRuns;   ///< runs, each with a seed of its own
  std::size_t children;    ///< of one parent
  std::size_t chain;       ///< depth of what must not be walked by recursion
  std::size_t recorded;    ///< objects or operations made in a row
  std::size_t sessions;    ///< opened, used and closed one after the other
  std::size_t patterns;    ///< random bit patterns of a number, which make no object
  std::size_t faults;      ///< places among many at which a fault is let in
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
