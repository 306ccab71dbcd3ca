#include "engine/Unit.h"

#include <fmt/core.h>

#include <stdexcept>
#include <type_traits>

namespace kv::runtime {
namespace {

constexpr std::string_view kTag = "kvU1";
constexpr std::size_t kUnitBytes = kTag.size() + 4 * sizeof(std::uint64_t) + sizeof(std::uint32_t);

template <class T>
void put(std::string& bytes, T value) {
  auto bits = static_cast<std::make_unsigned_t<T>>(value);
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    bytes.push_back(static_cast<char>(bits >> (8 * i) & 0xFF));
  }
}

template <class T>
void take(std::string_view& bytes, T& value) {
  std::make_unsigned_t<T> bits = 0;
  for (std::size_t i = sizeof(T); i-- > 0;) {
    bits = static_cast<std::make_unsigned_t<T>>(bits << 8 | static_cast<unsigned char>(bytes[i]));
  }
  value = static_cast<T>(bits);
  bytes.remove_prefix(sizeof(T));
}

}  // namespace

std::string Unit::toBytes() const {
  std::string bytes(kTag);
  bytes.reserve(kUnitBytes);
  put(bytes, stage);
  put(bytes, partition);
  put(bytes, numPartitions);
  put(bytes, randomKey);
  put(bytes, attempt);
  return bytes;
}

Unit Unit::fromBytes(std::string_view bytes) {
  if (bytes.size() != kUnitBytes || !bytes.starts_with(kTag)) {
    throw std::invalid_argument(
        fmt::format("a unit of work has {} bytes and starts with {}, got {} bytes", kUnitBytes,
                    kTag, bytes.size()));
  }
  bytes.remove_prefix(kTag.size());
  Unit unit;
  take(bytes, unit.stage);
  take(bytes, unit.partition);
  take(bytes, unit.numPartitions);
  take(bytes, unit.randomKey);
  take(bytes, unit.attempt);
  if (unit.numPartitions < 1 || unit.partition < 0 || unit.partition >= unit.numPartitions) {
    throw std::invalid_argument(
        fmt::format("partition of a unit must be at least 0 and below {}, got {}",
                    unit.numPartitions, unit.partition));
  }
  return unit;
}

}  // namespace kv::runtime
