#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "column/ExecutionContext.h"
#include "driver/PassResults.h"
#include "driver/PlanHandles.h"
#include "driver/WorkerSessions.h"
#include "driver/assembleStage.h"
#include "driver/materialisedValues.h"
#include "engine/memoryFailures.h"
#include "exchange/Scratch.h"
#include "executor/OrderedMerge.h"
#include "executor/scratchSettings.h"
#include "kv/runtime/SessionLease.h"
#include "plan/RowSpaces.h"
#include "plan/Rule.h"
#include "plan/Schedule.h"

namespace kv::runtime {

/// What an evaluation did.
struct EvaluationFacts {
  std::int64_t rows = 0;              ///< read from the sources, each source counted once
  int passes = 0;                     ///< over the data
  double seconds = 0;                 ///< wall time, by the clock of the context
  std::int64_t peakBytes = 0;         ///< peak resident memory of the process so far
  std::int64_t memoryPeakBytes = 0;   ///< the most of the limited memory that the session has used
  std::int64_t memoryLimitBytes = 0;  ///< of the session
  std::int64_t skippedRows = 0;       ///< of the sources, left out by statistics, in all passes
  std::int64_t spilledBytes = 0;      ///< written to scratch files
  int spillLevels = 0;                ///< how often the same rows were spilled, at most
  std::shared_ptr<const RowCut> cut{};  ///< of the one source that was read; null for several
};

/// What an evaluation may use.
struct EvaluationSetup {
  int threads = 1;                    ///< that may run units at a time; 1: the calling thread alone
  SessionLease* lease = nullptr;      ///< what to release while units run; null for nothing
  WorkerSessions::Open openWorker{};  ///< makes sessions for free functions; null for none
  ScratchSettings scratch{};          ///< where to put what doesn't fit in memory
};

/// The facts when everything that was asked for is there already.
EvaluationFacts nothingToEvaluate();

/// Runs a plan by demand and completes the promises of its results. Units run on threads of the
/// evaluation; all that needs the session runs in this one.
///
/// Results of a pass are materialised values, which the client's tasks and the next pass read. What
/// the partitions of a source give is merged in their order. Values that were gathered before run
/// like their source, chunk by chunk, but not as a pass over the data.
///
/// Lives: one evaluation; the plan and what the context refers to outlive it.
class Evaluation {
 public:
  /// `context`: the scratch of `setup` takes the place of its own.
  /// Errors: those of rulesInForce().
  Evaluation(const ClientPlan& client, const ExecutionContext& context, EvaluationSetup setup = {});

  /// Errors: "KALVEX:array:NotRunnable" with the class of an operation that can't be run,
  ///         "KALVEX:bigdata:array:InvalidTallVersion" with the release that saved an array, before
  ///         anything is run (in a branch that a condition chooses, before that branch);
  ///         "KALVEX:array:RowsDiffer" and "KALVEX:array:DifferentSources" likewise for rows that
  ///         can't be combined (see RowSpaces);
  ///         "KALVEX:array:Condition"; Cancelled within a chunk of the token's being set; failures
  ///         of steps (see raiseStepFailure). No promise is completed then.
  EvaluationFacts run();

  /// The outputs of a task that ran, as far as they were results or needed whole; null for others.
  std::vector<MaterialisedValue> takeOutputs(int task);

 private:
  Scratch* usableScratch() { return scratch_.folder().empty() ? nullptr : &scratch_; }
  void refuseTargets() const;
  void refuseWhatCannotRun() const;
  template <class Action>
  void withTask(const PlanTask& task, Action&& action,
                std::string_view memoryId = kLimitTooSmall) const;
  void runInClient(int task);
  void runPass(const std::vector<PassSink>& sinks);
  std::optional<errors::FailureRecord> runUnits(const AssembledStage& assembled,
                                                const StageRows& rows,
                                                const std::vector<PassSink>& sinks,
                                                const std::vector<SinkPlace>& places);
  void refuseLargeResults(const std::vector<PassSink>& sinks, const std::vector<SinkPlace>& places,
                          const std::vector<std::int64_t>& bytes) const;
  std::shared_ptr<const RowCut> noteRows(const Stage& stage, const StageRows& rows,
                                         const OrderedMerge& merge);
  void takeResults(const std::vector<PassSink>& sinks, const std::vector<SinkPlace>& places,
                   PassResults results);
  void completePromises();

  const Plan& plan_;
  const PlanHandles& handles_;
  const Rules rules_;
  const int threads_;
  SessionLease* const lease_;
  Scratch scratch_;
  const ExecutionContext context_;  ///< with that scratch
  WorkerSessions workers_;
  Schedule schedule_;
  const RowSpaces rowSpaces_;
  MaterialisedValues values_;
  std::set<std::string> sourcesSeen_;
  std::uint64_t nextStage_ = 0;
  EvaluationFacts facts_;
};

}  // namespace kv::runtime
