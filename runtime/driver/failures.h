#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "engine/memoryFailures.h"
#include "kv/errors/FailureRecord.h"
#include "kv/errors/PassThrough.h"
#include "kv/host/values.h"
#include "operator/OpSpec.h"

/// How failures leave an evaluation: with an id, the user's line, partition and rows.
namespace kv::runtime {

/// The failure that an exception is, read in the current session: also errors of the host and
/// native exceptions with an id.
errors::FailureRecord failureOf(const std::exception_ptr& thrown);

/// Runs `action`, which calls into the session for a unit; errors of the host leave it as
/// errors::RecordedError, which the unit can read without a host.
template <class Action>
auto withRecordedErrors(Action&& action) -> decltype(action()) {
  return errors::catchingFailures(
      std::forward<Action>(action), [](const std::exception_ptr& thrown) -> decltype(action()) {
        errors::FailureRecord failure = failureOf(thrown);
        throw errors::RecordedError(std::move(failure.error), std::move(failure.foreign));
      });
}

/// Where in the data an evaluation failed.
struct FailedRows {
  std::int64_t partition = 0;  ///< counted from 1
  std::int64_t first = 0;      ///< rows of the partition, counted from 1, both included;
  std::int64_t last = 0;       ///< below `first` where no rows are known
  std::string file{};          ///< in which the partition begins; empty for none
};

/// The stack of the line that recorded the operation behind a processor factory; null for none.
host::Value submissionStackOf(const kxArray* factory);

/// Raises the failure of a step as a BigDataException with an id, the user's stack where the
/// operation was recorded, and the rows on which it happened. One that a step within this one
/// raised keeps its line and rows. The foreign exception of the failure is raised as it is; without
/// one the error is made from the record.
///
/// Errors: always. The id is the failure's own; "KALVEX:OutOfMemory" when memory was short;
///         "KALVEX:array:FunctionFailed" with label and text for a C++ exception of a user's
///         function; "KALVEX:array:Unexpected" with label and text for one of ours. The text of the
///         latter is an argument, and not part of the message.
[[noreturn]] void raiseStepFailure(const errors::FailureRecord& failure, const OpSpec& spec,
                                   const kxArray* submissionStack,
                                   const std::optional<FailedRows>& rows = std::nullopt);

/// Runs `action` for the step of `spec` and `factory`; a failure becomes one of that step.
/// Errors: besides those above, `memoryId` if a memory limit was the cause (see nameRefusal).
template <class Action>
auto withStep(const OpSpec& spec, const kxArray* factory, Action&& action,
              std::string_view memoryId = kLimitTooSmall) -> decltype(action()) {
  const RefusalWatch watch;
  return errors::catchingFailures(
      std::forward<Action>(action), [&](const std::exception_ptr& thrown) -> decltype(action()) {
        errors::FailureRecord failure = failureOf(thrown);
        nameRefusal(failure, memoryId, spec.label, watch.refusal());
        raiseStepFailure(failure, spec, submissionStackOf(factory).get());
      });
}

}  // namespace kv::runtime
