#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kv/errors/bytes.h"
#include "kv/runtime/exactWhole.h"

namespace kv::runtime {

/// What a partition of arrays in memory has at most, unless other sizes are requested.
inline constexpr std::int64_t kPartitionRows = 1 << 20;
inline constexpr std::int64_t kPartitionBytes = 64 << 20;

/// The most rows of an array in memory: a double holds all counts up to it exactly.
inline constexpr std::int64_t kMaxPositions = static_cast<std::int64_t>(kMaxExactWhole);

/// The positions 0 to n-1, which are the rows of every array of n rows in memory, and their cut
/// into partitions.
///
/// Immutable; copies share the list of partitions.
class PositionCut {
 public:
  /// Partitions of `partitionRows` positions; the last has what is left. At least one.
  /// Requires: 0 <= rows <= kMaxPositions; partitionRows >= 1.
  PositionCut(std::int64_t rows, std::int64_t partitionRows);

  /// Partitions of these numbers of positions, in order; some may be empty.
  /// Requires: at least one; none is negative; their sum is at most kMaxPositions.
  explicit PositionCut(const std::vector<std::int64_t>& partitionRows);

  /// Partitions of kPartitionRows rows of `rowBytes` bytes each; where that is more than
  /// kPartitionBytes, of the largest power of two that isn't.
  static PositionCut ofRows(std::int64_t rows, std::int64_t rowBytes);

  std::int64_t rows() const { return rows_; }
  std::int64_t numPartitions() const;

  /// The first position of a partition, and the one after its last.
  /// Requires: 0 <= partition < numPartitions().
  std::int64_t begin(std::int64_t partition) const;
  std::int64_t end(std::int64_t partition) const;

  /// The partition of a position.
  /// Requires: 0 <= position < rows().
  std::int64_t partitionOf(std::int64_t position) const;

  /// The coarsest cut that has all cuts of both; empty partitions are kept.
  /// Requires: other.rows() == rows().
  PositionCut refined(const PositionCut& other) const;

  /// What all arrays of n rows in memory have in common, as Datastore::rowSpace().
  std::string rowSpace() const { return rowSpaceOf(rows_); }
  static std::string rowSpaceOf(std::int64_t rows);

  void write(errors::ByteWriter& bytes) const;
  static PositionCut read(errors::ByteReader& bytes);

  bool operator==(const PositionCut& other) const;

 private:
  PositionCut(std::int64_t rows, std::vector<std::int64_t> ends);

  std::int64_t rows_;
  std::int64_t partitionRows_ = 0;                           ///< of each but the last; 0: see ends_
  std::shared_ptr<const std::vector<std::int64_t>> ends_{};  ///< of the partitions, if they differ
};

}  // namespace kv::runtime
