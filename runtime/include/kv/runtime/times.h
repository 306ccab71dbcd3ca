#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

/// Moments and durations as texts, by ISO 8601. Both are whole microseconds; moments are counted
/// from 1970-01-01T00:00:00 UTC in the Gregorian calendar, without leap seconds.
namespace kv::runtime {

inline constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;

/// The missing moment or duration ("not a time").
inline constexpr std::int64_t kNaT = std::numeric_limits<std::int64_t>::min();

struct ParsedMoment {
  std::int64_t microseconds = 0;
  bool hasOffset = false;  ///< the text has an offset from UTC, or Z
};

/// A moment such as `2013-06-01`, `2013-06-01T05:15` or `2013-06-01 05:15:30.25+02:00`. One without
/// an offset is taken as UTC.
///
/// Result: none for a text of another form, or more than six digits of a second.
std::optional<ParsedMoment> parseMoment(std::string_view text);

/// A duration in weeks, days, hours, minutes and seconds: `PT90S`, `-P1DT2H`, `P2W`, `PT0.25S`.
///
/// Result: none for a text of another form, more than six digits of a second, or one beyond 64
///         bits.
std::optional<std::int64_t> parseDuration(std::string_view text);

/// True for a text that can only be meant as a duration: `P...`, `+P...` or `-P...`.
bool looksLikeDuration(std::string_view text);

/// `2013-06-01T05:15:30`, with a fraction of the second where it has one; "NaT" for kNaT. Years
/// beyond 9999 have more digits.
std::string formatMoment(std::int64_t microseconds);

/// `PT1H30M`, `-P1DT0.25S`, `PT0S`; "NaT" for kNaT.
std::string formatDuration(std::int64_t microseconds);

}  // namespace kv::runtime
