#include "value/classNames.h"

#include <array>
#include <cstddef>

namespace kv::host {

std::string_view nameOf(kxClassID classId) noexcept {
  // By number; 5 isn't in use.
  static constexpr std::array<std::string_view, 19> kNames = {
      "unknown", "cell",   "struct",          "logical", "char",   "unknown", "double",
      "single",  "int8",   "uint8",           "int16",   "uint16", "int32",   "uint32",
      "int64",   "uint64", "function_handle", "string",  "object"};
  const auto index = static_cast<std::size_t>(classId);
  return kNames[index < kNames.size() ? index : 0];
}

}  // namespace kv::host
