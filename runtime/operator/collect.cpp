#include <algorithm>
#include <utility>

#include "column/concatenate.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

/// Chunks are joined to pieces of this size. Otherwise the small buffers of a result that grows lie
/// among those that each unit frees, and keep the allocator from giving that memory back.
constexpr std::int64_t kJoinedBytes = std::int64_t{4} << 20;

bool haveOneType(const Column& a, const Column& b) {
  return a.type() == b.type() && a.isNullable() == b.isNullable();
}

bool haveSameNames(const Chunk& a, const Chunk& b) {
  return a.names == b.names || (a.names != nullptr && b.names != nullptr && *a.names == *b.names);
}

bool canBeJoined(const Chunk& a, const Chunk& b) {
  return haveSameNames(a, b) && a.trailing == b.trailing &&
         std::ranges::equal(a.columns, b.columns, haveOneType);
}

std::int64_t bytesOf(const Chunk& chunk) {
  const std::int64_t listed = chunk.ordinals.isRange() ? 0 : chunk.rows();
  return chunk.byteSize() + listed * static_cast<std::int64_t>(sizeof(std::int64_t));
}

class CollectRun final : public SinkRun {
 public:
  void process(const StepInputs& inputs) override {
    const Chunk& chunk = inputs.chunk(0);
    if (pendingBytes_ >= kJoinedBytes ||
        (!pending_.empty() && !canBeJoined(pending_.front(), chunk))) {
      joinPending();
    }
    const std::int64_t bytes = bytesOf(chunk);
    pending_.push_back(chunk);
    keptBytes_ += bytes;
    pendingBytes_ += bytes;
  }

  std::int64_t keptBytes() const override { return keptBytes_; }

  SinkResult finish() override {
    joinPending();
    return {.chunks = std::move(chunks_)};
  }

 private:
  void joinPending() {
    if (!pending_.empty()) {
      chunks_.push_back(concatenate(pending_));
      pending_.clear();
      pendingBytes_ = 0;
    }
  }

  std::vector<Chunk> pending_;
  std::int64_t pendingBytes_ = 0;
  std::vector<Chunk> chunks_;
  std::int64_t keptBytes_ = 0;
};

class CollectMerge final : public SinkMerge {
 public:
  void add(SinkResult result) override {
    for (const Chunk& chunk : result.chunks) {
      keptBytes_ += bytesOf(chunk);
    }
    partitions_.push_back(std::move(result.chunks));
  }

  std::int64_t keptBytes() const override { return keptBytes_; }

  MergedSink finish() override { return {.partitions = std::move(partitions_)}; }

 private:
  std::vector<std::vector<Chunk>> partitions_;
  std::int64_t keptBytes_ = 0;
};

class Collect final : public SinkOperator {
 public:
  Collect() : SinkOperator({.name = "collect", .sinkRows = SinkRows::Kept}) {}

  std::string planNote() const override { return "rows are kept"; }

  std::unique_ptr<SinkRun> start(const StepScope& /*scope*/) const override {
    return std::make_unique<CollectRun>();
  }

  std::unique_ptr<SinkMerge> startMerge(const MergeScope& /*scope*/) const override {
    return std::make_unique<CollectMerge>();
  }
};

}  // namespace

OperatorPtr makeCollect() { return std::make_shared<Collect>(); }

const OperatorRow& collectRow() {
  static const OperatorRow row{"collect", readPlain<makeCollect>};
  return row;
}

}  // namespace kv::runtime
