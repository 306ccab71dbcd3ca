#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "driver/materialisedValues.h"
#include "executor/OrderedMerge.h"
#include "plan/PassGraph.h"

namespace kv::runtime {

/// The results of a pass whose units are all merged, as materialised values.
///
/// Lives: stage and merge outlive it.
class PassResults {
 public:
  /// `cut`: of the rows of the pass.
  PassResults(const Stage& stage, OrderedMerge& merge, std::shared_ptr<const RowCut> cut)
      : stage_(stage), merge_(merge), cut_(std::move(cut)) {}

  /// All outputs of a task that ends rows. `rowSpace`: of those that it makes of its own.
  /// Errors: those of the operator.
  std::vector<MaterialisedValue> allOf(const PlanTask& task, const SinkPlace& place,
                                       std::string rowSpace);

  /// The rows of an output of a task, kept as they were.
  MaterialisedValue rowsOf(const PlanTask& task, const SinkPlace& place);

 private:
  MergedSink& mergedAt(std::size_t output);
  std::shared_ptr<const RowCut> cutOfMade(std::size_t step) const;

  const Stage& stage_;
  OrderedMerge& merge_;
  std::shared_ptr<const RowCut> cut_;
  std::map<std::size_t, MergedSink> merged_;  ///< by output: several sinks may have one
};

}  // namespace kv::runtime
