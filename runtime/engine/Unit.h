#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kv::runtime {

/// A piece of work: one stage on one partition. What crosses to whoever runs it, as bytes.
struct Unit {
  std::uint64_t stage = 0;     ///< number of the stage in its evaluation
  std::int64_t partition = 0;  ///< counted from 0
  std::int64_t numPartitions = 1;
  std::uint64_t randomKey = 0;  ///< of the evaluation's random streams
  std::uint32_t attempt = 0;    ///< counted from 0

  bool operator==(const Unit&) const = default;

  /// 40 bytes: a tag, then the members, little-endian.
  std::string toBytes() const;

  /// Errors: std::invalid_argument for bytes that `toBytes` didn't make.
  static Unit fromBytes(std::string_view bytes);
};

}  // namespace kv::runtime
