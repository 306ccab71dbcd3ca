#include "engine/Unit.h"

#include <cstddef>

#include "column/bytes.h"

namespace kv::runtime {

namespace {

constexpr std::uint32_t kUnitTag = 0x3455766B;  // "kvU4"

void writeTypes(ByteWriter& bytes, const KnownTypes& known) {
  bytes.number<std::uint64_t>(known.size());
  for (const auto& [step, types] : known) {
    bytes.number<std::uint64_t>(step);
    bytes.number<std::uint64_t>(types.size());
    for (const ArrayType& type : types) {
      bytes.number(static_cast<std::uint8_t>(type.element));
      writeDimensions(type.trailing, bytes);
    }
  }
}

KnownTypes readTypes(ByteReader& bytes) {
  KnownTypes known;
  for (std::size_t left = bytes.count(2 * sizeof(std::uint64_t)); left > 0; --left) {
    std::vector<ArrayType>& types = known[bytes.number<std::uint64_t>()];
    types.resize(bytes.count());
    for (ArrayType& type : types) {
      type.element = readElementType(bytes);
      type.trailing = readDimensions(bytes);
    }
  }
  return known;
}

}  // namespace

std::string Unit::toBytes() const {
  ByteWriter bytes;
  bytes.number(kUnitTag);
  bytes.number(attempt);
  bytes.number(stage);
  bytes.number(partition);
  bytes.number(numPartitions);
  bytes.number(range.first);
  bytes.number(range.count);
  bytes.number(randomKey);
  writeTypes(bytes, knownTypes);
  return bytes.take();
}

Unit Unit::fromBytes(std::string_view content) {
  ByteReader bytes(content, "a unit of work");
  Unit unit;
  if (bytes.number<std::uint32_t>() != kUnitTag) {
    bytes.refuse();
  }
  unit.attempt = bytes.number<std::uint32_t>();
  unit.stage = bytes.number<std::uint64_t>();
  unit.partition = bytes.number<std::int64_t>();
  unit.numPartitions = bytes.number<std::int64_t>();
  unit.range.first = bytes.number<std::int64_t>();
  unit.range.count = bytes.number<std::int64_t>();
  unit.randomKey = bytes.number<std::uint64_t>();
  unit.knownTypes = readTypes(bytes);
  bytes.finish();
  if (unit.numPartitions < 1 || unit.partition < 0 || unit.partition > unit.numPartitions) {
    bytes.refuse();
  }
  return unit;
}

}  // namespace kv::runtime
