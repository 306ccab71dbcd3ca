#pragma once

#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace kv::runtime {

/// A table of a FlatBuffer, in which Arrow's IPC format describes its messages. Arrow's library
/// doesn't publish all of it: where batches are, and how many rows and nulls they have.
///
/// Source: https://flatbuffers.dev/internals/. Nothing outside the buffer is read.
class FlatTable {
 public:
  /// The root table of a buffer; empty if the buffer has none.
  static std::optional<FlatTable> root(std::string_view buffer) {
    return FlatTable(buffer, 0).follow(0);
  }

  /// The number in a field; `missing` if the table doesn't have it.
  template <class T>
  std::optional<T> number(int field, T missing = {}) const {
    const std::optional<std::size_t> at = place(field);
    return !at ? std::nullopt : *at == 0 ? std::optional(missing) : read<T>(*at);
  }

  /// The table in a field; empty if there is none.
  std::optional<FlatTable> table(int field) const {
    const std::optional<std::size_t> at = place(field);
    return at && *at != 0 ? follow(*at) : std::nullopt;
  }

  /// The bytes of a vector of structures of `size` bytes; empty bytes if the table doesn't have it.
  std::optional<std::string_view> structures(int field, std::size_t size) const;

 private:
  FlatTable(std::string_view buffer, std::size_t at) : buffer_(buffer), at_(at) {}

  template <class T>
  std::optional<T> read(std::size_t at) const {
    if (at > buffer_.size() || buffer_.size() - at < sizeof(T)) {
      return std::nullopt;
    }
    T value;
    std::memcpy(&value, buffer_.data() + at, sizeof(T));
    return value;
  }

  /// Where a field is; 0 if the table doesn't have it; empty if that can't be read.
  std::optional<std::size_t> place(int field) const;

  /// The table to which the offset at `at` leads.
  std::optional<FlatTable> follow(std::size_t at) const {
    const auto offset = read<std::uint32_t>(at);
    return offset ? std::optional(FlatTable(buffer_, at + *offset)) : std::nullopt;
  }

  std::string_view buffer_;
  std::size_t at_;
};

}  // namespace kv::runtime
