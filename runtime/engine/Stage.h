#pragma once

#include <arrow/type_fwd.h>

#include <cassert>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/Step.h"
#include "engine/cuts.h"
#include "kv/runtime/Datastore.h"
#include "operator/ColumnNeeds.h"
#include "operator/StageInput.h"

namespace kv::runtime {

/// A source that a stage reads.
struct StageSource {
  std::shared_ptr<const Datastore> store{};
  std::vector<std::string> columns{};  ///< to read, in the order of the schema: all that steps need
};

/// The steps between the reading of one source and the results of a pass over it, in an order in
/// which each comes after its inputs. Results are those of steps that end rows.
///
/// The steps form segments: segment 0 runs on the chunks of the stage's rows, and each flow step
/// starts another, which runs on the chunks that it emits. Arrays in memory that have the same rows
/// are read side by side.
///
/// Immutable; refers to no host object; may be given to any number of workers, and has a form in
/// bytes.
class Stage {
 public:
  /// `outputs`: the steps whose results the stage gives. `inputs`: the values that steps take
  /// besides rows.
  /// Requires: the order of steps above; the outputs end rows.
  /// Errors: "KALVEX:array:DifferentSources" with both names if steps read sources of other rows.
  Stage(std::vector<Step> steps, std::vector<std::size_t> outputs,
        std::vector<StageInput> inputs = {});

  const std::vector<Step>& steps() const { return steps_; }
  const std::vector<std::size_t>& outputs() const { return outputs_; }

  const std::vector<StageInput>& inputs() const { return inputs_; }

  /// How the rows of a step's result are cut.
  const Cut& cutOf(std::size_t step) const { return cuts_[step]; }

  /// The segment in which an input of a step is there.
  std::size_t segmentOf(const StepLink& link) const {
    return (link.isStageInput ? inputCuts_[link.index] : cuts_[link.index]).segment;
  }

  /// True if an input's rows are those that a step of the stage makes.
  bool isMade(std::size_t input) const { return inputCuts_[input].madeBy.has_value(); }

  /// False if a step other than a flow step has rows of two segments: such a stage can't run.
  bool isAligned() const { return isAligned_; }

  /// For each segment its steps, in order: those that run in it, and the flow steps that take rows
  /// from it.
  const std::vector<std::vector<std::size_t>>& segments() const { return segments_; }

  /// What made the rows of an input, as messages show it: the step before those that pass on their
  /// inputs' rows.
  const std::string& originOf(const StepLink& link) const;

  /// Steps by the last step that reads their results.
  const std::vector<std::size_t>& usedUpAfter(std::size_t step) const { return usedUp_[step]; }

  /// The sources that steps read; none if all rows are in its inputs.
  const std::vector<StageSource>& sources() const { return sources_; }

  /// The number of the source that a step reads.
  /// Requires: the step reads one.
  std::size_t sourceOf(std::size_t step) const {
    assert(sourceOf_.contains(step));
    return sourceOf_.at(step);
  }

  /// The first step that reads a source.
  std::size_t readStep() const { return sourceOf_.empty() ? 0 : sourceOf_.begin()->first; }

  /// True if a step calls a user-defined function.
  bool callsUser() const;

  /// All that a process needs to run the stage, but for users' functions.
  std::string toBytes() const;

  /// The stage that `toBytes` wrote; its source is opened from its description.
  /// Errors: "KALVEX:executor:BadBytes" (StepError); std::bad_alloc when memory is short.
  static Stage fromBytes(std::string_view bytes, arrow::MemoryPool* pool);

 private:
  void findSegments();
  void findOrigins();
  void findLastUses();
  void findSources();

  std::vector<Step> steps_;
  std::vector<std::size_t> outputs_;
  std::vector<StageInput> inputs_;
  std::vector<Cut> cuts_;
  std::vector<Cut> inputCuts_;
  bool isAligned_ = true;
  std::vector<std::vector<std::size_t>> segments_;
  std::vector<std::string> origins_;           ///< of the steps
  std::vector<std::vector<StepLink>> passed_;  ///< what each step passes on, by output
  std::vector<std::vector<std::size_t>> usedUp_;
  std::vector<StageSource> sources_;
  std::map<std::size_t, std::size_t> sourceOf_;  ///< of the steps that read
};

}  // namespace kv::runtime
