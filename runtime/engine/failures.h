#pragma once

#include <cxxabi.h>

#include <cstdint>
#include <exception>
#include <optional>
#include <utility>

#include "engine/OpSpec.h"
#include "kv/host/errors.h"
#include "kv/host/values.h"
#include "kv/runtime/Cancellation.h"
#include "kv/runtime/IdentifiedError.h"

/// How failures leave an evaluation: with an id, the user's line, partition and rows.
namespace kv::runtime {

/// Raises an error of the runtime's own kinds as the host's, with its id, arguments and sentence.
[[noreturn]] void raiseAsHostError(const IdentifiedError& error);

/// Runs `action`; what it throws of the runtime's own kinds becomes an error of the host.
template <class Action>
auto withHostErrors(Action&& action) -> decltype(action()) {
  try {
    return action();
  } catch (const IdentifiedError& error) {
    raiseAsHostError(error);
  }
}

/// Runs `action`; `onFailure` gets the exception that it throws. What isn't an error (an interrupt,
/// the end of the thread) passes as it is.
template <class Action, class OnFailure>
auto catchingFailures(Action&& action, OnFailure&& onFailure) -> decltype(action()) {
  try {
    return std::forward<Action>(action)();
  } catch (const host::PassThrough&) {
    throw;
  } catch (const Cancelled&) {
    throw;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
    return std::forward<OnFailure>(onFailure)(std::current_exception());
  }
}

/// Where in the data an evaluation failed.
struct FailedRows {
  std::int64_t partition = 0;  ///< counted from 1
  std::int64_t first = 0;      ///< rows of the partition, counted from 1, both included;
  std::int64_t last = 0;       ///< below `first` where no rows are known
};

/// The stack of the line that recorded the operation behind a processor factory; null for none.
host::Value submissionStackOf(const kxArray* factory);

/// Raises the failure of a step as a BigDataException with an id, the user's stack where the
/// operation was recorded, and the rows on which it happened. One that a step within this one
/// raised keeps its line and rows.
///
/// Errors: always. The id is the failure's own; "KALVEX:OutOfMemory" when memory was short;
///         "KALVEX:array:FunctionFailed" with label and text for a C++ exception of a user's
///         function; "KALVEX:array:Unexpected" with label and text for one of ours. The text of the
///         latter is an argument, and not part of the message.
[[noreturn]] void raiseStepFailure(const std::exception_ptr& failure, const OpSpec& spec,
                                   const kxArray* submissionStack,
                                   const std::optional<FailedRows>& rows = std::nullopt);

/// Runs `action` for the step of `spec` and `factory`; a failure becomes one of that step.
template <class Action>
auto withStep(const OpSpec& spec, const kxArray* factory, Action&& action) -> decltype(action()) {
  return catchingFailures(std::forward<Action>(action),
                          [&](const std::exception_ptr& failure) -> decltype(action()) {
                            raiseStepFailure(failure, spec, submissionStackOf(factory).get());
                          });
}

}  // namespace kv::runtime
