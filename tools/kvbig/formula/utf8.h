#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kv::shell {

/// The first byte that isn't part of well-formed UTF-8 (as the Unicode Standard's table 3-7 has
/// it), or nothing.
std::optional<std::size_t> findInvalidUtf8(std::string_view text);

/// A character and the bytes that it takes.
struct Character {
  char32_t code = 0;
  std::size_t length = 0;  ///< 0: the bytes aren't well-formed UTF-8
};

/// The first character of `text`.
/// Requires: `text` isn't empty.
Character firstCharacter(std::string_view text);

/// `text` with its ASCII letters in lower case.
std::string lowered(std::string_view text);

/// A text as it is up to 80 bytes; of a longer one its beginning, an ellipsis and how long it is.
/// No character is cut.
std::string shortened(std::string_view text);

}  // namespace kv::shell
