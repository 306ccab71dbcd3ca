#include "source/registry/openSource.h"

#include <algorithm>
#include <string>
#include <utility>

#include "column/bytes.h"
#include "source/PartitionedSource.h"
#include "source/registry/fileFormatTable.h"

namespace kv::runtime {

namespace {

std::shared_ptr<const Datastore> openFormat(const std::string& name, ByteReader& bytes) {
  const auto format = std::ranges::find(kSourceFormats, name, &SourceFormat::name);
  if (format == kSourceFormats.end()) {
    bytes.refuse();
  }
  return format->openDescribed(bytes);
}

/// A source whose partitions a strategy decided: what it is made of, and how.
std::shared_ptr<const Datastore> openPartitioned(ByteReader& bytes) {
  const std::string description = bytes.text();
  ByteReader original(description, "the description of a source");
  const std::string name = original.text();
  std::shared_ptr<const Datastore> source = openFormat(name, original);
  original.finish();
  return openDescribedPartitions(std::move(source), bytes);
}

}  // namespace

std::shared_ptr<const Datastore> openSource(std::string_view description) {
  ByteReader bytes(description, "the description of a source");
  const std::string name = bytes.text();
  std::shared_ptr<const Datastore> source =
      name == kPartitionedFormat ? openPartitioned(bytes) : openFormat(name, bytes);
  bytes.finish();
  return source;
}

}  // namespace kv::runtime
