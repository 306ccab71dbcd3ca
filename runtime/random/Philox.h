#pragma once

#include <array>
#include <cstdint>

namespace kv::runtime {

/// Four words of random bits for a counter and a key: Philox 4x32 with 10 rounds, of Salmon,
/// Moraes, Dror, Shaw: "Parallel random numbers: as easy as 1, 2, 3" (2011), as in Random123.
std::array<std::uint32_t, 4> philox4x32(std::array<std::uint32_t, 4> counter,
                                        std::array<std::uint32_t, 2> key);

/// A stream of random numbers that follows from a seed and a partition alone; no two streams share
/// a number before 2^65 of them.
class PhiloxStream {
 public:
  /// The stream behind its first `drawn` numbers.
  PhiloxStream(std::uint64_t seed, std::uint64_t partition, std::uint64_t drawn = 0);

  /// How many numbers it has given.
  std::uint64_t drawn() const { return drawn_; }

  /// The next 64 random bits.
  std::uint64_t nextBits();

  /// Uniform in [0, 1): a multiple of 2^-53.
  double nextUniform();

 private:
  void drawBlock();

  std::array<std::uint32_t, 2> key_;
  std::uint64_t partition_;
  std::uint64_t drawn_;                   ///< numbers so far; each block gives two
  std::array<std::uint32_t, 4> block_{};  ///< the one that number `drawn_` is in
};

}  // namespace kv::runtime
