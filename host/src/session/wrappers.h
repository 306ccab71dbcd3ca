#pragma once

#include <memory>

#include "kv/host/methodWrappers.h"
#include "session/Members.h"

namespace kv::host {

struct SessionState;

/// The wrapper that runs in place of a native method; null if the method runs itself. Shared,
/// because a wrapper may replace itself while it runs.
std::shared_ptr<const MethodWrapper> wrapperOf(const SessionState& session, const Method& method);

}  // namespace kv::host
