#include <fmt/format.h>

#include <bit>
#include <cstring>
#include <type_traits>

#include "kv/errors/StepError.h"
#include "kv/runtime/Aggregates.h"

namespace kv::runtime {

namespace {

// Layout, numbers little-endian: version, kind, rule, type, hasMissing (one byte each), three zero
// bytes, count, two words (eight bytes each), the text up to the end.
constexpr std::size_t kFixedBytes = 32;
constexpr std::uint8_t kVersion = 1;
constexpr std::uint8_t kNoType = 0xFF;

[[noreturn]] void throwBadPartial(const std::string& reason) {
  errors::raiseStep("KALVEX:function:BadPartial", {reason});
}

void putWord(std::string& bytes, std::uint64_t word) {
  for (int shift = 0; shift < 64; shift += 8) {
    bytes += static_cast<char>((word >> shift) & 0xFFU);
  }
}

std::uint8_t byteAt(std::string_view bytes, std::size_t at) {
  return static_cast<std::uint8_t>(bytes[at]);
}

std::uint64_t wordAt(std::string_view bytes, std::size_t at) {
  std::uint64_t word = 0;
  for (std::size_t i = 8; i > 0; --i) {
    word = (word << 8U) | byteAt(bytes, at + i - 1);
  }
  return word;
}

/// The byte at `at`, which must be at most `largest`.
std::uint8_t boundedByte(std::string_view bytes, std::size_t at, auto largest) {
  const std::uint8_t value = byteAt(bytes, at);
  if (value > static_cast<std::uint8_t>(largest)) {
    throwBadPartial(fmt::format("byte {} is {}, expected at most {}", at, value,
                                static_cast<std::uint8_t>(largest)));
  }
  return value;
}

void checkHead(std::string_view bytes) {
  if (bytes.size() < kFixedBytes) {
    throwBadPartial(fmt::format("expected at least {} bytes, got {}", kFixedBytes, bytes.size()));
  }
  if (byteAt(bytes, 0) != kVersion) {
    throwBadPartial(fmt::format("expected version {}, got {}", kVersion, byteAt(bytes, 0)));
  }
  for (std::size_t at = 5; at < 8; ++at) {
    boundedByte(bytes, at, 0);
  }
}

}  // namespace

std::string AggregatePartial::toBytes() const {
  std::string bytes;
  bytes.reserve(kFixedBytes + text.size());
  const std::uint8_t typeByte = type ? static_cast<std::uint8_t>(*type) : kNoType;
  for (const auto byte :
       {kVersion, static_cast<std::uint8_t>(kind), static_cast<std::uint8_t>(rule), typeByte,
        static_cast<std::uint8_t>(hasMissing), std::uint8_t{0}, std::uint8_t{0}, std::uint8_t{0}}) {
    bytes += static_cast<char>(byte);
  }
  putWord(bytes, static_cast<std::uint64_t>(count));
  for (const std::uint64_t word : words) {
    putWord(bytes, word);
  }
  return bytes + text;
}

AggregatePartial AggregatePartial::fromBytes(std::string_view bytes) {
  checkHead(bytes);
  AggregatePartial partial;
  partial.kind = static_cast<AggregateKind>(boundedByte(bytes, 1, AggregateKind::VarP));
  partial.rule = static_cast<MissingRule>(boundedByte(bytes, 2, MissingRule::Propagate));
  if (byteAt(bytes, 3) != kNoType) {
    partial.type = static_cast<ElementType>(boundedByte(bytes, 3, ElementType::Duration));
    if (partial.type == ElementType::Unknown) {
      throwBadPartial("its type is unknown");
    }
    aggregateType(partial.kind, *partial.type);
  }
  partial.hasMissing = boundedByte(bytes, 4, 1) != 0;
  partial.count = static_cast<std::int64_t>(wordAt(bytes, 8));
  if (partial.count < 0) {
    throwBadPartial(fmt::format("the count is {}", partial.count));
  }
  partial.words = {wordAt(bytes, 16), wordAt(bytes, 24)};
  partial.text = bytes.substr(kFixedBytes);
  const bool mayHaveText = partial.type == ElementType::String && partial.count > 0;
  if (!mayHaveText && !partial.text.empty()) {
    throwBadPartial(fmt::format("{} bytes follow where none are expected", partial.text.size()));
  }
  return partial;
}

}  // namespace kv::runtime
