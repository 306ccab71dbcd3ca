#pragma once

#include <span>
#include <string>
#include <string_view>

/// Texts and names from files, short enough for a message.
namespace kv::errors {

/// A text as it is up to 80 bytes; of a longer one the first 80 bytes, or fewer so that no
/// character is cut, an ellipsis and how long it is: "abc... (3000000 bytes)".
std::string shownText(std::string_view text);

/// The first 40 names, separated by commas, each as shownText() shows it, and how many more there
/// are.
std::string shownNames(std::span<const std::string> names);

}  // namespace kv::errors
