#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace kv {

/// Whose memory the arrays of a stream are.
enum class StreamMemory : std::uint8_t {
  Borrowed,   ///< of a table that exists besides the stream
  Collected,  ///< made for the stream: it counts under the session's memory limit
};

/// How the rows of an array in memory are cut into partitions, the pieces that threads work on.
/// Without a request: 2^20 rows, fewer where they take more than 64 MiB. Arrays of as many rows go
/// together however they are cut.
struct Partitions {
  std::int64_t rows = 0;              ///< of each but the last; 0: not requested
  std::vector<std::int64_t> sizes{};  ///< of all, some perhaps 0; empty: not requested
};

/// A type whose elements can be used in place.
template <class T>
concept Element = std::same_as<T, bool> || std::same_as<T, float> || std::same_as<T, double> ||
                  (std::integral<T> && !std::same_as<T, char> && sizeof(T) <= 8);

/// The name of an element's type, as Array::type() gives it.
template <Element T>
constexpr std::string_view typeName() {
  constexpr std::string_view kSigned[] = {"int8", "int16", "", "int32", "", "", "", "int64"};
  constexpr std::string_view kUnsigned[] = {"uint8", "uint16", "", "uint32", "", "", "", "uint64"};
  if constexpr (std::same_as<T, bool>) {
    return "logical";
  } else if constexpr (std::floating_point<T>) {
    return sizeof(T) == 8 ? "double" : "single";
  } else {
    return std::is_signed_v<T> ? kSigned[sizeof(T) - 1] : kUnsigned[sizeof(T) - 1];
  }
}

/// A column or array in memory, which is borrowed: nothing is copied when an array is made of it.
///
/// It must not change as long as arrays that read it haven't been computed; gathered values don't
/// depend on it any more. It must outlive these arrays, unless `owner` keeps it: that is released,
/// on any thread, after the last array that reads it: while later ones are recorded, by
/// Session::collect, or with the session. A vector that is moved in is kept like that.
struct Memory {
  std::string_view type = "double";
  const void* data = nullptr;          ///< the first element; a logical is a byte, 0 or 1
  std::vector<std::int64_t> shape{0};  ///< rows first
  /// Bytes from each element to the next, for each dimension. Empty: the elements of a row are next
  /// to each other, the last dimension first, and rows follow on each other.
  std::vector<std::int64_t> strides{};
  /// Of texts, instead of `data`: the text of a row, UTF-8; none if it is missing. Any thread may
  /// call it.
  std::function<std::optional<std::string_view>(std::int64_t row)> textAt{};
  std::shared_ptr<const void> owner{};

  Memory() = default;

  // NOLINTBEGIN(google-explicit-constructor): conversions are the purpose
  template <Element T>
  Memory(std::span<const T> values, std::shared_ptr<const void> keeper = nullptr)
      : type(typeName<T>()),
        data(values.data()),
        shape{static_cast<std::int64_t>(values.size())},
        owner(std::move(keeper)) {}

  template <Element T>
    requires(!std::same_as<T, bool>)
  Memory(const std::vector<T>& values) : Memory(std::span<const T>(values)) {}

  template <Element T>
    requires(!std::same_as<T, bool>)
  Memory(std::vector<T>&& values) : Memory(keep(std::move(values))) {}

  Memory(const std::vector<std::string>& texts) : Memory(&texts, nullptr) {}
  Memory(std::vector<std::string>&& texts) : Memory(keep(std::move(texts))) {}
  Memory(const std::vector<std::optional<std::string>>& texts) : Memory(&texts, nullptr) {}
  Memory(std::vector<std::optional<std::string>>&& texts) : Memory(keep(std::move(texts))) {}
  // NOLINTEND(google-explicit-constructor)

 private:
  template <class T>
  static std::shared_ptr<const std::vector<T>> keep(std::vector<T> values) {
    return std::make_shared<const std::vector<T>>(std::move(values));
  }

  template <class T>
  explicit Memory(const std::shared_ptr<const std::vector<T>>& kept) : Memory(*kept) {
    owner = kept;
  }

  template <class Text>
  Memory(const std::vector<Text>* texts, std::nullptr_t)
      : type("string"), shape{static_cast<std::int64_t>(texts->size())} {
    textAt = [texts](std::int64_t row) -> std::optional<std::string_view> {
      return (*texts)[static_cast<std::size_t>(row)];
    };
  }
};

/// A column of a table in memory.
struct NamedMemory {
  std::string name;
  Memory memory;
};

/// What a generated array is made of besides its values.
struct GeneratedOptions {
  std::string type{};                    ///< "double", "int8" ...; empty: that of the values
  std::vector<std::int64_t> trailing{};  ///< dimensions after the first
  Partitions partitions{};
};

}  // namespace kv
