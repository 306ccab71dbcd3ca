#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "execution/Plan.h"
#include "execution/assembleStage.h"
#include "execution/runUnit.h"
#include "execution/wholeValues.h"
#include "kv/runtime/Cancellation.h"

namespace kv::runtime {

/// What an evaluation did.
struct EvaluationFacts {
  std::int64_t rows = 0;       ///< read from the sources, each source counted once
  int passes = 0;              ///< over the data
  double seconds = 0;          ///< wall time
  std::int64_t peakBytes = 0;  ///< peak resident memory of the process so far
};

/// By fingerprint of a source that has been read: the first row of each partition, and the number
/// of rows behind them.
using SourceRows = std::map<std::string, std::vector<std::int64_t>>;

/// The facts when everything that was asked for is there already.
EvaluationFacts nothingToEvaluate();

/// Runs a plan pass by pass, in this thread, and completes the promises of its results.
///
/// Results of a pass are whole values, which the client's tasks and the next pass read. The
/// partitions of a source are run in order, and what they give is merged in that order.
///
/// Lives: one evaluation; the plan and the token outlive it.
class Evaluation {
 public:
  /// `sourceRows`: what earlier evaluations have learned; this one adds to it.
  Evaluation(const Plan& plan, const CancellationToken& cancellation, SourceRows& sourceRows);

  /// Errors: "KALVEX:array:NotRunnable" with the class of an operation that can't be run,
  ///         "KALVEX:bigdata:array:InvalidTallVersion" with the release that saved an array, before
  ///         anything is run; Cancelled within a chunk of the token's being set; failures of steps
  ///         (see raiseStepFailure). No promise is completed then.
  EvaluationFacts run();

 private:
  const PlanTask& taskOf(const PassSink& sink) const {
    return plan_.tasks[static_cast<std::size_t>(sink.task)];
  }
  void refuseRecordedTasks() const;
  void runClientTasks(int pass);
  void runPass(int pass);
  void runStage(const std::vector<PassSink>& sinks);
  std::vector<std::vector<PassSink>> sinksBySource(int pass) const;
  void placeRows(AssembledStage& assembled) const;
  void noteRows(const Stage& stage, const std::vector<UnitResult>& results);
  void takeResults(const std::vector<PassSink>& sinks, std::vector<UnitResult>& results);
  std::vector<WholeValue> mergeAggregate(const PlanTask& task, std::size_t sink,
                                         const std::vector<UnitResult>& results) const;
  void completePromises();

  const Plan& plan_;
  const CancellationToken& cancellation_;
  WholeValues values_;
  SourceRows& sourceRows_;
  std::set<std::string> sourcesSeen_;
  std::uint64_t nextStage_ = 0;
  EvaluationFacts facts_;
};

}  // namespace kv::runtime
