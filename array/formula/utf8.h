#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kv::formula {

/// The first byte that isn't part of well-formed UTF-8 (table 3-7 of the Unicode Standard), or
/// nothing.
std::optional<std::size_t> findInvalidUtf8(std::string_view text);

/// A character and the length of its encoding.
struct Character {
  char32_t code = 0;
  std::size_t length = 0;  ///< 0: the bytes aren't well-formed UTF-8
};

/// The first character of `text`.
/// Requires: `text` isn't empty.
Character firstCharacter(std::string_view text);

/// `text` with its ASCII letters in lower case.
std::string lowered(std::string_view text);

/// A text of up to 80 bytes unchanged; of a longer one its beginning, an ellipsis and its length.
/// No character is cut.
std::string shortened(std::string_view text);

}  // namespace kv::formula
