#include "source/ipc/FlatTable.h"

namespace kv::runtime {

std::optional<std::size_t> FlatTable::place(int field) const {
  const auto toFields = read<std::int32_t>(at_);
  if (!toFields) {
    return std::nullopt;
  }
  // Signed: the list of fields may come before or after the table.
  const auto fields = static_cast<std::size_t>(static_cast<std::int64_t>(at_) - *toFields);
  const auto bytes = read<std::uint16_t>(fields);
  const std::size_t entry = 4 + 2 * static_cast<std::size_t>(field);
  if (!bytes || entry + 2 > *bytes) {
    return bytes ? std::optional<std::size_t>(0) : std::nullopt;
  }
  const auto offset = read<std::uint16_t>(fields + entry);
  if (!offset) {
    return std::nullopt;
  }
  return *offset == 0 ? 0 : at_ + *offset;
}

std::optional<std::string_view> FlatTable::structures(int field, std::size_t size) const {
  const std::optional<std::size_t> at = place(field);
  if (!at || *at == 0) {
    return at ? std::optional<std::string_view>("") : std::nullopt;
  }
  const auto offset = read<std::uint32_t>(*at);
  const std::size_t vector = *at + offset.value_or(0);
  const auto count = offset ? read<std::uint32_t>(vector) : std::nullopt;
  if (!count || *count > (buffer_.size() - vector - 4) / size) {
    return std::nullopt;
  }
  return buffer_.substr(vector + 4, *count * size);
}

}  // namespace kv::runtime
