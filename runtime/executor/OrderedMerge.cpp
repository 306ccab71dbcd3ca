#include "executor/OrderedMerge.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "kv/errors/PassThrough.h"

namespace kv::runtime {

OrderedMerge::OrderedMerge(const Stage& stage, UserFunctions& functions, std::int64_t numPartitions)
    : stage_(stage) {
  for (const std::size_t output : stage.outputs()) {
    const Step& step = stage.steps()[output];
    const auto* sink = step.op->as<SinkOperator>();
    assert(sink != nullptr);
    merges_.push_back(sink->startMerge({output, step.label, functions, numPartitions}));
  }
}

std::optional<errors::FailureRecord> OrderedMerge::add(UnitResult result) {
  const std::int64_t partition = result.partition;
  early_.emplace(partition, std::move(result));
  while (!early_.empty() && wantsMore() &&
         early_.begin()->first == static_cast<std::int64_t>(partitionRows_.size())) {
    UnitResult next = std::move(early_.begin()->second);
    early_.erase(early_.begin());
    if (std::optional<errors::FailureRecord> failure = merge(std::move(next))) {
      return failure;
    }
  }
  return std::nullopt;
}

bool OrderedMerge::wantsMore() const {
  return merges_.empty() ||
         std::ranges::any_of(merges_, [](const auto& merge) { return merge->wantsMore(); });
}

std::vector<std::int64_t> OrderedMerge::dropEarly() {
  std::vector<std::int64_t> partitions;
  for (const auto& [partition, result] : early_) {
    partitions.push_back(partition);
  }
  early_.clear();
  return partitions;
}

std::int64_t OrderedMerge::keptBytes() const {
  std::int64_t bytes = 0;
  for (const auto& merge : merges_) {
    bytes += merge->keptBytes();
  }
  return bytes;
}

/// Types come first: a function that returned two has failed before its results are of use.
std::optional<errors::FailureRecord> OrderedMerge::merge(UnitResult result) {
  partitionRows_.push_back(result.rows);
  skippedRows_ += result.skippedRows;
  for (const auto& [step, rows] : result.madeRows) {
    madeRows_[step][result.partition] = rows;
  }
  if (std::optional<errors::FailureRecord> failure = addTypes(result)) {
    return failure;
  }
  if (result.failure) {
    return std::move(result.failure);
  }
  std::optional<errors::FailureRecord> failure;
  for (std::size_t sink = 0; sink < merges_.size() && !failure; ++sink) {
    errors::catchingFailures([&] { merges_[sink]->add(std::move(result.sinks[sink])); },
                             [&](const std::exception_ptr& thrown) {
                               failure = errors::recordFailure(thrown);
                               failure->step = stage_.outputs()[sink];
                               failure->partition = result.partition;
                             });
  }
  return failure;
}

std::optional<errors::FailureRecord> OrderedMerge::addTypes(const UnitResult& result) {
  std::optional<errors::FailureRecord> failure;
  for (const auto& [step, ofUnit] : result.types) {
    OutputTypes& known = types_[step];
    known.noteCall();
    for (std::size_t output = 0; output < ofUnit.seen().size() && !failure; ++output) {
      const std::optional<OutputTypes::Seen>& seen = ofUnit.seen()[output];
      if (!seen) {
        continue;
      }
      errors::catchingFailures(
          [&] { known.add(stage_.steps()[step].label, output, seen->type, seen->rows); },
          [&, step = step](const std::exception_ptr& thrown) {
            failure = errors::recordFailure(thrown);
            failure->step = step;
            failure->partition = result.partition;
            failure->firstRow = seen->rows.first;
            failure->lastRow = seen->rows.last;
          });
    }
  }
  return failure;
}

std::vector<std::int64_t> OrderedMerge::madeRows(std::size_t step,
                                                 std::int64_t numPartitions) const {
  std::vector<std::int64_t> rows(static_cast<std::size_t>(numPartitions));
  const auto made = madeRows_.find(step);
  for (const auto& [partition, count] :
       made != madeRows_.end() ? made->second : std::map<std::int64_t, std::int64_t>{}) {
    rows[static_cast<std::size_t>(std::min(partition, numPartitions - 1))] += count;
  }
  return rows;
}

bool OrderedMerge::hasUncalledFunction() const {
  for (std::size_t step = 0; step < stage_.steps().size(); ++step) {
    if (stage_.steps()[step].op->facts().callsUser && !types_.contains(step)) {
      return true;
    }
  }
  return false;
}

KnownTypes OrderedMerge::knownTypes() const {
  KnownTypes known;
  for (const auto& [step, types] : types_) {
    std::vector<ArrayType>& ofStep = known[step];
    for (std::size_t output = 0; output < stage_.steps()[step].numOutputs; ++output) {
      const bool isKnown = output < types.seen().size() && types.seen()[output];
      ofStep.push_back(isKnown ? types.seen()[output]->type : ArrayType{});
    }
  }
  return known;
}

}  // namespace kv::runtime
