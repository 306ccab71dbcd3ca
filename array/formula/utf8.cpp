#include "formula/utf8.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <cstdint>

namespace kv::formula {

namespace {

/// Lead bytes, and the range of the next byte; further bytes are 80 to BF.
struct Form {
  std::uint8_t leadFirst, leadLast;
  std::uint8_t secondFirst, secondLast;
  std::size_t length;
};

constexpr Form kForms[] = {
    {0x00, 0x7F, 0x00, 0x00, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

/// Length of the well-formed character at the start of `text`; 0 if there is none.
std::size_t characterLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  for (const Form& form : kForms) {
    if (byte(0) < form.leadFirst || byte(0) > form.leadLast) {
      continue;
    }
    if (text.size() < form.length) {
      return 0;
    }
    if (form.length > 1 && (byte(1) < form.secondFirst || byte(1) > form.secondLast)) {
      return 0;
    }
    for (std::size_t i = 2; i < form.length; ++i) {
      if ((byte(i) & 0xC0) != 0x80) {
        return 0;
      }
    }
    return form.length;
  }
  return 0;
}

}  // namespace

std::optional<std::size_t> findInvalidUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = characterLength(text.substr(at));
    if (length == 0) {
      return at;
    }
    at += length;
  }
  return std::nullopt;
}

Character firstCharacter(std::string_view text) {
  assert(!text.empty());
  constexpr std::uint8_t kBitsOfLead[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  Character character{0, characterLength(text)};
  for (std::size_t i = 0; i < character.length; ++i) {
    const auto byte = static_cast<std::uint8_t>(text[i]);
    const auto bits = byte & (i == 0 ? kBitsOfLead[character.length] : 0x3F);
    character.code = character.code << 6 | static_cast<char32_t>(bits);
  }
  return character;
}

std::string lowered(std::string_view text) {
  std::string lower(text);
  const auto lowerOf = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
  };
  std::ranges::transform(lower, lower.begin(), lowerOf);
  return lower;
}

std::string shortened(std::string_view text) {
  constexpr std::size_t kShownBytes = 80;
  if (text.size() <= kShownBytes) {
    return std::string(text);
  }
  std::size_t end = kShownBytes;
  while (end > 0 && (static_cast<std::uint8_t>(text[end]) & 0xC0) == 0x80) {
    --end;
  }
  return fmt::format("{}... ({} bytes)", text.substr(0, end), text.size());
}

}  // namespace kv::formula
