#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace kv::shell {

/// The first byte that isn't part of well-formed UTF-8 (as the Unicode Standard's table 3-7 has
/// it), or nothing.
std::optional<std::size_t> findInvalidUtf8(std::string_view text);

}  // namespace kv::shell
