#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>

#include "kv/host/values.h"
#include "kv/runtime/IdentifiedError.h"

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

/// Where in the data an evaluation failed.
struct FailedRows {
  std::int64_t partition = 0;  ///< counted from 1
  std::int64_t first = 0;      ///< rows of the partition, counted from 1, both included
  std::int64_t last = 0;
};

/// Raises the failure of a step: an error of the data as it is; any other as a BigDataException
/// with the user's stack where the operation was made, and the rows it happened on.
///
/// Errors: always; what isn't an error (an interrupt) passes as it is.
[[noreturn]] void raiseStepFailure(const std::exception_ptr& failure,
                                   const kxArray* submissionStack,
                                   const std::optional<FailedRows>& rows);

}  // namespace kv::runtime
