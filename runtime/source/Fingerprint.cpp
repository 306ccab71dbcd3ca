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

std::string Fingerprint::digits() const {
  const XXH128_hash_t hash = XXH3_128bits(bytes_.data(), bytes_.size());
  return fmt::format("{:016x}{:016x}", hash.high64, hash.low64);
}

}  // namespace kv::runtime
