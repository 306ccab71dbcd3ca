#include "column/bytes.h"

namespace kv::runtime {

ElementType readElementType(ByteReader& bytes) {
  const auto number = bytes.number<std::uint8_t>();
  if (number > static_cast<std::uint8_t>(ElementType::Duration)) {
    bytes.refuse();
  }
  return static_cast<ElementType>(number);
}

void writeDimensions(const Dimensions& trailing, ByteWriter& bytes) {
  bytes.number<std::uint64_t>(trailing.size());
  for (const std::int64_t size : trailing) {
    bytes.number(size);
  }
}

Dimensions readDimensions(ByteReader& bytes) {
  Dimensions trailing(bytes.count(sizeof(std::int64_t)));
  std::int64_t most = kMaxArrayColumns;
  for (std::int64_t& size : trailing) {
    size = bytes.number<std::int64_t>();
    if (size < 1 || size > most) {
      bytes.refuse();
    }
    most /= size;
  }
  if (!trailing.empty() && trailing.back() == 1) {
    bytes.refuse();
  }
  return trailing;
}

}  // namespace kv::runtime
