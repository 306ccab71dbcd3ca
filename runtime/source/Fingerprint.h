#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kv::runtime {

/// Hashes everything that determines the rows and types of a source (XXH3, 128 bits).
///
/// Pieces are separated by their lengths: "ab", "c" has a different hash than "a", "bc".
class Fingerprint {
 public:
  Fingerprint& add(std::string_view text);
  Fingerprint& add(std::int64_t number);

  /// 32 hexadecimal digits.
  std::string digits() const;

 private:
  std::string bytes_;
};

}  // namespace kv::runtime
