#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "kv/runtime/times.h"

namespace kv::runtime {

/// How moments are written in a column: a pattern of strptime such as `%d.%m.%Y %H:%M`, in which
/// `%f` is a fraction of a second of one to six digits. Names of months and days are English.
class MomentPattern {
 public:
  /// Requires: problemOf(pattern) is none.
  explicit MomentPattern(std::string_view pattern);

  /// Why a text isn't such a pattern; none if it is one.
  static std::optional<std::string> problemOf(std::string_view pattern);

  /// The moment in a text, which must fit the pattern as a whole, at a date and a time that exist.
  /// What the pattern doesn't have is the first: of January, at midnight.
  std::optional<ParsedMoment> parse(std::string_view text) const;

 private:
  std::string beforeFraction_;
  std::optional<std::string> afterFraction_;  ///< none without `%f`
  bool hasOffset_;
};

}  // namespace kv::runtime
