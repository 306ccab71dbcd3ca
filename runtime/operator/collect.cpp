#include <utility>

#include "operator/operators.h"

namespace kv::runtime {

namespace {

std::int64_t bytesOf(const Chunk& chunk) {
  const std::int64_t listed = chunk.ordinals.isRange() ? 0 : chunk.rows();
  return chunk.byteSize() + listed * static_cast<std::int64_t>(sizeof(std::int64_t));
}

class CollectRun final : public StepRun {
 public:
  std::vector<Chunk> process(const StepInputs& inputs) override {
    chunks_.push_back(inputs.chunk(0));
    keptBytes_ += bytesOf(chunks_.back());
    return {};
  }

  std::int64_t keptBytes() const override { return keptBytes_; }

  SinkResult finish() override { return {.chunks = std::move(chunks_)}; }

 private:
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

class Collect final : public Operator {
 public:
  std::string_view kind() const override { return "collect"; }
  RowEffect rowEffect() const override { return RowEffect::End; }
  bool keepsRows() const override { return true; }
  std::string planNote() const override { return "rows are kept"; }

  std::unique_ptr<StepRun> start(const StepScope& /*scope*/) const override {
    return std::make_unique<CollectRun>();
  }

  std::unique_ptr<SinkMerge> startMerge(const MergeScope& /*scope*/) const override {
    return std::make_unique<CollectMerge>();
  }
};

}  // namespace

OperatorPtr makeCollect() { return std::make_shared<Collect>(); }

}  // namespace kv::runtime
