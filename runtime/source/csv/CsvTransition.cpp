// A transition maps each state before some bytes to the state after them. The bytes of CSV give few
// such maps, so all are found when this file is compiled, and a transition is the number of one:
// adding a quote, and the plain text before it, is one look at a table. Of plain text only the last
// byte matters.

#include "source/csv/CsvTransition.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace kv::runtime {

namespace {

using enum CsvState;

constexpr std::size_t kStates = 5;

/// The state after a quote, by the state before it.
constexpr std::array kAfterQuote{Quoted, Quoted, Unquoted, QuoteInQuoted, Quoted};

/// The state outside quotes after a byte that isn't one.
constexpr CsvState afterPlain(char c, char separator) {
  return c == '\n' || c == '\r' ? RecordStart : c == separator ? FieldStart : Unquoted;
}

using StateMap = std::array<CsvState, kStates>;

constexpr StateMap kSame{RecordStart, FieldStart, Unquoted, Quoted, QuoteInQuoted};

/// What plain text does, by the state after its last byte outside quotes.
constexpr StateMap plain(StateMap map, CsvState outside) {
  for (CsvState& state : map) {
    state = state == Quoted ? Quoted : outside;
  }
  return map;
}

constexpr StateMap quoted(StateMap map) {
  for (CsvState& state : map) {
    state = kAfterQuote[static_cast<std::size_t>(state)];
  }
  return map;
}

/// Plain text: none, or some that leaves one of the first three states.
constexpr std::size_t kTexts = 4;

/// All maps, and for each the numbers of those after more bytes.
struct Transitions {
  static constexpr std::size_t kMost = 64;

  struct Row {
    StateMap map{};
    std::array<std::uint8_t, kTexts> afterText{};
    std::array<std::uint8_t, kTexts> afterTextAndQuote{};
  };

  std::array<Row, kMost> rows{};
  std::size_t size = 1;

  constexpr std::uint8_t numberOf(const StateMap& map) {
    std::size_t number = 0;
    while (number < size && rows[number].map != map) {
      ++number;
    }
    if (number == size) {
      rows.at(size++).map = map;
    }
    return static_cast<std::uint8_t>(number);
  }
};

constexpr Transitions findTransitions() {
  Transitions all;
  all.rows[0].map = kSame;
  for (std::size_t i = 0; i < all.size; ++i) {
    for (std::size_t text = 0; text < kTexts; ++text) {
      const StateMap before = all.rows[i].map;
      const StateMap map = text == 0 ? before : plain(before, static_cast<CsvState>(text - 1));
      all.rows[i].afterText[text] = all.numberOf(map);
      all.rows[i].afterTextAndQuote[text] = all.numberOf(quoted(map));
    }
  }
  return all;
}

constexpr Transitions kTransitions = findTransitions();

/// By its last byte.
std::size_t textOf(const char* begin, const char* end, char separator) {
  return begin == end ? 0 : static_cast<std::size_t>(afterPlain(end[-1], separator)) + 1;
}

/// The first quote, or `end`. Where all fields are quoted, the next one is a few bytes ahead, and a
/// call of memchr would take longer than the look at them.
const char* findQuote(const char* at, const char* end) {
  constexpr std::uint64_t kQuotes = 0x2222'2222'2222'2222;
  constexpr std::uint64_t kLowBits = 0x7F7F'7F7F'7F7F'7F7F;
  constexpr int kWords = 3;
  for (int word = 0; std::endian::native == std::endian::little && word < kWords; ++word) {
    std::uint64_t bytes = 0;
    if (end - at < static_cast<std::ptrdiff_t>(sizeof(bytes))) {
      break;
    }
    std::memcpy(&bytes, at, sizeof(bytes));
    const std::uint64_t others = bytes ^ kQuotes;  // 0 where a quote is
    const std::uint64_t found = ~(((others & kLowBits) + kLowBits) | others | kLowBits);
    if (found != 0) {
      return at + std::countr_zero(found) / 8;
    }
    at += sizeof(bytes);
  }
  const void* quote = std::memchr(at, '"', static_cast<std::size_t>(end - at));
  return quote == nullptr ? end : static_cast<const char*>(quote);
}

}  // namespace

CsvState next(CsvState before, char c, char separator) {
  if (c == '"') {
    return kAfterQuote[static_cast<std::size_t>(before)];
  }
  return before == Quoted ? Quoted : afterPlain(c, separator);
}

CsvState CsvTransition::after(CsvState before) const {
  return kTransitions.rows[number_].map[static_cast<std::size_t>(before)];
}

void CsvTransition::append(std::string_view bytes) {
  const char* at = bytes.data();
  const char* end = at + bytes.size();
  std::uint8_t number = number_;
  while (at != end) {
    const char* quote = findQuote(at, end);
    const Transitions::Row& row = kTransitions.rows[number];
    const std::size_t text = textOf(at, quote, separator_);
    number = quote == end ? row.afterText[text] : row.afterTextAndQuote[text];
    at = quote == end ? end : quote + 1;
  }
  number_ = number;
}

}  // namespace kv::runtime
