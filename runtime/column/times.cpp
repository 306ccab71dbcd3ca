// Moments are parsed by Arrow's parser of ISO 8601. The calendar repeats every 400 years, so a day
// of any year is computed within such a cycle, where the standard library's calendar is defined.

#include "kv/runtime/times.h"

#include <arrow/type_fwd.h>
#include <arrow/util/value_parsing.h>
#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <iterator>

namespace kv::runtime {

namespace {

constexpr std::int64_t kMicrosecondsPerDay = 86'400 * kMicrosecondsPerSecond;
constexpr std::int64_t kDaysPerCycle = 146'097;
constexpr std::int64_t kYearsPerCycle = 400;
constexpr std::size_t kFractionDigits = 6;

std::int64_t floorDivide(std::int64_t number, std::int64_t by) {
  return number / by - (number % by < 0 ? 1 : 0);
}

/// A fraction of a second: ".25", empty for none.
std::string fractionOf(std::uint64_t microseconds) {
  if (microseconds == 0) {
    return {};
  }
  std::string digits = fmt::format(".{:06}", microseconds);
  digits.erase(digits.find_last_not_of('0') + 1);
  return digits;
}

/// Microseconds of a decimal number of seconds, whose digits follow the point; none if there are
/// too many or none.
std::optional<std::int64_t> microsecondsOf(std::string_view fraction) {
  std::string digits(fraction);
  if (digits.empty() || digits.size() > kFractionDigits ||
      digits.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  digits.resize(kFractionDigits, '0');
  return std::stoll(digits);
}

struct Unit {
  char letter;
  bool isOfDay;  ///< after the T
  std::int64_t microseconds;
};

constexpr Unit kUnits[] = {
    {'W', false, 7 * kMicrosecondsPerDay},      {'D', false, kMicrosecondsPerDay},
    {'H', true, 3600 * kMicrosecondsPerSecond}, {'M', true, 60 * kMicrosecondsPerSecond},
    {'S', true, kMicrosecondsPerSecond},
};

/// Reads the parts of a duration, which come in the order of kUnits.
class DurationReader {
 public:
  explicit DurationReader(std::string_view text) : rest_(text) {}

  std::optional<std::int64_t> read() {
    while (!rest_.empty()) {
      if (rest_.front() == 'T' && !isOfDay_) {
        isOfDay_ = true;
        isComplete_ = false;
        rest_.remove_prefix(1);
      } else if (!readPart()) {
        return std::nullopt;
      }
    }
    return isComplete_ ? std::optional(total_) : std::nullopt;
  }

 private:
  bool readPart() {
    std::int64_t count = 0;
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), count);
    if (error != std::errc() || rest_.front() == '-') {
      return false;
    }
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    std::optional<std::int64_t> fraction = 0;
    const bool hasFraction = rest_.starts_with('.');
    if (hasFraction) {
      const std::size_t last = std::min(rest_.find('S'), rest_.size());
      fraction = microsecondsOf(rest_.substr(1, last - 1));
      rest_.remove_prefix(last);
    }
    while (unit_ != std::end(kUnits) && !rest_.starts_with(unit_->letter)) {
      ++unit_;
    }
    const bool fits = fraction && unit_ != std::end(kUnits) && unit_->isOfDay == isOfDay_;
    if (!fits || __builtin_mul_overflow(count, unit_->microseconds, &count) ||
        __builtin_add_overflow(count, *fraction, &count) ||
        __builtin_add_overflow(total_, count, &total_)) {
      return false;
    }
    rest_.remove_prefix(1);
    ++unit_;
    isComplete_ = true;
    return true;
  }

  std::string_view rest_;
  const Unit* unit_ = kUnits;
  std::int64_t total_ = 0;
  bool isOfDay_ = false;
  bool isComplete_ = false;  ///< at least one part, also after the T
};

}  // namespace

std::optional<ParsedMoment> parseMoment(std::string_view text) {
  ParsedMoment moment;
  const bool isMoment = arrow::internal::ParseTimestampISO8601(
      text.data(), text.size(), arrow::TimeUnit::MICRO, &moment.microseconds, &moment.hasOffset);
  return isMoment ? std::optional(moment) : std::nullopt;
}

bool looksLikeDuration(std::string_view text) {
  return text.starts_with('P') || text.starts_with("+P") || text.starts_with("-P");
}

std::optional<std::int64_t> parseDuration(std::string_view text) {
  if (!looksLikeDuration(text)) {
    return std::nullopt;
  }
  const bool isNegative = text.front() == '-';
  const auto size = DurationReader(text.substr(text.find('P') + 1)).read();
  return isNegative && size ? std::optional(-*size) : size;
}

std::string formatMoment(std::int64_t microseconds) {
  if (microseconds == kNaT) {
    return "NaT";
  }
  const std::int64_t days = floorDivide(microseconds, kMicrosecondsPerDay);
  const std::int64_t cycle = floorDivide(days, kDaysPerCycle);
  const std::chrono::year_month_day date{
      std::chrono::sys_days(std::chrono::days(days - cycle * kDaysPerCycle))};
  const std::int64_t year = static_cast<int>(date.year()) + cycle * kYearsPerCycle;
  const std::int64_t rest = microseconds % kMicrosecondsPerDay;
  const auto ofDay = static_cast<std::uint64_t>(rest < 0 ? rest + kMicrosecondsPerDay : rest);
  const std::uint64_t second = ofDay / kMicrosecondsPerSecond;
  return fmt::format("{}{:04}-{:02}-{:02}T{:02}:{:02}:{:02}{}", year < 0 ? "-" : "",
                     year < 0 ? -year : year, static_cast<unsigned>(date.month()),
                     static_cast<unsigned>(date.day()), second / 3600, second / 60 % 60,
                     second % 60, fractionOf(ofDay % kMicrosecondsPerSecond));
}

std::string formatDuration(std::int64_t microseconds) {
  if (microseconds == kNaT) {
    return "NaT";
  }
  const auto size = microseconds < 0 ? 0 - static_cast<std::uint64_t>(microseconds)
                                     : static_cast<std::uint64_t>(microseconds);
  const std::uint64_t seconds = size / kMicrosecondsPerSecond;
  const std::string fraction = fractionOf(size % kMicrosecondsPerSecond);
  std::string text = microseconds < 0 ? "-P" : "P";
  if (seconds >= 86'400) {
    text += fmt::format("{}D", seconds / 86'400);
  }
  std::string ofDay;
  if (seconds / 3600 % 24 > 0) {
    ofDay += fmt::format("{}H", seconds / 3600 % 24);
  }
  if (seconds / 60 % 60 > 0) {
    ofDay += fmt::format("{}M", seconds / 60 % 60);
  }
  if (seconds % 60 > 0 || !fraction.empty() || size == 0) {
    ofDay += fmt::format("{}{}S", seconds % 60, fraction);
  }
  return ofDay.empty() ? text : text + "T" + ofDay;
}

}  // namespace kv::runtime
