#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "kv/host/values.h"
#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// Where the rows of a whole value stood in the partitions of its source.
///
/// As a host value, the metadata of a promise, it is a structure with the fields "RowCount",
/// "PartitionRows", an int64 column of `firstRow`, and "Ordinals", an int64 column or `[]`.
struct RowPlaces {
  std::vector<std::int64_t> firstRow{};  ///< of each partition, and the number of rows at the end
  std::optional<Column> ordinals{};      ///< Int64; none if each partition is there from row 0 on

  /// The places of rows that were kept, partition by partition.
  static RowPlaces ofPartitions(const std::vector<std::vector<Chunk>>& partitions);

  /// Null for metadata that doesn't tell the places of exactly `rows` rows: anybody may set it.
  static std::optional<RowPlaces> fromMetadata(const kxArray* metadata, std::size_t rows);
  host::Value toMetadata() const;

  std::int64_t numPartitions() const { return static_cast<std::int64_t>(firstRow.size()) - 1; }

  /// The rows of `whole`, all of whose rows stand in these places, that belong to ordinals
  /// [first, last) of a partition.
  Chunk take(const Chunk& whole, std::int64_t partition, std::int64_t first,
             std::int64_t last) const;

  /// `whole`, partition by partition.
  std::vector<Chunk> cut(const Chunk& whole) const;
};

/// True if both tell the same rows.
bool haveSamePlaces(const RowPlaces& a, const RowPlaces& b);

}  // namespace kv::runtime
