#include "sink/KeyFolders.h"

#include <arrow/buffer.h>
#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <cctype>
#include <cmath>
#include <string_view>

#include "column/elementTypes.h"
#include "exchange/GroupKeys.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

constexpr std::string_view kMissing = "__HIVE_DEFAULT_PARTITION__";

std::string encoded(std::string_view text) {
  std::string safe;
  for (const char letter : text) {
    const auto code = static_cast<unsigned char>(letter);
    if (std::isalnum(code) != 0 || std::string_view("-_. :").find(letter) != text.npos) {
      safe += letter;
    } else {
      safe += fmt::format("%{:02X}", code);
    }
  }
  return safe == "." || safe == ".." ? "%2E" + safe.substr(1) : safe;
}

bool isMissing(const Column& column, std::int64_t row) {
  const auto at = static_cast<std::size_t>(row);
  return column.isNull(row) ||
         (column.type() == ElementType::Double && std::isnan(column.values<double>()[at])) ||
         (column.type() == ElementType::Single && std::isnan(column.values<float>()[at])) ||
         (isTime(column.type()) && column.values<std::int64_t>()[at] == kNaT);
}

std::string textOf(const Column& column, std::int64_t row) {
  const auto at = static_cast<std::size_t>(row);
  switch (column.type()) {
    case ElementType::String:
      return std::string(column.text(row));
    case ElementType::Logical:
      return column.values<std::uint8_t>()[at] != 0 ? "true" : "false";
    case ElementType::DateTime:
      return formatMoment(column.values<std::int64_t>()[at]);
    case ElementType::Duration:
      return formatDuration(column.values<std::int64_t>()[at]);
    default:
      return visitNumeric(column.type(),
                          [&]<class T>() { return fmt::format("{}", column.values<T>()[at]); });
  }
}

}  // namespace

KeyFolders::KeyFolders(const WriteTarget& target) {
  for (const std::string& name : target.partitionBy) {
    const auto place = std::ranges::find(target.names, name);
    assert(place != target.names.end());
    keys_.push_back(static_cast<std::size_t>(place - target.names.begin()));
    keyNames_.push_back(encoded(name));
  }
  for (std::size_t i = 0; i < target.names.size(); ++i) {
    if (std::ranges::find(keys_, i) == keys_.end()) {
      others_.push_back(i);
      names_.push_back(target.names[i]);
    }
  }
}

std::map<std::string, RowPlacesList> KeyFolders::placesByFolder(const Chunk& rows) const {
  std::map<std::string, RowPlacesList> places;
  std::string folder;
  for (std::int64_t row = 0; row < rows.rows(); ++row) {
    folder.clear();
    for (std::size_t i = 0; i < keys_.size(); ++i) {
      const Column& key = rows.columns[keys_[i]];
      folder += keyNames_[i] + '=';
      folder += isMissing(key, row) ? std::string(kMissing) : encoded(textOf(key, row));
      folder += '/';
    }
    places[folder].push_back(static_cast<std::uint64_t>(row));
  }
  return places;
}

Chunk KeyFolders::withoutKeys(const Chunk& rows) const {
  if (!hasKeys()) {
    return rows;
  }
  Chunk others{.partition = rows.partition, .ordinals = rows.ordinals};
  for (const std::size_t column : others_) {
    others.columns.push_back(rows.columns[column]);
  }
  return others;
}

Chunk rowsAt(const Chunk& rows, const RowPlacesList& places) {
  const Column taken(ElementType::UInt64, std::ssize(places),
                     arrow::Buffer::Wrap(places.data(), places.size()));
  std::vector<std::int64_t> kept(places.begin(), places.end());
  Chunk some{.partition = rows.partition, .ordinals = rows.ordinals.select(kept)};
  for (const Column& column : rows.columns) {
    some.columns.push_back(takeRows(column, taken));
  }
  return some;
}

}  // namespace kv::runtime
