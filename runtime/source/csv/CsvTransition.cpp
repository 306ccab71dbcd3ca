#include "source/csv/CsvTransition.h"

#include <cstring>

namespace kv::runtime {

namespace {

using enum CsvState;

/// The state after a quote, by the state before it.
constexpr std::array kAfterQuote{Quoted, Quoted, Unquoted, QuoteInQuoted, Quoted};

/// The state outside quotes after a byte that isn't one.
CsvState afterPlain(char c) {
  return c == '\n' || c == '\r' ? RecordStart : c == ',' ? FieldStart : Unquoted;
}

}  // namespace

CsvState next(CsvState before, char c) {
  if (c == '"') {
    return kAfterQuote[static_cast<std::size_t>(before)];
  }
  return before == Quoted ? Quoted : afterPlain(c);
}

void CsvTransition::append(std::string_view bytes) {
  while (!bytes.empty()) {
    const void* quote = std::memchr(bytes.data(), '"', bytes.size());
    const std::size_t plain =
        quote == nullptr ? bytes.size()
                         : static_cast<std::size_t>(static_cast<const char*>(quote) - bytes.data());
    if (plain > 0) {
      const CsvState outside = afterPlain(bytes[plain - 1]);
      for (CsvState& state : after_) {
        state = state == Quoted ? Quoted : outside;
      }
    }
    if (quote == nullptr) {
      return;
    }
    for (CsvState& state : after_) {
      state = kAfterQuote[static_cast<std::size_t>(state)];
    }
    bytes.remove_prefix(plain + 1);
  }
}

}  // namespace kv::runtime
