// How a CSV file is written, apart from its rows. The separator is found by the same state machine
// that later finds where records begin, so that both agree on what a quote means. The byte form is
// part of a stage and of a saved file, which may be damaged: each field is checked as it is read.

#include "source/csv/CsvFile.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "column/pool.h"
#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "source/csv/CsvText.h"
#include "source/csv/CsvTransition.h"
#include "source/csv/MomentPattern.h"

namespace kv::runtime {

namespace {

/// Bytes from which the separator is detected.
constexpr std::size_t kDetectedBytes = 64 * 1024;

/// Of several that give as many fields, the first is taken.
constexpr std::array kDetected{',', '\t', ';', '|'};

bool isSeparator(char c) {
  return static_cast<unsigned char>(c) < 0x80 && c != '\0' && c != '"' && c != '\n' && c != '\r';
}

std::string namesOf(char separator) {
  switch (separator) {
    case ',':
      return "commas";
    case '\t':
      return "tabs";
    case ';':
      return "semicolons";
    case '|':
      return "bars";
    default:
      return fmt::format("'{}'", errors::shownText(std::string_view(&separator, 1)));
  }
}

/// The numbers of fields of the first records in `text`, at most two. A record that doesn't end in
/// `text` counts if it is the first.
std::vector<int> fieldsOf(std::string_view text, char separator) {
  std::vector<int> fields;
  CsvState state = CsvState::RecordStart;
  int found = 0;  // in the current record; 0 before its first byte
  for (const char c : text) {
    const CsvState after = next(state, c, separator);
    if (after == CsvState::RecordStart) {
      if (found > 0) {
        fields.push_back(found);
      }
      found = 0;
    } else {
      found = std::max(found, 1) + (after == CsvState::FieldStart ? 1 : 0);
    }
    if (fields.size() == 2) {
      return fields;
    }
    state = after;
  }
  if (fields.empty() && found > 0) {
    fields.push_back(found);
  }
  return fields;
}

/// How well a separator explains the first records: the greater the better.
struct Fit {
  bool isEven = false;  ///< the second record has as many fields as the first, or there is none
  int fields = 0;       ///< of the first record

  auto operator<=>(const Fit&) const = default;
};

Fit fitOf(std::string_view text, char separator) {
  const std::vector<int> fields = fieldsOf(text, separator);
  if (fields.empty() || fields[0] == 1 || (fields.size() == 2 && fields[1] == 1)) {
    return {};
  }
  return {fields.size() == 1 || fields[0] == fields[1], fields[0]};
}

}  // namespace

char separatorNamed(std::string_view text) {
  if (text.empty()) {
    return '\0';
  }
  const bool isTab = text == "tab" || text == "\\t";
  const char separator = isTab ? '\t' : text.front();
  if (!isSeparator(separator) || (text.size() > 1 && !isTab)) {
    errors::raiseStep("KALVEX:datastore:BadSeparator", {errors::shownText(text)});
  }
  return separator;
}

CsvFormat usualFormat() { return {.separator = ','}; }

arrow::csv::ParseOptions parseOptions(const CsvFormat& format) {
  assert(isSeparator(format.separator));
  auto options = arrow::csv::ParseOptions::Defaults();
  options.newlines_in_values = true;
  options.delimiter = format.separator;
  return options;
}

char detectSeparator(const CsvFile& file) {
  const std::unique_ptr<CsvText> input = openText(file, {0, file.file.bytes});
  std::pmr::vector<char> bytes(kDetectedBytes, currentResource());
  bytes.resize(input->read(bytes.data(), bytes.size()));
  if (bytes.size() < kDetectedBytes) {
    bytes.push_back('\n');  // the last record may have no line end
  }
  std::string_view text(bytes.data(), bytes.size());
  text.remove_prefix(text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
  Fit best;
  char separator = kDetected.front();
  for (const char each : kDetected) {
    const Fit fit = fitOf(text, each);
    if (fit > best) {
      best = fit;
      separator = each;
    }
  }
  return separator;
}

std::string separatorNote(const CsvFormat& format) {
  return format.separator == ','
             ? std::string()
             : fmt::format("; fields are separated by {}", namesOf(format.separator));
}

std::string formatNote(const CsvFormat& format) {
  std::vector<std::string> notes;
  if (format.separator != ',') {
    notes.push_back("separated by " + namesOf(format.separator));
  }
  if (!format.hasHeader) {
    notes.emplace_back("no header");
  }
  if (format.missing) {
    notes.push_back(format.missing->empty()
                        ? "missing: empty fields only"
                        : fmt::format("missing: \"{}\"", fmt::join(*format.missing, "\", \"")));
  }
  for (const auto& [column, pattern] : format.patterns) {
    notes.push_back(fmt::format("{}: \"{}\"", column, pattern));
  }
  return fmt::format("{}", fmt::join(notes, "; "));
}

void writeFormat(ByteWriter& bytes, const CsvTable& table) {
  const CsvFormat& format = table.format;
  assert(isSeparator(format.separator));
  bytes.number(static_cast<std::uint8_t>(format.separator));
  bytes.flag(format.hasHeader);
  bytes.flag(format.missing.has_value());
  bytes.texts(format.missing.value_or(std::vector<std::string>{}));
  bytes.number<std::uint64_t>(format.patterns.size());
  for (const auto& [column, pattern] : format.patterns) {
    bytes.text(column);
    bytes.text(pattern);
  }
  bytes.number<std::uint64_t>(table.compressions.size());
  for (const Compression compression : table.compressions) {
    bytes.number<std::uint64_t>(static_cast<std::uint64_t>(compression));
  }
}

CsvTable readFormat(ByteReader& bytes, FileTable files) {
  CsvFormat format;
  format.separator = static_cast<char>(bytes.number<std::uint8_t>());
  format.hasHeader = bytes.flag();
  const bool hasMissing = bytes.flag();
  std::vector<std::string> missing = bytes.texts();
  if (hasMissing) {
    format.missing = std::move(missing);
  }
  const std::size_t patterns = bytes.count(2 * sizeof(std::uint64_t));
  for (std::size_t i = 0; i < patterns; ++i) {
    std::string column = bytes.text();
    std::string pattern = bytes.text();
    if (MomentPattern::problemOf(pattern)) {
      bytes.refuse();
    }
    format.patterns.emplace(std::move(column), std::move(pattern));
  }
  if (!isSeparator(format.separator) || (!hasMissing && !missing.empty())) {
    bytes.refuse();
  }
  std::vector<Compression> compressions(bytes.count(sizeof(std::uint64_t)));
  for (Compression& compression : compressions) {
    compression = static_cast<Compression>(bytes.below(kCompressions));
  }
  if (!compressions.empty() && compressions.size() != files.files.size()) {
    bytes.refuse();
  }
  return {std::move(files), std::move(format), std::move(compressions)};
}

}  // namespace kv::runtime
