#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "kv/host/export.h"

namespace kcos {

/// FNV-1a, 64 bits; constexpr so that a literal is hashed by the compiler.
constexpr std::uint64_t hashName(std::string_view text) {
  std::uint64_t hash = 14695981039346656037ull;
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ull;
  }
  return hash;
}

/// A name on its way to the intern table, with its hash.
///
/// From a literal the hash costs nothing at run time; from any other text use `of`.
/// Lives: as long as the text it was made from.
class NameRef {
 public:
  template <std::size_t N>
  // NOLINTNEXTLINE(google-explicit-constructor): a literal is a name
  consteval NameRef(const char (&literal)[N]) : text_(literal, N - 1), hash_(hashName(text_)) {}

  static NameRef of(std::string_view text) { return {text, hashName(text)}; }

  std::string_view text() const { return text_; }
  std::uint64_t hash() const { return hash_; }

 private:
  NameRef(std::string_view text, std::uint64_t hash) : text_(text), hash_(hash) {}

  std::string_view text_;
  std::uint64_t hash_;
};

/// An interned name: equal texts have equal ids, so names compare by one pointer.
///
/// Owner: the process; an interned text is never freed.
/// Threads: any.
class COSInternedBase {
 public:
  struct Entry {
    std::string text;
    std::uint64_t hash;
  };

  constexpr COSInternedBase() = default;
  explicit constexpr COSInternedBase(const Entry* entry) : entry_(entry) {}

  /// True for the default-constructed name, which means "no name".
  bool empty() const { return entry_ == nullptr; }
  std::string_view text() const {
    return entry_ ? std::string_view(entry_->text) : std::string_view();
  }
  std::uint64_t hash() const { return entry_ ? entry_->hash : 0; }
  const Entry* id() const { return entry_; }

  friend bool operator==(COSInternedBase, COSInternedBase) = default;

 private:
  const Entry* entry_ = nullptr;
};

namespace internal {

/// The interned form of `name`; an empty text gives the empty name.
///
/// Cost: one probe of a hash table without a lock; a lock only when the name is new.
/// Errors: std::bad_alloc.
KV_HOST_API COSInternedBase makeInterned(NameRef name);

}  // namespace internal
}  // namespace kcos

template <>
struct std::hash<kcos::COSInternedBase> {
  std::size_t operator()(kcos::COSInternedBase name) const noexcept {
    return static_cast<std::size_t>(name.hash());
  }
};
