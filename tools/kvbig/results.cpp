// Results as people and as programs read them: numbers aligned at their point, or JSON with the
// same digits.

#include "results.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <variant>

#include "output.h"

namespace kv::shell {

namespace {

constexpr std::size_t kWidestLabel = 60;  // longer ones don't shift the values of the others

/// The first element of a column as text; each kind has one form for people and one for JSON.
struct Written {
  bool isJson;

  std::string operator()(const Value::Numbers& column) const {
    const double number = column.at(0);
    if (std::isnan(number)) {
      return isJson ? "null" : "NaN";
    }
    if (std::isinf(number)) {
      return infinity(number > 0);
    }
    return fmt::format("{}", number);
  }
  std::string operator()(const Value::Integers& column) const {
    return fmt::format("{}", column.at(0));
  }
  std::string operator()(const Value::Unsigneds& column) const {
    return fmt::format("{}", column.at(0));
  }
  std::string operator()(const Value::Logicals& column) const {
    return column.at(0) ? "true" : "false";
  }
  std::string operator()(const Value::Texts& column) const {
    const std::optional<std::string>& text = column.at(0);
    if (isJson) {
      return inJson(text);
    }
    return text ? printable(*text) : "missing";
  }
  std::string operator()(const Value::Moments& column) const {
    const auto& moment = column.at(0);
    return time(moment ? std::optional(isoText(*moment)) : std::nullopt);
  }
  std::string operator()(const Value::Durations& column) const {
    const auto& duration = column.at(0);
    return time(duration ? std::optional(isoText(*duration)) : std::nullopt);
  }

 private:
  static std::string inJson(const std::optional<std::string>& text) {
    return text ? jsonText(*text) : "null";
  }
  std::string time(const std::optional<std::string>& text) const {
    return isJson ? inJson(text) : text.value_or("NaT");
  }
  std::string infinity(bool isPositive) const {
    if (isJson) {
      return isPositive ? "\"Infinity\"" : "\"-Infinity\"";
    }
    return isPositive ? "Inf" : "-Inf";
  }
};

std::string write(const Value& value, bool isJson) {
  return std::visit(Written{isJson}, value.data());
}

/// Characters before the point, where values are aligned. A text has none and is aligned at its
/// end.
std::size_t widthBeforePoint(const std::string& written) {
  return displayWidth(written.substr(0, written.find_first_of(".e")));
}

std::size_t widthAtPoint(const Value& value, const std::string& written) {
  return value.isText() || value.isTime() || value.isLogical() ? displayWidth(written)
                                                               : widthBeforePoint(written);
}

/// Writes 336776 as 336,776.
std::string grouped(std::int64_t number) {
  std::string digits = fmt::format("{}", number);
  for (std::size_t at = digits.size(); at > 3;) {
    digits.insert(at -= 3, ",");
  }
  return digits;
}

/// "12.3 MB", "25.3 GB".
std::string shownBytes(std::int64_t bytes) {
  constexpr double kMegabyte = 1e6;
  constexpr double kGigabyte = 1e9;
  const auto number = static_cast<double>(bytes);
  return number < 10 * kGigabyte ? fmt::format("{:.1f} MB", number / kMegabyte)
                                 : fmt::format("{:.1f} GB", number / kGigabyte);
}

std::string factsLine(const Facts& facts) {
  const std::string process =
      facts.peakBytes == 0 ? "" : fmt::format(", peak memory {}", shownBytes(facts.peakBytes));
  const std::string skipped =
      facts.skippedRows == 0 ? "" : fmt::format(" ({} skipped)", grouped(facts.skippedRows));
  return fmt::format("{} row{}{}, {} pass{}, {:.2f} s{}, data {} (limit {})\n", grouped(facts.rows),
                     facts.rows == 1 ? "" : "s", skipped, facts.passes,
                     facts.passes == 1 ? "" : "es", facts.seconds, process,
                     shownBytes(facts.memoryPeakBytes), shownBytes(facts.memoryLimitBytes));
}

}  // namespace

std::string resultsAsTable(const std::vector<std::string>& labels, const Gathered& gathered) {
  std::vector<std::string> names;
  std::vector<std::string> written;
  std::size_t labelWidth = 0;
  std::size_t pointWidth = 0;
  for (std::size_t i = 0; i < labels.size(); ++i) {
    const Value& value = gathered.values[i];
    names.push_back(printable(labels[i]));
    written.push_back(write(value, false));
    pointWidth = std::max(pointWidth, widthAtPoint(value, written.back()));
    const std::size_t width = displayWidth(names[i]);
    if (width <= kWidestLabel) {
      labelWidth = std::max(labelWidth, width);
    }
  }
  std::string table;
  for (std::size_t i = 0; i < labels.size(); ++i) {
    const std::size_t indent = pointWidth - widthAtPoint(gathered.values[i], written[i]);
    table += padded(names[i], labelWidth) + "  " + std::string(indent, ' ') + written[i] + '\n';
  }
  return table + '\n' + factsLine(gathered.facts);
}

std::string resultsAsJson(const std::vector<std::string>& labels, const Gathered& gathered) {
  std::string results;
  for (std::size_t i = 0; i < labels.size(); ++i) {
    results += fmt::format("{}{}: {}", i == 0 ? "" : ", ", jsonText(labels[i]),
                           write(gathered.values[i], true));
  }
  const Facts& facts = gathered.facts;
  return fmt::format(
      "{{\"results\": {{{}}}, \"rows\": {}, \"passes\": {}, \"seconds\": {}, \"peak_bytes\": "
      "{}, \"memory_peak_bytes\": {}, \"memory_limit_bytes\": {}, \"skipped_rows\": {}}}\n",
      results, facts.rows, facts.passes, facts.seconds, facts.peakBytes, facts.memoryPeakBytes,
      facts.memoryLimitBytes, facts.skippedRows);
}

std::string planAsText(std::string plan, bool json) {
  if (json) {
    return "{\"plan\": " + jsonText(plan) + "}\n";
  }
  if (!plan.ends_with('\n')) {
    plan += '\n';
  }
  return printableLines(plan);
}

}  // namespace kv::shell
