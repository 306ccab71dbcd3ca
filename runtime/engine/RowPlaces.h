#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kv/host/values.h"
#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// The partitions and chunks in which a source gives its rows.
struct RowCut {
  std::string source{};                     ///< its fingerprint
  std::vector<std::int64_t> firstChunk{0};  ///< of each partition, and the number of chunks
  std::vector<std::int64_t> chunkRows{};    ///< of each chunk, partition by partition

  void addPartition(const std::vector<std::int64_t>& rows);
  bool operator==(const RowCut&) const = default;
  std::int64_t numPartitions() const { return static_cast<std::int64_t>(firstChunk.size()) - 1; }
};

/// The row space of a whole value that was gathered from partitions: which rows of which source it
/// has.
///
/// As a host value, the metadata of a promise, it is a structure: "RowCount"; "PartitionRows", an
/// int64 column of `firstRow`; "Ordinals", an int64 column or `[]`; "Source", "PartitionChunks" and
/// "ChunkRows", the cut; "Origin"; "IsUntyped".
struct RowPlaces {
  std::vector<std::int64_t> firstRow{};  ///< of each partition, and the number of rows at the end
  std::optional<Column> ordinals{};      ///< Int64; none if each partition is there from row 0 on
  std::shared_ptr<const RowCut> cut = std::make_shared<const RowCut>();
  std::string origin{};    ///< the operation that made the rows, for messages
  bool isUntyped = false;  ///< of no rows, with a type that isn't known

  /// The places of rows that were kept, partition by partition, of a source with that cut.
  static RowPlaces ofPartitions(const std::vector<std::vector<Chunk>>& partitions,
                                std::shared_ptr<const RowCut> cut);

  /// Null for metadata that isn't the places of exactly `rows` rows: anyone may set it.
  static std::optional<RowPlaces> fromMetadata(const kxArray* metadata, std::size_t rows);
  host::Value toMetadata() const;

  std::int64_t rows() const { return firstRow.back(); }

  /// The rows of `whole`, all of whose rows are in these places, that belong to ordinals
  /// [first, last) of a partition.
  /// Requires: 0 <= partition < cut->numPartitions().
  Chunk take(const Chunk& whole, std::int64_t partition, std::int64_t first,
             std::int64_t last) const;
};

}  // namespace kv::runtime
