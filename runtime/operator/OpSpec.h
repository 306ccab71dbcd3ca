#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "operator/Operator.h"

namespace kv::runtime {

/// How an operation runs once, in the client, on materialised values (driver/wholeRuns.h).
enum class WholeRun : std::uint8_t {
  CallFunction,          ///< its function gets the values as they are
  CallOnRows,            ///< its function gets matching rows, perhaps only some at a time
  CallOnRowsForLogical,  ///< the same, and must return logical values
  RunFlow,               ///< as on the rows of one partition
  HandOver,              ///< its function is handed the values as the only chunk there is
  CallAndReduce,         ///< its first function gets the values, its second what that returns
  RunOperator,           ///< its operator gets the values as chunks
  CallByKey,             ///< its operator gets the values as chunks, and calls its functions
  PassOn,                ///< it returns the values themselves; of a choice, the one that was chosen
};

/// An operation as one plain value, carried by its execution task.
///
/// It refers to no host object; users' functions are in slots of the task's processor factory.
struct OpSpec {
  std::size_t numInputs = 0;
  std::size_t numOutputs = 1;
  std::string label{};   ///< what it does, as plans show it
  std::string origin{};  ///< the user's line, "file:line"; empty if none is known
  OperatorPtr op{};      ///< how it runs over rows; null if it doesn't
  WholeRun wholeRun = WholeRun::CallFunction;
  bool callsUser = false;                ///< it calls a user-defined function
  std::vector<std::string> functions{};  ///< names of all that it calls, see Step
  bool isFree = false;         ///< that function may run on any thread, see host/freeFunctions.h
  bool passesTagged = false;   ///< values for all rows reach its function as BroadcastArray
  bool isTrusted = true;       ///< false where function or source came from a file without trust
  bool isChoice = false;       ///< the second or the third input, depending on the first
  bool isRunnable = true;      ///< false for what can be recorded and planned, but not run
  std::string savedRelease{};  ///< another release saved the array, which can't be run

  /// True if its output is whole once the rows of its inputs have ended.
  bool endsRows() const { return op != nullptr && op->facts().rows == RowEffect::End; }

  /// True if that output has rows of its own, one for each key.
  bool makesRows() const { return op != nullptr && op->facts().sinkRows == SinkRows::Made; }

  /// Outputs of its functions. Those that get the rows of a key don't return the keys.
  std::size_t functionOutputs() const {
    return makesRows() && numOutputs > 0 ? numOutputs - 1 : numOutputs;
  }

  /// True if it runs in the client alone.
  bool isClientOnly() const { return op == nullptr && isRunnable; }

  /// The source that it reads; null if it reads none.
  std::shared_ptr<const Datastore> source() const {
    const auto* read = op != nullptr ? op->as<ReadOperator>() : nullptr;
    return read != nullptr ? read->source() : nullptr;
  }
};

/// What an operation is called in messages: its label and, if it is known, the user's line.
std::string describe(const OpSpec& spec);

}  // namespace kv::runtime
