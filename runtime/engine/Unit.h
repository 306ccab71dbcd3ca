#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kv/runtime/Datastore.h"
#include "operator/runs.h"

namespace kv::runtime {

/// A piece of work: one stage on one partition. What any thread, process or machine is given, as
/// bytes.
///
/// After all partitions there may be one more unit, without rows, whose partition is
/// `numPartitions`: it calls the functions that no row has reached, so that their results have
/// types.
struct Unit {
  std::uint64_t stage = 0;     ///< number of the stage in its evaluation
  std::int64_t partition = 0;  ///< counted from 0
  std::int64_t numPartitions = 1;
  SourceRange range{};          ///< what the partition consists of
  std::uint64_t randomKey = 0;  ///< of the evaluation's random streams
  std::uint32_t attempt = 0;    ///< counted from 0
  KnownTypes knownTypes{};      ///< of the unit without rows: what functions have returned

  bool operator==(const Unit&) const = default;

  bool isWithoutRows() const { return partition == numPartitions; }

  /// A tag, then the members, little-endian: 64 bytes, and the known types.
  std::string toBytes() const;

  /// Errors: "KALVEX:executor:BadBytes" for bytes that `toBytes` didn't make.
  static Unit fromBytes(std::string_view bytes);
};

}  // namespace kv::runtime
