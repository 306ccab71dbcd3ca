#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kv::formula {

/// The names that the user may have meant by `wanted`, nearest first, at most three.
///
/// These are the names that differ only in case, if there are any; otherwise those in which one
/// letter in four, and at most three, is changed, added, left out or swapped with the next one.
std::vector<std::string> nearNames(std::string_view wanted, std::span<const std::string> names);

/// How a name must be typed.
using Spelling = std::string (*)(std::string_view name);

/// Advice for an unknown name: near ones, and the available ones (at most forty), as they must be
/// typed; without `spelling`, as they are.
std::string listNames(std::string_view kind, std::string_view wanted,
                      std::span<const std::string> names, Spelling spelling = nullptr);

}  // namespace kv::formula
