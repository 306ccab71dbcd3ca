#pragma once

#include <cstdint>
#include <string_view>

namespace kv::runtime {

/// What the text before a byte of a CSV file means for the bytes after it, as Arrow's parser reads
/// them: a quote opens a quoted field only where a field begins, and what follows the closing quote
/// of a field is plain text, quotes included.
enum class CsvState : std::uint8_t {
  RecordStart,    ///< a record begins here, or an empty line
  FieldStart,     ///< after a separator
  Unquoted,       ///< in plain text
  Quoted,         ///< in a quoted field: separators, line ends are text
  QuoteInQuoted,  ///< after a quote in a quoted field: the first of two, or the closing one
};

/// The state after the byte `c`, where fields are separated by `separator`.
CsvState next(CsvState before, char c, char separator);

/// What a run of bytes does to the state, whatever it was before: the text of a range has to be
/// examined only once, and before the ranges that precede it.
class CsvTransition {
 public:
  explicit CsvTransition(char separator) : separator_(separator) {}

  /// Adds the bytes that follow.
  ///
  /// Cost: bytes without quotes at the speed of memchr; some nanoseconds for a quote.
  void append(std::string_view bytes);

  CsvState after(CsvState before) const;

 private:
  char separator_;
  std::uint8_t number_ = 0;  ///< of a map of states
};

}  // namespace kv::runtime
