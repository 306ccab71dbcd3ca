#include "engine/StageRows.h"

#include <map>
#include <optional>
#include <utility>

namespace kv::runtime {
namespace {

/// The chunks of a cut, with the numbers of their rows and nothing else.
class CutReader final : public ChunkReader {
 public:
  CutReader(std::shared_ptr<const RowCut> cut, std::int64_t partition,
            const CancellationToken& cancellation)
      : cut_(std::move(cut)),
        partition_(partition),
        next_(cut_->firstChunk[static_cast<std::size_t>(partition)]),
        last_(cut_->firstChunk[static_cast<std::size_t>(partition) + 1]),
        cancellation_(cancellation) {}

  std::optional<Chunk> next() override {
    cancellation_.throwIfCancelled();
    if (next_ == last_) {
      return std::nullopt;
    }
    const std::int64_t rows = cut_->chunkRows[static_cast<std::size_t>(next_++)];
    const std::int64_t first = std::exchange(firstRow_, firstRow_ + rows);
    return Chunk{partition_, RowOrdinals(first, rows), nullptr, {}};
  }

 private:
  std::shared_ptr<const RowCut> cut_;
  std::int64_t partition_;
  std::int64_t next_;
  std::int64_t last_;
  std::int64_t firstRow_ = 0;
  const CancellationToken& cancellation_;
};

}  // namespace

StageRows::StageRows(const Stage& stage, std::span<const StageInput> inputs) : stage_(stage) {
  for (const StageInput& input : inputs) {
    if (!stage.readsSource() && cut_ == nullptr && input.places) {
      cut_ = input.places->cut;
    }
  }
  source_ = cut_ != nullptr ? cut_->source : stage.source().fingerprint();
  std::map<const RowCut*, bool> isKnown;  // many inputs may share a long cut
  for (const StageInput& input : inputs) {
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
  return cut_ != nullptr ? cut_->numPartitions() : stage_.source().numPartitions();
}

std::unique_ptr<ChunkReader> StageRows::openPartition(std::int64_t partition,
                                                      const CancellationToken& cancellation) const {
  if (cut_ != nullptr) {
    return std::make_unique<CutReader>(cut_, partition, cancellation);
  }
  return stage_.source().openPartition(partition, stage_.columns(), cancellation);
}

}  // namespace kv::runtime
