#include <cstdint>

#include "foundation/i18n.h"

namespace fl::i18n {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

/// Length of the sequence that a first byte begins, and the least code point that needs that
/// length.
struct SequenceForm {
  std::size_t length;
  char32_t least;
};

SequenceForm formOf(unsigned char first) {
  if (first < 0x80) {
    return {1, 0};
  }
  if (first >= 0xC2 && first < 0xE0) {
    return {2, 0x80};
  }
  if (first >= 0xE0 && first < 0xF0) {
    return {3, 0x800};
  }
  if (first >= 0xF0 && first < 0xF5) {
    return {4, 0x10000};
  }
  return {0, 0};
}

/// Removes the first code point from `text`; a byte that begins none counts as U+FFFD.
char32_t takeCodePoint(std::string_view& text) {
  const auto first = static_cast<unsigned char>(text.front());
  const SequenceForm form = formOf(first);
  if (form.length == 1) {
    text.remove_prefix(1);
    return first;
  }
  char32_t point = form.length == 0 ? 0 : first & (0x7Fu >> form.length);
  std::size_t taken = 1;
  while (taken < form.length && taken < text.size() &&
         isContinuation(static_cast<unsigned char>(text[taken]))) {
    point = (point << 6) | (static_cast<unsigned char>(text[taken]) & 0x3Fu);
    ++taken;
  }
  const bool isValid = form.length != 0 && taken == form.length && point >= form.least &&
                       point <= 0x10FFFF && (point < 0xD800 || point > 0xDFFF);
  text.remove_prefix(isValid ? taken : 1);
  return isValid ? point : kReplacement;
}

void append(std::string& text, char32_t point) {
  const auto tail = [&](int shift) {
    text.push_back(static_cast<char>(0x80 | ((point >> shift) & 0x3F)));
  };
  if (point < 0x80) {
    text.push_back(static_cast<char>(point));
  } else if (point < 0x800) {
    text.push_back(static_cast<char>(0xC0 | (point >> 6)));
    tail(0);
  } else if (point < 0x10000) {
    text.push_back(static_cast<char>(0xE0 | (point >> 12)));
    tail(6);
    tail(0);
  } else {
    text.push_back(static_cast<char>(0xF0 | (point >> 18)));
    tail(12);
    tail(6);
    tail(0);
  }
}

bool isHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

}  // namespace

std::u16string to_ustring(std::string_view utf8) {
  std::u16string result;
  result.reserve(utf8.size());
  while (!utf8.empty()) {
    const char32_t point = takeCodePoint(utf8);
    if (point < 0x10000) {
      result.push_back(static_cast<char16_t>(point));
    } else {
      result.push_back(static_cast<char16_t>(0xD7C0 + (point >> 10)));
      result.push_back(static_cast<char16_t>(0xDC00 + (point & 0x3FF)));
    }
  }
  return result;
}

std::string to_string(std::u16string_view utf16) {
  std::string result;
  result.reserve(utf16.size());
  for (std::size_t i = 0; i < utf16.size(); ++i) {
    char32_t point = utf16[i];
    if (isHighSurrogate(utf16[i]) && i + 1 < utf16.size() && isLowSurrogate(utf16[i + 1])) {
      point = 0x10000 + ((point - 0xD800) << 10) + (utf16[++i] - 0xDC00u);
    } else if (isHighSurrogate(utf16[i]) || isLowSurrogate(utf16[i])) {
      point = kReplacement;
    }
    append(result, point);
  }
  return result;
}

}  // namespace fl::i18n
