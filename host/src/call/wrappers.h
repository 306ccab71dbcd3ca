#pragma once

#include "class/Members.h"
#include "kv/host/methodWrappers.h"

namespace kv::host {

struct SessionState;

/// What runs in place of a native method; null for the method itself. Lives: until it is replaced.
const MethodWrapper* wrapperOf(const SessionState& session, const Method& method);

}  // namespace kv::host
