#include "sink/manifest.h"

#include <fmt/format.h>

#include <string_view>

namespace kv::runtime {

namespace {

constexpr int kManifestVersion = 1;

std::string jsonText(std::string_view text) {
  std::string json = "\"";
  for (const char letter : text) {
    if (letter == '"' || letter == '\\') {
      json += '\\';
      json += letter;
    } else if (static_cast<unsigned char>(letter) < 0x20) {
      json += fmt::format("\\u{:04x}", static_cast<unsigned>(letter));
    } else {
      json += letter;
    }
  }
  return json + '"';
}

}  // namespace

std::string manifestOf(const WriteTarget& target, const SinkSchema& schema, std::int64_t rows,
                       std::span<const WrittenFile> written) {
  std::string columns;
  for (std::size_t i = 0; i < schema.types.size(); ++i) {
    columns += fmt::format(R"({}    {{"name": {}, "type": "{}"}})", i == 0 ? "" : ",\n",
                           schema.isArray() ? "null" : jsonText(schema.names[i]),
                           elementTypeName(schema.types[i]));
  }
  std::string keys;
  for (const std::string& key : target.partitionBy) {
    keys += (keys.empty() ? "" : ", ") + jsonText(key);
  }
  std::string files;
  for (const WrittenFile& part : written) {
    files += fmt::format(R"({}    {{"name": {}, "rows": {}, "bytes": {}}})",
                         files.empty() ? "" : ",\n", jsonText(part.name), part.rows, part.bytes);
  }
  return fmt::format(R"({{
  "writer": "kvbigdata {}",
  "version": {},
  "format": "{}",
  "rows": {},
  "columns": [
{}
  ],
  "partitionBy": [{}],
  "files": [
{}
  ]
}}
)",
                     KV_VERSION, kManifestVersion, target.format, rows, columns, keys, files);
}

}  // namespace kv::runtime
