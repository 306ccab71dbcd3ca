#include <utility>

#include "operator/operators.h"

namespace kv::runtime {

namespace {

class CollectRun final : public StepRun {
 public:
  std::vector<Chunk> process(const StepInputs& inputs) override {
    chunks_.push_back(inputs.chunk(0));
    return {};
  }

  SinkResult finish() override { return {.chunks = std::move(chunks_)}; }

 private:
  std::vector<Chunk> chunks_;
};

class CollectMerge final : public SinkMerge {
 public:
  void add(SinkResult result) override { partitions_.push_back(std::move(result.chunks)); }

  MergedSink finish() override { return {.partitions = std::move(partitions_)}; }

 private:
  std::vector<std::vector<Chunk>> partitions_;
};

class Collect final : public Operator {
 public:
  std::string_view kind() const override { return "collect"; }
  RowEffect rowEffect() const override { return RowEffect::End; }
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
