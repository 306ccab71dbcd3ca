#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "column/bytes.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// The first text of a description of such a source.
inline constexpr std::string_view kPartitionedFormat = "partitioned";

/// A source that is cut in another way: each partition consists of consecutive partitions of the
/// original, or of none, which are read as one. Some may be read more than once, or not at all.
///
/// Its fingerprint is that of the original where it is cut in the same way.
class PartitionedSource final : public Datastore {
 public:
  /// Requires: at least one range, within the partitions of `original`.
  PartitionedSource(std::shared_ptr<const Datastore> original, std::vector<SourceRange> ranges,
                    int maxReadFailures);

  const Schema& schema() const override { return original_->schema(); }
  std::int64_t numPartitions() const override { return numPartitions_; }
  SourceRange rangeOf(std::int64_t partition) const override;
  std::unique_ptr<ChunkReader> openPartition(std::int64_t partition,
                                             const std::vector<std::string>& columns,
                                             const CancellationToken& cancellation) const override;
  bool canSkipRows() const override { return original_->canSkipRows(); }
  std::unique_ptr<ChunkReader> openPartitionWhere(
      std::int64_t partition, const std::vector<std::string>& columns,
      const std::vector<RowCondition>& conditions,
      const CancellationToken& cancellation) const override;
  std::unique_ptr<ChunkReader> openRange(const RangeRequest& request,
                                         const CancellationToken& cancellation) const override;
  std::optional<std::int64_t> knownRows(std::int64_t partition) const override;
  std::string fileOf(std::int64_t partition) const override {
    return original_->fileOf(rangeOf(partition).first);
  }
  std::vector<std::string> files() const override { return original_->files(); }
  std::int64_t estimateBytes(std::int64_t partition,
                             const std::vector<std::string>& columns) const override;
  int maxReadFailures() const override { return maxReadFailures_; }
  Chunk preview(std::int64_t rows) const override { return original_->preview(rows); }
  Chunk emptyChunk(std::int64_t partition, const std::vector<std::string>& columns) const override {
    return original_->emptyChunk(partition, columns);
  }
  std::unique_ptr<Datastore> copy() const override;
  const std::string& fingerprint() const override { return fingerprint_; }

  /// The ranges aren't part of it: units carry them.
  std::string describe() const override;
  std::string displayName() const override { return original_->displayName(); }
  std::string formatNote() const override { return original_->formatNote(); }

 private:
  friend std::shared_ptr<const Datastore> openDescribedPartitions(
      std::shared_ptr<const Datastore> original, ByteReader& description);
  PartitionedSource() = default;

  std::shared_ptr<const Datastore> original_;
  std::vector<SourceRange> ranges_;  ///< none in a source that was opened from its description
  std::int64_t numPartitions_ = 0;
  int maxReadFailures_ = 0;
  std::string fingerprint_;
};

/// Reads what follows the description of the original in a description.
/// Errors: "KALVEX:executor:BadBytes".
std::shared_ptr<const Datastore> openDescribedPartitions(std::shared_ptr<const Datastore> original,
                                                         ByteReader& description);

}  // namespace kv::runtime
