#pragma once

#include <optional>
#include <string>

namespace kv::shell {

/// Prints a class as it was registered, or without a name the classes that there are.
/// Errors: UsageError for a name that isn't one; Error.
void runDescribe(const std::optional<std::string>& name, bool json);

}  // namespace kv::shell
