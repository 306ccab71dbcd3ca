#pragma once

#include <optional>
#include <string>

namespace kv::shell {

/// Prints a class as it was registered or, without a name, the list of classes.
/// Errors: UsageError for an unknown name; Error.
void runDescribe(const std::optional<std::string>& name, bool json);

}  // namespace kv::shell
