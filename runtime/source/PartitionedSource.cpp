// Another source, cut as a user's strategy says: several partitions as one, or some of them only.
// Rows are numbered through in each new partition, so a reader passes from one of the source's
// partitions to the next.

#include "source/PartitionedSource.h"

#include <algorithm>
#include <cassert>
#include <iterator>
#include <limits>
#include <optional>
#include <utility>

#include "kv/errors/StepError.h"
#include "source/Fingerprint.h"

namespace kv::runtime {

namespace {

/// Reads consecutive partitions as one; the rows are numbered through.
class RangeReader final : public ChunkReader {
 public:
  RangeReader(std::shared_ptr<const Datastore> source, RangeRequest request,
              const CancellationToken& cancellation)
      : source_(std::move(source)), request_(std::move(request)), cancellation_(cancellation) {}

  std::optional<Chunk> next() override {
    while (reader_ != nullptr || request_.range.count > 0) {
      if (reader_ == nullptr) {
        reader_ = source_->openPartitionWhere(request_.range.first++, request_.columns,
                                              request_.conditions, cancellation_);
        --request_.range.count;
      }
      if (std::optional<Chunk> chunk = reader_->next()) {
        assert(chunk->ordinals.isRange());
        returned_ += chunk->rows();
        chunk->partition = request_.partition;
        chunk->ordinals = RowOrdinals(before_ + chunk->ordinals.at(0), chunk->rows());
        return chunk;
      }
      skipped_ += reader_->skippedRows();
      before_ = returned_ + skipped_;
      reader_.reset();
    }
    return std::nullopt;
  }

  std::int64_t skippedRows() const override {
    return skipped_ + (reader_ != nullptr ? reader_->skippedRows() : 0);
  }

 private:
  std::shared_ptr<const Datastore> source_;
  RangeRequest request_;  ///< of its range, what hasn't been opened yet
  const CancellationToken& cancellation_;
  std::unique_ptr<ChunkReader> reader_;
  std::int64_t returned_ = 0;
  std::int64_t skipped_ = 0;  ///< in partitions that have been read
  std::int64_t before_ = 0;   ///< rows of these
};

bool areWithin(const SourceRange& range, std::int64_t numPartitions) {
  return range.first >= 0 && range.count >= 0 && range.first <= numPartitions &&
         range.count <= numPartitions - range.first;
}

/// Arrays in memory have the row space of positions only in their own cuts.
std::string fingerprintOf(const Datastore& original, const std::vector<SourceRange>& ranges) {
  bool isSame = std::ssize(ranges) == original.numPartitions() && original.asArrays() == nullptr;
  Fingerprint print;
  print.add(original.fingerprint());
  for (std::size_t i = 0; i < ranges.size(); ++i) {
    isSame = isSame && ranges[i] == original.rangeOf(static_cast<std::int64_t>(i));
    print.add(ranges[i].first).add(ranges[i].count);
  }
  return isSame ? original.fingerprint() : print.digits();
}

}  // namespace

PartitionedSource::PartitionedSource(std::shared_ptr<const Datastore> original,
                                     std::vector<SourceRange> ranges, int maxReadFailures)
    : original_(std::move(original)),
      ranges_(std::move(ranges)),
      numPartitions_(std::ssize(ranges_)),
      maxReadFailures_(maxReadFailures),
      fingerprint_(fingerprintOf(*original_, ranges_)) {
  assert(!ranges_.empty());
  assert(std::ranges::all_of(ranges_, [this](const SourceRange& range) {
    return areWithin(range, original_->numPartitions());
  }));
}

SourceRange PartitionedSource::rangeOf(std::int64_t partition) const {
  assert(partition >= 0 && partition < numPartitions_);
  return ranges_.at(static_cast<std::size_t>(partition));
}

std::unique_ptr<ChunkReader> PartitionedSource::openPartition(
    std::int64_t partition, const std::vector<std::string>& columns,
    const CancellationToken& cancellation) const {
  return openPartitionWhere(partition, columns, {}, cancellation);
}

std::unique_ptr<ChunkReader> PartitionedSource::openPartitionWhere(
    std::int64_t partition, const std::vector<std::string>& columns,
    const std::vector<RowCondition>& conditions, const CancellationToken& cancellation) const {
  assert(canCheck(conditions));
  return openRange({partition, rangeOf(partition), columns, conditions}, cancellation);
}

std::unique_ptr<ChunkReader> PartitionedSource::openRange(
    const RangeRequest& request, const CancellationToken& cancellation) const {
  if (!areWithin(request.range, original_->numPartitions())) {
    errors::raiseStep("KALVEX:executor:BadBytes", {"a unit of work"});
  }
  return std::make_unique<RangeReader>(original_, request, cancellation);
}

std::optional<std::int64_t> PartitionedSource::knownRows(std::int64_t partition) const {
  const SourceRange range = rangeOf(partition);
  std::int64_t rows = 0;
  for (std::int64_t i = range.first; i < range.first + range.count; ++i) {
    const std::optional<std::int64_t> known = original_->knownRows(i);
    if (!known) {
      return std::nullopt;
    }
    rows += *known;
  }
  return rows;
}

/// One partition of the original is read at a time.
std::int64_t PartitionedSource::estimateBytes(std::int64_t partition,
                                              const std::vector<std::string>& columns) const {
  const SourceRange range = rangeOf(partition);
  return range.count > 0 ? original_->estimateBytes(range.first, columns) : 0;
}

std::unique_ptr<Datastore> PartitionedSource::copy() const {
  return std::make_unique<PartitionedSource>(*this);
}

std::string PartitionedSource::describe() const {
  ByteWriter bytes;
  bytes.text(kPartitionedFormat);
  bytes.text(original_->describe());
  bytes.number(numPartitions_);
  bytes.number<std::int64_t>(maxReadFailures_);
  bytes.text(fingerprint_);
  return bytes.take();
}

std::shared_ptr<const Datastore> openDescribedPartitions(std::shared_ptr<const Datastore> original,
                                                         ByteReader& description) {
  const std::shared_ptr<PartitionedSource> source(new PartitionedSource());
  source->original_ = std::move(original);
  source->numPartitions_ = description.number<std::int64_t>();
  const auto failures = description.number<std::int64_t>();
  source->fingerprint_ = description.text();
  if (source->numPartitions_ < 1 || failures < 0 || failures > std::numeric_limits<int>::max()) {
    description.refuse();
  }
  source->maxReadFailures_ = static_cast<int>(failures);
  return source;
}

}  // namespace kv::runtime
