#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "column/ExecutionContext.h"
#include "column/RowPlaces.h"
#include "engine/Stage.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// Reads the rows of a stage in one partition.
class StageReader {
 public:
  virtual ~StageReader() = default;

  /// The next rows, a chunk of the same rows for each source of the stage; for a stage that reads
  /// none, one chunk without columns. None after the last rows.
  /// Errors: as for ChunkReader::next.
  virtual std::vector<Chunk> next() = 0;

  /// As of ChunkReader.
  virtual std::int64_t skippedRows() const { return 0; }
};

/// The rows that flow through a stage: those of the sources that it reads, or, in a stage that
/// reads none, the rows that its inputs were gathered from. Positions are cut where any of the
/// sources and inputs is.
///
/// Lives: the stage outlives it.
class StageRows {
 public:
  /// Errors: "KALVEX:array:NeedsRows" if the stage reads nothing and no input has places.
  explicit StageRows(const Stage& stage);

  const std::string& source() const { return source_; }  ///< its row space
  std::int64_t numPartitions() const;

  /// The places of the stage's input `number` among these rows; null if they aren't its rows.
  const RowPlaces* placesOf(std::size_t number) const { return places_[number].get(); }

  /// The number of rows of a partition, if it is known before they are read.
  std::optional<std::int64_t> knownRows(std::int64_t partition) const;

  /// About how many bytes of memory the unit of a partition needs: those of the reader, and a chunk
  /// of what each step makes.
  std::int64_t estimateBytes(std::int64_t partition) const;

  /// A reader of the columns that the stage needs, without rows that the conditions of its reads
  /// leave out. Where a step calls a user-defined function, chunks are pieces.
  /// Lives: no longer than the cancellation token of the context.
  std::unique_ptr<StageReader> openPartition(std::int64_t partition, const SourceRange& range,
                                             const ExecutionContext& context) const;

  /// As of Datastore, of the first source; empty for gathered rows.
  std::string fileOf(std::int64_t partition) const;

  /// What a unit carries of its partition.
  SourceRange rangeOf(std::int64_t partition) const;

 private:
  void findRows();
  void findPlaces();
  bool hasPlaces(const RowCut& cut) const;
  void findConditions();

  const Stage& stage_;
  std::shared_ptr<const RowCut> cut_;     ///< of gathered rows; null where the stage reads a source
  std::optional<PositionCut> positions_;  ///< if the rows are positions
  std::string source_;
  std::vector<std::shared_ptr<const RowPlaces>> places_;  ///< of each input, or null
  std::vector<RowCondition> conditions_;
};

}  // namespace kv::runtime
