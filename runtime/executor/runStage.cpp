#include "executor/runStage.h"

#include <algorithm>
#include <cassert>
#include <iterator>
#include <map>
#include <string>
#include <system_error>
#include <utility>
#include <variant>

#include "engine/Unit.h"
#include "engine/memoryFailures.h"
#include "executor/Admission.h"
#include "executor/SerialUnits.h"
#include "executor/ThreadUnits.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/Progress.h"

namespace kv::runtime {

std::unique_ptr<UnitService> makeUnitService(int threads, std::int64_t numPartitions) {
  const auto useful = static_cast<int>(std::min<std::int64_t>(threads, numPartitions));
  if (useful > 1) {
    try {
      return std::make_unique<ThreadUnits>(useful);
    } catch (const std::system_error&) {
      // The system refuses even one thread.
    }
  }
  return std::make_unique<SerialUnits>();
}

namespace {

/// Gives a failure of memory its id. Rows that are kept count as the cause if they have a good part
/// of it.
void nameMemory(UnitResult& result, const OrderedMerge& merge) {
  if (!result.failure) {
    return;
  }
  const Stage& stage = merge.stage();
  const std::int64_t keptBytes = merge.keptBytes() + result.keptBytes;
  if (result.refusal && keptBytes > result.refusal->needBytes / 4) {
    const std::size_t sink = *std::ranges::find_if(stage.outputs(), [&](std::size_t output) {
      return stage.steps()[output].op->facts().sinkRows == SinkRows::Kept;
    });
    if (nameRefusal(*result.failure, kResultTooLarge,
                    stage.originOf(stage.steps()[sink].inputs.front()), result.refusal)) {
      result.failure->step = sink;
    }
  } else {
    nameRefusal(*result.failure, kLimitTooSmall, stage.steps()[result.failure->step].label,
                result.refusal);
  }
}

/// Puts a unit back that was refused memory, unless it had what it would have had on one thread.
/// The unit may not know: an evaluation inside of a user's function reports a limit as its error.
bool postpones(const UnitResult& result, bool wasAlone, Admission& admission, OrderedMerge& merge) {
  const bool isRefused = result.refusal || (result.failure && isOfMemory(*result.failure));
  if (!isRefused || (wasAlone && !merge.hasEarly())) {
    return false;
  }
  admission.postpone(result.partition);
  for (const std::int64_t early : wasAlone ? merge.dropEarly() : std::vector<std::int64_t>{}) {
    admission.postpone(early);
  }
  return true;
}

/// How often a unit of a stage may run: once if others can see that it did.
std::uint32_t mostAttempts(const Stage& stage) {
  const bool hasSideEffects = std::ranges::any_of(
      stage.steps(), [](const Step& step) { return step.op->facts().hasSideEffects; });
  return hasSideEffects ? 1 : kMaxAttempts;
}

/// The result of a unit that was lost for good: a failure.
UnitResult lostResult(const Stage& stage, const UnitLoss& loss, std::uint32_t attempts) {
  UnitResult result{.partition = loss.partition};
  result.failure = errors::recordFailure(std::make_exception_ptr(errors::StepError(
      "KALVEX:executor:UnitLost",
      {std::to_string(loss.partition + 1), std::to_string(attempts), loss.reason})));
  result.failure->step = stage.readStep();
  result.failure->partition = loss.partition;
  return result;
}

/// The units of one stage, from the first that is submitted to the last that is merged.
class StageRun {
 public:
  StageRun(UnitService& units, const StageScope& scope, OrderedMerge& merge, const StageRows& rows,
           std::uint64_t number)
      : units_(units),
        stage_(scope.stage),
        cancellation_(scope.context.cancellation),
        merge_(merge),
        rows_(rows),
        admission_(rows, units.threads()),
        progress_(static_cast<std::int64_t>(number) + 1, rows.numPartitions()),
        unit_{.stage = number, .numPartitions = rows.numPartitions()},
        end_(rows.numPartitions()) {}

  std::optional<errors::FailureRecord> run() {
    while (std::ssize(merge_.partitionRows()) < end_) {
      submitAllowed();
      std::optional<UnitResult> result = takeResult();
      if (!result) {
        continue;
      }
      if (auto failure = merge(*std::move(result))) {
        return failure;
      }
      if (!merge_.wantsMore()) {
        units_.cancelAfter(-1);
        return std::nullopt;
      }
    }
    return merge_.hasUncalledFunction() ? runWithoutRows() : std::nullopt;
  }

 private:
  void submitAllowed() {
    const std::int64_t last = std::ssize(merge_.partitionRows()) + units_.window();
    while (const std::optional<std::int64_t> partition = admission_.next(std::min(end_, last))) {
      unit_.range = rows_.rangeOf(*partition);
      submit(*partition);
    }
  }

  void submit(std::int64_t partition) {
    unit_.partition = partition;
    unit_.attempt = losses_.contains(partition) ? losses_.at(partition) : 0;
    units_.submit(unit_.toBytes());
  }

  /// The result of the next unit that ends; none if that unit runs again.
  std::optional<UnitResult> takeResult() {
    UnitOutcome outcome = nextOutcome();
    const auto partition = std::visit([](const auto& of) { return of.partition; }, outcome);
    const bool wasAlone = admission_.finish(partition);
    std::optional<UnitResult> result = resultOf(std::move(outcome));
    if (!result) {
      admission_.postpone(partition);
      return std::nullopt;
    }
    return postpones(*result, wasAlone, admission_, merge_) ? std::nullopt : std::move(result);
  }

  UnitOutcome nextOutcome() {
    std::optional<UnitOutcome> outcome = units_.next();
    assert(outcome);
    return *std::move(outcome);
  }

  /// None for a unit that was lost and may run again.
  std::optional<UnitResult> resultOf(UnitOutcome outcome) {
    const auto* loss = std::get_if<UnitLoss>(&outcome);
    if (loss == nullptr) {
      return std::get<UnitResult>(std::move(outcome));
    }
    cancellation_.throwIfCancelled();
    const std::uint32_t attempts = ++losses_[loss->partition];
    return attempts < mostAttempts(stage_) ? std::nullopt
                                           : std::optional(lostResult(stage_, *loss, attempts));
  }

  /// Partitions after one that failed aren't needed.
  std::optional<errors::FailureRecord> merge(UnitResult result) {
    if (result.failure) {
      nameMemory(result, merge_);
      end_ = result.partition + 1;
      units_.cancelAfter(result.partition);
      admission_.cancelAfter(result.partition);
    }
    auto failure = merge_.add(std::move(result));
    progress_.setUnits(std::ssize(merge_.partitionRows()));
    return failure;
  }

  std::optional<errors::FailureRecord> runWithoutRows() {
    unit_.knownTypes = merge_.knownTypes();
    std::optional<UnitResult> result;
    while (!result) {
      submit(rows_.numPartitions());
      result = resultOf(nextOutcome());
    }
    nameMemory(*result, merge_);
    return merge_.add(*std::move(result));
  }

  UnitService& units_;
  const Stage& stage_;
  const CancellationToken& cancellation_;
  OrderedMerge& merge_;
  const StageRows& rows_;
  Admission admission_;
  ProgressScope progress_;
  Unit unit_;  ///< the one that was submitted last
  std::int64_t end_;
  std::map<std::int64_t, std::uint32_t> losses_;  ///< by partition
};

}  // namespace

std::optional<errors::FailureRecord> runStage(UnitService& units, const StageScope& stage,
                                              OrderedMerge& merge, const StageRows& rows,
                                              std::uint64_t number) {
  units.begin(stage);
  return StageRun(units, stage, merge, rows, number).run();
}

}  // namespace kv::runtime
