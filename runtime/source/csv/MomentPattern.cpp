// The C library reads the fields. What it doesn't do is done here: fractions of a second, and the
// refusal of dates that don't exist, such as 31.02.2024, which it accepts.

#include "source/csv/MomentPattern.h"

#include <cassert>
#include <chrono>
#include <clocale>
#include <cstdint>
#include <ctime>
#include <new>

namespace kv::runtime {

namespace {

/// Of these every moment is made in the same way on every machine: no locale, no local time.
constexpr std::string_view kDirectives = "YymdebBhHIMSfpzjTDFRaAnt%";
constexpr std::string_view kYears = "YyDF";
constexpr std::size_t kMostFractionDigits = 6;
constexpr std::string_view kFraction = "%f";

/// The locale in which months have English names.
locale_t plainLocale() {
  static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", locale_t{});
  if (locale == locale_t{}) {
    throw std::bad_alloc();
  }
  return locale;
}

/// The directives of a pattern, one letter each; none if a `%` is followed by another letter.
std::optional<std::string> directivesIn(std::string_view pattern) {
  std::string letters;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '%') {
      continue;
    }
    ++i;
    if (i == pattern.size() || kDirectives.find(pattern[i]) == std::string_view::npos) {
      return std::nullopt;
    }
    letters += pattern[i];
  }
  return letters;
}

/// Where a directive begins in a valid pattern; npos if it has none.
std::size_t findDirective(std::string_view pattern, char letter) {
  for (std::size_t i = 0; i + 1 < pattern.size(); ++i) {
    if (pattern[i] == '%') {
      if (pattern[i + 1] == letter) {
        return i;
      }
      ++i;
    }
  }
  return std::string_view::npos;
}

/// Takes one to six digits from `text`, in microseconds.
std::optional<std::int64_t> takeFraction(const char*& text) {
  std::int64_t fraction = 0;
  std::size_t digits = 0;
  for (; *text >= '0' && *text <= '9'; ++text, ++digits) {
    if (digits == kMostFractionDigits) {
      return std::nullopt;
    }
    fraction = fraction * 10 + (*text - '0');
  }
  for (std::size_t i = digits; i < kMostFractionDigits; ++i) {
    fraction *= 10;
  }
  return digits == 0 ? std::nullopt : std::optional(fraction);
}

/// None for a date that doesn't exist, or a leap second, which no other moment can have.
std::optional<std::int64_t> secondsOf(const tm& fields) {
  namespace chrono = std::chrono;
  const chrono::year_month_day date(chrono::year(fields.tm_year + 1900),
                                    chrono::month(static_cast<unsigned>(fields.tm_mon) + 1),
                                    chrono::day(static_cast<unsigned>(fields.tm_mday)));
  if (!date.ok() || fields.tm_sec > 59) {
    return std::nullopt;
  }
  const std::int64_t days = chrono::sys_days(date).time_since_epoch().count();
  return days * 86'400 + fields.tm_hour * 3'600 + fields.tm_min * 60 + fields.tm_sec -
         fields.tm_gmtoff;
}

}  // namespace

std::optional<std::string> MomentPattern::problemOf(std::string_view pattern) {
  const std::optional<std::string> letters = directivesIn(pattern);
  if (!letters || pattern.find('\0') != std::string_view::npos) {
    return "the directives are %Y %y %m %d %e %b %B %H %I %p %M %S %f %z %j %F %T %D %R %a %A %%";
  }
  if (letters->find_first_of(kYears) == std::string::npos) {
    return "it has no year";
  }
  if (letters->find('f') != letters->rfind('f')) {
    return "it has two fractions of a second";
  }
  return std::nullopt;
}

MomentPattern::MomentPattern(std::string_view pattern)
    : beforeFraction_(pattern.substr(0, findDirective(pattern, 'f'))),
      hasOffset_(findDirective(pattern, 'z') != std::string_view::npos) {
  assert(!problemOf(pattern));
  if (beforeFraction_.size() < pattern.size()) {
    afterFraction_ = pattern.substr(beforeFraction_.size() + kFraction.size());
  }
}

std::optional<ParsedMoment> MomentPattern::parse(std::string_view text) const {
  const std::string copy(text);
  tm fields{};
  fields.tm_mday = 1;
  const char* rest = ::strptime_l(copy.c_str(), beforeFraction_.c_str(), &fields, plainLocale());
  std::optional<std::int64_t> fraction = 0;
  if (rest != nullptr && afterFraction_) {
    fraction = takeFraction(rest);
    rest = ::strptime_l(rest, afterFraction_->c_str(), &fields, plainLocale());
  }
  if (rest == nullptr || !fraction || rest != copy.c_str() + copy.size()) {
    return std::nullopt;
  }
  const std::optional<std::int64_t> seconds = secondsOf(fields);
  if (!seconds) {
    return std::nullopt;
  }
  return ParsedMoment{*seconds * kMicrosecondsPerSecond + *fraction, hasOffset_};
}

}  // namespace kv::runtime
