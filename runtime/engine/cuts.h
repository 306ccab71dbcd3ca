#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "column/RowPlaces.h"
#include "engine/Step.h"

/// How the rows of steps are cut into chunks.
namespace kv::runtime {

/// The cut of a step's result: arrays of the same rows and cut run side by side, in one segment.
struct Cut {
  std::size_t segment = 0;     ///< 0: as the stage's rows come; else as a flow step emits them
  std::int64_t frameRows = 0;  ///< how many rows users' functions are to see; 0: none was asked for
  bool isFramed = false;       ///< each chunk is such a frame
  std::optional<std::size_t> madeBy{};  ///< the step that made the rows; none: those of the stage
};

/// The places of the inputs of a stage; null for a value that isn't known to be rows.
using InputPlaces = std::vector<const RowPlaces*>;

/// Finds the cut of each step's result, one step after the other.
///
/// Lives: the places outlive it.
class CutFinder {
 public:
  explicit CutFinder(InputPlaces inputs) : inputs_(std::move(inputs)) {}

  /// Requires: the step comes after its inputs, and after the one that makes the rows of values
  ///           whose places are among them.
  const Cut& add(const Step& step);

  /// True if all inputs of the step that have rows are in one segment.
  bool isAligned(const Step& step) const;

  /// The inputs of a step that have rows.
  std::vector<std::size_t> rowInputs(const Step& step) const;

  Cut cutOf(const StepLink& link) const;

  /// The least number of rows that was asked for the inputs of a step; 0 if none was.
  std::int64_t frameRowsOf(const Step& step) const;

  /// True if all inputs of the step that have rows are frames of as many rows in one segment.
  bool isFramed(const Step& step) const;

 private:
  bool hasPlaces(const StepLink& link) const {
    return link.isStageInput && link.index < inputs_.size() && inputs_[link.index] != nullptr;
  }

  InputPlaces inputs_;
  std::vector<Cut> cuts_;            ///< of the steps
  std::map<std::string, Cut> made_;  ///< of the steps that make rows, by row space
  std::size_t segments_ = 1;
};

/// Steps that can run, and which they were before.
struct AlignedSteps {
  std::vector<Step> steps{};
  std::vector<std::size_t> madeFor{};  ///< by step: the step before that it is, or that needs it
  std::vector<std::size_t> placeOf{};  ///< by step before: its place now
};

/// Puts flow steps between steps where rows must be cut anew: a zip where a step has inputs of
/// different cuts; frames before a user-defined function that sees frames, or is to see as many
/// rows at a time as was asked for.
///
/// Requires: each step comes after its inputs.
AlignedSteps alignCuts(std::vector<Step> steps, InputPlaces inputs);

}  // namespace kv::runtime
