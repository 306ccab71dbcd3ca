#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

/// Plain values as bytes, little-endian, as threads, processes and machines pass them on.
namespace kv::errors {

/// Writes values one after the other. Each has a form that ByteReader reads in the same order.
class ByteWriter {
 public:
  template <class T>
    requires std::is_integral_v<T>
  void number(T value) {
    for (std::size_t i = 0; i < sizeof(T); ++i) {
      bytes_.push_back(static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i) & 0xFF));
    }
  }

  void flag(bool value) { number<std::uint8_t>(value ? 1 : 0); }

  /// The length, then the text.
  void text(std::string_view value);
  void texts(const std::vector<std::string>& values);

  std::string take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

/// Reads what a ByteWriter wrote.
///
/// Errors: "KALVEX:executor:BadBytes" with the name of what is read, for bytes that end early or
///         don't hold what is expected.
/// Lives: the bytes outlive the reader.
class ByteReader {
 public:
  /// `what`: what the bytes are, for messages.
  ByteReader(std::string_view bytes, std::string_view what) : bytes_(bytes), what_(what) {}

  template <class T>
    requires std::is_integral_v<T>
  T number() {
    std::uint64_t bits = 0;
    const std::string_view taken = take(sizeof(T));
    for (std::size_t i = sizeof(T); i-- > 0;) {
      bits = bits << 8 | static_cast<unsigned char>(taken[i]);
    }
    return static_cast<T>(bits);
  }

  /// A number that counts things of at least `bytesEach` bytes that follow.
  std::size_t count(std::size_t bytesEach = 1);

  /// A number below `end`, such as an index or the number of an enumerator.
  std::size_t below(std::size_t end);

  bool flag() { return below(2, number<std::uint8_t>()) == 1; }
  std::string text() { return std::string(take(count())); }
  std::vector<std::string> texts();

  /// Refuses bytes that are left over.
  void finish() const;

  [[noreturn]] void refuse() const;

 private:
  std::string_view take(std::size_t bytes);
  std::size_t below(std::size_t end, std::uint64_t value) const;

  std::string_view bytes_;
  std::string_view what_;
};

}  // namespace kv::errors
