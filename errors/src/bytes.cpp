#include "kv/errors/bytes.h"

#include "kv/errors/StepError.h"

namespace kv::errors {

void ByteWriter::text(std::string_view value) {
  number<std::uint64_t>(value.size());
  bytes_ += value;
}

void ByteWriter::texts(const std::vector<std::string>& values) {
  number<std::uint64_t>(values.size());
  for (const std::string& value : values) {
    text(value);
  }
}

std::size_t ByteReader::count(std::size_t bytesEach) {
  const auto value = number<std::uint64_t>();
  if (value > bytes_.size() / bytesEach) {
    refuse();
  }
  return static_cast<std::size_t>(value);
}

std::size_t ByteReader::below(std::size_t end) { return below(end, number<std::uint64_t>()); }

std::size_t ByteReader::below(std::size_t end, std::uint64_t value) const {
  if (value >= end) {
    refuse();
  }
  return static_cast<std::size_t>(value);
}

std::vector<std::string> ByteReader::texts() {
  std::vector<std::string> values(count(sizeof(std::uint64_t)));
  for (std::string& value : values) {
    value = text();
  }
  return values;
}

void ByteReader::finish() const {
  if (!bytes_.empty()) {
    refuse();
  }
}

void ByteReader::refuse() const { raiseStep("KALVEX:executor:BadBytes", {std::string(what_)}); }

std::string_view ByteReader::take(std::size_t bytes) {
  if (bytes > bytes_.size()) {
    refuse();
  }
  const std::string_view taken = bytes_.substr(0, bytes);
  bytes_.remove_prefix(bytes);
  return taken;
}

}  // namespace kv::errors
