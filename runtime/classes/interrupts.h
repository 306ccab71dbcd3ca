#pragma once

#include <functional>

#include "column/ExecutionContext.h"

namespace kv::runtime {

/// Runs `action` as an evaluation of the current session, with its own token, the watch of the
/// front end, and the session's memory.
///
/// Errors: Interrupted if the token was cancelled; all others with an id (see raiseStepFailure).
void asEvaluation(const std::function<void(const ExecutionContext&)>& action);

}  // namespace kv::runtime
