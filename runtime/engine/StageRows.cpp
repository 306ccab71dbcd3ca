#include "engine/StageRows.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "column/ChunkBuffer.h"
#include "column/pieces.h"
#include "kv/errors/StepError.h"

// The rows of a stage come from its source or, if it has none, from values whose places agree. In
// the second case only ordinals are read, and each value contributes its own rows by them. Users'
// functions must see the same rows together for any reader, so with them rows are cut into pieces
// here, before the first step.

namespace kv::runtime {

namespace {

/// The rows of a partition in pieces, with their ordinals and nothing else.
class OrdinalsReader final : public ChunkReader {
 public:
  OrdinalsReader(std::int64_t partition, std::int64_t rows, const CancellationToken& cancellation)
      : partition_(partition), rows_(rows), cancellation_(cancellation) {}

  std::optional<Chunk> next() override {
    cancellation_.throwIfCancelled();
    if (first_ == rows_) {
      return std::nullopt;
    }
    const std::int64_t rows = std::min(kPieceRows, rows_ - first_);
    return Chunk{partition_, RowOrdinals(std::exchange(first_, first_ + rows), rows), nullptr, {}};
  }

 private:
  std::int64_t partition_;
  std::int64_t rows_;
  std::int64_t first_ = 0;
  const CancellationToken& cancellation_;
};

/// Cuts what another reader gives into pieces.
class PieceReader final : public ChunkReader {
 public:
  PieceReader(std::unique_ptr<ChunkReader> reader, const CancellationToken& cancellation)
      : reader_(std::move(reader)), cancellation_(cancellation) {}

  std::optional<Chunk> next() override {
    cancellation_.throwIfCancelled();
    while (!isAtEnd_ && waiting_.rows() < kPieceRows) {
      if (std::optional<Chunk> chunk = reader_->next()) {
        waiting_.push(*std::move(chunk));
      } else {
        isAtEnd_ = true;
      }
    }
    const std::int64_t rows = std::min(kPieceRows, waiting_.rows());
    return rows > 0 ? std::optional(waiting_.take(rows)) : std::nullopt;
  }

 private:
  std::unique_ptr<ChunkReader> reader_;
  const CancellationToken& cancellation_;
  ChunkBuffer waiting_;
  bool isAtEnd_ = false;
};

}  // namespace

StageRows::StageRows(const Stage& stage) : stage_(stage) {
  for (const StageInput& input : stage.inputs()) {
    if (stage.source() == nullptr && cut_ == nullptr && input.places) {
      cut_ = input.places->cut;
    }
  }
  if (cut_ == nullptr && stage.source() == nullptr) {
    errors::raiseStep("KALVEX:array:NeedsRows", {"a pass"});
  }
  source_ = cut_ != nullptr ? cut_->source : stage.source()->fingerprint();
  std::map<const RowCut*, bool> isKnown;  // many inputs may share the cut of many partitions
  for (const StageInput& input : stage.inputs()) {
    const RowCut* cut = input.places ? input.places->cut.get() : nullptr;
    const auto [known, isNew] = isKnown.try_emplace(cut, false);
    if (isNew && cut != nullptr) {
      known->second = hasPlaces(*cut);
    }
    isPlaced_.push_back(known->second);
  }
}

/// The name of the source isn't enough: anyone may set the places of a value.
bool StageRows::hasPlaces(const RowCut& cut) const {
  return cut_ != nullptr ? cut == *cut_
                         : cut.source == source_ && cut.numPartitions() == numPartitions();
}

std::int64_t StageRows::numPartitions() const {
  return cut_ != nullptr ? cut_->numPartitions() : stage_.source()->numPartitions();
}

std::unique_ptr<ChunkReader> StageRows::openPartition(std::int64_t partition,
                                                      const CancellationToken& cancellation) const {
  if (cut_ != nullptr) {
    const std::int64_t rows = cut_->partitionRows[static_cast<std::size_t>(partition)];
    return std::make_unique<OrdinalsReader>(partition, rows, cancellation);
  }
  auto reader = stage_.source()->openPartition(partition, stage_.columns(), cancellation);
  return stage_.callsUser() ? std::make_unique<PieceReader>(std::move(reader), cancellation)
                            : std::move(reader);
}

}  // namespace kv::runtime
