// The rows of a stage come from its source or, if it has none, from values whose places agree. In
// the second case only ordinals are read, and each value contributes its own rows by them. Users'
// functions must see the same rows together for any reader, so with them rows are cut into pieces
// here, before the first step.

#include "engine/StageRows.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "column/ChunkBuffer.h"
#include "column/concatenate.h"
#include "column/pieces.h"
#include "engine/ShortChunks.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/ElementFunctions.h"
#include "source/memory/ArrayDatastore.h"

namespace kv::runtime {

namespace {

/// Chunks of a partition without columns, in pieces.
class OrdinalsReader final : public StageReader {
 public:
  OrdinalsReader(std::int64_t partition, std::int64_t rows, const CancellationToken& cancellation)
      : partition_(partition), rows_(rows), cancellation_(cancellation) {}

  std::vector<Chunk> next() override {
    cancellation_.throwIfCancelled();
    if (first_ == rows_) {
      return {};
    }
    const std::int64_t rows = std::min(kPieceRows, rows_ - first_);
    return {
        Chunk{partition_, RowOrdinals(std::exchange(first_, first_ + rows), rows), nullptr, {}}};
  }

 private:
  std::int64_t partition_;
  std::int64_t rows_;
  std::int64_t first_ = 0;
  const CancellationToken& cancellation_;
};

class SourceReader final : public StageReader {
 public:
  explicit SourceReader(std::unique_ptr<ChunkReader> reader) : reader_(std::move(reader)) {}

  std::vector<Chunk> next() override {
    std::vector<Chunk> chunks;
    if (std::optional<Chunk> chunk = reader_->next()) {
      chunks.push_back(*std::move(chunk));
    }
    return chunks;
  }

  std::int64_t skippedRows() const override { return reader_->skippedRows(); }

 private:
  std::unique_ptr<ChunkReader> reader_;
};

/// Cuts what another reader gives into pieces, which lack the rows that the reader leaves out.
class PieceReader final : public StageReader {
 public:
  PieceReader(std::unique_ptr<ChunkReader> reader, const CancellationToken& cancellation)
      : reader_(std::move(reader)), cancellation_(cancellation) {}

  std::vector<Chunk> next() override {
    cancellation_.throwIfCancelled();
    ChunkBuffer piece;
    std::int64_t end = 0;  // of the piece
    while (true) {
      if (!rest_) {
        rest_ = reader_->next();
      }
      if (!rest_ || (piece.rows() > 0 && rest_->ordinals.at(0) >= end)) {
        return taken(piece);
      }
      const std::int64_t first = rest_->ordinals.at(0);
      end = (first / kPieceRows + 1) * kPieceRows;
      const std::int64_t rows = std::min(rest_->rows(), end - first);
      piece.push(slice(*rest_, 0, rows));
      rest_ = rows < rest_->rows() ? std::optional(slice(*rest_, rows, rest_->rows() - rows))
                                   : std::nullopt;
      if (first + rows == end) {
        return taken(piece);
      }
    }
  }

  std::int64_t skippedRows() const override { return reader_->skippedRows(); }

 private:
  static std::vector<Chunk> taken(ChunkBuffer& piece) {
    std::vector<Chunk> chunks;
    if (piece.rows() > 0) {
      chunks.push_back(piece.take(piece.rows()));
    }
    return chunks;
  }

  std::unique_ptr<ChunkReader> reader_;
  const CancellationToken& cancellation_;
  std::optional<Chunk> rest_;  ///< of the last chunk
};

/// Arrays in memory, side by side.
class ArraysReader final : public StageReader {
 public:
  explicit ArraysReader(PositionReader reader) : reader_(std::move(reader)) {}

  std::vector<Chunk> next() override { return reader_.next(); }

 private:
  PositionReader reader_;
};

}  // namespace

StageRows::StageRows(const Stage& stage) : stage_(stage) {
  findRows();
  findPlaces();
  findConditions();
}

void StageRows::findRows() {
  for (std::size_t i = 0; i < stage_.inputs().size() && stage_.sources().empty(); ++i) {
    const StageInput& input = stage_.inputs()[i];
    if (cut_ == nullptr && input.places && !stage_.isMade(i)) {
      cut_ = input.places->cut;
    }
  }
  if (cut_ == nullptr && stage_.sources().empty()) {
    errors::raiseStep("KALVEX:array:NeedsRows", {"a pass"});
  }
  source_ = cut_ != nullptr ? cut_->source : stage_.sources().front().store->rowSpace();
  const auto refine = [&](const PositionCut& cut) {
    positions_ = positions_ ? positions_->refined(cut) : cut;
  };
  for (const StageSource& source : stage_.sources()) {
    if (const ArrayDatastore* arrays = source.store->asArrays()) {
      refine(arrays->cut());
    }
  }
  std::set<const RowCut*> seen;  // many inputs may share the cut of many partitions
  for (const StageInput& input : stage_.inputs()) {
    if (input.places && input.places->cut->source == source_ &&
        seen.insert(input.places->cut.get()).second) {
      if (const auto cut = input.places->cut->positions()) {
        refine(*cut);
      }
    }
  }
}

void StageRows::findPlaces() {
  std::map<const RowCut*, bool> isKnown;
  for (std::size_t i = 0; i < stage_.inputs().size(); ++i) {
    std::shared_ptr<const RowPlaces> places = stage_.inputs()[i].places;
    if (stage_.isMade(i)) {
      const bool fits = places->cut->numPartitions() == numPartitions();
      places_.push_back(fits ? std::move(places) : nullptr);
      continue;
    }
    if (places && positions_) {
      const auto cut = places->cut->source == source_ ? places->cut->positions() : std::nullopt;
      if (cut && *cut != *positions_) {
        places = std::make_shared<const RowPlaces>(places->inCut(*positions_));
      }
      places_.push_back(cut ? std::move(places) : nullptr);
      continue;
    }
    if (places) {
      const auto [known, isNew] = isKnown.try_emplace(places->cut.get(), false);
      if (isNew) {
        known->second = hasPlaces(*places->cut);
      }
      places = known->second ? std::move(places) : nullptr;
    }
    places_.push_back(std::move(places));
  }
}

/// Reads of one source get the same rows, so only conditions that all of them have count, and of
/// these the ones with a single value. A stage may come from anyone, so nothing is taken for
/// granted.
void StageRows::findConditions() {
  std::optional<std::vector<ReadCondition>> common;
  for (const Step& step : stage_.steps()) {
    const auto* read = step.op->as<ReadOperator>();
    if (read == nullptr) {
      continue;
    }
    const std::vector<ReadCondition> conditions = read->conditions();
    if (common && conditions != *common) {
      return;
    }
    common = conditions;
  }
  for (const ReadCondition& condition : common.value_or(std::vector<ReadCondition>())) {
    const ElementFunction* comparison = findElementFunction(condition.comparison);
    const StageInput* input =
        condition.value < stage_.inputs().size() ? &stage_.inputs()[condition.value] : nullptr;
    const bool isValue = input != nullptr && input->places == nullptr && !input->isOpaque &&
                         input->rows.names == nullptr && input->rows.columns.size() == 1 &&
                         input->rows.rows() == 1;
    if (comparison != nullptr && isValue) {
      conditions_.push_back({condition.column, comparison, input->rows.columns.front()});
    }
  }
}

/// The name of the source isn't enough: anyone may set the places of a value.
bool StageRows::hasPlaces(const RowCut& cut) const {
  return cut_ != nullptr ? cut == *cut_
                         : cut.source == source_ && cut.numPartitions() == numPartitions();
}

std::int64_t StageRows::numPartitions() const {
  if (positions_) {
    return positions_->numPartitions();
  }
  return cut_ != nullptr ? cut_->numPartitions() : stage_.sources().front().store->numPartitions();
}

std::optional<std::int64_t> StageRows::knownRows(std::int64_t partition) const {
  if (positions_) {
    return positions_->end(partition) - positions_->begin(partition);
  }
  return cut_ != nullptr ? cut_->partitionRows[static_cast<std::size_t>(partition)]
                         : stage_.sources().front().store->knownRows(partition);
}

/// Users' functions have values of their own, and what they return.
std::int64_t StageRows::estimateBytes(std::int64_t partition) const {
  const std::int64_t steps = std::ssize(stage_.steps()) * kChunkBytesPerColumn;
  std::int64_t readers = 0;
  for (const StageSource& source : stage_.sources()) {
    // Sources of positions may have partitions of their own, all of one size.
    const std::int64_t ofSource = positions_ ? 0 : partition;
    readers += source.store->estimateBytes(ofSource, source.columns);
  }
  return (stage_.callsUser() ? 2 : 1) * (readers + steps);
}

std::string StageRows::fileOf(std::int64_t partition) const {
  const bool isFile = cut_ == nullptr && !positions_ && partition < numPartitions();
  return isFile ? stage_.sources().front().store->fileOf(partition) : std::string();
}

SourceRange StageRows::rangeOf(std::int64_t partition) const {
  return cut_ != nullptr || positions_ ? SourceRange{partition, 1}
                                       : stage_.sources().front().store->rangeOf(partition);
}

std::unique_ptr<StageReader> StageRows::openPartition(std::int64_t partition,
                                                      const SourceRange& range,
                                                      const ExecutionContext& context) const {
  const CancellationToken& cancellation = context.cancellation;
  if (cut_ != nullptr) {
    const std::int64_t rows = positions_ ? positions_->end(partition) - positions_->begin(partition)
                                         : cut_->partitionRows[static_cast<std::size_t>(partition)];
    return std::make_unique<OrdinalsReader>(partition, rows, cancellation);
  }
  if (positions_) {
    std::vector<ArrayRows> arrays;
    std::int64_t chunkRows = stage_.callsUser() ? kPieceRows : std::min(kPieceRows, maxChunkRows());
    for (const StageSource& source : stage_.sources()) {
      arrays.push_back(source.store->asArrays()->select(source.columns));
      chunkRows = stage_.callsUser() ? kPieceRows
                                     : std::min(chunkRows, source.store->asArrays()->chunkRows());
    }
    return std::make_unique<ArraysReader>(
        PositionReader(std::move(arrays), *positions_, partition, chunkRows, cancellation));
  }
  const StageSource& source = stage_.sources().front();
  auto reader = inShortChunks(
      source.store->openRange({partition, range, source.columns, conditions_}, cancellation));
  if (stage_.callsUser()) {
    return std::make_unique<PieceReader>(std::move(reader), cancellation);
  }
  return std::make_unique<SourceReader>(std::move(reader));
}

}  // namespace kv::runtime
