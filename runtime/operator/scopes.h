#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

#include "operator/OutputTypes.h"
#include "operator/StageInput.h"
#include "operator/UserFunctions.h"

/// What an operator is given where it starts: of the step and unit that it runs for.
namespace kv::runtime {

/// In the unit without rows, which runs when all others have ended: the types that the functions
/// of steps have returned, by step. The function of any other step is called once, on no rows.
using KnownTypes = std::map<std::size_t, std::vector<ArrayType>>;

/// The step that a run is of, in one unit.
///
/// Lives: longer than the run.
struct StepScope {
  std::size_t step = 0;  ///< its number in the stage
  std::string_view label;
  std::size_t numOutputs = 1;
  UserFunctions& functions;
  OutputTypes& types;  ///< that the step's function has returned in this unit
  const KnownTypes* typesForNoRows = nullptr;  ///< null but in the unit without rows
  bool isFramed = false;       ///< each chunk is a frame, which a user's function sees as it is
  std::int64_t frameRows = 0;  ///< how many rows functions are to see; 0: none was asked for
  std::int64_t numPartitions = 1;
  std::int64_t partition = 0;  ///< that of the unit
};

/// An input of a flow step: rows that come in chunks, or a value.
struct FlowInput {
  std::string_view origin{};          ///< what made it, for messages
  const StageInput* value = nullptr;  ///< null for rows
  std::size_t valueNumber = 0;        ///< of the value among the stage's inputs
};

/// The step whose results are merged.
///
/// Lives: longer than the merge.
struct MergeScope {
  std::size_t step = 0;
  std::string_view label;
  UserFunctions& functions;
  std::int64_t numPartitions = 1;
};

}  // namespace kv::runtime
