#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kv/runtime/Chunk.h"
#include "kv/runtime/PositionCut.h"

namespace kv::runtime {

/// The rows of a source that were read: how many each partition has.
struct RowCut {
  std::string source{};                       ///< its row space
  std::vector<std::int64_t> partitionRows{};  ///< of each partition

  bool operator==(const RowCut&) const = default;
  std::int64_t numPartitions() const { return static_cast<std::int64_t>(partitionRows.size()); }

  /// The same as a cut of positions, if the rows are positions.
  std::optional<PositionCut> positions() const;
};

/// Which rows of which source a materialised value has that was gathered from partitions.
struct RowPlaces {
  std::vector<std::int64_t> firstRow{};  ///< of each partition, and the number of rows at the end
  std::optional<Column> ordinals{};      ///< Int64; none if each partition has all of its rows
  std::shared_ptr<const RowCut> cut = std::make_shared<const RowCut>();
  std::string origin{};            ///< the operation that made the rows, for messages
  bool isUntyped = false;          ///< of no rows, with a type that isn't known
  std::vector<bool> isNullable{};  ///< of each column of the rows; false after the end
  std::int64_t frameRows = 0;  ///< how many rows users' functions are to see; 0: none was asked for

  /// The places of rows that were kept, partition by partition, of a source with that cut. The
  /// chunks have no ordinals afterwards.
  static RowPlaces ofPartitions(std::vector<std::vector<Chunk>>& partitions,
                                std::shared_ptr<const RowCut> cut);

  std::int64_t rows() const { return firstRow.back(); }

  /// True if a value of that many rows can be in these places: for each partition of the cut there
  /// are rows that it has, in ascending order. Places that anyone may have written are checked with
  /// this before they are used.
  /// Requires: the ordinals are Int64.
  bool fit(std::int64_t rows) const;

  /// The places of the same rows in another cut of their positions.
  /// Requires: cut->positions(), with as many rows.
  RowPlaces inCut(const PositionCut& other) const;

  /// The rows of `whole`, all of whose rows are in these places, that belong to ordinals
  /// [first, last) of a partition.
  /// Requires: 0 <= partition < cut->numPartitions().
  Chunk take(const Chunk& whole, std::int64_t partition, std::int64_t first,
             std::int64_t last) const;

 private:
  bool fitCut() const;
};

}  // namespace kv::runtime
