#pragma once

#include <cstddef>
#include <string_view>

namespace kv::runtime {

/// The number of leading bytes that are text: complete characters of valid UTF-8 without NUL.
///
/// Cost: ASCII at the speed of memory.
std::size_t textLength(std::string_view bytes);

/// True if `bytes` are a proper beginning of one UTF-8 character.
bool isCutCharacter(std::string_view bytes);

}  // namespace kv::runtime
