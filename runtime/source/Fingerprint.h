#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kv::runtime {

/// 128 bits of XXH3.
struct Hash128 {
  std::uint64_t high = 0;
  std::uint64_t low = 0;

  bool operator==(const Hash128&) const = default;
};

/// Hashes everything that determines the rows and types of a source (XXH3, 128 bits).
///
/// Pieces are separated by their lengths: "ab", "c" has a different hash than "a", "bc".
class Fingerprint {
 public:
  Fingerprint& add(std::string_view text);
  Fingerprint& add(std::int64_t number);
  Fingerprint& add(const Hash128& hash);

  Hash128 hash() const;
  /// 32 hexadecimal digits.
  std::string digits() const;

 private:
  std::string bytes_;
};

}  // namespace kv::runtime
