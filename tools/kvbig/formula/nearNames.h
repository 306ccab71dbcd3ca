#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kv::shell {

/// Those of `names` that `wanted` may have been meant to be, nearest first, at most three.
///
/// Names that differ in case alone, if there are any; else those in which one letter in four, and
/// at most three, is changed, added, left out or swapped with the next one.
std::vector<std::string> nearNames(std::string_view wanted, std::span<const std::string> names);

/// How a name is to be typed.
using Spelling = std::string (*)(std::string_view name);

/// Advice for a name that isn't there: near ones, and which there are (the first forty), as they
/// are to be typed; without `spelling`, as they are.
std::string listNames(std::string_view kind, std::string_view wanted,
                      std::span<const std::string> names, Spelling spelling = nullptr);

}  // namespace kv::shell
