#include "source/registry/openSource.h"

#include <algorithm>
#include <array>

#include "column/bytes.h"
#include "source/csv/describeTable.h"

namespace kv::runtime {

namespace {

/// A format, by the first text of its descriptions.
struct Format {
  std::string_view name;
  std::shared_ptr<const Datastore> (*open)(ByteReader& description);
};

constexpr std::array kFormats{Format{kCsvFormat, openDescribedCsv}};

}  // namespace

std::shared_ptr<const Datastore> openSource(std::string_view description) {
  ByteReader bytes(description, "the description of a source");
  const std::string name = bytes.text();
  const auto* format = std::ranges::find(kFormats, name, &Format::name);
  if (format == kFormats.end()) {
    bytes.refuse();
  }
  std::shared_ptr<const Datastore> source = format->open(bytes);
  bytes.finish();
  return source;
}

}  // namespace kv::runtime
