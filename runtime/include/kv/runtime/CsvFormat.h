#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kv::runtime {

/// How CSV files are written, where that isn't the usual way.
struct CsvFormat {
  /// Between fields; NUL: the one that the first file's first record shows.
  char separator = '\0';

  /// The first record has the names of the columns; without it they are `column_1`, `column_2`, ...
  bool hasHeader = true;

  /// Fields that are missing values, in columns of any type, besides empty ones. None: `NA`, `NaN`
  /// and `null` in columns of numbers and times.
  std::optional<std::vector<std::string>> missing{};

  /// How moments are written, by the name of the column, see MomentPattern; ISO 8601 in all others.
  std::map<std::string, std::string> patterns{};

  bool operator==(const CsvFormat&) const = default;
};

/// A separator as users write it: one ASCII character, or "\t" or "tab"; NUL for an empty text.
///
/// Errors: "KALVEX:datastore:BadSeparator" for others, and for quotes and line ends.
char separatorNamed(std::string_view text);

}  // namespace kv::runtime
