#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "engine/Stage.h"
#include "kv/runtime/Cancellation.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// The rows that flow through a stage: those of the source that it reads, or, in a stage that reads
/// none, the rows that its inputs were gathered from, in the same partitions and chunks.
///
/// Lives: the stage outlives it.
class StageRows {
 public:
  /// Errors: "KALVEX:array:NeedsRows" if the stage reads nothing and no input has places.
  StageRows(const Stage& stage, std::span<const StageInput> inputs);

  const std::string& source() const { return source_; }  ///< its fingerprint
  std::int64_t numPartitions() const;

  /// True if the rows of input `number` are in places of these rows.
  bool areRowsOf(std::size_t number) const { return isPlaced_[number]; }

  /// A reader of the columns that the stage asks for; of rows in memory, chunks without columns.
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
