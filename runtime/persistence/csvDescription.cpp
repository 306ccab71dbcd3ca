// A source is saved as a description of its files and columns. The description may come from a
// hostile file, so each field is checked for class and size before it is used, and no file is
// opened for it.

#include "persistence/csvDescription.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kv/errors/StepError.h"
#include "kv/host/errors.h"
#include "persistence/savedSource.h"

namespace kv::runtime {

namespace {

using host::Value;

constexpr std::string_view kName = "Name";
constexpr std::string_view kPaths = "Paths";
constexpr std::string_view kAbsolutePaths = "AbsolutePaths";
constexpr std::string_view kBytes = "Bytes";
constexpr std::string_view kModified = "Modified";
constexpr std::string_view kColumnNames = "ColumnNames";
constexpr std::string_view kColumnTypes = "ColumnTypes";
constexpr std::string_view kFormat = "Format";

[[noreturn]] void refuse(std::string_view what) {
  host::raise("KALVEX:datastore:BadDescription", {std::string(what)});
}

Value int64Column(const std::vector<std::int64_t>& numbers) {
  Value column = matrix::from_kalvex(
      kxCreateNumericArray(std::array<std::size_t, 2>{numbers.size(), 1}, kxINT64_CLASS));
  std::ranges::copy(numbers, static_cast<std::int64_t*>(kxGetMutableData(column.get())));
  return column;
}

/// Reads the fields of a description; each must have the required number of elements.
class Description {
 public:
  explicit Description(const kxArray* record) : record_(record) {
    if (kxGetClassID(record) != kxSTRUCT_CLASS || !kxIsScalar(record)) {
      refuse("a structure is expected");
    }
  }

  std::vector<std::string> texts(std::string_view field) const {
    const kxArray* value = kxGetField(record_, 0, field);
    if (!Torvane::String::isString(value)) {
      refuse(field);
    }
    for (std::size_t i = 0; i < kxGetNumberOfElements(value); ++i) {
      if (!Torvane::String::getString(value, i)) {
        refuse(field);
      }
    }
    return host::toTexts(value);
  }

  std::span<const std::int64_t> numbers(std::string_view field) const {
    const kxArray* value = kxGetField(record_, 0, field);
    if (kxGetClassID(value) != kxINT64_CLASS) {
      refuse(field);
    }
    return {static_cast<const std::int64_t*>(kxGetData(value)), kxGetNumberOfElements(value)};
  }

  /// The bytes of a field that may be absent.
  std::optional<std::string_view> bytes(std::string_view field) const {
    const kxArray* value = kxGetField(record_, 0, field);
    if (value == nullptr) {
      return std::nullopt;
    }
    if (kxGetClassID(value) != kxUINT8_CLASS) {
      refuse(field);
    }
    return std::string_view(static_cast<const char*>(kxGetData(value)),
                            kxGetNumberOfElements(value));
  }

 private:
  const kxArray* record_;
};

template <class T>
T sized(T values, std::size_t count, std::string_view field) {
  if (values.size() != count) {
    refuse(field);
  }
  return values;
}

std::vector<SourceFile> readFiles(const Description& description) {
  const auto paths = description.texts(kPaths);
  if (paths.empty()) {
    refuse("no file");
  }
  const auto absolute = sized(description.texts(kAbsolutePaths), paths.size(), kAbsolutePaths);
  const auto bytes = sized(description.numbers(kBytes), paths.size(), kBytes);
  const auto modified = sized(description.numbers(kModified), paths.size(), kModified);
  std::vector<SourceFile> files;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    files.push_back({paths[i], absolute[i], bytes[i], modified[i], true});
  }
  return files;
}

Schema readSchema(const Description& description) {
  const auto names = description.texts(kColumnNames);
  const auto types = sized(description.texts(kColumnTypes), names.size(), kColumnTypes);
  if (std::set(names.begin(), names.end()).size() != names.size()) {
    refuse("two columns of one name");
  }
  Schema schema;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto type = elementTypeNamed(types[i]);
    if (!type) {
      refuse("a column of type '" + types[i] + "'");
    }
    schema.push_back({names[i], *type});
  }
  return schema;
}

/// Files from before there were others are written in the usual way.
CsvTable withFormat(const Description& description, FileTable files) {
  const auto bytes = description.bytes(kFormat);
  if (!bytes) {
    return {std::move(files), usualFormat()};
  }
  try {
    ByteReader reader(*bytes, "the format of CSV files");
    CsvTable table = readFormat(reader, std::move(files));
    reader.finish();
    return table;
  } catch (const errors::StepError&) {
    refuse(kFormat);
  }
}

Value formatBytes(const CsvTable& table) {
  ByteWriter bytes;
  writeFormat(bytes, table);
  return savedDescription(bytes.take());
}

}  // namespace

Value describeCsv(const CsvTable& csv) {
  const FileTable& table = csv.files;
  std::vector<std::string> paths, absolute, names, types;
  std::vector<std::int64_t> bytes, modified;
  for (const SourceFile& file : table.files) {
    paths.push_back(file.path);
    absolute.push_back(file.absolutePath);
    bytes.push_back(file.bytes);
    modified.push_back(file.modified);
  }
  for (const ColumnInfo& column : table.schema) {
    names.push_back(column.name);
    types.emplace_back(elementTypeName(column.type));
  }
  std::vector fields{kName, kPaths, kAbsolutePaths, kBytes, kModified, kColumnNames, kColumnTypes};
  const bool isUsual = csv.format == usualFormat() && csv.compressions.empty();
  if (!isUsual) {
    fields.push_back(kFormat);
  }
  Value record = matrix::from_kalvex(kxCreateStructMatrix(1, 1, fields));
  const auto set = [&](std::string_view field, Value value) {
    kxSetField(record.get(), 0, field, value.release());
  };
  set(kName, host::makeString(table.name));
  set(kPaths, host::makeStringColumn(paths));
  set(kAbsolutePaths, host::makeStringColumn(absolute));
  set(kBytes, int64Column(bytes));
  set(kModified, int64Column(modified));
  set(kColumnNames, host::makeStringColumn(names));
  set(kColumnTypes, host::makeStringColumn(types));
  if (!isUsual) {
    set(kFormat, formatBytes(csv));
  }
  return record;
}

CsvTable csvFromDescription(const kxArray* record) {
  const Description description(record);
  FileTable table;
  table.name = sized(description.texts(kName), 1, kName).front();
  table.files = readFiles(description);
  table.schema = readSchema(description);
  return withFormat(description, std::move(table));
}

}  // namespace kv::runtime
