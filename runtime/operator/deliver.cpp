// Frames go to a function in the client, in the order of partitions. A unit keeps its frames, and
// the merge hands them over; since few units run ahead of the merge, no more wait than those have.
// Where order doesn't matter, or units run one by one, a unit hands its frames over itself.

#include <cassert>
#include <memory>
#include <utility>

#include "column/allocate.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

/// Where the rows of a partition are that a function has had.
struct Delivery {
  MergeScope scope;
  PartitionPlace place{};
  OutputTypes types{};
  bool isStopped = false;

  void give(const std::vector<Chunk>& frame, bool isLast) {
    std::vector<FunctionInput> inputs;
    for (const Chunk& rows : frame) {
      inputs.push_back({rows});
    }
    place.numPartitions = scope.numPartitions;
    place.isLast = {isLast};
    isStopped = scope.functions
                    .callPartition(scope.step, frame.front(), inputs, place,
                                   /*returnsUnused=*/false, types)
                    .isFinished;
    place.firstRow[0] += frame.front().rows();
  }
};

class KeepFrames final : public SinkRun {
 public:
  explicit KeepFrames(OutputTypes& types) { types.noteCall(); }

  void process(const StepInputs& inputs) override {
    inputs.sharedRows();  // refuses what isn't matching rows
    for (std::size_t input = 0; input < inputs.size() && inputs.chunk(0).rows() > 0; ++input) {
      frames_.push_back(inputs.array(input));
    }
  }

  SinkResult finish() override { return {.chunks = std::move(frames_)}; }

 private:
  std::vector<Chunk> frames_;  ///< a chunk of each input, then the next of each
};

/// Hands frames over as they come; each waits for the next, which shows whether it is the last.
class GiveFrames final : public SinkRun {
 public:
  explicit GiveFrames(const StepScope& scope)
      : delivery_{{scope.step, scope.label, scope.functions, scope.numPartitions}},
        types_(scope.types) {}

  void process(const StepInputs& inputs) override {
    types_.noteCall();
    inputs.sharedRows();
    if (inputs.chunk(0).rows() > 0 && !delivery_.isStopped) {
      give(false);
      for (std::size_t input = 0; input < inputs.size(); ++input) {
        waiting_.push_back(inputs.array(input));
      }
    }
  }

  SinkResult finish() override {
    give(true);
    return {.partial = delivery_.isStopped ? "stopped" : ""};
  }

  bool wantsMore() const override { return !delivery_.isStopped; }

 private:
  void give(bool isLast) {
    if (!waiting_.empty() && !delivery_.isStopped) {
      delivery_.place.firstRow.resize(1);
      delivery_.give(waiting_, isLast);
    }
    waiting_.clear();
  }

  Delivery delivery_;
  OutputTypes& types_;
  std::vector<Chunk> waiting_;
};

class DeliverMerge final : public SinkMerge {
 public:
  DeliverMerge(const MergeScope& scope, std::size_t numInputs)
      : delivery_{scope}, numInputs_(numInputs) {}

  void add(SinkResult result) override {
    delivery_.place.firstRow = {0};
    delivery_.isStopped = delivery_.isStopped || !result.partial.empty();
    const auto step = static_cast<std::ptrdiff_t>(numInputs_);
    for (auto next = result.chunks.begin(); next != result.chunks.end() && !delivery_.isStopped;
         next += step) {
      delivery_.give({next, next + step}, next + step == result.chunks.end());
    }
  }

  bool wantsMore() const override { return !delivery_.isStopped; }

  /// Whether the function has asked for no more.
  MergedSink finish() override {
    const auto isStopped = static_cast<std::uint8_t>(delivery_.isStopped);
    return {.arrays = {{.ordinals = RowOrdinals(0, 1),
                        .columns = {scalarColumn(ElementType::Logical, isStopped)}}}};
  }

 private:
  Delivery delivery_;
  std::size_t numInputs_;
};

class Deliver final : public SinkOperator {
 public:
  Deliver(std::size_t numInputs, bool isOrdered)
      : SinkOperator({.name = "deliver",
                      .callsUser = true,
                      .seesFrames = true,
                      .keepsForOrder = isOrdered,
                      .hasSideEffects = true}),
        numInputs_(numInputs),
        isOrdered_(isOrdered) {}

  std::string planNote() const override {
    return isOrdered_ ? "in the order of partitions" : "in any order of partitions";
  }

  std::unique_ptr<SinkRun> start(const StepScope& scope) const override {
    if (isOrdered_ && !scope.functions.runsInOrder()) {
      return std::make_unique<KeepFrames>(scope.types);
    }
    return std::make_unique<GiveFrames>(scope);
  }
  std::unique_ptr<SinkMerge> startMerge(const MergeScope& scope) const override {
    return std::make_unique<DeliverMerge>(scope, numInputs_);
  }

  void write(ByteWriter& bytes) const override {
    bytes.number<std::uint64_t>(numInputs_);
    bytes.flag(isOrdered_);
  }

 private:
  std::size_t numInputs_;
  bool isOrdered_;
};

}  // namespace

OperatorPtr makeDeliver(std::size_t numInputs, bool isOrdered) {
  assert(numInputs > 0);
  return std::make_shared<Deliver>(numInputs, isOrdered);
}

namespace {

OperatorPtr readDeliver(ByteReader& bytes) {
  const auto numInputs = bytes.number<std::uint64_t>();
  if (numInputs == 0) {
    bytes.refuse();
  }
  return makeDeliver(numInputs, bytes.flag());
}

void describeForeach(const RecordedOperation& operation, OpSpec& spec) {
  noteFunction(operation, spec);
  spec.callsUser = true;
  spec.isFree = false;  // it is called in the client
  spec.op = makeDeliver(spec.numInputs, operation.flag("IsOrdered"));
  spec.wholeRun = WholeRun::HandOver;
}

}  // namespace

const OperatorRow& deliverRow() {
  static const OperatorRow row{"deliver",
                               readDeliver,
                               {{.name = "kalvex.bigdata.internal.lazyeval.ClientForeachOperation",
                                 .inputs = {"FunctionHandle", "IsOrdered", "NumInputs"},
                                 .arity = kHandedOver,
                                 .describe = describeForeach}}};
  return row;
}

}  // namespace kv::runtime
