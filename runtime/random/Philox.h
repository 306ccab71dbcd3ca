#pragma once

#include <array>
#include <cstdint>

namespace kv::runtime {

/// Four words of random bits for a counter and a key: Philox 4x32 with 10 rounds, of Salmon,
/// Moraes, Dror, Shaw: "Parallel random numbers: as easy as 1, 2, 3" (2011), as in Random123.
std::array<std::uint32_t, 4> philox4x32(std::array<std::uint32_t, 4> counter,
                                        std::array<std::uint32_t, 2> key);

/// A stream of random numbers that depends only on a seed and a partition. No two streams share a
/// number before 2^65 of them.
class PhiloxStream {
 public:
  /// The stream after its first `drawn` numbers.
  PhiloxStream(std::uint64_t seed, std::uint64_t partition, std::uint64_t drawn = 0);

  /// The number of random numbers drawn so far.
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
  std::array<std::uint32_t, 4> block_{};  ///< the block that contains number `drawn_`
};

}  // namespace kv::runtime
