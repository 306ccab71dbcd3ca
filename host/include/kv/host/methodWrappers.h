#pragma once

#include <functional>
#include <string_view>

#include "kv/host/values.h"

namespace kv::host {

/// Runs in place of a native method: with its inputs and outputs, and `proceed`, which runs the
/// method itself and is called at most once.
using MethodWrapper = std::function<void(const Call& call, const std::function<void()>& proceed)>;

/// Makes `wrapper` run in place of the native method `method` of `className` in the current
/// session, from the next call on. It has the rights of public code. A later wrapper replaces an
/// earlier one.
KV_HOST_API void wrapMethod(std::string_view className, std::string_view method,
                            MethodWrapper wrapper);

}  // namespace kv::host
