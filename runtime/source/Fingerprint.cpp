#include "source/Fingerprint.h"

#define XXH_INLINE_ALL
#include <fmt/format.h>
#include <xxhash.h>

namespace kv::runtime {

Fingerprint& Fingerprint::add(std::string_view text) {
  add(static_cast<std::int64_t>(text.size()));
  bytes_.append(text);
  return *this;
}

Fingerprint& Fingerprint::add(std::int64_t number) {
  bytes_.append(reinterpret_cast<const char*>(&number), sizeof(number));
  return *this;
}

Fingerprint& Fingerprint::add(const Hash128& hash) {
  bytes_.append(reinterpret_cast<const char*>(&hash), sizeof(hash));
  return *this;
}

Hash128 Fingerprint::hash() const {
  const XXH128_hash_t hash = XXH3_128bits(bytes_.data(), bytes_.size());
  return {hash.high64, hash.low64};
}

std::string Fingerprint::digits() const {
  const auto [high, low] = hash();
  return fmt::format("{:016x}{:016x}", high, low);
}

}  // namespace kv::runtime
