#include "source/csv/textCheck.h"

#include <arrow/util/utf8.h>

#include <algorithm>
#include <cstdint>

namespace kv::runtime {

namespace {

/// Bytes that are checked together; a constant, so that the compiler vectorises the loop.
constexpr std::size_t kBlockBytes = 256;

bool isAsciiText(const char* bytes) {
  std::uint8_t bad = 0;  // no wider than the bytes, so that more of them fit in a vector
  for (std::size_t i = 0; i < kBlockBytes; ++i) {
    const bool isBad = static_cast<signed char>(bytes[i]) <= 0;
    bad = static_cast<std::uint8_t>(bad | static_cast<std::uint8_t>(isBad));
  }
  return bad == 0;
}

bool isText(std::string_view bytes) {
  static const bool ready = (arrow::util::InitializeUTF8(), true);
  return ready && bytes.find('\0') == std::string_view::npos && arrow::util::ValidateUTF8(bytes);
}

bool continuesCharacter(char c) { return (static_cast<std::uint8_t>(c) & 0xC0U) == 0x80U; }

/// Length of the character that begins with `lead`, by its high bits; 1 for any other byte.
std::size_t characterBytes(char lead) {
  const auto byte = static_cast<std::uint8_t>(lead);
  if (byte >= 0xF0) {
    return 4;
  }
  if (byte >= 0xE0) {
    return 3;
  }
  return byte >= 0xC0 ? 2 : 1;
}

/// The start of a character that the end of `bytes` cuts off; `bytes.size()` if there is none.
std::size_t beginOfCutCharacter(std::string_view bytes) {
  for (std::size_t back = 1; back <= std::min<std::size_t>(3, bytes.size()); ++back) {
    const std::size_t at = bytes.size() - back;
    if (!continuesCharacter(bytes[at])) {
      return characterBytes(bytes[at]) > back ? at : bytes.size();
    }
  }
  return bytes.size();
}

std::size_t goThroughCharacters(std::string_view bytes) {
  std::size_t at = 0;
  while (at < bytes.size()) {
    const std::string_view character = bytes.substr(at, characterBytes(bytes[at]));
    if (!isText(character)) {
      break;
    }
    at += character.size();
  }
  return at;
}

}  // namespace

std::size_t textLength(std::string_view bytes) {
  std::size_t plain = 0;
  while (bytes.size() - plain >= kBlockBytes && isAsciiText(bytes.data() + plain)) {
    plain += kBlockBytes;
  }
  std::string_view rest = bytes.substr(plain);
  rest = rest.substr(0, beginOfCutCharacter(rest));
  return plain + (isText(rest) ? rest.size() : goThroughCharacters(rest));
}

bool isCutCharacter(std::string_view bytes) {
  return !bytes.empty() && beginOfCutCharacter(bytes) == 0;
}

}  // namespace kv::runtime
