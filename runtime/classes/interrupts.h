#pragma once

#include <functional>

#include "kv/runtime/Cancellation.h"

namespace kv::runtime {

/// Runs `action` as an evaluation of the current session, with its own token and the watch of the
/// front end.
///
/// Errors: Interrupted if the token was cancelled; all others with an id (see raiseStepFailure).
void asEvaluation(const std::function<void(const CancellationToken&)>& action);

}  // namespace kv::runtime
