#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "kv/errors/StepError.h"
#include "sink/RowWriter.h"

namespace kv::runtime {

namespace {

constexpr std::array<std::string_view, 1> kParquetEndings{".parquet"};
constexpr std::array<std::string_view, 1> kCsvEndings{".csv"};
constexpr std::array<std::string_view, 3> kIpcEndings{".arrow", ".feather", ".ipc"};
constexpr std::array<std::string_view, 1> kNpyEndings{".npy"};

constexpr std::array kFormats{
    SinkFormat{"parquet", kParquetEndings, checkTableSchema, openParquet, joinParquet},
    SinkFormat{"csv", kCsvEndings, checkTableSchema, openCsv, joinCsv},
    SinkFormat{"ipc", kIpcEndings, checkTableSchema, openIpc, joinIpc},
    SinkFormat{"npy", kNpyEndings, checkNpySchema, openNpy, joinNpy},
};

}  // namespace

SinkSchema SinkSchema::of(const Chunk& rows, const std::vector<std::string>& names) {
  SinkSchema schema{.names = names};
  if (names.empty()) {
    schema.types = {rows.type()};
    schema.trailing = rows.trailing;
  } else {
    std::ranges::transform(rows.columns, std::back_inserter(schema.types), &Column::type);
  }
  return schema;
}

void SinkSchema::write(ByteWriter& bytes) const {
  bytes.texts(names);
  bytes.number<std::uint64_t>(types.size());
  for (const ElementType type : types) {
    bytes.number(static_cast<std::uint8_t>(type));
  }
  writeDimensions(trailing, bytes);
}

SinkSchema SinkSchema::read(ByteReader& bytes) {
  SinkSchema schema{.names = bytes.texts()};
  for (std::size_t left = bytes.count(); left > 0; --left) {
    schema.types.push_back(readElementType(bytes));
  }
  schema.trailing = readDimensions(bytes);
  return schema;
}

void checkTableSchema(const SinkSchema& schema) {
  if (schema.isArray()) {
    errors::raiseStep("KALVEX:array:NeedsTable", {"A file of this format"});
  }
}

const SinkFormat* findSinkFormat(std::string_view name) {
  const auto* row = std::ranges::find(kFormats, name, &SinkFormat::name);
  return row == kFormats.end() ? nullptr : row;
}

const SinkFormat* sinkFormatOfPath(std::string_view path) {
  std::string lower(path);
  std::ranges::transform(lower, lower.begin(), [](unsigned char letter) {
    return static_cast<char>(std::tolower(letter));
  });
  const auto* row = std::ranges::find_if(kFormats, [&](const SinkFormat& format) {
    return std::ranges::any_of(format.endings,
                               [&](std::string_view ending) { return lower.ends_with(ending); });
  });
  return row == kFormats.end() ? nullptr : row;
}

std::string sinkFormatNames() {
  std::vector<std::string> names;
  for (const SinkFormat& format : kFormats) {
    names.push_back(fmt::format("{} ({})", format.name, fmt::join(format.endings, ", ")));
  }
  return fmt::format("{}", fmt::join(names, ", "));
}

}  // namespace kv::runtime
