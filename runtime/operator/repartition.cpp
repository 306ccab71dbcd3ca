// Rows to the partitions that an index names. Each unit sorts its rows by target; a target has
// those of source partition 0 first, in their order, then those of partition 1, and so on.

#include <arrow/buffer.h>
#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <string>
#include <utility>

#include "column/Validity.h"
#include "column/arrays.h"
#include "column/concatenate.h"
#include "column/elementTypes.h"
#include "column/joinChunks.h"
#include "exchange/GroupKeys.h"
#include "kv/errors/StepError.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

[[noreturn]] void refuseIndex(const RowOrdinals& rows, std::int64_t row, double value,
                              std::int64_t partitions) {
  errors::raiseStep(
      "KALVEX:array:PartitionIndex",
      {std::to_string(rows.at(row) + 1), std::isnan(value) ? "missing" : fmt::format("{}", value),
       std::to_string(partitions)});
}

/// The rows of each target, from 0, by their places.
std::map<std::int64_t, std::vector<std::uint64_t>> placesByTarget(const Column& index,
                                                                  const RowOrdinals& rows,
                                                                  std::int64_t partitions) {
  std::map<std::int64_t, std::vector<std::uint64_t>> places;
  const Validity validity(index);
  visitNumeric(index.type(), [&]<class T>() {
    const auto values = index.values<T>();
    for (std::size_t row = 0; row < values.size(); ++row) {
      const auto at = static_cast<std::int64_t>(row);
      const double value = validity.isNull(at) ? kMissing : static_cast<double>(values[row]);
      if (!(value >= 1 && value <= static_cast<double>(partitions) && std::trunc(value) == value)) {
        refuseIndex(rows, at, value, partitions);
      }
      places[static_cast<std::int64_t>(value) - 1].push_back(row);
    }
  });
  return places;
}

Chunk rowsAt(const Chunk& chunk, const std::vector<std::uint64_t>& places) {
  const Column taken(ElementType::UInt64, std::ssize(places),
                     arrow::Buffer::Wrap(places.data(), places.size()));
  Chunk rows{chunk.partition, RowOrdinals(0, taken.rows()), chunk.names, {}, chunk.trailing};
  for (const Column& column : chunk.columns) {
    rows.columns.push_back(takeRows(column, taken));
  }
  return rows;
}

/// The rows of several targets, each in order, piece by piece.
class Targets {
 public:
  void add(std::int64_t target, std::size_t input, Chunk piece) {
    std::vector<std::vector<Chunk>>& inputs = pieces_[target];
    inputs.resize(std::max(inputs.size(), input + 1));
    inputs[input].push_back(std::move(piece));
  }

  /// The pieces of an input, those of each target one after the other.
  std::vector<Chunk> take(std::size_t input) {
    std::vector<Chunk> all;
    for (auto& [target, inputs] : pieces_) {
      std::ranges::move(inputs[input], std::back_inserter(all));
    }
    return all;
  }

  const auto& pieces() const { return pieces_; }

 private:
  std::map<std::int64_t, std::vector<std::vector<Chunk>>> pieces_;
};

/// What a unit gathers: a target and a chunk of each input, again and again.
class RepartitionRun final : public SinkRun {
 public:
  explicit RepartitionRun(std::int64_t partitions) : partitions_(partitions) {}

  void process(const StepInputs& inputs) override {
    const Column& index = inputs.column(0);
    if (index.type() == ElementType::String || isTime(index.type())) {
      errors::raiseStep("KALVEX:function:BadTypes",
                        {std::string(inputs.label()), std::string(elementTypeName(index.type()))});
    }
    for (std::size_t input = 1; input < inputs.size(); ++input) {
      inputs.requireSameRows(0, input);
      if (types_.size() < input) {
        types_.push_back(slice(inputs.chunk(input), 0, 0));
      }
    }
    for (const auto& [target, places] :
         placesByTarget(index, inputs.chunk(0).ordinals, partitions_)) {
      for (std::size_t input = 1; input < inputs.size(); ++input) {
        targets_.add(target, input - 1, rowsAt(inputs.chunk(input), places));
      }
    }
  }

  SinkResult finish() override {
    SinkResult result{.chunks = types_};
    ByteWriter numbers;
    for (const auto& [target, inputs] : targets_.pieces()) {
      numbers.number(target);
      for (const std::vector<Chunk>& pieces : inputs) {
        result.chunks.push_back(joinChunks(pieces));
      }
    }
    result.partial = numbers.take();
    return result;
  }

 private:
  std::int64_t partitions_;
  std::vector<Chunk> types_;  ///< of the inputs, without rows
  Targets targets_;
};

class RepartitionMerge final : public SinkMerge {
 public:
  explicit RepartitionMerge(std::int64_t partitions) : partitions_(partitions) {}

  void add(SinkResult result) override {
    ByteReader numbers(result.partial, "rows for other partitions");
    const std::size_t targets = result.partial.size() / sizeof(std::int64_t);
    const std::size_t inputs = result.chunks.size() / (targets + 1);
    std::size_t next = inputs;
    if (types_.empty()) {
      types_.assign(result.chunks.begin(), result.chunks.begin() + static_cast<long>(inputs));
    }
    for (std::size_t i = 0; i < targets; ++i) {
      const auto target = numbers.number<std::int64_t>();
      for (std::size_t input = 0; input < inputs; ++input) {
        targets_.add(target, input, std::move(result.chunks.at(next++)));
      }
    }
    numbers.finish();
  }

  MergedSink finish() override {
    MergedSink merged;
    merged.partitionRows.resize(static_cast<std::size_t>(partitions_));
    for (const auto& [target, inputs] : targets_.pieces()) {
      for (const Chunk& piece : inputs.front()) {
        merged.partitionRows.at(static_cast<std::size_t>(target)) += piece.rows();
      }
    }
    for (std::size_t input = 0; input < types_.size(); ++input) {
      std::vector<Chunk> pieces = targets_.take(input);
      pieces.insert(pieces.begin(), types_[input]);
      merged.arrays.push_back(joinChunks(std::move(pieces)));
    }
    return merged;
  }

 private:
  std::int64_t partitions_;
  std::vector<Chunk> types_;
  Targets targets_;
};

class Repartition final : public SinkOperator {
 public:
  explicit Repartition(std::int64_t partitions)
      : SinkOperator(
            {.name = "repartition", .sinkRows = SinkRows::Made, .madePartitions = partitions}) {}

  std::string planNote() const override {
    return fmt::format("rows of {} other partition{}", partitions(), partitions() == 1 ? "" : "s");
  }

  std::unique_ptr<SinkRun> start(const StepScope& /*scope*/) const override {
    return std::make_unique<RepartitionRun>(partitions());
  }

  std::unique_ptr<SinkMerge> startMerge(const MergeScope& /*scope*/) const override {
    return std::make_unique<RepartitionMerge>(partitions());
  }

  void write(ByteWriter& bytes) const override { bytes.number(partitions()); }

 private:
  std::int64_t partitions() const { return facts().madePartitions; }
};

}  // namespace

OperatorPtr makeRepartition(std::int64_t partitions) {
  assert(partitions >= 1 && partitions <= kMaxMadePartitions);
  return std::make_shared<Repartition>(partitions);
}

namespace {

OperatorPtr readRepartition(ByteReader& bytes) {
  const auto partitions = bytes.number<std::int64_t>();
  if (partitions < 1 || partitions > kMaxMadePartitions) {
    bytes.refuse();
  }
  return makeRepartition(partitions);
}

void describeRepartition(const RecordedOperation& operation, OpSpec& spec) {
  spec.op = makeRepartition(operation.partitionsOf("OutputPartitionStrategy", kMaxMadePartitions));
  spec.wholeRun = WholeRun::RunOperator;
  spec.label = "repartition";
}

}  // namespace

const OperatorRow& repartitionRow() {
  static const OperatorRow row{"repartition",
                               readRepartition,
                               {{.name = "kalvex.bigdata.internal.lazyeval.RepartitionOperation",
                                 .inputs = {"OutputPartitionStrategy", "NumKept"},
                                 .arity = kSelection,
                                 .describe = describeRepartition}}};
  return row;
}

}  // namespace kv::runtime
