#include "random/Philox.h"

#include <cstddef>

namespace kv::runtime {

namespace {

constexpr std::uint32_t kMultiplier0 = 0xD2511F53;
constexpr std::uint32_t kMultiplier1 = 0xCD9E8D57;
constexpr std::uint32_t kKeyStep0 = 0x9E3779B9;  // the golden ratio
constexpr std::uint32_t kKeyStep1 = 0xBB67AE85;  // the square root of 3, minus 1
constexpr int kRounds = 10;

std::uint32_t low(std::uint64_t bits) { return static_cast<std::uint32_t>(bits); }
std::uint32_t high(std::uint64_t bits) { return static_cast<std::uint32_t>(bits >> 32); }

}  // namespace

std::array<std::uint32_t, 4> philox4x32(std::array<std::uint32_t, 4> counter,
                                        std::array<std::uint32_t, 2> key) {
  for (int round = 0; round < kRounds; ++round) {
    const std::uint64_t product0 = std::uint64_t{kMultiplier0} * counter[0];
    const std::uint64_t product1 = std::uint64_t{kMultiplier1} * counter[2];
    counter = {high(product1) ^ counter[1] ^ key[0], low(product1),
               high(product0) ^ counter[3] ^ key[1], low(product0)};
    key[0] += kKeyStep0;
    key[1] += kKeyStep1;
  }
  return counter;
}

PhiloxStream::PhiloxStream(std::uint64_t seed, std::uint64_t partition, std::uint64_t drawn)
    : key_{low(seed), high(seed)}, partition_(partition), drawn_(drawn) {
  drawBlock();
}

std::uint64_t PhiloxStream::nextBits() {
  const bool isFirstOfBlock = drawn_ % 2 == 0;
  if (isFirstOfBlock) {
    drawBlock();
  }
  ++drawn_;
  const std::size_t at = isFirstOfBlock ? 0 : 2;
  return std::uint64_t{block_[at + 1]} << 32 | block_[at];
}

void PhiloxStream::drawBlock() {
  const std::uint64_t block = drawn_ / 2;
  block_ = philox4x32({low(block), high(block), low(partition_), high(partition_)}, key_);
}

double PhiloxStream::nextUniform() {
  constexpr double kUnit = 0x1p-53;
  return static_cast<double>(nextBits() >> 11) * kUnit;
}

}  // namespace kv::runtime
