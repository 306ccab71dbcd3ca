#pragma once

#include <memory>

#include "kv/host/methodWrappers.h"
#include "session/Members.h"

namespace kv::host {

struct SessionState;

/// What runs in place of a native method; null for the method itself. Shared, because a wrapper may
/// replace itself while it runs.
std::shared_ptr<const MethodWrapper> wrapperOf(const SessionState& session, const Method& method);

}  // namespace kv::host
