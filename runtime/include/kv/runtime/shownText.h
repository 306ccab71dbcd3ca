#pragma once

#include <span>
#include <string>
#include <string_view>

/// Texts and names from files, shortened for messages.
namespace kv::runtime {

/// A text of up to 80 bytes unchanged; of a longer one the first 80 bytes, or fewer so that no
/// character is cut, an ellipsis and the length: "abc... (3000000 bytes)".
std::string shownText(std::string_view text);

/// The first 40 names, separated by commas, each shortened by shownText(), and the number of
/// further ones.
std::string shownNames(std::span<const std::string> names);

}  // namespace kv::runtime
