#include "formula/FormulaError.h"

#include <algorithm>
#include <string>

namespace kv::formula {

namespace {

constexpr std::size_t kIndent = 4;
constexpr std::size_t kCharactersAround = 36;
constexpr std::string_view kEllipsis = "...";

bool startsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

std::size_t countCharacters(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(text, startsCharacter));
}

/// The start of the character that is `count` characters before byte `from`.
std::size_t stepBack(std::string_view text, std::size_t from, std::size_t count) {
  while (from > 0 && count > 0) {
    --from;
    if (startsCharacter(text[from])) {
      --count;
    }
  }
  return from;
}

/// The byte after the character that is `count` characters after byte `from`.
std::size_t stepOn(std::string_view text, std::size_t from, std::size_t count) {
  while (from < text.size() && (count > 0 || !startsCharacter(text[from]))) {
    if (startsCharacter(text[from])) {
      --count;
    }
    ++from;
  }
  return from;
}

std::string printable(std::string_view text) {
  std::string shown(text);
  const auto isControl = [](char byte) { return static_cast<unsigned char>(byte) < 0x20; };
  std::ranges::replace_if(shown, isControl, ' ');
  return shown;
}

std::string describe(std::string_view formula, Span place, std::string_view sentence,
                     std::string_view advice) {
  std::string text = std::string(sentence) + "\n" + markedFormula(formula, place);
  if (!advice.empty()) {
    text += "\n" + std::string(advice);
  }
  return text;
}

}  // namespace

std::string markedFormula(std::string_view formula, Span place) {
  const std::size_t begin = std::min(place.begin, formula.size());
  const std::size_t end = std::clamp(place.end, begin, formula.size());
  const std::size_t left = stepBack(formula, begin, kCharactersAround);
  const std::size_t markEnd = std::min(end, stepOn(formula, begin, kCharactersAround));
  const std::size_t right = stepOn(formula, markEnd, kCharactersAround);

  const std::string_view before = left > 0 ? kEllipsis : "";
  const std::string_view after = right < formula.size() ? kEllipsis : "";
  std::string lines(kIndent, ' ');
  lines.append(before).append(printable(formula.substr(left, right - left))).append(after);
  lines += '\n';
  lines.append(kIndent + before.size() + countCharacters(formula.substr(left, begin - left)), ' ');
  lines.append(std::max<std::size_t>(1, countCharacters(formula.substr(begin, markEnd - begin))),
               '^');
  return lines;
}

FormulaError::FormulaError(std::string_view formula, Span place, std::string_view sentence,
                           std::string_view advice)
    : std::runtime_error(describe(formula, place, sentence, advice)) {}

}  // namespace kv::formula
