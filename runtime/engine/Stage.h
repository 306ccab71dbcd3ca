#pragma once

#include <arrow/type_fwd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "operator/ColumnNeeds.h"
#include "operator/StageInput.h"
#include "operator/operators.h"

namespace kv::runtime {

/// Where an input of a step comes from: an output of an earlier step, or an input of the stage.
struct StepLink {
  bool isStageInput = false;
  std::size_t index = 0;   ///< of the step, or of the stage's input, from 0
  std::size_t output = 0;  ///< of the step

  bool operator==(const StepLink&) const = default;
};

/// One step of a stage.
struct Step {
  OperatorPtr op;
  std::vector<StepLink> inputs{};
  std::size_t numOutputs = 1;
  std::string label{};   ///< what it does, as plans show it
  std::string origin{};  ///< the user's line, "file:line"; empty if none is known

  /// What the step is called in messages: its label and, if it is known, the user's line.
  std::string describe() const;
};

/// What later steps need of the result of each step; columns that no step needs aren't read.
///
/// Requires: each step comes after its inputs.
std::vector<ColumnNeeds> columnNeeds(const std::vector<Step>& steps);

/// The steps between the reading of one source and the results of a pass over it, in an order in
/// which each comes after its inputs. Results are those of steps that end rows.
///
/// Immutable, apart from `setInputs`; refers to no host object; may be given to any number of
/// workers, and has a form in bytes.
class Stage {
 public:
  /// Works out which columns of the source are needed.
  ///
  /// `outputs`: the steps whose results the stage gives.
  /// Requires: the order of steps above; the outputs end rows.
  /// Errors: "KALVEX:array:DifferentSources" with both names if steps read two sources.
  Stage(std::vector<Step> steps, std::vector<std::size_t> outputs);

  const std::vector<Step>& steps() const { return steps_; }
  const std::vector<std::size_t>& outputs() const { return outputs_; }

  /// The values that steps take besides rows.
  const std::vector<StageInput>& inputs() const { return inputs_; }
  void setInputs(std::vector<StageInput> inputs) { inputs_ = std::move(inputs); }

  /// Steps by the last step that reads their results.
  const std::vector<std::size_t>& usedUpAfter(std::size_t step) const { return usedUp_[step]; }

  /// The source; null if no step reads one.
  const Datastore* source() const { return source_.get(); }

  /// The first step that reads the source.
  std::size_t readStep() const { return readStep_; }

  /// Columns to read, in the order of the source's schema.
  const std::vector<std::string>& columns() const { return columns_; }

  /// True if a step calls a function of the user's own.
  bool callsUser() const;

  /// All that a process needs to run the stage, but for users' functions.
  std::string toBytes() const;

  /// The stage that `toBytes` wrote; its source is opened from its description.
  /// Errors: "KALVEX:executor:BadBytes" (StepError); std::bad_alloc when memory is short.
  static Stage fromBytes(std::string_view bytes, arrow::MemoryPool* pool);

 private:
  void findLastUses();
  void findSource();
  void findColumns();

  std::vector<Step> steps_;
  std::vector<std::size_t> outputs_;
  std::vector<StageInput> inputs_;
  std::vector<std::vector<std::size_t>> usedUp_;
  std::shared_ptr<const Datastore> source_;
  std::size_t readStep_ = 0;
  std::vector<std::string> columns_;
};

}  // namespace kv::runtime
