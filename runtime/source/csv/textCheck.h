#pragma once

#include <cstddef>
#include <string_view>

namespace kv::runtime {

/// How many of the first bytes are text: whole characters of valid UTF-8, no NUL among them.
///
/// Cost: ASCII at the speed of memory.
std::size_t textLength(std::string_view bytes);

/// True if `bytes` are the beginning of one UTF-8 character, and no more than that.
bool isCutCharacter(std::string_view bytes);

}  // namespace kv::runtime
