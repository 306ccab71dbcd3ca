#include "source/registry/openSource.h"

#include <algorithm>

#include "column/bytes.h"
#include "source/memory/ArrayDatastore.h"
#include "source/registry/fileFormatTable.h"

namespace kv::runtime {

std::shared_ptr<const Datastore> openSource(std::string_view description) {
  ByteReader bytes(description, "the description of a source");
  const std::string name = bytes.text();
  const auto* format = std::ranges::find(kSourceFormats, name, &SourceFormat::name);
  if (format == kSourceFormats.end() && name != kMemoryFormat) {
    bytes.refuse();
  }
  std::shared_ptr<const Datastore> source =
      name == kMemoryFormat ? openDescribedArrays(bytes) : format->openDescribed(bytes);
  bytes.finish();
  return source;
}

}  // namespace kv::runtime
