#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "column/RowPlaces.h"
#include "engine/Stage.h"
#include "kv/runtime/Cancellation.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// The rows that flow through a stage: those of the source that it reads, or, in a stage that reads
/// none, the rows that its inputs were gathered from.
///
/// Lives: the stage outlives it.
class StageRows {
 public:
  /// Errors: "KALVEX:array:NeedsRows" if the stage reads nothing and no input has places.
  explicit StageRows(const Stage& stage);

  const std::string& source() const { return source_; }  ///< its fingerprint
  std::int64_t numPartitions() const;

  /// True if the rows of the stage's input `number` are in places of these rows.
  bool areRowsOf(std::size_t number) const { return isPlaced_[number]; }

  /// A reader of the columns that the stage needs; of rows in memory, chunks without columns. Where
  /// a step calls a function of the user's own, chunks are pieces.
  std::unique_ptr<ChunkReader> openPartition(std::int64_t partition,
                                             const CancellationToken& cancellation) const;

 private:
  bool hasPlaces(const RowCut& cut) const;

  const Stage& stage_;
  std::shared_ptr<const RowCut> cut_;  ///< of rows in memory; null where the stage reads a source
  std::string source_;
  std::vector<bool> isPlaced_;  ///< of each input
};

}  // namespace kv::runtime
